// What ymctl prints: for a person, aligned "label  value" lines; with --json, one JSON object per
// result on a line of its own, with stable key names.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

class Output {
public:
    explicit Output(bool json) : _json(json) {}
    bool json() const { return _json; }

    // Adds one field to the current result: `key` in JSON, `label` and `shown` for a person.
    void field(const std::string &key, const nlohmann::json &value, const std::string &label, const std::string &shown);
    void field(const std::string &key, const nlohmann::json &value, const std::string &label);

    // Adds a field for JSON output only.
    void jsonField(const std::string &key, const nlohmann::json &value) { _object[key] = value; }

    // Prints the current result and starts the next one.
    void flush();

    // A line for a person only (JSON output prints nothing for it).
    void note(const std::string &text);

    static std::string yesNo(bool value) { return value ? "yes" : "no"; }

private:
    bool _json;
    nlohmann::json _object = nlohmann::json::object();
    std::vector<std::pair<std::string, std::string>> _lines;
};
