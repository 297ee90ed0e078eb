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
#include <sys/file.h>
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
    dev_t device = 0;            // and the file put in place for it then
    ino_t inode = 0;
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

// The descriptor the log is written to once redirected.
int logDescriptor(const LogState &log)
{
    return log.takesStandardError ? STDERR_FILENO : log.ownDescriptor;
}

// Puts the opened log where lines go: in place of standard error, or of the log's own descriptor.
// Called with the lock held.
void install(LogState &log, int fd)
{
    struct stat status;
    if (fstat(fd, &status) == 0) {
        log.device = status.st_dev;
        log.inode = status.st_ino;
    }
    if (log.takesStandardError) {
        fflush(stderr);
        dup2(fd, STDERR_FILENO);  // child processes inherit it
        close(fd);
    } else if (log.ownDescriptor < 0) {
        log.ownDescriptor = fd;
    } else {
        dup2(fd, log.ownDescriptor);  // the number stays: a line being written goes to one file or the other
        close(fd);
    }
    ymNSLogSetDestination(log.takesStandardError ? -1 : log.ownDescriptor);
}

enum class Cut { done, leftToAnother, notInPlace };

// Empties the log file in place. Every process of the user that writes the log has it open for
// appending, so each goes on writing into the file everyone sees, from its start: no line written
// after the cut is lost, and nobody has to notice the cut. Done under an exclusive flock of the
// file, never waited for: a process that finds another cutting leaves the cut to that one; and
// `due` is asked again under the lock, with the size then, since another may just have cut.
// Answers notInPlace, nothing changed, when the path is no regular file this process may write
// (a link, a folder, a FIFO, another user's file): the caller deletes it instead.
template <typename Due>
Cut emptyInPlace(const std::string &path, Due due)
{
    int fd = open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return Cut::notInPlace;
    Cut cut = Cut::notInPlace;
    struct stat status;
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
        if (flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
            cut = Cut::leftToAnother;
        } else {
            // Where the file system has no flock, the cut is made all the same: a bounded log
            // matters more than a second cut of the same lines.
            cut = Cut::done;
            if (fstat(fd, &status) == 0 && due(status.st_size) && ftruncate(fd, 0) != 0)
                cut = Cut::notInPlace;
            flock(fd, LOCK_UN);  // here, not by close(): a child forked meanwhile shares this open file
        }
    }
    close(fd);
    return cut;
}

// Opens the log's path anew and puts it in place; answers the size of the file opened, or -1.
// Called with the lock held.
off_t reopen(LogState &log)
{
    int fd = openLog(log.path);
    struct stat status;
    if (fd < 0 || fstat(fd, &status) != 0) {
        if (fd >= 0)
            close(fd);
        return -1;
    }
    install(log, fd);
    return status.st_size;
}

// Called by the line logger before a line, now and then: when the log's descriptor no longer
// names the log's path (the file was removed, or replaced, by a user or by another program), the
// path is opened anew; once the log has reached its limit it is emptied in place, as start-up
// does, for every process that writes it. Only where the file cannot be emptied is it deleted
// and made afresh, as it was before; the other writers then reopen it at their next look.
// A descriptor that the program itself has since given another file (standard error sent
// elsewhere with dup2, say) is left as it is.
void keepLog(int fd, uint64_t limit)
{
    LogState &log = state();
    std::unique_lock<ymMutex> guard(log.lock, std::try_to_lock);
    if (!guard.owns_lock() || log.path.empty() || fd != logDescriptor(log))
        return;  // being redirected right now, or the lines go elsewhere
    struct stat written, named;
    if (fstat(fd, &written) != 0 || written.st_dev != log.device || written.st_ino != log.inode)
        return;
    off_t size = written.st_size;
    if ((stat(log.path.c_str(), &named) != 0 || named.st_dev != written.st_dev || named.st_ino != written.st_ino) &&
        (size = reopen(log)) < 0)
        return;
    if (limit == 0 || static_cast<uint64_t>(size) < limit)
        return;
    auto due = [limit](off_t now) { return static_cast<uint64_t>(now) >= limit; };
    if (emptyInPlace(log.path, due) == Cut::notInPlace && ymFileManager::removeItem(log.path))
        reopen(log);
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
        ymNSLogSetKeeper(bytes, keepLog);
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
    // The log is shared by every process of the user that writes it, so a log due for a cut is
    // emptied in place rather than deleted and started anew: the other writers go on in the file
    // everyone sees instead of one nobody does. Only a file that cannot be emptied is deleted.
    // The size is the signed 32-bit reading, under the cut's lock too.
    if (ymFileManager::exists(logPath) && ymFileManager::isDeletable(logPath)) {
        int32_t size = ymGetFileSizeFromPath(logPath.c_str());
        auto due = [fresh](off_t now) { return fresh || static_cast<int32_t>(static_cast<int64_t>(now)) >= kLogSizeLimit; };
        if ((fresh || size >= kLogSizeLimit) && emptyInPlace(logPath, due) == Cut::notInPlace)
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
    ymNSLogSetKeeper(log.runningLimit, keepLog);
}
