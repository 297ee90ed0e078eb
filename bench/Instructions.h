// Instructions per command, counted by callgrind: the same for the same binary and inputs on any
// machine, however busy, so that CI can hold the cost of a command to a figure kept in the tree.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace bench {

// The probe, run under callgrind: the facade with the simulator running, `count` commands of the
// kind ("audio": SetAudioCmd; "presence": a GetIMPresenceStatus round trip, up to the delegate)
// after a warm-up, with only those counted.
int runInstructionProbe(const std::string &kind, int count);

// Installs and starts the simulator under the current $HOME, runs the probe for both kinds under
// callgrind, prints the figures and answers {"audioCommand": N, "presenceRoundTrip": N} (user-space
// instructions per command); nothing for a kind that could not be counted.
nlohmann::json measureInstructions(const std::string &toolsFolder, const std::string &self);

}  // namespace bench
