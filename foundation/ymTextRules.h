// Foundation's readings of text, kept exactly because the message format and the version checks
// depend on them: intValue, integerValue and boolValue of a string, a string's length in UTF-16
// units, splitting at a separator, trimming blanks and line breaks, and the path operations.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace ymText {

// The blanks JSON allows between tokens, and a decimal digit.
inline bool isJSONBlank(unsigned char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
inline bool isDigit(unsigned char c) { return c >= '0' && c <= '9'; }

// How many bytes from `at` on are printable ASCII but the quote and the backslash: what a JSON
// string holds as it is written, with nothing to look at.
inline size_t plainJSONStringBytes(std::string_view text, size_t at)
{
    size_t end = at;
    while (end < text.size()) {
        unsigned char c = static_cast<unsigned char>(text[end]);
        if (c < 0x20 || c >= 0x80 || c == '"' || c == '\\')
            break;
        ++end;
    }
    return end - at;
}

// Leading blanks and line breaks, an optional sign, decimal digits; 0 when there are none.
// Values beyond the range saturate at its ends.
int32_t intValue(std::string_view text);
int64_t integerValue(std::string_view text);

// Leading blanks, an optional sign, leading zeros, then YES for Y, y, T, t or a digit 1 to 9.
bool boolValue(std::string_view text);

// intValue and integerValue of a value taken from parsed JSON: a number (truncated towards
// zero), a boolean (1 or 0), or a string read as above. Anything else reads 0.
int32_t intValueOf(const nlohmann::json &value);
int64_t integerValueOf(const nlohmann::json &value);

// The number of UTF-16 units the text takes; bytes that are not valid UTF-8 count one unit each.
size_t utf16Length(std::string_view text);

// True when the bytes are well-formed UTF-8.
bool isValidUtf8(std::string_view text);

// Splits at every occurrence of the separator; n separators give n + 1 parts, empty ones kept.
std::vector<std::string> componentsSeparatedBy(std::string_view text, std::string_view separator);

// Removes blanks and line breaks (ASCII and the Unicode spaces) from both ends.
std::string trimmingWhitespaceAndNewlines(std::string_view text);

// The text without its trailing blanks and line breaks: a view, nothing copied.
std::string_view withoutTrailingWhitespaceAndNewlines(std::string_view text);

// Replaces every occurrence of `target` with `replacement`; an empty target changes nothing.
std::string replacingOccurrences(std::string_view text, std::string_view target, std::string_view replacement);

// Joins with exactly one "/" between the two parts.
std::string appendingPathComponent(std::string_view base, std::string_view component);

// Expands a leading "~" to $HOME, folds repeated "/" and "/./", drops a trailing "/".
std::string standardizingPath(std::string_view path);

// Fills the first "%@" of a format with the text.
std::string formatObject(std::string_view format, std::string_view text);

}  // namespace ymText
