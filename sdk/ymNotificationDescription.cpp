#include "sdk/ymNotificationDescription.h"

#include <cctype>

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

}  // namespace

std::string describe(const std::optional<ymValue> &userInfo)
{
    if (!userInfo)
        return "(null)";
    std::string text = "{\n";
    for (const auto &[key, value] : userInfo->members()) {
        std::string shown;
        if (value.isText())
            shown = quotedIfNeeded(value.text());
        else if (value.type() == ymValue::Type::real)
            shown = std::to_string(value.realValue());
        else if (value.isNumber() || value.type() == ymValue::Type::boolean)
            shown = std::to_string(value.integerValue());
        else
            shown = "(null)";
        text += "    " + quotedIfNeeded(key) + " = " + shown + ";\n";
    }
    return text + "}";
}

}  // namespace ymNotificationDescription
