// The words of one ymctl command line: options with values, flags and positional words.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

// A command line that does not fit the command: ymctl prints the command's help and exits 64.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Arguments {
public:
    explicit Arguments(std::vector<std::string> words) : _words(std::move(words)) {}

    // Takes "--name VALUE" (or "--name=VALUE"); nothing when absent.
    std::optional<std::string> option(const std::string &name);
    // Takes every "--name VALUE", in order.
    std::vector<std::string> options(const std::string &name);
    // Takes "--name"; answers whether it was there.
    bool flag(const std::string &name);
    // The same, with a whole number; a value that is not one is a usage error.
    std::optional<long long> number(const std::string &name);
    // Takes the next positional word; a usage error names it when it is missing.
    std::string positional(const std::string &what);
    std::optional<std::string> optionalPositional();
    // A usage error when anything is left.
    void finish() const;

private:
    std::vector<std::string> _words;
};

// A whole number, or a usage error naming `what`.
long long parseNumber(const std::string &text, const std::string &what);
