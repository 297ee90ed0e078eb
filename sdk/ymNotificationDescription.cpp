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

std::string describe(const std::optional<std::map<std::string, std::string>> &userInfo)
{
    if (!userInfo)
        return "(null)";
    std::string text = "{\n";
    for (const auto &[key, value] : *userInfo)
        text += "    " + quotedIfNeeded(key) + " = " + quotedIfNeeded(value) + ";\n";
    return text + "}";
}

}  // namespace ymNotificationDescription
