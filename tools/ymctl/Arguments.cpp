#include "Arguments.h"

#include <cerrno>
#include <cstdlib>

long long parseNumber(const std::string &text, const std::string &what)
{
    errno = 0;
    char *end = nullptr;
    long long value = std::strtoll(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || errno == ERANGE)
        throw UsageError(what + " must be a whole number, not \"" + text + "\"");
    return value;
}

std::optional<std::string> Arguments::option(const std::string &name)
{
    for (size_t i = 0; i < _words.size(); ++i) {
        if (_words[i] == name) {
            if (i + 1 >= _words.size())
                throw UsageError(name + " needs a value");
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

std::optional<long long> Arguments::number(const std::string &name)
{
    std::optional<std::string> value = option(name);
    if (!value)
        return std::nullopt;
    return parseNumber(*value, name);
}

std::optional<std::string> Arguments::optionalPositional()
{
    for (size_t i = 0; i < _words.size(); ++i) {
        if (_words[i].size() > 1 && _words[i][0] == '-' && _words[i] != "--")
            continue;
        std::string word = _words[i];
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
    if (!_words.empty())
        throw UsageError("unexpected \"" + _words.front() + "\"");
}
