#include "sdk/ymIPCMessage.h"

#include <charconv>
#include <cinttypes>
#include <cstring>
#include <cstdio>

#include "foundation/ymJSONIndex.h"
#include "foundation/ymLog.h"
#include "foundation/ymTextRules.h"

namespace ymIPCMessage {
namespace {

const nlohmann::json *member(const nlohmann::json &object, const char *key)
{
    if (!object.is_object())
        return nullptr;
    auto found = object.find(key);
    return found == object.end() ? nullptr : &*found;
}

// The value of `key` in the last element of "data" that has it.
const nlohmann::json *lastInData(const nlohmann::json &message, const char *key)
{
    const nlohmann::json *data = member(message, "data");
    if (!data || !data->is_array())
        return nullptr;
    const nlohmann::json *last = nullptr;
    for (const nlohmann::json &element : *data)
        if (const nlohmann::json *value = member(element, key))
            last = value;
    return last;
}

// Appends the number in decimal, as "%d" prints it.
void appendNumber(std::string &out, int32_t value)
{
    char digits[16];
    auto [end, error] = std::to_chars(digits, digits + sizeof digits, value);
    out.append(digits, end);
}

// Appends the text as the inside of a JSON string: a quote, a backslash and the control
// characters escaped, every other byte as it is (so a plain name goes out unchanged).
void appendEscaped(std::string &out, std::string_view text)
{
    // Most names need no escape: they are copied whole.
    size_t plain = 0;
    while (plain < text.size() && static_cast<unsigned char>(text[plain]) >= 0x20 && text[plain] != '"' && text[plain] != '\\')
        ++plain;
    out.append(text.data(), plain);
    for (char c : text.substr(plain)) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\f':
            out += "\\f";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                char escaped[8];
                snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
                out += escaped;
            } else {
                out += c;
            }
        }
    }
}

// A result's text, "code:text": read only when it splits into exactly two parts.
ResultReading resultOf(std::string_view text)
{
    ResultReading reading;
    std::vector<std::string> parts = ymText::componentsSeparatedBy(text, ":");
    if (parts.size() != 2)
        return reading;
    reading.error = !ymText::boolValue(parts[0]);
    reading.code = ymText::intValue(parts[0]);
    reading.text = std::move(parts[1]);
    return reading;
}

// An indexed value as a number of T, read as the parsed value is read (ymText::intValueOf): a
// number's integer bits cast, a string's leading integer, true 1; 0 for anything else or no value.
// Nothing for a number a parser keeps as a real.
template <typename T>
std::optional<T> numberOf(const ymJSONIndex::Member *value)
{
    if (!value)
        return T(0);
    switch (value->kind) {
    case ymJSONIndex::Kind::number:
        if (std::optional<int64_t> bits = ymJSONIntegerBits(value->value))
            return static_cast<T>(*bits);
        return std::nullopt;
    case ymJSONIndex::Kind::string:
        return sizeof(T) == sizeof(int32_t) ? static_cast<T>(ymText::intValue(value->value)) : static_cast<T>(ymText::integerValue(value->value));
    case ymJSONIndex::Kind::literalTrue:
        return T(1);
    default:
        return T(0);
    }
}

// The values of "PresenceStatus" and "AudioCmd" in the last element of the "data" array that has
// each (its text is the message's); nothing when none. False when an element cannot be indexed.
bool lastInData(const ymJSONIndex &message, std::optional<ymJSONIndex::Member> &presence, std::optional<ymJSONIndex::Member> &audio)
{
    const ymJSONIndex::Member *data = message.find("data");
    if (!data || data->kind != ymJSONIndex::Kind::array)
        return true;
    std::optional<ymJSONIndex> elements = ymJSONIndex::ofArray(data->value);
    if (!elements)
        return false;
    for (const ymJSONIndex::Member &element : *elements) {
        if (element.kind != ymJSONIndex::Kind::object)
            continue;
        std::optional<ymJSONIndex> object = ymJSONIndex::ofObject(element.value);
        if (!object)
            return false;
        if (const ymJSONIndex::Member *value = object->find("PresenceStatus"))
            presence = *value;
        if (const ymJSONIndex::Member *value = object->find("AudioCmd"))
            audio = *value;
    }
    return true;
}

}  // namespace

