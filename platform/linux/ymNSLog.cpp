#include "platform/ymNSLog.h"

#include "platform/ymFork.h"
#include "platform/ymLogFormat.h"
#include "platform/ymMutex.h"
#include "platform/ymThreadLocal.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <mutex>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr size_t kStackLineSize = 2048;

// Where lines go, and who keeps the log's file in shape.
std::atomic<int> destination{STDERR_FILENO};
std::atomic<uint64_t> sizeLimit{0};
std::atomic<uint64_t> lookEvery{64 * 1024};  // bytes written between two looks, from the limit
std::atomic<void (*)(int, uint64_t)> keeper{nullptr};
std::atomic<uint64_t> writtenSinceLook{0};
std::atomic<int64_t> lastLookSecond{-1};
ymMutex &looking = *new ymMutex();  // lines are written while the process exits

constexpr uint64_t kLookAtMost = 64 * 1024;

// What the destination is, as far as SIGPIPE goes: a pipe or a socket raises it when its reader
// is gone, a file or a terminal does not. Looked at once per change of the destination (and at
// every look of the keeper, once a second at most), not per line. Kept as one word: the number of
// the change it was looked at for, times four, plus the kind.
enum Kind : uint64_t { kPlain = 0, kPipe = 1, kSocket = 2 };
std::atomic<uint64_t> destinationChanges{1};
std::atomic<uint64_t> knownKind{0};

Kind kindOf(int fd)
{
    uint64_t change = destinationChanges.load(std::memory_order_acquire);
    uint64_t known = knownKind.load(std::memory_order_acquire);
    if (known >> 2 == change)
        return static_cast<Kind>(known & 3);
    // Looked at after the change was counted, so after the descriptor was put in place: a look
    // that raced with a later change is simply made again by the next line.
    struct stat status;
    Kind kind = kPlain;
    if (fstat(fd, &status) == 0)
        kind = S_ISSOCK(status.st_mode) ? kSocket : S_ISFIFO(status.st_mode) ? kPipe : kPlain;
    knownKind.store(change << 2 | kind, std::memory_order_release);
    return kind;
}

// Blocks SIGPIPE in this thread while it lives. Once a write met a reader that is gone (EPIPE),
// the SIGPIPE that this write raised is taken back before the mask is restored, unless one was
// pending already: that one is the process's own business and stays.
class QuietPipe {
public:
    QuietPipe()
    {
        sigemptyset(&_pipe);
        sigaddset(&_pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &_pipe, &_previous);
        sigset_t pending;
        sigemptyset(&pending);
        _wasPending = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
    }
    ~QuietPipe()
    {
        if (broken && !_wasPending) {
            const struct timespec now = {0, 0};
            while (sigtimedwait(&_pipe, nullptr, &now) < 0 && errno == EINTR) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &_previous, nullptr);
    }
    QuietPipe(const QuietPipe &) = delete;
    QuietPipe &operator=(const QuietPipe &) = delete;

    bool broken = false;

private:
    sigset_t _pipe;
    sigset_t _previous;
    bool _wasPending = false;
};

// Writes all of the bytes, continuing short writes; a failed write drops the rest of the line.
// Answers false, nothing written, when a socket was expected and the descriptor is none now.
bool writeAll(int fd, const char *bytes, size_t count, Kind kind, QuietPipe *quiet)
{
    while (count > 0) {
        ssize_t written = kind == kSocket ? send(fd, bytes, count, MSG_NOSIGNAL) : ::write(fd, bytes, count);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            if (errno == ENOTSOCK && kind == kSocket)
                return false;
            if (errno == EPIPE && quiet)
                quiet->broken = true;
            return true;
        }
        bytes += written;
        count -= static_cast<size_t>(written);
    }
    return true;
}

// A line to its destination. A file pays nothing more than the write; a socket is sent to without
// SIGPIPE, a pipe written with SIGPIPE blocked.
void writeLine(int fd, const char *bytes, size_t count)
{
    Kind kind = kindOf(fd);
    if (kind == kSocket && !writeAll(fd, bytes, count, kind, nullptr)) {
        destinationChanges.fetch_add(1);  // replaced by something else: looked at again by the next line
        kind = kPipe;
    }
    if (kind == kPipe) {
        QuietPipe quiet;
        writeAll(fd, bytes, count, kind, &quiet);
    } else if (kind == kPlain) {
        writeAll(fd, bytes, count, kind, nullptr);
    }
}

// Before a line (or the lines of a batch, `coming` bytes): lets the keeper look at the log once
// enough has been written, these lines counted, or a second has passed, since the last look; the
// kind of the destination is looked at again then too.
void lookIfDue(int64_t second, size_t coming)
{
    // The second is the line's own (its date): no clock is read for this.
    if (writtenSinceLook.load(std::memory_order_relaxed) + coming < lookEvery.load(std::memory_order_relaxed) &&
        second == lastLookSecond.load(std::memory_order_relaxed))
        return;
    uint64_t limit = sizeLimit.load(std::memory_order_relaxed);
    // A line the keeper writes, or one written meanwhile by another thread, does not look again.
    std::unique_lock<ymMutex> guard(looking, std::try_to_lock);
    if (!guard.owns_lock())
        return;
    writtenSinceLook.store(0, std::memory_order_relaxed);
    lastLookSecond.store(second, std::memory_order_relaxed);
    destinationChanges.fetch_add(1);
    if (void (*look)(int, uint64_t) = keeper.load())
        look(destination.load(), limit);
}

