// The log-line convention of the SDK. Every diagnostic line reads
//
//     <source file name>(<line>) <message>
//
// where the message usually starts with the function's name as the log files have always shown
// it ("-[ymSdkImplement GetIMPresenceStatus]"), optionally after ">>" (inbound) or "<<"
// (outbound). The file name and line are those of the call, not of this header.
#pragma once

#include <optional>
#include <string>

#include "platform/ymNSLog.h"

namespace ymlog {

// The last component of a compile-time path, computed by the compiler.
constexpr const char *fileNameOf(const char *path)
{
    const char *name = path;
    for (const char *p = path; *p != '\0'; ++p)
        if (*p == '/')
            name = p + 1;
    return name;
}

// How a possibly missing text is printed: a missing one reads "(null)".
inline const char *describe(const std::optional<std::string> &text)
{
    return text ? text->c_str() : "(null)";
}

}  // namespace ymlog

#define YM_SOURCE_FILE_NAME                                        \
    ([]() constexpr {                                              \
        constexpr const char *name = ::ymlog::fileNameOf(__FILE__); \
        return name;                                               \
    }())

// YM_LOG("%s: socket error!", "-[ySocketServerImpl_SDK start]")
#define YM_LOG(format, ...) ymNSLogLine(YM_SOURCE_FILE_NAME, __LINE__, format __VA_OPT__(, ) __VA_ARGS__)

namespace ymlog {

// A log line formatted once and written any number of times, each time as a line of its own with
// the date and time of its writing: "<file>(<line>) <message>", of the place it was prepared.
struct PreparedLine {
    std::string text;

    void write() const { ymNSLogPrepared(text.data(), text.size()); }
};

PreparedLine prepare(const char *fileName, int line, const char *format, ...) __attribute__((format(printf, 3, 4)));

}  // namespace ymlog

// ymlog::PreparedLine found = YM_LOG_PREPARE("Success to get 4th path: %s", path.c_str());
#define YM_LOG_PREPARE(format, ...) ::ymlog::prepare(YM_SOURCE_FILE_NAME, __LINE__, format __VA_OPT__(, ) __VA_ARGS__)
