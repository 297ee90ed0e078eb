// A handle on a running process (a pidfd): whether it has ended is one poll away, whatever pid the
// system hands out meanwhile, and a loop may wait on its descriptor to hear of the end. Where there
// are no pidfds, the process is asked by its pid, and there is no descriptor to wait on.
#pragma once

#include <sys/types.h>

class ymProcessHandle {
public:
    // A handle on the process; one that is not valid() when the process is gone already.
    explicit ymProcessHandle(pid_t pid);
    ~ymProcessHandle();
    ymProcessHandle(ymProcessHandle &&other) noexcept;
    ymProcessHandle &operator=(ymProcessHandle &&other) noexcept;

    bool valid() const { return _fd >= 0 || _byPid; }
    pid_t pid() const { return _pid; }
    // True once the process has ended (and for a handle that is not valid).
    bool hasEnded() const;
    // Readable once the process has ended; -1 for a handle that is not valid, or asked by its pid.
    int descriptor() const { return _fd; }

    ymProcessHandle(const ymProcessHandle &) = delete;
    ymProcessHandle &operator=(const ymProcessHandle &) = delete;

private:
    pid_t _pid;
    int _fd;
    bool _byPid = false;
};
