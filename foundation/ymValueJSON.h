// Between the SDK's own values and JSON: registrations store their identifiers as JSON, and
// property lists are read through JSON.
#pragma once

#include <YumoClientSdk/ymValue.h>
#include <nlohmann/json.hpp>

namespace ymValueJSON {

// The value as JSON: null, Booleans, numbers, texts, lists and dictionaries as themselves.
nlohmann::json toJSON(const ymValue &value);

// JSON as a value; unsigned numbers beyond the signed 64-bit range wrap, as they are stored.
ymValue fromJSON(const nlohmann::json &json);

}  // namespace ymValueJSON
