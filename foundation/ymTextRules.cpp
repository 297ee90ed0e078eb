#include "foundation/ymTextRules.h"

#include <cmath>
#include <cstring>
#include <cstdlib>
#include <limits>

namespace ymText {
namespace {

bool isBlankOrLineBreak(unsigned char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

// Reads blanks, a sign and digits; saturates at the limits of T.
template <typename T>
T scanInteger(std::string_view text)
{
    size_t i = 0;
    while (i < text.size() && isBlankOrLineBreak(static_cast<unsigned char>(text[i])))
        ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        negative = text[i] == '-';
        ++i;
    }
    // Accumulate as a negative number, which has the larger range.
    T value = 0;
    const T lowest = std::numeric_limits<T>::min();
    bool overflow = false;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        T digit = static_cast<T>(text[i] - '0');
        if (value < (lowest + digit) / 10) {
            overflow = true;
            break;
        }
        value = static_cast<T>(value * 10 - digit);
    }
    if (overflow)
        return negative ? lowest : std::numeric_limits<T>::max();
    if (negative)
        return value;
    return value == lowest ? std::numeric_limits<T>::max() : static_cast<T>(-value);
}

template <typename T>
T numberValue(const nlohmann::json &value)
{
    if (value.is_number_integer())
        return static_cast<T>(value.get<int64_t>());
    if (value.is_number_unsigned())
        return static_cast<T>(value.get<uint64_t>());
    if (value.is_number_float()) {
        double d = std::trunc(value.get<double>());
        if (std::isnan(d))
            return 0;
        if (d <= static_cast<double>(std::numeric_limits<T>::min()))
            return std::numeric_limits<T>::min();
        if (d >= static_cast<double>(std::numeric_limits<T>::max()))
            return std::numeric_limits<T>::max();
        return static_cast<T>(d);
    }
    if (value.is_boolean())
        return value.get<bool>() ? 1 : 0;
    if (value.is_string())
        return scanInteger<T>(value.get_ref<const std::string &>());
    return 0;
}

// Length of the UTF-8 sequence that starts with `lead`, or 0 for a byte that cannot lead one.
int sequenceLength(unsigned char lead)
{
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead <= 0xDF)
        return 2;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 3;
    if (lead >= 0xF0 && lead <= 0xF4)
        return 4;
    return 0;
}

// Validates one sequence at text[i]; answers its length or 0.
int validSequenceAt(std::string_view text, size_t i)
{
    auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
    unsigned char lead = byte(i);
    int length = sequenceLength(lead);
    if (length <= 1 || i + static_cast<size_t>(length) > text.size())
        return length == 1 ? 1 : 0;
    for (int k = 1; k < length; ++k)
        if ((byte(i + k) & 0xC0) != 0x80)
            return 0;
    unsigned char second = byte(i + 1);
    if (lead == 0xE0 && second < 0xA0)
        return 0;  // overlong
    if (lead == 0xED && second >= 0xA0)
        return 0;  // surrogate
    if (lead == 0xF0 && second < 0x90)
        return 0;  // overlong
    if (lead == 0xF4 && second >= 0x90)
        return 0;  // beyond U+10FFFF
    return length;
}

}  // namespace

int32_t intValue(std::string_view text) { return scanInteger<int32_t>(text); }
int64_t integerValue(std::string_view text) { return scanInteger<int64_t>(text); }
int32_t intValueOf(const nlohmann::json &value) { return numberValue<int32_t>(value); }
int64_t integerValueOf(const nlohmann::json &value) { return numberValue<int64_t>(value); }

