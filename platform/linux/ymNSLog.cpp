#include "platform/ymNSLog.h"

#include "platform/ymThreadLocal.h"

#include <atomic>
#include <cerrno>
#include <pthread.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <algorithm>
#include <memory>
#include <vector>
#include <mutex>

#include "platform/ymMutex.h"
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

constexpr size_t kStackLineSize = 2048;

// Bumped in the child of every fork, so that threads learn their process's new id without asking
// the kernel on every line.
std::atomic<unsigned> forkGeneration{1};
[[maybe_unused]] const int registeredForkHandler = pthread_atfork(nullptr, nullptr, [] { forkGeneration.fetch_add(1); });

// Where lines go, and the size past which the log is started afresh.
std::atomic<int> destination{STDERR_FILENO};
std::atomic<uint64_t> sizeLimit{0};
std::atomic<uint64_t> writtenSinceLook{0};
std::atomic<void (*)()> restartLog{nullptr};
ymMutex &restarting = *new ymMutex();  // lines are written while the process exits

constexpr uint64_t kLookAtMost = 64 * 1024;

// After a line: looks at the file's size once enough has been written since the last look.
void noteWritten(int fd, size_t count)
{
    uint64_t limit = sizeLimit.load(std::memory_order_relaxed);
    if (limit == 0)
        return;
    uint64_t every = std::min<uint64_t>(kLookAtMost, std::max<uint64_t>(limit / 16, 1));
    if (writtenSinceLook.fetch_add(count, std::memory_order_relaxed) + count < every)
        return;
    writtenSinceLook.store(0, std::memory_order_relaxed);
    struct stat status;
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode) || static_cast<uint64_t>(status.st_size) < limit)
        return;
    // A line the restart writes, or one written meanwhile by another thread, does not restart again.
    std::unique_lock<ymMutex> guard(restarting, std::try_to_lock);
    void (*restart)() = restartLog.load();
    if (guard.owns_lock() && restart)
        restart();
}

// Writes all of the bytes, continuing short writes; a failed write drops the rest of the line.
void writeAll(int fd, const char *bytes, size_t count)
{
    while (count > 0) {
        ssize_t written = ::write(fd, bytes, count);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        bytes += written;
        count -= static_cast<size_t>(written);
    }
}

// Appends the text; answers the new end, or nothing when it does not fit before `limit`.
char *append(char *cursor, const char *limit, const char *text, size_t length)
{
    if (!cursor || static_cast<size_t>(limit - cursor) < length)
        return nullptr;
    std::memcpy(cursor, text, length);
    return cursor + length;
}

char *appendNumber(char *cursor, const char *limit, long value, int minimumDigits)
{
    char digits[24];
    int count = 0;
    bool negative = value < 0;
    unsigned long magnitude = negative ? 0UL - static_cast<unsigned long>(value) : static_cast<unsigned long>(value);
    do {
        digits[count++] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0 || count < minimumDigits);
    if (negative)
        digits[count++] = '-';
    char ordered[24];
    for (int i = 0; i < count; ++i)
        ordered[i] = digits[count - 1 - i];
    return append(cursor, limit, ordered, static_cast<size_t>(count));
}

// "2026-11-21 16:08:24.123 name[pid:tid] ". The date is formatted once a second and the process
// part once a thread (again after a fork); the rest is copied, not printf'd, since this runs for
// every line. Answers the end, or nothing when it does not fit.
char *writeTime(char *buffer, const char *limit)
{
    struct CachedPrefix {
        time_t second = -1;
        char date[32] = "";
        size_t dateLength = 0;
        unsigned generation = 0;
        char process[96] = "";
        size_t processLength = 0;
    };
    thread_local CachedPrefix cached;
    struct timeval now;
    gettimeofday(&now, nullptr);
    if (now.tv_sec != cached.second) {
        struct tm local;
        localtime_r(&now.tv_sec, &local);
        cached.dateLength = strftime(cached.date, sizeof cached.date, "%Y-%m-%d %H:%M:%S.", &local);
        cached.second = now.tv_sec;
    }
    unsigned generation = forkGeneration.load(std::memory_order_relaxed);
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
char *writeHead(char *buffer, const char *limit, const char *fileName, int line)
{
    char *cursor = writeTime(buffer, limit);
    cursor = append(cursor, limit, fileName, std::strlen(fileName));
    cursor = append(cursor, limit, "(", 1);
    cursor = appendNumber(cursor, limit, line, 1);
    return append(cursor, limit, ") ", 2);
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
    char *headEnd = writeHead(buffer.data(), buffer.data() + buffer.size() - 2, fileName, line);
    if (!headEnd)
        return;
    size_t headLength = static_cast<size_t>(headEnd - buffer.data());

    va_list copy;
    va_copy(copy, arguments);
    int bodyLength = vsnprintf(headEnd, buffer.size() - headLength, format, copy);
    va_end(copy);
    if (bodyLength < 0)
        return;
    size_t total = headLength + static_cast<size_t>(bodyLength);
    if (total + 2 > buffer.size()) {
        std::vector<char> larger(total + 2);
        std::memcpy(larger.data(), buffer.data(), headLength);
        buffer.swap(larger);
        vsnprintf(buffer.data() + headLength, static_cast<size_t>(bodyLength) + 1, format, arguments);
    }
    char *text = buffer.data();
    if (total == 0 || text[total - 1] != '\n')
        text[total++] = '\n';
    int fd = destination.load(std::memory_order_relaxed);
    writeAll(fd, text, total);
    noteWritten(fd, total);
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
    char *headEnd = writeTime(buffer.data(), buffer.data() + buffer.size() - 2);
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
    int fd = destination.load(std::memory_order_relaxed);
    writeAll(fd, buffer.data(), total);
    noteWritten(fd, total);
}

void ymNSLogLine(const char *fileName, int line, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    ymNSLogLineV(fileName, line, format, arguments);
    va_end(arguments);
}

void ymNSLogSetDestination(int fd)
{
    destination.store(fd >= 0 ? fd : STDERR_FILENO);
}

void ymNSLogSetSizeLimit(uint64_t bytes, void (*restart)())
{
    restartLog.store(restart);
    sizeLimit.store(bytes);
}
