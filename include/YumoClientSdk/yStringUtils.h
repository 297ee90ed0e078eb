/// @file
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "ymBase.h"

/// A run of bytes, as NSData holds them.
using ymData = std::vector<std::uint8_t>;

/// yStringUtils: JSON text to objects and back, the null test for parsed values, and the height
/// a text needs when wrapped. Class methods only; nothing is kept between calls, nothing is logged
/// and nothing throws: a failure answers nil (std::nullopt).
class YM_EXPORT yStringUtils {
public:
    /// YES when the object is nil or is the JSON null; NO for everything else, the empty
    /// string included.
    static bool isNullString(const std::optional<nlohmann::json> &object);

    /// The object as pretty-printed JSON text, in bytes. Nil for a nil object, for an object that
    /// cannot be written as JSON (a string that is not UTF-8, say) and for empty output.
    static std::optional<ymData> toJSONData(const std::optional<nlohmann::json> &object);

    /// The same as text. Nil for a nil object; the empty string when the object cannot be written.
    static std::optional<std::string> toJSONString(const std::optional<nlohmann::json> &object);

    /// Parses JSON bytes. Top-level fragments are allowed, so a bare string, number or null comes
    /// back as such: test the type of what you get. Nil for nil and for text that does not parse.
    static std::optional<nlohmann::json> toArrayOrNSDictionaryWithData(const std::optional<ymData> &data);

    /// Parses the UTF-8 bytes of a string, as above. Nil for nil; the empty string does not parse.
    static std::optional<nlohmann::json> toArrayOrNSDictionary(const std::optional<std::string> &string);

    /// The UTF-8 bytes of the string; nil for nil.
    static std::optional<ymData> stringToNSData(const std::optional<std::string> &string);

    /// The height, in points, that the string takes when laid out in the font (a Pango font
    /// description such as "DejaVu Sans 12"; nil means the default font) wrapped at `width`
    /// points, without padding and with no limit on height. 0.0 when no layout can be made.
    static double heightForStringDrawing(const std::optional<std::string> &string,
                                         const std::optional<std::string> &font, double width);
};