bool boolValue(std::string_view text)
{
    size_t i = 0;
    while (i < text.size() && isBlankOrLineBreak(static_cast<unsigned char>(text[i])))
        ++i;
    if (i < text.size() && (text[i] == '+' || text[i] == '-'))
        ++i;
    while (i < text.size() && text[i] == '0')
        ++i;
    if (i >= text.size())
        return false;
    char c = text[i];
    return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

bool isValidUtf8(std::string_view text)
{
    for (size_t i = 0; i < text.size();) {
        // ASCII, eight bytes at a time.
        if (i + 8 <= text.size()) {
            uint64_t eight;
            std::memcpy(&eight, text.data() + i, 8);
            if ((eight & 0x8080808080808080ULL) == 0) {
                i += 8;
                continue;
            }
        }
        int length = validSequenceAt(text, i);
        if (length == 0)
            return false;
        i += static_cast<size_t>(length);
    }
    return true;
}

size_t utf16Length(std::string_view text)
{
    size_t units = 0;
    for (size_t i = 0; i < text.size();) {
        int length = validSequenceAt(text, i);
        if (length == 0) {
            ++units;
            ++i;
            continue;
        }
        units += length == 4 ? 2 : 1;
        i += static_cast<size_t>(length);
    }
    return units;
}

std::vector<std::string> componentsSeparatedBy(std::string_view text, std::string_view separator)
{
    std::vector<std::string> parts;
    if (separator.empty()) {
        parts.emplace_back(text);
        return parts;
    }
    size_t start = 0;
    for (;;) {
        size_t found = text.find(separator, start);
        if (found == std::string_view::npos) {
            parts.emplace_back(text.substr(start));
            return parts;
        }
        parts.emplace_back(text.substr(start, found - start));
        start = found + separator.size();
    }
}

namespace {

// Length of a blank or line break (ASCII, or a Unicode space or line separator) ending at `end`
// or starting at `begin`; 0 when there is none.
size_t unicodeBlankLength(std::string_view text, size_t at)
{
    auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
    unsigned char c = byte(at);
    if (isBlankOrLineBreak(c) || c == 0x1C || c == 0x1D || c == 0x1E || c == 0x1F)
        return 1;
    if (c == 0xC2 && at + 1 < text.size() && (byte(at + 1) == 0x85 || byte(at + 1) == 0xA0))
        return 2;  // NEL, NO-BREAK SPACE
    if (at + 2 < text.size()) {
        unsigned char b1 = byte(at + 1), b2 = byte(at + 2);
        if (c == 0xE1 && b1 == 0x9A && b2 == 0x80)
            return 3;  // OGHAM SPACE MARK
        if (c == 0xE2 && b1 == 0x80 && ((b2 >= 0x80 && b2 <= 0x8A) || b2 == 0xA8 || b2 == 0xA9 || b2 == 0xAF))
            return 3;  // EN QUAD .. HAIR SPACE, LINE/PARAGRAPH SEPARATOR, NARROW NBSP
        if (c == 0xE2 && b1 == 0x81 && b2 == 0x9F)
            return 3;  // MEDIUM MATHEMATICAL SPACE
        if (c == 0xE3 && b1 == 0x80 && b2 == 0x80)
            return 3;  // IDEOGRAPHIC SPACE
    }
    return 0;
}

size_t trailingBlankLength(std::string_view text, size_t end)
{
    for (size_t length = 1; length <= 3 && length <= end; ++length) {
        size_t at = end - length;
        if (unicodeBlankLength(text, at) == length)
            return length;
    }
    return 0;
}

}  // namespace

std::string trimmingWhitespaceAndNewlines(std::string_view text)
{
    size_t begin = 0;
    while (begin < text.size()) {
        size_t length = unicodeBlankLength(text, begin);
        if (length == 0)
            break;
        begin += length;
    }
    size_t end = text.size();
    while (end > begin) {
        size_t length = trailingBlankLength(text, end);
        if (length == 0 || end - length < begin)
            break;
        end -= length;
    }
    return std::string(text.substr(begin, end - begin));
}

std::string_view withoutTrailingWhitespaceAndNewlines(std::string_view text)
{
    size_t end = text.size();
    while (end > 0) {
        size_t length = trailingBlankLength(text, end);
        if (length == 0)
            break;
        end -= length;
    }
    return text.substr(0, end);
}

std::string replacingOccurrences(std::string_view text, std::string_view target, std::string_view replacement)
{
    if (target.empty())
        return std::string(text);
    std::string result;
    result.reserve(text.size());
    size_t start = 0;
    for (size_t found; (found = text.find(target, start)) != std::string_view::npos; start = found + target.size()) {
        result.append(text.substr(start, found - start));
        result.append(replacement);
    }
    result.append(text.substr(start));
    return result;
}

std::string appendingPathComponent(std::string_view base, std::string_view component)
{
    while (!component.empty() && component.front() == '/')
        component.remove_prefix(1);
    std::string result(base);
    while (result.size() > 1 && result.back() == '/')
        result.pop_back();
    if (result.empty())
        return std::string(component);
    if (result.back() != '/')
        result.push_back('/');
    result.append(component);
    return result;
}

std::string standardizingPath(std::string_view path)
{
    std::string expanded;
    if (!path.empty() && path.front() == '~' && (path.size() == 1 || path[1] == '/')) {
        const char *home = std::getenv("HOME");
        expanded = home ? home : "";
        expanded.append(path.substr(1));
    } else {
        expanded.assign(path);
    }
    std::string result;
    result.reserve(expanded.size());
    for (size_t i = 0; i < expanded.size(); ++i) {
        char c = expanded[i];
        if (c == '/' && !result.empty() && result.back() == '/')
            continue;
        if (c == '.' && !result.empty() && result.back() == '/' &&
            (i + 1 == expanded.size() || expanded[i + 1] == '/')) {
            ++i;  // "/./" folds to "/"
            continue;
        }
        result.push_back(c);
    }
    while (result.size() > 1 && result.back() == '/')
        result.pop_back();
    return result;
}

std::string formatObject(std::string_view format, std::string_view text)
{
    size_t at = format.find("%@");
    if (at == std::string_view::npos)
        return std::string(format);
    std::string result(format.substr(0, at));
    result.append(text);
    result.append(format.substr(at + 2));
    return result;
}

}  // namespace ymText
