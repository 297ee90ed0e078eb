// What the SDK loses or keeps, measured: the figures behind docs/RELIABILITY.md.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace bench {

// Runs each measurement under the current $HOME (a folder of the benchmark's own) with the
// simulator from `toolsFolder`, prints a table and answers the figures. An idle companion is
// watched for `idleSeconds`.
nlohmann::json measureLosses(const std::string &toolsFolder, int idleSeconds);

}  // namespace bench
