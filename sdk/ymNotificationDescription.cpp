#include "sdk/ymNotificationDescription.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <vector>

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
        char number[32];
        std::snprintf(number, sizeof number, "%.16g", value.realValue());
        return quotedIfNeeded(number);
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
    std::vector<const ymValue::Members::value_type *> members;
    for (const auto &member : userInfo->members())
        members.push_back(&member);
    std::stable_sort(members.begin(), members.end(), [](const auto *a, const auto *b) { return a->first < b->first; });
    std::string text = "{\n";
    for (const auto *member : members)
        text += "    " + quotedIfNeeded(member->first) + " = " + shown(member->second) + ";\n";
    return text + "}";
}

}  // namespace ymNotificationDescription
