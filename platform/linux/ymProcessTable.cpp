#include "platform/ymProcessTable.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <mutex>

#include "platform/ymMutex.h"
#include <optional>
#include <string_view>
#include <unistd.h>
#include <unordered_map>

#include "platform/ymBundle.h"

namespace ymProcessTable {
namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kYoung = std::chrono::seconds(2);
constexpr auto kFullScanInterval = std::chrono::seconds(10);
constexpr long kMaximumNewPids = 2048;

struct Entry {
    bool application = false;  // the executable lies in a bundle
    std::string executable;
    Clock::time_point firstSeen;
};

// The executable of a process; nothing when the process is gone or not ours to look at.
std::optional<std::string> executableOf(long pid)
{
    char link[32];
    snprintf(link, sizeof link, "/proc/%ld/exe", pid);
    char target[4096];
    ssize_t length = readlink(link, target, sizeof target - 1);
    if (length <= 0)
        return std::nullopt;
    std::string path(target, static_cast<size_t>(length));
    // Constants here are trivially destroyed: the I/O thread may ask while the process exits.
    constexpr std::string_view deleted = " (deleted)";
    if (path.size() > deleted.size() && std::string_view(path).substr(path.size() - deleted.size()) == deleted)
        path.resize(path.size() - deleted.size());
    return path;
}

// What the kernel says of a pid in /proc/<pid>/status: whether it is a process (a thread's id is
// a pid too; only thread-group leaders are processes) and whose it is (the real user id).
struct Status {
    bool isProcess = false;
    uid_t realUid = static_cast<uid_t>(-1);
};

Status statusOf(long pid)
{
    Status status;
    char path[40];
    snprintf(path, sizeof path, "/proc/%ld/status", pid);
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return status;
    char buffer[1024];
    ssize_t count = read(fd, buffer, sizeof buffer - 1);
    close(fd);
    if (count <= 0)
        return status;
    buffer[count] = '\0';
    const char *tgid = std::strstr(buffer, "\nTgid:");
    status.isProcess = tgid && std::atol(tgid + 6) == pid;
    // "Uid:\t<real>\t<effective>\t<saved>\t<file system>"
    if (const char *uid = std::strstr(buffer, "\nUid:"))
        status.realUid = static_cast<uid_t>(std::strtoul(uid + 5, nullptr, 10));
    return status;
}

// An application is a process of this user (real uid) whose executable lies in a bundle: as a
// session's workspace lists only its own user's applications, another user's meeting client
// does not count.
bool isApplication(const std::string &executable, uid_t realUid)
{
    return realUid == getuid() && ymBundle::bundlePathOfExecutable(executable).has_value();
}

class Table {
public:
    std::vector<Process> applications()
    {
        std::lock_guard<ymMutex> guard(_lock);
        Clock::time_point now = Clock::now();
        long lastPid = readLastPid();
        bool full = !_primed || lastPid < 0 || lastPid < _lastPid || lastPid - _lastPid > kMaximumNewPids ||
                    now - _lastFullScan > kFullScanInterval;
        if (full) {
            scanAll(now);
        } else {
            for (long pid = _lastPid + 1; pid <= lastPid; ++pid)
                learn(pid, now, true);
            revisit(now);
        }
        _lastPid = lastPid;

        std::vector<Process> found;
        for (const auto &[pid, entry] : _entries)
            if (entry.application)
                found.push_back({static_cast<pid_t>(pid), entry.executable});
        return found;
    }

private:
    long readLastPid()
    {
        if (_loadavg < 0)
            _loadavg = open("/proc/loadavg", O_RDONLY | O_CLOEXEC);
        char buffer[128];
        ssize_t count = _loadavg >= 0 ? pread(_loadavg, buffer, sizeof buffer - 1, 0) : -1;
        if (count <= 0)
            return -1;
        buffer[count] = '\0';
        const char *last = std::strrchr(buffer, ' ');
        return last ? std::atol(last + 1) : -1;
    }

    void learn(long pid, Clock::time_point firstSeen, bool checkThread)
    {
        std::optional<std::string> executable = executableOf(pid);
        if (!executable) {
            _entries.erase(pid);
            return;
        }
        bool inBundle = ymBundle::bundlePathOfExecutable(*executable).has_value();
        // The status is read only where it can matter: for a new pid that may be a thread, and
        // for a process that runs from a bundle (whose user decides).
        Status status;
        if (checkThread || inBundle) {
            status = statusOf(pid);
            if (checkThread && !status.isProcess)
                return;
        }
        Entry &entry = _entries[pid];
        entry.executable = std::move(*executable);
        entry.application = inBundle && isApplication(entry.executable, status.realUid);
        entry.firstSeen = firstSeen;
    }

    // Applications and young processes are read again: they may have quit, or just exec'd.
    void revisit(Clock::time_point now)
    {
        for (auto it = _entries.begin(); it != _entries.end();) {
            Entry &entry = it->second;
            if (!entry.application && now - entry.firstSeen >= kYoung) {
                ++it;
                continue;
            }
            std::optional<std::string> executable = executableOf(it->first);
            if (!executable) {
                it = _entries.erase(it);
                continue;
            }
            if (*executable != entry.executable) {
                // A new program (an exec): its user may have changed with it.
                entry.executable = std::move(*executable);
                entry.application = isApplication(entry.executable, statusOf(it->first).realUid);
            }
            ++it;
        }
    }

    void scanAll(Clock::time_point now)
    {
        _entries.clear();
        DIR *proc = opendir("/proc");
        if (!proc)
            return;
        // Processes already there are not young; a fresh start has no history to trust.
        Clock::time_point old = now - kYoung;
        while (struct dirent *item = readdir(proc)) {
            char *end = nullptr;
            long pid = std::strtol(item->d_name, &end, 10);
            if (*item->d_name && *end == '\0')
                learn(pid, old, false);  // /proc lists processes only, not threads
        }
        closedir(proc);
        _primed = true;
        _lastFullScan = now;
    }

    ymMutex _lock;
    std::unordered_map<long, Entry> _entries;
    long _lastPid = -1;
    bool _primed = false;
    Clock::time_point _lastFullScan;
    int _loadavg = -1;
};

}  // namespace

std::vector<Process> applicationProcesses()
{
    static Table *table = new Table();  // never destroyed: any thread may ask while the process exits
    return table->applications();
}

}  // namespace ymProcessTable
