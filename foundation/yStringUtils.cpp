#include <YumoClientSdk/yStringUtils.h>

#include "platform/ymTextLayout.h"

namespace {

// Parses JSON text with top-level fragments allowed; nil when it does not parse.
template <typename Iterator>
std::optional<nlohmann::json> parseJSON(Iterator begin, Iterator end)
{
    nlohmann::json parsed = nlohmann::json::parse(begin, end, nullptr, false);
    if (parsed.is_discarded())
        return std::nullopt;
    return parsed;
}

}  // namespace

bool yStringUtils::isNullString(const std::optional<nlohmann::json> &object)
{
    return !object || object->is_null();
}

std::optional<ymData> yStringUtils::toJSONData(const std::optional<nlohmann::json> &object)
{
    if (!object)
        return std::nullopt;
    std::string text;
    try {
        text = object->dump(2);
    } catch (const nlohmann::json::exception &) {
        return std::nullopt;  // a string that is not UTF-8 cannot be written as JSON
    }
    if (text.empty())
        return std::nullopt;
    return ymData(text.begin(), text.end());
}

std::optional<std::string> yStringUtils::toJSONString(const std::optional<nlohmann::json> &object)
{
    if (!object)
        return std::nullopt;
    std::optional<ymData> data = toJSONData(object);
    if (!data)
        return std::string();
    return std::string(data->begin(), data->end());
}

std::optional<nlohmann::json> yStringUtils::toArrayOrNSDictionaryWithData(const std::optional<ymData> &data)
{
    if (!data)
        return std::nullopt;
    return parseJSON(data->begin(), data->end());
}

std::optional<nlohmann::json> yStringUtils::toArrayOrNSDictionary(const std::optional<std::string> &string)
{
    if (!string)
        return std::nullopt;
    // Parsed straight from the text's bytes; no copy into a byte buffer is needed.
    return parseJSON(string->begin(), string->end());
}

std::optional<ymData> yStringUtils::stringToNSData(const std::optional<std::string> &string)
{
    if (!string)
        return std::nullopt;
    return ymData(string->begin(), string->end());
}

double yStringUtils::heightForStringDrawing(const std::optional<std::string> &string,
                                            const std::optional<std::string> &font, double width)
{
    return ymTextLayout::usedHeight(string.value_or(std::string()), font.value_or(std::string()), width);
}
