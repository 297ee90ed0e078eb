/// @file
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ymBase.h"

/// CMD: runs a text as a shell command line, as the NSString (CMD) category did. The line goes to
/// "/bin/sh -c" unchanged, so its quoting, pipes and redirections are the shell's; callers quote
/// what they put in it. Both calls block the calling thread while the command runs.
class YM_EXPORT CMD {
public:
    /// Runs the command line with its standard output captured; standard input and error are the
    /// caller's. Answers the output decoded as UTF-8, untrimmed (a trailing newline is kept), once
    /// the command has closed its output; nil when the output is not UTF-8 or the shell cannot
    /// be started.
    static std::optional<std::string> runAsCommand(const std::string &commandLine);

    /// Runs the command line with all three standard streams inherited and waits for it to exit.
    /// Answers its exit status (0 = success), the signal number when a signal ended it, and -1
    /// when the shell cannot be started or waited for.
    static int32_t runAsCommand_ret(const std::string &commandLine);
};
