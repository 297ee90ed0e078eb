// The platform's line logger: one line of text to standard error, prefixed with the date and
// time and "process[pid:tid] ", written with a single write so that lines from several threads
// and processes never interleave.
#pragma once

#include <cstdarg>
#include <cstddef>

// Writes "<file>(<line>) " followed by the printf-style message as one log line. A newline is
// added unless the message already ends with one.
void ymNSLogLine(const char *fileName, int line, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

// Writes a line formatted before, "<file>(<line>) " and the message included, as one log line (a
// newline added unless it ends with one): only the date and the process are put before it.
void ymNSLogPrepared(const char *text, size_t length);

// The same with the arguments already gathered.
void ymNSLogLineV(const char *fileName, int line, const char *format, va_list arguments)
    __attribute__((format(printf, 3, 0)));
