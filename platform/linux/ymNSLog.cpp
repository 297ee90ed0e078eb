#include "platform/ymNSLog.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <sys/time.h>
#include <unistd.h>

namespace {

constexpr size_t kStackLineSize = 2048;

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

// "2026-11-21 16:08:24.123 name[pid:tid] "
int formatPrefix(char *buffer, size_t size)
{
    struct timeval now;
    gettimeofday(&now, nullptr);
    struct tm local;
    localtime_r(&now.tv_sec, &local);
    char date[32];
    strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S", &local);
    return snprintf(buffer, size, "%s.%03ld %s[%d:%d] ", date, static_cast<long>(now.tv_usec / 1000),
                    program_invocation_short_name, static_cast<int>(getpid()), static_cast<int>(gettid()));
}

}  // namespace

void ymNSLogLineV(const char *fileName, int line, const char *format, va_list arguments)
{
    char stackLine[kStackLineSize];
    int headLength = formatPrefix(stackLine, sizeof stackLine);
    headLength += snprintf(stackLine + headLength, sizeof stackLine - headLength, "%s(%d) ", fileName, line);
    if (headLength >= static_cast<int>(sizeof stackLine) - 1)
        return;

    va_list copy;
    va_copy(copy, arguments);
    int bodyLength = vsnprintf(stackLine + headLength, sizeof stackLine - headLength, format, copy);
    va_end(copy);
    if (bodyLength < 0)
        return;

    char *text = stackLine;
    std::unique_ptr<char[]> heapLine;
    size_t total = static_cast<size_t>(headLength) + static_cast<size_t>(bodyLength);
    if (total + 2 > sizeof stackLine) {
        // A long message (a whole socket buffer, say): format it once more into a buffer that fits.
        heapLine.reset(new (std::nothrow) char[total + 2]);
        if (!heapLine)
            return;
        std::memcpy(heapLine.get(), stackLine, static_cast<size_t>(headLength));
        vsnprintf(heapLine.get() + headLength, static_cast<size_t>(bodyLength) + 1, format, arguments);
        text = heapLine.get();
    }
    if (total == 0 || text[total - 1] != '\n')
        text[total++] = '\n';
    writeAll(STDERR_FILENO, text, total);
}

void ymNSLogLine(const char *fileName, int line, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    ymNSLogLineV(fileName, line, format, arguments);
    va_end(arguments);
}