std::string presenceRequest(const char *version)
{
    std::string text = "{\"commandId\":1,\"from\":1,\"version\":\"";
    text += version;
    text += "\",\"data\":\"\"}";
    return text;
}

std::string audioCommand(int32_t audioCmd, const std::optional<std::string> &deviceIndex,
                         const std::optional<std::string> &deviceName, uint32_t usbVid, uint32_t usbPid,
                         const char *version)
{
    const char *index = ymlog::describe(deviceIndex);
    const char *name = ymlog::describe(deviceName);
    std::string text;
    text.reserve(160 + std::strlen(index) + std::strlen(name));
    text += "{\"commandId\":2,\"from\":1,\"version\":\"";
    text += version;
    text += "\",\"data\":[{\"AudioCmd\":";
    appendNumber(text, audioCmd);
    text += "}],\"deviceIndex\":\"";
    appendEscaped(text, index);
    text += "\",\"deviceName\":\"";
    appendEscaped(text, name);
    text += "\",\"usbVid\":\"";
    appendNumber(text, static_cast<int32_t>(usbVid));
    text += "\",\"usbPid\":\"";
    appendNumber(text, static_cast<int32_t>(usbPid));
    text += "\"}";
    return text;
}

int32_t commandId(const nlohmann::json &message)
{
    const nlohmann::json *value = member(message, "commandId");
    return value ? static_cast<int32_t>(ymText::integerValueOf(*value)) : 0;
}

ResultReading result(const nlohmann::json &message)
{
    const nlohmann::json *value = member(message, "result");
    if (!value || !value->is_string())
        return ResultReading();
    return resultOf(value->get_ref<const std::string &>());
}

int32_t presenceStatus(const nlohmann::json &message)
{
    const nlohmann::json *value = lastInData(message, "PresenceStatus");
    return value ? ymText::intValueOf(*value) : 0;
}

int32_t audioCmd(const nlohmann::json &message)
{
    const nlohmann::json *value = lastInData(message, "AudioCmd");
    return value ? ymText::intValueOf(*value) : 0;
}

std::optional<std::string> deviceName(const nlohmann::json &message)
{
    const nlohmann::json *value = member(message, "deviceName");
    if (!value || !value->is_string())
        return std::nullopt;
    return value->get<std::string>();
}

std::optional<std::string> deviceIndex(const nlohmann::json &message)
{
    const nlohmann::json *value = member(message, "deviceIndex");
    if (!value)
        return std::string("0");
    if (!value->is_string())
        return std::nullopt;
    return value->get<std::string>();
}

Reading read(const nlohmann::json &message)
{
    Reading reading;
    reading.commandId = commandId(message);
    reading.result = result(message);
    reading.presenceStatus = presenceStatus(message);
    reading.audioCmd = audioCmd(message);
    reading.deviceName = deviceName(message);
    reading.deviceIndex = deviceIndex(message);
    return reading;
}

std::optional<Reading> read(std::string_view text)
{
    std::optional<ymJSONIndex> message = ymJSONIndex::ofObject(text);
    if (!message)
        return std::nullopt;
    Reading reading;
    std::optional<int64_t> command = numberOf<int64_t>(message->find("commandId"));
    if (!command)
        return std::nullopt;
    reading.commandId = static_cast<int32_t>(*command);
    const ymJSONIndex::Member *result = message->find("result");
    if (result && result->kind == ymJSONIndex::Kind::string)
        reading.result = resultOf(result->value);
    std::optional<ymJSONIndex::Member> presence, audio;
    if (!lastInData(*message, presence, audio))
        return std::nullopt;
    std::optional<int32_t> presenceStatus = numberOf<int32_t>(presence ? &*presence : nullptr);
    std::optional<int32_t> audioCmd = numberOf<int32_t>(audio ? &*audio : nullptr);
    if (!presenceStatus || !audioCmd)
        return std::nullopt;
    reading.presenceStatus = *presenceStatus;
    reading.audioCmd = *audioCmd;
    const ymJSONIndex::Member *name = message->find("deviceName");
    if (name && name->kind == ymJSONIndex::Kind::string)
        reading.deviceName = std::string(name->value);
    const ymJSONIndex::Member *index = message->find("deviceIndex");
    if (!index)
        reading.deviceIndex = std::string("0");
    else if (index->kind == ymJSONIndex::Kind::string)
        reading.deviceIndex = std::string(index->value);
    return reading;
}

}  // namespace ymIPCMessage
