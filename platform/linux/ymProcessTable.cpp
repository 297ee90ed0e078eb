#include "platform/ymProcessTable.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <mutex>
#include <optional>
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
    static const std::string deleted = " (deleted)";
    if (path.size() > deleted.size() && path.compare(path.size() - deleted.size(), deleted.size(), deleted) == 0)
        path.resize(path.size() - deleted.size());
    return path;
}

// A thread's id is a pid too: only thread-group leaders are processes.
bool isProcess(long pid)
{
    char path[40];
    snprintf(path, sizeof path, "/proc/%ld/status", pid);
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    char buffer[512];
    ssize_t count = read(fd, buffer, sizeof buffer - 1);
    close(fd);
    if (count <= 0)
        return false;
    buffer[count] = '\0';
    const char *tgid = std::strstr(buffer, "\nTgid:");
    return tgid && std::atol(tgid + 6) == pid;
}

class Table {
public:
    std::vector<Process> applications()
    {
        std::lock_guard<std::mutex> guard(_lock);
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
        if (checkThread && !isProcess(pid))
            return;
        Entry &entry = _entries[pid];
        entry.executable = std::move(*executable);
        entry.application = ymBundle::bundlePathOfExecutable(entry.executable).has_value();
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
                entry.executable = std::move(*executable);
                entry.application = ymBundle::bundlePathOfExecutable(entry.executable).has_value();
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

    std::mutex _lock;
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
