#include <YumoClientSdk/YMSocketIPCHelper.h>
#include <YumoClientSdk/ymFileUtils.h>
#include <YumoClientSdk/ymLogHelper.h>

#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/ymFileManager.h"
#include "foundation/ymTextRules.h"

namespace {
const char *const kLogFileName = "yumoclientsdk.log";
const int32_t kLogSizeLimit = 102400;

bool isAscii(const std::string &text)
{
    for (unsigned char c : text)
        if (c >= 0x80)
            return false;
    return true;
}
}  // namespace

void ymLogHelper::redirectNSLog(BOOL fresh)
{
    std::optional<std::string> directory = YMSocketIPCHelper_SDK::groupContainerDir();
    if (!directory)
        return;  // standard error stays where it is
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
    // Opened first and then put in place of descriptor 2, as freopen with "a+" would (created
    // with mode 0666 less the umask), except that a failure leaves standard error as it was
    // instead of closed. Child processes inherit it.
    int fd = open(logPath.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0666);
    if (fd < 0)
        return;
    // Only a regular file is a log: writing into a FIFO nobody reads would hold every line.
    struct stat status;
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode) || fcntl(fd, F_SETFL, O_APPEND) != 0) {
        close(fd);
        return;
    }
    fflush(stderr);
    dup2(fd, STDERR_FILENO);
    close(fd);
}