void flush(struct Batch &batch);

// The lines a thread keeps while a batch lives on it; what is kept when the thread ends is
// written then.
struct Batch {
    int depth = 0;
    uint64_t generation = 0;  // of ymFork: what a parent kept is not the child's to write
    int64_t second = 0;       // the last line's
    std::string kept;
    ~Batch() { flush(*this); }
};

constexpr size_t kBatchLimit = 64 * 1024;

// Lines written with the keeper's look before them. The caller's errno is kept.
void write(const char *text, size_t count, int64_t second)
{
    int savedErrno = errno;
    lookIfDue(second, count);
    writeLine(destination.load(std::memory_order_relaxed), text, count);
    writtenSinceLook.fetch_add(count, std::memory_order_relaxed);
    errno = savedErrno;
}

void flush(Batch &batch)
{
    if (batch.kept.empty())
        return;
    // Taken out first: the keeper's look before the write may move the destination, which
    // flushes again; that flush finds nothing (or only lines written during the look).
    std::string lines;
    lines.swap(batch.kept);
    if (batch.generation == ymFork::generation())
        write(lines.data(), lines.size(), batch.second);
    lines.clear();
    if (batch.kept.empty() && lines.capacity() <= kBatchLimit)
        batch.kept.swap(lines);  // its room is used again
}

// A formatted line: kept in this thread's batch when there is one and the destination takes
// lines in bulk (a pipe or a socket gets each line whole, as it comes), written otherwise.
void emit(const char *text, size_t count, int64_t second)
{
    Batch *batch = ymThreadLocalInstance<Batch>();
    if (batch && batch->depth > 0 && kindOf(destination.load(std::memory_order_relaxed)) == kPlain) {
        uint64_t generation = ymFork::generation();
        if (batch->generation != generation) {
            batch->kept.clear();
            batch->generation = generation;
        }
        batch->kept.append(text, count);
        batch->second = second;
        if (batch->kept.size() >= kBatchLimit)
            flush(*batch);
        return;
    }
    if (batch)
        flush(*batch);  // kept for a destination that changed since: first
    write(text, count, second);
}

// Appends the text; answers the new end, or nothing when it does not fit before `limit`.
char *append(char *cursor, const char *limit, const char *text, size_t length)
{
    if (!cursor || static_cast<size_t>(limit - cursor) < length)
        return nullptr;
    std::memcpy(cursor, text, length);
    return cursor + length;
}

// "2026-11-21 16:08:24.123 name[pid:tid] ". The date is formatted once a second and the process
// part once a thread (again after a fork); the rest is copied, not printf'd, since this runs for
// every line. Answers the end, or nothing when it does not fit; `second` is the line's.
char *writeTime(char *buffer, const char *limit, int64_t &second)
{
    struct CachedPrefix {
        time_t second = -1;
        char date[32] = "";
        size_t dateLength = 0;
        uint64_t generation = 0;  // of ymFork: the process part is made again after a fork
        char process[96] = "";
        size_t processLength = 0;
    };
    thread_local CachedPrefix cached;
    struct timeval now;
    gettimeofday(&now, nullptr);
    second = now.tv_sec;
    if (now.tv_sec != cached.second) {
        struct tm local;
        localtime_r(&now.tv_sec, &local);
        cached.dateLength = strftime(cached.date, sizeof cached.date, "%Y-%m-%d %H:%M:%S.", &local);
        cached.second = now.tv_sec;
    }
    uint64_t generation = ymFork::generation();
    if (generation != cached.generation) {
        int length = snprintf(cached.process, sizeof cached.process, " %s[%d:%d] ", program_invocation_short_name,
                              static_cast<int>(getpid()), static_cast<int>(gettid()));
        cached.processLength = length > 0 ? std::min(static_cast<size_t>(length), sizeof cached.process - 1) : 0;
        cached.generation = generation;
    }
    char *cursor = append(buffer, limit, cached.date, cached.dateLength);
    unsigned milliseconds = static_cast<unsigned>(now.tv_usec / 1000);
    const char digits[3] = {static_cast<char>('0' + milliseconds / 100), static_cast<char>('0' + milliseconds / 10 % 10),
                            static_cast<char>('0' + milliseconds % 10)};
    cursor = append(cursor, limit, digits, 3);
    return append(cursor, limit, cached.process, cached.processLength);
}

// The time and process part, then "file.cpp(42) ".
char *writeHead(char *buffer, const char *limit, const char *fileName, int line, int64_t &second)
{
    char *cursor = writeTime(buffer, limit, second);
    cursor = append(cursor, limit, fileName, std::strlen(fileName));
    cursor = append(cursor, limit, "(", 1);
    char digits[16];
    cursor = append(cursor, limit, digits, static_cast<size_t>(std::to_chars(digits, digits + sizeof digits, line).ptr - digits));
    return append(cursor, limit, ") ", 2);
}

