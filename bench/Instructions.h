// Instructions per command, counted by callgrind: the same for the same binary and inputs on any
// machine, however busy, so that CI can hold the cost of a command to a figure kept in the tree.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace bench {

// The probe, run under callgrind: the facade with the simulator running, `count` commands of the
// kind ("audio": SetAudioCmd; "event": SetAudioCmd and the audio event the client answers it with,
// up to the delegate; "presence": a GetIMPresenceStatus round trip, up to the delegate) after a
// warm-up, with only those counted.
int runInstructionProbe(const std::string &kind, int count);

// Installs and starts the simulator under the current $HOME, runs the probe for each kind under
// callgrind, prints the figures and answers {"audioCommand": N, "presenceRoundTrip": N,
// "audioEventReceived": N, "audioEventRead": N} (user-space instructions per command; an event
// received is the event's round trip less the command alone, an event read what reading it off
// its socket costs: read, framed and queued for delivery); nothing for a figure not counted.
nlohmann::json measureInstructions(const std::string &toolsFolder, const std::string &self);

}  // namespace bench
