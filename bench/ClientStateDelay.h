// How soon a companion hears of the meeting client coming and going, and what following it costs
// an idle companion.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace bench {

// The probe: a facade with a client-state handler, serving its main loop for `seconds`. Prints
// "ready", then "change <kind> <CLOCK_MONOTONIC ns>" for each change heard, and at the end
// "wakeUps <n>": how often its threads went to sleep and woke in all that time.
int runClientStateProbe(int seconds);

// Starts and kills the simulator `rounds` times under the probe and answers the delays from the
// start (the spawn of the client) and the kill to the probe's callback, in milliseconds (median and
// worst); then the wake-ups per minute of the probe left idle for `idleSeconds`, once with the
// client running and once without.
nlohmann::json measureClientStateDelays(const std::string &toolsFolder, const std::string &self, int rounds, int idleSeconds);

}  // namespace bench
