#include <YumoClientSdk/YMSocketIPCHelper.h>
#include <YumoClientSdk/ymFileUtils.h>
#include <YumoClientSdk/ymLogHelper.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mutex>

#include "platform/ymMutex.h"
#include <sys/stat.h>
#include <unistd.h>

#include "platform/ymFileManager.h"
#include "platform/ymNSLog.h"
#include "foundation/ymTextRules.h"

namespace {
const char *const kLogFileName = "yumoclientsdk.log";
const int32_t kLogSizeLimit = 102400;
const uint64_t kRunningLimitDefault = 10 * 1024 * 1024;
const uint64_t kRunningLimitLeast = 64 * 1024;
const char *const kStandardErrorVariable = "YUMOCLIENTSDK_STDERR";
const char *const kLimitVariable = "YUMOCLIENTSDK_LOG_LIMIT";

// What the companion chose, and where the log went. Nothing under the lock writes a log line.
struct LogState {
    ymMutex lock;
    bool redirected = false;     // the log has been sent to its file once: the choice is made
    bool takesChosen = false;
    bool takesStandardError = true;
    bool limitChosen = false;
    uint64_t runningLimit = kRunningLimitDefault;
    int ownDescriptor = -1;      // the log file's, while standard error is left alone
    std::string path;            // the file the log went to last
};

LogState &state()
{
    static LogState *shared = new LogState;  // lines may be written while the process ends
    return *shared;
}

bool isAscii(const std::string &text)
{
    for (unsigned char c : text)
        if (c >= 0x80)
            return false;
    return true;
}

// Opened first and then put in place, as freopen with "a+" would (created with mode 0666 less the
// umask), except that a failure leaves the log where it was instead of closed. Only a regular
// file is a log: writing into a FIFO nobody reads would hold every line.
int openLog(const std::string &path)
{
    int fd = open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0666);
    if (fd < 0)
        return -1;
    struct stat status;
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode) || fcntl(fd, F_SETFL, O_APPEND) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// Puts the opened log where lines go: in place of standard error, or of the log's own descriptor.
// Called with the lock held.
void install(LogState &log, int fd)
{
    if (log.takesStandardError) {
        fflush(stderr);
        dup2(fd, STDERR_FILENO);  // child processes inherit it
        close(fd);
        ymNSLogSetDestination(-1);
    } else if (log.ownDescriptor < 0) {
        log.ownDescriptor = fd;
        ymNSLogSetDestination(fd);
    } else {
        dup2(fd, log.ownDescriptor);  // the number stays: a line being written goes to one file or the other
        close(fd);
    }
}

// Called by the line logger once the log has reached its limit: the log is started afresh, as
// start-up starts it when asked for a fresh one.
void restartLog()
{
    LogState &log = state();
    std::unique_lock<ymMutex> guard(log.lock, std::try_to_lock);
    if (!guard.owns_lock() || log.path.empty())
        return;  // being redirected right now
    unlink(log.path.c_str());
    int fd = openLog(log.path);
    if (fd >= 0)
        install(log, fd);
}

// The environment's word, for a program that did not choose: read once, when the log is first
// redirected. Called with the lock held.
void readEnvironment(LogState &log)
{
    if (!log.takesChosen) {
        const char *word = std::getenv(kStandardErrorVariable);
        if (word && !std::strcmp(word, "keep"))
            log.takesStandardError = false;
    }
    if (!log.limitChosen) {
        const char *text = std::getenv(kLimitVariable);
        if (text && *text) {
            char *end = nullptr;
            errno = 0;
            unsigned long long bytes = std::strtoull(text, &end, 10);
            if (errno == 0 && *end == '\0' && text[0] != '-' && (bytes == 0 || bytes >= kRunningLimitLeast))
                log.runningLimit = bytes;
        }
    }
}
}  // namespace

BOOL ymLogHelper::setTakesStandardError(BOOL takes)
{
    LogState &log = state();
    std::lock_guard<ymMutex> guard(log.lock);
    if (log.redirected)
        return NO;
    log.takesChosen = true;
    log.takesStandardError = takes;
    return YES;
}

BOOL ymLogHelper::setLogSizeLimit(uint64_t bytes)
{
    if (bytes != 0 && bytes < kRunningLimitLeast)
        return NO;
    LogState &log = state();
    std::lock_guard<ymMutex> guard(log.lock);
    log.limitChosen = true;
    log.runningLimit = bytes;
    if (!log.path.empty())
        ymNSLogSetSizeLimit(bytes, restartLog);
    return YES;
}

void ymLogHelper::redirectNSLog(BOOL fresh)
{
    LogState &log = state();
    std::lock_guard<ymMutex> guard(log.lock);
    if (!log.redirected) {
        readEnvironment(log);
        log.redirected = true;
    }
    std::optional<std::string> directory = YMSocketIPCHelper_SDK::groupContainerDir();
    if (!directory)
        return;  // the log stays where it is
    if (!ymFileManager::exists(*directory))
        ymFileManager::createDirectory(*directory);
    std::string logPath = ymText::appendingPathComponent(*directory, kLogFileName);
    if (ymFileManager::exists(logPath) && ymFileManager::isDeletable(logPath)) {
        int32_t size = ymGetFileSizeFromPath(logPath.c_str());
        if (fresh || size >= kLogSizeLimit)
            ymFileManager::removeItem(logPath);
    }
    // The path is converted as ASCII: one with other characters has no such form.
    if (!isAscii(logPath))
        return;
    int fd = openLog(logPath);
    if (fd < 0)
        return;
    install(log, fd);
    log.path = logPath;
    ymNSLogSetSizeLimit(log.runningLimit, restartLog);
}
