#include "Arguments.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>

long long parseNumber(const std::string &text, const std::string &what, const NumberRange &range)
{
    errno = 0;
    char *end = nullptr;
    // Decimal or 0x hex; a leading 0 is not octal here (010 is ten).
    bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    long long value = std::strtoll(text.c_str(), &end, hex ? 16 : 10);
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0])) || *end != '\0' || errno == ERANGE ||
        value < range.lowest || value > range.highest)
        throw UsageError(what + " takes " + range.accepted + ", not \"" + text + "\"");
    return value;
}

std::optional<std::string> Arguments::option(const std::string &name)
{
    for (size_t i = 0; i < _words.size(); ++i) {
        if (_words[i] == name) {
            if (i + 1 >= _words.size())
                throw UsageError(name + " needs a value (see the command's --help)");
            std::string value = _words[i + 1];
            _words.erase(_words.begin() + static_cast<long>(i), _words.begin() + static_cast<long>(i) + 2);
            return value;
        }
        if (_words[i].rfind(name + "=", 0) == 0) {
            std::string value = _words[i].substr(name.size() + 1);
            _words.erase(_words.begin() + static_cast<long>(i));
            return value;
        }
    }
    return std::nullopt;
}

std::vector<std::string> Arguments::options(const std::string &name)
{
    std::vector<std::string> values;
    while (std::optional<std::string> value = option(name))
        values.push_back(*value);
    return values;
}

bool Arguments::flag(const std::string &name)
{
    for (size_t i = 0; i < _words.size(); ++i) {
        if (_words[i] == name) {
            _words.erase(_words.begin() + static_cast<long>(i));
            return true;
        }
    }
    return false;
}

std::optional<long long> Arguments::number(const std::string &name, const NumberRange &range)
{
    std::optional<std::string> value = option(name);
    if (!value)
        return std::nullopt;
    return parseNumber(*value, name, range);
}

std::optional<std::string> Arguments::optionalPositional()
{
    for (size_t i = 0; i < _words.size(); ++i) {
        // Options are passed over; a negative number ("-5") is a word like any other.
        std::string word = _words[i];
        if (word.size() > 1 && word[0] == '-' && word != "--" && !std::isdigit(static_cast<unsigned char>(word[1])))
            continue;
        _words.erase(_words.begin() + static_cast<long>(i));
        return word;
    }
    return std::nullopt;
}

std::string Arguments::positional(const std::string &what)
{
    std::optional<std::string> word = optionalPositional();
    if (!word)
        throw UsageError("missing " + what);
    return *word;
}

void Arguments::finish() const
{
    const std::string &command = _command;
    if (_words.empty())
        return;
    const std::string &word = _words.front();
    if (word.size() > 1 && word[0] == '-')
        throw UsageError("unknown option \"" + word + "\" (ymctl " + command + " --help lists its options)");
    throw UsageError("unexpected argument \"" + word + "\" (ymctl " + command + " --help tells what it takes)");
}
