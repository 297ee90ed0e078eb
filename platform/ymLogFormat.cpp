#include "platform/ymLogFormat.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <sys/types.h>

namespace {

// Where the text goes: bytes past the room are counted, not written.
class Output {
public:
    Output(char *out, size_t room) : _out(out), _room(room) {}
    void put(const char *bytes, size_t length)
    {
        if (_written + 1 < _room) {
            size_t fits = _room - 1 - _written;
            std::memcpy(_out + _written, bytes, length < fits ? length : fits);
        }
        _written += length;
    }
    int finish()
    {
        if (_room > 0)
            _out[_written < _room ? _written : _room - 1] = '\0';
        return _written > static_cast<size_t>(INT32_MAX) ? -1 : static_cast<int>(_written);
    }

private:
    char *_out;
    size_t _room;
    size_t _written = 0;
};

void putNumber(Output &output, unsigned long long magnitude, unsigned base, bool negative)
{
    char digits[24];
    char *end = std::to_chars(digits, digits + sizeof digits, magnitude, static_cast<int>(base)).ptr;
    if (negative)
        output.put("-", 1);
    output.put(digits, static_cast<size_t>(end - digits));
}

void putString(Output &output, const char *text, int precision)
{
    if (!text) {
        // glibc writes "(null)" where a precision leaves room for all of it, and nothing otherwise.
        if (precision < 0 || precision >= 6)
            output.put("(null)", 6);
        return;
    }
    output.put(text, precision < 0 ? std::strlen(text) : strnlen(text, static_cast<size_t>(precision)));
}

}  // namespace

int ymLogFormat(char *out, size_t room, const char *format, va_list arguments)
{
    Output output(out, room);
    const char *cursor = format;
    for (;;) {
        const char *percent = std::strchr(cursor, '%');
        if (!percent) {
            output.put(cursor, std::strlen(cursor));
            return output.finish();
        }
        output.put(cursor, static_cast<size_t>(percent - cursor));
        const char *directive = percent + 1;
        if (*directive == '%') {
            output.put("%", 1);
            cursor = directive + 1;
            continue;
        }
        int precision = -1;
        if (*directive == '.') {
            ++directive;
            if (*directive == '*') {
                precision = va_arg(arguments, int);
                ++directive;
            } else {
                precision = 0;
                for (; *directive >= '0' && *directive <= '9'; ++directive) {
                    if (precision > 100000000)
                        return -1;
                    precision = precision * 10 + (*directive - '0');
                }
            }
        }
        int longs = 0;
        bool sized = false;
        if (*directive == 'z') {
            sized = true;
            ++directive;
        } else {
            for (; *directive == 'l' && longs < 2; ++directive)
                ++longs;
        }
        const char conversion = *directive;
        if (conversion == 's' && !sized && longs == 0) {
            putString(output, va_arg(arguments, const char *), precision);
        } else if (precision >= 0) {
            return -1;  // a precision of a number or a character: vsnprintf's
        } else if (conversion == 'c' && !sized && longs == 0) {
            char character = static_cast<char>(va_arg(arguments, int));
            output.put(&character, 1);
        } else if (conversion == 'd' || conversion == 'i') {
            long long value = sized ? static_cast<long long>(va_arg(arguments, ssize_t))
                              : longs == 2 ? va_arg(arguments, long long)
                              : longs == 1 ? va_arg(arguments, long)
                                           : va_arg(arguments, int);
            unsigned long long magnitude = value < 0 ? 0ULL - static_cast<unsigned long long>(value) : static_cast<unsigned long long>(value);
            putNumber(output, magnitude, 10, value < 0);
        } else if (conversion == 'u' || conversion == 'x') {
            unsigned long long value = sized ? va_arg(arguments, size_t)
                                       : longs == 2 ? va_arg(arguments, unsigned long long)
                                       : longs == 1 ? va_arg(arguments, unsigned long)
                                                    : va_arg(arguments, unsigned);
            putNumber(output, value, conversion == 'x' ? 16 : 10, false);
        } else {
            return -1;
        }
        cursor = directive + 1;
    }
}
