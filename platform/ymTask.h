// The platform's way of running "/bin/sh -c <command line>" as a child process. The child gets
// the caller's standard streams, except that its standard output may be captured.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace ymTask {

// Runs the command with inherited streams and waits. Answers the exit status, or the number of
// the signal that ended it, or -1 when the shell could not be started.
int32_t runShell(const std::string &commandLine);

// Runs the command with its standard output going to a pipe and reads the pipe to its end.
// Answers the bytes read, or nothing when the shell could not be started.
std::optional<std::string> runShellCapturingOutput(const std::string &commandLine);

}  // namespace ymTask
