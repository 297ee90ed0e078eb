#include "platform/ymFolderWatch.h"

#include <cerrno>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Everything that can change what a folder holds, or the folder itself.
constexpr uint32_t kChanges = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CLOSE_WRITE | IN_MODIFY | IN_ATTRIB |
                              IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

bool isFolder(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// The folder itself when it exists, else its nearest ancestor that does ("" when none).
std::string existingFolder(std::string path)
{
    for (;;) {
        if (path.empty())
            return "";
        if (isFolder(path))
            return path;
        size_t slash = path.rfind('/');
        if (slash == std::string::npos)
            return "";
        path = slash == 0 ? "/" : path.substr(0, slash);
    }
}

}  // namespace

ymFolderWatch::ymFolderWatch() : _fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

ymFolderWatch::~ymFolderWatch()
{
    if (_fd >= 0)
        close(_fd);
}

bool ymFolderWatch::watchOnly(const std::vector<std::string> &folders, const std::string &execFolder)
{
    if (_fd < 0)
        return false;
    std::map<std::string, uint32_t> wanted;
    for (const std::string &folder : folders) {
        std::string existing = existingFolder(folder);
        if (!existing.empty())
            wanted[existing] |= kChanges;
    }
    if (!execFolder.empty() && isFolder(execFolder))
        wanted[execFolder] |= kChanges | IN_OPEN;
    bool all = true;
    for (auto watch = _watches.begin(); watch != _watches.end();) {
        if (wanted.count(watch->first)) {
            ++watch;
            continue;
        }
        inotify_rm_watch(_fd, watch->second);
        watch = _watches.erase(watch);
    }
    for (const auto &[folder, mask] : wanted) {
        // Added again even when it is there: the mask may have changed, and the folder may be a new
        // one at the same path (the watch follows the folder, not its path).
        int wd = inotify_add_watch(_fd, folder.c_str(), mask);
        if (wd < 0) {
            all = false;
            _watches.erase(folder);
            continue;
        }
        _watches[folder] = wd;
    }
    return all;
}

bool ymFolderWatch::pending() const
{
    if (_fd < 0)
        return false;
    struct pollfd ready = {_fd, POLLIN, 0};
    return poll(&ready, 1, 0) > 0 && (ready.revents & POLLIN);
}

bool ymFolderWatch::changed()
{
    if (_fd < 0)
        return true;
    bool any = false;
    alignas(struct inotify_event) char buffer[4096];
    for (;;) {
        ssize_t count = read(_fd, buffer, sizeof buffer);
        if (count > 0) {
            any = true;
            continue;
        }
        if (count < 0 && errno == EINTR)
            continue;
        return any;
    }
}
