// The benchmark's helper processes: the same program started again in one of these modes.
#pragma once

#include <string>

namespace bench {

// Listens on the path and echoes every byte back, until the peer closes.
int runSocketEcho(const std::string &path);

// Answers every "BenchPing" signal on the session bus with a "BenchPong" carrying the same text,
// using the bus library directly (no SDK in between); prints "ready" once subscribed.
int runBusEcho();

// Prints how long SharedInstance() took in this fresh process, in microseconds.
int runStartupProbe();

// Creates the facade, idles for the given seconds, and prints {"cpuSeconds", "rssKiB", "threads"}.
int runIdleProbe(int seconds);

// Creates the facade, lets it settle, idles on the main loop for the given seconds, and prints
// {"wakeUps", "threads"}: the voluntary context switches of all its threads while idle.
int runWakeUpProbe(int seconds);

// The voluntary context switches of all this process's threads so far: how often they slept and
// were woken.
long voluntarySwitches();

// Plays a host process that only talks: listens on the path (prints "ready"), and writes `count`
// audio events for Headset #1 back to back to the first peer that connects, each whole in a write
// of its own; prints "sent N" and then waits for the peer to close. Gives up waiting for a peer
// after `acceptSeconds` (prints "sent 0").
int runHostEvents(const std::string &path, int count, int acceptSeconds);

}  // namespace bench
