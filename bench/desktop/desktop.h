// desktop.h: small helpers shared by the desktop measurements (bench/desktop/*.cpp).
// Plain POSIX and /proc; nothing of the SDK's internals. Each program includes it once.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace desk {

inline double monotonic()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

inline long long realtimeNs()
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

inline std::string home()
{
    const char *value = std::getenv("HOME");
    return value ? value : "";
}

// The app-group container and the two sockets the meeting client and its host process listen on.
inline std::string groupContainer() { return home() + "/Library/Group Containers/Q4W7N2R8TX.YumoClient3rd"; }
inline std::string clientSocketPath() { return groupContainer() + "/s.yumoclient"; }
inline std::string logPath() { return groupContainer() + "/yumoclientsdk.log"; }

inline std::string readFile(const std::string &path)
{
    std::string text;
    FILE *file = std::fopen(path.c_str(), "r");
    if (!file)
        return text;
    char buffer[65536];
    size_t count;
    while ((count = std::fread(buffer, 1, sizeof buffer, file)) > 0)
        text.append(buffer, count);
    std::fclose(file);
    return text;
}

// A "Key:   value" field of /proc/.../status, as a number; -1 when absent.
inline long long statusField(const std::string &statusPath, const char *key)
{
    std::string text = readFile(statusPath);
    std::string wanted = std::string(key) + ":";
    size_t at = text.find(wanted);
    if (at == std::string::npos)
        return -1;
    return std::strtoll(text.c_str() + at + wanted.size(), nullptr, 10);
}

// The task (thread) id of the thread of `pid` named `name`, or -1.
inline long findThread(pid_t pid, const char *name)
{
    std::string folder = "/proc/" + std::to_string(pid) + "/task";
    DIR *dir = opendir(folder.c_str());
    if (!dir)
        return -1;
    long found = -1;
    while (struct dirent *entry = readdir(dir)) {
        if (entry->d_name[0] == '.')
            continue;
        std::string comm = readFile(folder + "/" + entry->d_name + "/comm");
        if (comm == std::string(name) + "\n") {
            found = std::strtol(entry->d_name, nullptr, 10);
            break;
        }
    }
    closedir(dir);
    return found;
}

inline std::string taskPath(pid_t pid, long tid) { return "/proc/" + std::to_string(pid) + "/task/" + std::to_string(tid); }

// The SDK's I/O thread is named so (pthread_setname_np).
inline const char *kIOThreadName = "yumosdk-io";

// CPU seconds (user + system) of a task, from its stat line; -1 when unreadable.
inline double taskCpuSeconds(const std::string &taskFolder)
{
    std::string text = readFile(taskFolder + "/stat");
    size_t close = text.rfind(')');
    if (close == std::string::npos)
        return -1;
    // Fields after the command: state(3) ... utime(14) stime(15).
    const char *cursor = text.c_str() + close + 2;
    unsigned long long utime = 0, stime = 0;
    for (int field = 3; field <= 15 && *cursor; ++field) {
        char *end = nullptr;
        unsigned long long value = std::strtoull(cursor, &end, 10);
        if (field == 14)
            utime = value;
        if (field == 15)
            stime = value;
        const char *space = std::strchr(cursor, ' ');
        if (!space)
            break;
        cursor = space + 1;
    }
    return static_cast<double>(utime + stime) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// Waits for a child at most `seconds`; answers true with its status when it ended.
inline bool waitChild(pid_t pid, double seconds, int *status)
{
    int fd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    if (fd >= 0) {
        struct pollfd entry = {fd, POLLIN, 0};
        int ready = poll(&entry, 1, static_cast<int>(seconds * 1000));
        close(fd);
        if (ready <= 0)
            return false;
        return waitpid(pid, status, 0) == pid;
    }
    double deadline = monotonic() + seconds;
    for (;;) {
        pid_t ended = waitpid(pid, status, WNOHANG);
        if (ended == pid)
            return true;
        if (monotonic() >= deadline)
            return false;
        usleep(1000);
    }
}

// Reads one line from a descriptor within `seconds`; empty when none came.
inline std::string readLine(int fd, double seconds)
{
    std::string line;
    double deadline = monotonic() + seconds;
    for (;;) {
        double left = deadline - monotonic();
        if (left <= 0)
            return std::string();
        struct pollfd entry = {fd, POLLIN, 0};
        if (poll(&entry, 1, static_cast<int>(left * 1000) + 1) <= 0)
            continue;
        char c;
        ssize_t count = read(fd, &c, 1);
        if (count <= 0)
            return std::string();
        if (c == '\n')
            return line;
        line += c;
    }
}

}  // namespace desk
