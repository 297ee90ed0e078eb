// The platform's line logger: one line of text to standard error, prefixed with the date and
// time and "process[pid:tid] ", written with a single write so that lines from several threads
// and processes never interleave.
//
// Writing a line never raises SIGPIPE: when the destination is a pipe or a socket whose reader is
// gone, the line is dropped and the process goes on.
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

// Lines of one piece of work written together. While a batch lives on a thread, the lines that
// thread writes to a destination that is no pipe or socket (the log's file, say) are kept and
// written with one write when the batch ends, or sooner: at ymNSLogFlush(), or once 64 KiB are
// kept. Each line keeps its own time, and the lines of one thread their order; a line of another
// thread may reach the file before them though its time is later. Batches nest: each end writes
// what is kept. Lines kept in the parent of a fork are not written again by the child; a thread
// that ends writes what it kept.
class ymNSLogBatch {
public:
    ymNSLogBatch();
    ~ymNSLogBatch();
    ymNSLogBatch(const ymNSLogBatch &) = delete;
    ymNSLogBatch &operator=(const ymNSLogBatch &) = delete;
};

// Writes the lines this thread's batch keeps, now. Called before anything another thread or
// process may see (a write to a socket, work posted to a loop, a child process started), so that
// the lines that led to it come first. Cheap when nothing is kept.
void ymNSLogFlush();

// Around a call into the companion's own code: what this thread kept is written first, and while
// the call runs every line is written as it comes (lines of the SDK's calls the companion makes,
// its own output and its exit keep their order), as if no batch lived on the thread.
class ymNSLogUnbatched {
public:
    ymNSLogUnbatched();
    ~ymNSLogUnbatched();
    ymNSLogUnbatched(const ymNSLogUnbatched &) = delete;
    ymNSLogUnbatched &operator=(const ymNSLogUnbatched &) = delete;

private:
    int _depth = 0;
};

// Where lines go from now on: a descriptor of the log file's own, or -1 for standard error (the
// default). A descriptor given here is written to until another is given; replace the file behind
// it with dup2() rather than closing it, since another thread may be writing a line, and then
// give the same descriptor again, so that the kind of file behind it is looked at afresh.
void ymNSLogSetDestination(int fd);

// Keeps the log's file in shape while lines are written (no keeper, the default: lines are only
// written). Before a line (or a batch's lines) is written, once this process has written, these
// counted, a sixteenth of `bytes` since the last look (at most 64 KiB; 64 KiB when `bytes` is 0,
// no limit), or a second has passed
// since it, `look` is called on the writing thread with the destination's descriptor and
// `bytes`, at most one call at a time in the process; a line written from inside the call is
// written without a look. The keeper checks that the descriptor still names the log's path and
// starts the log afresh once it has reached `bytes`; the line that caused the look is written
// after it, to wherever the destination then leads.
void ymNSLogSetKeeper(uint64_t bytes, void (*look)(int fd, uint64_t bytes));