// The message into `out`, as vsnprintf would write it; the formatter of log lines where it knows
// the format.
int formatBody(char *out, size_t room, const char *format, va_list arguments)
{
    va_list copy;
    va_copy(copy, arguments);
    int length = ymLogFormat(out, room, format, copy);
    va_end(copy);
    if (length >= 0)
        return length;
    va_copy(copy, arguments);
    length = vsnprintf(out, room, format, copy);
    va_end(copy);
    return length;
}

}  // namespace

void ymNSLogLineV(const char *fileName, int line, const char *format, va_list arguments)
{
    // Each thread keeps a line buffer that grows to the longest line it has written, so a line is
    // formatted once; only a line longer than any before it is formatted a second time. A line
    // written while the thread ends, after its buffer is gone, uses one of its own.
    std::vector<char> *kept = ymThreadLocalInstance<std::vector<char>>();
    std::vector<char> ownBuffer;
    std::vector<char> &buffer = kept ? *kept : ownBuffer;
    if (buffer.size() < kStackLineSize)
        buffer.resize(kStackLineSize);
    int64_t second = 0;
    char *headEnd = writeHead(buffer.data(), buffer.data() + buffer.size() - 2, fileName, line, second);
    if (!headEnd)
        return;
    size_t headLength = static_cast<size_t>(headEnd - buffer.data());

    int bodyLength = formatBody(headEnd, buffer.size() - headLength, format, arguments);
    if (bodyLength < 0)
        return;
    size_t total = headLength + static_cast<size_t>(bodyLength);
    if (total + 2 > buffer.size()) {
        std::vector<char> larger(total + 2);
        std::memcpy(larger.data(), buffer.data(), headLength);
        buffer.swap(larger);
        formatBody(buffer.data() + headLength, static_cast<size_t>(bodyLength) + 1, format, arguments);
    }
    char *text = buffer.data();
    if (total == 0 || text[total - 1] != '\n')
        text[total++] = '\n';
    emit(text, total, second);
}

void ymNSLogPrepared(const char *text, size_t length)
{
    // A line formatted before, its file and line included: the time is put before it, and it is
    // copied, not formatted again.
    std::vector<char> *kept = ymThreadLocalInstance<std::vector<char>>();
    std::vector<char> ownBuffer;
    std::vector<char> &buffer = kept ? *kept : ownBuffer;
    if (buffer.size() < kStackLineSize)
        buffer.resize(kStackLineSize);
    int64_t second = 0;
    char *headEnd = writeTime(buffer.data(), buffer.data() + buffer.size() - 2, second);
    if (!headEnd)
        return;
    size_t headLength = static_cast<size_t>(headEnd - buffer.data());
    size_t total = headLength + length;
    if (total + 2 > buffer.size()) {
        std::vector<char> larger(total + 2);
        std::memcpy(larger.data(), buffer.data(), headLength);
        buffer.swap(larger);
    }
    std::memcpy(buffer.data() + headLength, text, length);
    if (total == 0 || buffer[total - 1] != '\n')
        buffer[total++] = '\n';
    emit(buffer.data(), total, second);
}

void ymNSLogLine(const char *fileName, int line, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    ymNSLogLineV(fileName, line, format, arguments);
    va_end(arguments);
}

ymNSLogBatch::ymNSLogBatch()
{
    if (Batch *batch = ymThreadLocalInstance<Batch>())
        ++batch->depth;
}

ymNSLogBatch::~ymNSLogBatch()
{
    if (Batch *batch = ymThreadLocalInstance<Batch>()) {
        --batch->depth;
        flush(*batch);
    }
}

ymNSLogUnbatched::ymNSLogUnbatched()
{
    if (Batch *batch = ymThreadLocalInstance<Batch>()) {
        flush(*batch);
        _depth = batch->depth;
        batch->depth = 0;
    }
}

ymNSLogUnbatched::~ymNSLogUnbatched()
{
    if (Batch *batch = ymThreadLocalInstance<Batch>()) {
        flush(*batch);  // what a batch of the companion's call left, should it have left any
        batch->depth = _depth;
    }
}

void ymNSLogFlush()
{
    if (Batch *batch = ymThreadLocalInstance<Batch>())
        flush(*batch);
}

void ymNSLogSetDestination(int fd)
{
    ymNSLogFlush();  // what this thread kept goes where it was meant to
    destination.store(fd >= 0 ? fd : STDERR_FILENO);
    destinationChanges.fetch_add(1);
}

void ymNSLogSetKeeper(uint64_t bytes, void (*look)(int fd, uint64_t bytes))
{
    keeper.store(look);
    sizeLimit.store(bytes);
    lookEvery.store(bytes == 0 ? kLookAtMost : std::min<uint64_t>(kLookAtMost, std::max<uint64_t>(bytes / 16, 1)));
}
