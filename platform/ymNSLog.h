// The platform's line logger: one line of text to standard error, prefixed with the date and
// time and "process[pid:tid] ", written with a single write so that lines from several threads
// and processes never interleave.
#pragma once

#include <cstdarg>

// Writes "<file>(<line>) " followed by the printf-style message as one log line. A newline is
// added unless the message already ends with one.
void ymNSLogLine(const char *fileName, int line, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

// The same with the arguments already gathered.
void ymNSLogLineV(const char *fileName, int line, const char *format, va_list arguments)
    __attribute__((format(printf, 3, 0)));
