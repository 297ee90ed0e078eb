#include "platform/ymFolderWatch.h"

#include <cerrno>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

// Everything that can change what a folder holds, or the folder itself.
constexpr uint32_t kChanges = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CLOSE_WRITE | IN_MODIFY | IN_ATTRIB |
                              IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

// In a folder that stands for one not made yet: an entry made or moved in (the next component of
// the path, perhaps), and the folder itself going.
constexpr uint32_t kNextComponent = IN_CREATE | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

// A folder whose times are this close to now may change again without its times changing (they
// are taken from a coarse clock, and some file systems keep whole seconds only).
constexpr time_t kRecentSeconds = 2;

// The folder itself when it exists, else its nearest ancestor that does ("" when none); `status`
// is what stat said of it.
std::string existingFolder(std::string path, struct stat &status)
{
    for (;;) {
        if (path.empty())
            return "";
        if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode))
            return path;
        size_t slash = path.rfind('/');
        if (slash == std::string::npos)
            return "";
        path = slash == 0 ? "/" : path.substr(0, slash);
    }
}

// The component of `folder` that follows `existing` (a prefix of it ending before a slash).
std::string nextComponent(const std::string &folder, const std::string &existing)
{
    size_t start = folder.find_first_not_of('/', existing.size());
    if (start == std::string::npos)
        return "";
    size_t end = folder.find('/', start);
    return folder.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

bool recent(const struct timespec &time, const struct timespec &now)
{
    time_t apart = now.tv_sec - time.tv_sec;
    return apart < kRecentSeconds && apart > -kRecentSeconds;
}

bool same(const struct timespec &a, const struct timespec &b) { return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec; }

}  // namespace

bool ymFolderWatch::Look::operator==(const Look &other) const
{
    return existing == other.existing && dev == other.dev && ino == other.ino && same(mtime, other.mtime) && same(ctime, other.ctime);
}

ymFolderWatch::ymFolderWatch() : _fd(-1) {}

ymFolderWatch::~ymFolderWatch()
{
    if (_fd >= 0)
        close(_fd);
}

bool ymFolderWatch::makeInstance()
{
    if (_fd < 0)
        _fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    return _fd >= 0;
}

bool ymFolderWatch::add(const std::string &folder, Watch &watch)
{
    uint32_t mask = watch.whole ? kChanges | (watch.exec ? uint32_t(IN_OPEN) : 0u) : kNextComponent;
    watch.wd = _fd >= 0 ? inotify_add_watch(_fd, folder.c_str(), mask) : -1;
    return watch.wd >= 0;
}

ymFolderWatch::Look ymFolderWatch::lookAt(const std::string &folder)
{
    Look look;
    struct stat status;
    look.existing = existingFolder(folder, status);
    if (look.existing.empty())
        return look;
    look.dev = status.st_dev;
    look.ino = status.st_ino;
    if (look.existing == folder) {
        look.mtime = status.st_mtim;
        look.ctime = status.st_ctim;
        struct timespec now;
        clock_gettime(CLOCK_REALTIME, &now);
        look.recent = recent(look.mtime, now) || recent(look.ctime, now);
    }
    return look;
}

bool ymFolderWatch::watchOnly(const std::vector<std::string> &folders, const std::string &execFolder)
{
    // What to watch where: each folder asked for in itself when it exists, else the next component
    // of its path in its nearest ancestor that does. Paths that name the same folder share a watch
    // (inotify has one per folder).
    std::map<std::string, Watch> plan;
    std::map<std::pair<dev_t, ino_t>, std::string> byInode;
    std::vector<std::string> asked;  // the folders asked for that exist or have an ancestor that does
    auto watchIn = [&](const std::string &existing, const struct stat &status) -> Watch & {
        return plan[byInode.emplace(std::make_pair(status.st_dev, status.st_ino), existing).first->second];
    };
    for (const std::string &folder : folders) {
        struct stat status;
        std::string existing = existingFolder(folder, status);
        if (existing.empty())
            continue;
        asked.push_back(folder);
        Watch &watch = watchIn(existing, status);
        std::string next = existing == folder ? "" : nextComponent(folder, existing);
        if (next.empty())
            watch.whole = true;
        else
            watch.names.insert(next);
    }
    struct stat execStatus;
    if (!execFolder.empty() && stat(execFolder.c_str(), &execStatus) == 0 && S_ISDIR(execStatus.st_mode)) {
        asked.push_back(execFolder);
        Watch &watch = watchIn(execFolder, execStatus);
        watch.whole = watch.exec = true;
    }

    // Each is added again even when it is watched already: what counts there may have changed,
    // and the folder may be a new one at the same path (a watch follows the folder, not its path).
    // A watch no folder needs any more ends.
    makeInstance();
    std::set<int> kept;
    _unwatched.clear();
    for (auto &[folder, watch] : plan) {
        if (add(folder, watch))
            kept.insert(watch.wd);
        else
            _unwatched.insert(folder);
    }
    for (const auto &[wd, folder] : _byDescriptor)
        if (!kept.count(wd))
            inotify_rm_watch(_fd, wd);
    _byDescriptor.clear();
    for (const auto &[folder, watch] : plan)
        if (watch.wd >= 0)
            _byDescriptor[watch.wd] = folder;
    _watches = std::move(plan);

    // What inotify cannot watch is looked at with stat.
    _looks.clear();
    for (const std::string &folder : asked) {
        Look look = lookAt(folder);
        auto standing = byInode.find({look.dev, look.ino});
        if (_fd < 0 || standing == byInode.end() || _unwatched.count(standing->second))
            _looks[folder] = std::move(look);
    }
    return complete();
}

bool ymFolderWatch::eventsChanged()
{
    bool any = false;
    alignas(struct inotify_event) char buffer[4096];
    for (;;) {
        ssize_t count = read(_fd, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return any;
        for (ssize_t at = 0; at + ssize_t(sizeof(struct inotify_event)) <= count;) {
            const auto *event = reinterpret_cast<const struct inotify_event *>(buffer + at);
            at += ssize_t(sizeof(struct inotify_event) + event->len);
            if (any)
                continue;  // the rest is only drained
            if (event->mask & IN_Q_OVERFLOW) {
                any = true;  // events were lost: anything may have changed
                continue;
            }
            auto found = _byDescriptor.find(event->wd);
            if (found == _byDescriptor.end())
                continue;  // a watch given up already
            const Watch &watch = _watches[found->second];
            if (watch.whole || (event->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT)) ||
                (event->len > 0 && watch.names.count(event->name)))
                any = true;
        }
    }
}

bool ymFolderWatch::changed()
{
    bool any = _fd >= 0 && eventsChanged();
    for (auto &[folder, look] : _looks) {
        Look now = lookAt(folder);
        if (look.recent || !(now == look)) {
            any = true;
            look = std::move(now);
        }
    }
    return any;
}

bool ymFolderWatch::poll()
{
    bool gained = false;
    if (makeInstance()) {
        for (auto folder = _unwatched.begin(); folder != _unwatched.end();) {
            Watch &watch = _watches[*folder];
            if (!add(*folder, watch)) {
                ++folder;
                continue;
            }
            _byDescriptor[watch.wd] = *folder;
            folder = _unwatched.erase(folder);
            gained = true;
        }
    }
    // The looks are compared after the watches were added: a change before that shows in them,
    // one after it in the events.
    return changed() || gained;
}
