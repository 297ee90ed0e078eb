// The words of one ymctl command line: options with values, flags and positional words.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

// A command line that does not fit the command: ymctl prints the message, one line naming the
// argument and what it accepts, and exits 64.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What a number may be: its range, and how to say so.
struct NumberRange {
    long long lowest;
    long long highest;
    const char *accepted;  // "a number of seconds from 0", ...
};

// Seconds to wait: 0 or more.
inline constexpr NumberRange kSeconds{0, 24LL * 3600 * 365, "a whole number of seconds from 0"};
// A USB vendor or product identifier.
inline constexpr NumberRange kUsbIdentifier{0, 65535, "a number from 0 to 65535 (decimal, or hex with 0x)"};
// An audio command: a signed 32-bit number.
inline constexpr NumberRange kAudioCommand{-2147483648LL, 2147483647LL, "a whole number from -2147483648 to 2147483647"};

class Arguments {
public:
    explicit Arguments(std::vector<std::string> words) : _words(std::move(words)) {}

    // Takes "--name VALUE" (or "--name=VALUE"); nothing when absent.
    std::optional<std::string> option(const std::string &name);
    // Takes every "--name VALUE", in order.
    std::vector<std::string> options(const std::string &name);
    // Takes "--name"; answers whether it was there.
    bool flag(const std::string &name);
    // The same, with a whole number in the range (decimal, or hex with 0x); a value that is not
    // one is a usage error.
    std::optional<long long> number(const std::string &name, const NumberRange &range);
    // Takes the next positional word; a usage error names it when it is missing.
    std::string positional(const std::string &what);
    std::optional<std::string> optionalPositional();
    // A usage error when anything is left: an unknown option, or a word too many.
    void finish() const;
    // The command whose words these are (its help lists the options).
    void setCommand(const std::string &command) { _command = command; }

private:
    std::vector<std::string> _words;
    std::string _command;
};

// A whole number in the range, or a usage error naming `what`.
long long parseNumber(const std::string &text, const std::string &what, const NumberRange &range);
