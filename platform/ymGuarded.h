// Work that runs on a loop's behalf (a source's handler, queued work, a companion's callback):
// whatever it throws stops there, and is said in the log, so that the loop and the work after it
// go on. Nothing thrown ever leaves a loop's thread.
#pragma once

#include <exception>

// Writes the log line of a failure: "<owner>: <what> threw: <why>".
void ymGuardedFailed(const char *owner, const char *what, const char *why) noexcept;

template <typename Body>
void ymGuarded(const char *owner, const char *what, Body &&body) noexcept
{
    try {
        body();
    } catch (const std::exception &error) {
        ymGuardedFailed(owner, what, error.what());
    } catch (...) {
        ymGuardedFailed(owner, what, "an exception");
    }
}
