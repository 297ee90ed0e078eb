// Folders watched on the I/O thread (see ymIOLoop::DirectoryWatch): with the loop's inotify source,
// or, while inotify cannot be had, by a look every second or so that tries for inotify again.
#include "platform/ymIOLoop.h"
#include "platform/linux/ymEventSource.h"
#include "platform/ymGuarded.h"

#include <cerrno>
#include <dirent.h>
#include <exception>
#include <map>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <vector>


namespace {

// An entry made or moved in, and the folder itself going.
constexpr uint32_t kMask = IN_CREATE | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

// Without inotify: a look this often (microseconds), moved later by up to the slack to share the
// wake-up with other timers.
constexpr uint64_t kLookEvery = 1000000;
constexpr uint64_t kLookSlack = 500000;

// A folder whose times are this close to now may change again without its times changing (they
// come from a coarse clock; some file systems keep whole seconds only): it is read again.
constexpr time_t kRecentSeconds = 2;

bool same(const struct timespec &a, const struct timespec &b) { return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec; }

bool recent(const struct timespec &time)
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    time_t apart = now.tv_sec - time.tv_sec;
    return apart < kRecentSeconds && apart > -kRecentSeconds;
}

// What the sources run: nothing it throws leaves the loop's callback, but a line in the log.
template <typename Body>
void guarded(const char *what, Body &&body) noexcept
{
    ymGuarded("ymIOLoop", what, std::forward<Body>(body));
}

// The folder's entries and their inodes; false when it cannot be read now.
bool readEntries(const std::string &path, std::map<std::string, ino_t> &entries)
{
    DIR *folder = opendir(path.c_str());  // close-on-exec, as glibc opens it
    if (!folder)
        return false;
    while (const struct dirent *entry = readdir(folder)) {
        std::string name = entry->d_name;
        if (name != "." && name != "..")
            entries[name] = entry->d_ino;
    }
    closedir(folder);
    return true;
}

class DirectorySource : public ymIOLoop::DirectoryWatch {
public:
    DirectorySource(std::string path, Handler handler) : _path(std::move(path)), _handler(std::make_shared<Handler>(std::move(handler))) {}
    ~DirectorySource() override
    {
        sd_event_source_disable_unref(_inotify);
        sd_event_source_disable_unref(_timer);
    }

    bool start()
    {
        sd_event *event = ymIOLoopEvent();
        if (!event)
            return false;
        int result = sd_event_add_inotify(event, &_inotify, _path.c_str(), kMask, onEvent, this);
        if (result >= 0)
            return true;
        if (result != -EMFILE && result != -ENFILE && result != -ENOSPC && result != -ENOMEM)
            return false;  // no such folder, say
        // No inotify instance or watch to be had: the folder is looked at instead.
        struct stat status;
        if (stat(_path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
            return false;
        _dev = status.st_dev;
        _ino = status.st_ino;
        // What it holds now is the ground the looks compare with; while it cannot be read, every
        // entry the first read finds is told.
        if (readEntries(_path, _entries))
            remember(status);
        return sd_event_add_time_relative(event, &_timer, CLOCK_MONOTONIC, kLookEvery, kLookSlack, onTime, this) >= 0;
    }

private:
    void remember(const struct stat &status)
    {
        _read = true;
        _mtime = status.st_mtim;
        _ctime = status.st_ctim;
        _recent = recent(_mtime) || recent(_ctime);
    }

    // Calls the handler with each name (nullptr: the folder went); false once this watch has
    // ended or been destroyed by the handler.
    bool tell(const std::vector<const char *> &names)
    {
        std::weak_ptr<char> alive = _alive;
        std::shared_ptr<Handler> handler = _handler;
        for (const char *name : names) {
            if (!name)
                _ended = true;
            (*handler)(name);
            if (alive.expired() || _ended)
                return false;
        }
        return true;
    }

    // Without inotify: tells what was made or moved in since the last look. False once ended.
    bool look()
    {
        struct stat status;
        if (stat(_path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) || status.st_dev != _dev || status.st_ino != _ino)
            return tell({nullptr});  // removed, or moved away (and perhaps another put in its place)
        if (_read && !_recent && same(status.st_mtim, _mtime) && same(status.st_ctim, _ctime))
            return true;
        // Read after the stat: a change after it shows in the read, or in the next stat.
        std::map<std::string, ino_t> entries;
        if (!readEntries(_path, entries))
            return true;  // the next look reads it
        remember(status);
        std::vector<std::string> fresh;
        for (const auto &[name, ino] : entries) {
            auto known = _entries.find(name);
            if (known == _entries.end() || known->second != ino)
                fresh.push_back(name);
        }
        _entries = std::move(entries);
        std::vector<const char *> names;
        for (const std::string &name : fresh)
            names.push_back(name.c_str());
        return tell(names);
    }

    void onLook()
    {
        // inotify again, first: what changes after it was added is told by inotify, what changed
        // before by this last look.
        bool watching = sd_event_add_inotify(sd_event_source_get_event(_timer), &_inotify, _path.c_str(), kMask, onEvent, this) >= 0;
        if (!look())
            return;
        if (watching) {
            sd_event_source_disable_unref(_timer);  // the timer's own callback: allowed
            _timer = nullptr;
            _entries.clear();
        } else if (sd_event_source_set_time_relative(_timer, kLookEvery) >= 0) {
            sd_event_source_set_enabled(_timer, SD_EVENT_ONESHOT);
        }
    }

    static int onTime(sd_event_source *, uint64_t, void *userdata)
    {
        auto *self = static_cast<DirectorySource *>(userdata);
        if (!self->_ended)
            guarded("a folder's look", [self] { self->onLook(); });
        return 0;
    }

    static int onEvent(sd_event_source *, const struct inotify_event *event, void *userdata)
    {
        auto *self = static_cast<DirectorySource *>(userdata);
        if (self->_ended)
            return 0;
        guarded("a folder's watch", [self, event] {
            if (event->mask & IN_Q_OVERFLOW) {
                // Events were lost: every entry there may be new, and is told.
                std::map<std::string, ino_t> entries;
                std::vector<const char *> names;
                if (readEntries(self->_path, entries))
                    for (const auto &entry : entries)
                        names.push_back(entry.first.c_str());
                self->tell(names);
            } else if (event->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) {
                self->tell({nullptr});
            } else if (event->len > 0) {
                self->tell({event->name});
            }
        });
        return 0;
    }

    const std::string _path;
    std::shared_ptr<Handler> _handler;  // copied for each call: a handler may destroy its watch
    std::shared_ptr<char> _alive = std::make_shared<char>();
    sd_event_source *_inotify = nullptr;
    bool _ended = false;

    // Without inotify: the folder as the last look saw it.
    sd_event_source *_timer = nullptr;
    dev_t _dev = 0;
    ino_t _ino = 0;
    bool _read = false;  // _entries holds what the folder held
    struct timespec _mtime = {0, 0};
    struct timespec _ctime = {0, 0};
    bool _recent = false;
    std::map<std::string, ino_t> _entries;
};

}  // namespace

std::unique_ptr<ymIOLoop::DirectoryWatch> ymIOLoop::DirectoryWatch::watch(const std::string &path, Handler handler)
{
    auto source = std::make_unique<DirectorySource>(path, std::move(handler));
    return source->start() ? std::move(source) : nullptr;
}
