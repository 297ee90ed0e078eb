#include "Output.h"

#include <algorithm>
#include <cstdio>

void Output::field(const std::string &key, const nlohmann::json &value, const std::string &label, const std::string &shown)
{
    _object[key] = value;
    _lines.emplace_back(label, shown);
}

void Output::field(const std::string &key, const nlohmann::json &value, const std::string &label)
{
    std::string shown;
    if (value.is_string())
        shown = value.get<std::string>();
    else if (value.is_boolean())
        shown = yesNo(value.get<bool>());
    else if (value.is_null())
        shown = "(none)";
    else
        shown = value.dump();
    field(key, value, label, shown);
}

void Output::flush()
{
    if (_json) {
        if (!_object.empty())
            std::printf("%s\n", _object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
    } else {
        size_t width = 0;
        for (const auto &line : _lines)
            width = std::max(width, line.first.size());
        for (const auto &line : _lines)
            std::printf("%-*s  %s\n", static_cast<int>(width), line.first.c_str(), line.second.c_str());
    }
    std::fflush(stdout);
    _object = nlohmann::json::object();
    _lines.clear();
}

void Output::note(const std::string &text)
{
    if (!_json) {
        std::printf("%s\n", text.c_str());
        std::fflush(stdout);
    }
}
