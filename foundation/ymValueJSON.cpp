#include "foundation/ymValueJSON.h"

namespace ymValueJSON {

nlohmann::json toJSON(const ymValue &value)
{
    switch (value.type()) {
    case ymValue::Type::null:
        return nullptr;
    case ymValue::Type::boolean:
        return value.booleanValue();
    case ymValue::Type::integer:
        return value.integerValue();
    case ymValue::Type::real:
        return value.realValue();
    case ymValue::Type::text:
        return value.text();
    case ymValue::Type::array: {
        nlohmann::json array = nlohmann::json::array();
        for (const ymValue &element : value.elements())
            array.push_back(toJSON(element));
        return array;
    }
    case ymValue::Type::dictionary: {
        nlohmann::json object = nlohmann::json::object();
        for (const auto &[key, member] : value.members())
            object[key] = toJSON(member);
        return object;
    }
    }
    return nullptr;
}

ymValue fromJSON(const nlohmann::json &json)
{
    switch (json.type()) {
    case nlohmann::json::value_t::boolean:
        return ymValue(json.get<bool>());
    case nlohmann::json::value_t::number_integer:
        return ymValue(json.get<int64_t>());
    case nlohmann::json::value_t::number_unsigned:
        return ymValue(json.get<uint64_t>());
    case nlohmann::json::value_t::number_float:
        return ymValue(json.get<double>());
    case nlohmann::json::value_t::string:
        return ymValue(json.get<std::string>());
    case nlohmann::json::value_t::array: {
        std::vector<ymValue> elements;
        for (const nlohmann::json &element : json)
            elements.push_back(fromJSON(element));
        return ymValue::array(std::move(elements));
    }
    case nlohmann::json::value_t::object: {
        ymValue::Members members;
        for (auto it = json.begin(); it != json.end(); ++it)
            members.emplace_back(it.key(), fromJSON(it.value()));
        return ymValue::dictionary(std::move(members));
    }
    default:
        return ymValue();
    }
}

}  // namespace ymValueJSON
