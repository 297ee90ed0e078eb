// The platform's line logger: one line of text to standard error, prefixed with the date and
// time and "process[pid:tid] ", written with a single write so that lines from several threads
// and processes never interleave.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

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

// Where lines go from now on: a descriptor of the log file's own, or -1 for standard error (the
// default). A descriptor given here is written to until another is given; replace the file behind
// it with dup2() rather than closing it, since another thread may be writing a line.
void ymNSLogSetDestination(int fd);

// Once the file behind the destination has reached `bytes` (0: no limit, the default), `restart`
// is called on the thread that wrote the line, at most once at a time, to start the log afresh.
// The size is looked at after every sixteenth of the limit written (at most every 64 KiB), so
// lines written by others to the same file count too.
void ymNSLogSetSizeLimit(uint64_t bytes, void (*restart)());
