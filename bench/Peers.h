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

}  // namespace bench
