#include "sdk/ymIPCMessage.h"

#include <charconv>
#include <cinttypes>
#include <cstring>
#include <cstdio>

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
    ResultReading reading;
    const nlohmann::json *value = member(message, "result");
    if (!value || !value->is_string())
        return reading;
    std::vector<std::string> parts = ymText::componentsSeparatedBy(value->get_ref<const std::string &>(), ":");
    if (parts.size() != 2)
        return reading;
    reading.error = !ymText::boolValue(parts[0]);
    reading.code = ymText::intValue(parts[0]);
    reading.text = std::move(parts[1]);
    return reading;
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

}  // namespace ymIPCMessage
