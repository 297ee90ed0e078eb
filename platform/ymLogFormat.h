// The formatter of log lines: what vsnprintf does for the conversions the SDK's lines use, without
// the cost of the general one (its locale, its flags and widths, its stream), since it runs for
// every line. A format with anything else is left to vsnprintf.
#pragma once

#include <cstdarg>
#include <cstddef>

// Formats `format` with `arguments` into `out` as vsnprintf(out, room, ...) would: at most
// room - 1 bytes and a NUL (nothing when room is 0), answering the length of the whole text. Knows
// %s (with a precision, given or `*`), %c, %d, %i, %u, %x, with the length modifiers l, ll and z,
// and %%; a null string is written as glibc writes it. Answers -1 when the format holds any other
// conversion, flag or width: the caller then formats it with vsnprintf, from a copy of the
// arguments of its own (this call may have read some).
int ymLogFormat(char *out, size_t room, const char *format, va_list arguments);
