#include "sdk/ymNotificationDescription.h"

#include <cctype>
#include <charconv>
#include <map>

namespace ymNotificationDescription {
namespace {

std::string quotedIfNeeded(const std::string &text)
{
    bool bare = !text.empty();
    for (unsigned char c : text)
        if (!(std::isalnum(c) || c == '_'))
            bare = false;
    if (bare)
        return text;
    std::string quoted = "\"";
    for (char c : text) {
        switch (c) {
        case '"': quoted += "\\\""; break;
        case '\\': quoted += "\\\\"; break;
        case '\n': quoted += "\\n"; break;
        case '\r': quoted += "\\r"; break;
        case '\t': quoted += "\\t"; break;
        default: quoted += c;
        }
    }
    return quoted + "\"";
}

// A value as the platform's description of a dictionary shows it: a number is written as its
// own description (a real with up to 16 significant digits) and quoted like a text when it is
// not bare ("-5", "1.5"); a Boolean is 1 or 0.
std::string shown(const ymValue &value)
{
    switch (value.type()) {
    case ymValue::Type::text:
        return quotedIfNeeded(value.text());
    case ymValue::Type::boolean:
        return value.booleanValue() ? "1" : "0";
    case ymValue::Type::integer:
        return quotedIfNeeded(std::to_string(value.integerValue()));
    case ymValue::Type::real: {
        // The same in every locale: no decimal comma.
        char number[32];
        std::to_chars_result end = std::to_chars(number, number + sizeof number, value.realValue(), std::chars_format::general, 16);
        return quotedIfNeeded(std::string(number, end.ptr));
    }
    default:
        return "(null)";
    }
}

}  // namespace

std::string describe(const std::optional<ymValue> &userInfo)
{
    if (!userInfo)
        return "(null)";
    // Keys in ascending order, as the platform lists a dictionary whose keys are all texts.
    std::multimap<std::string, const ymValue *> sorted;
    for (const auto &[key, value] : userInfo->members())
        sorted.emplace(key, &value);
    std::string text = "{\n";
    for (const auto &[key, value] : sorted)
        text += "    " + quotedIfNeeded(key) + " = " + shown(*value) + ";\n";
    return text + "}";
}

}  // namespace ymNotificationDescription
