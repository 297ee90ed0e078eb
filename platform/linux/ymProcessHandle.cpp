#include "platform/ymProcessHandle.h"

#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

ymProcessHandle::ymProcessHandle(pid_t pid) : _pid(pid), _fd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)))
{
    // Without pidfds (a kernel before 5.3, or a tool that runs the program and does not know the
    // call) the process is asked by its pid.
    _byPid = _fd < 0 && errno == ENOSYS && (kill(pid, 0) == 0 || errno == EPERM);
}

ymProcessHandle::~ymProcessHandle()
{
    if (_fd >= 0)
        close(_fd);
}

ymProcessHandle::ymProcessHandle(ymProcessHandle &&other) noexcept
    : _pid(other._pid), _fd(std::exchange(other._fd, -1)), _byPid(std::exchange(other._byPid, false))
{
}

ymProcessHandle &ymProcessHandle::operator=(ymProcessHandle &&other) noexcept
{
    if (this != &other) {
        if (_fd >= 0)
            close(_fd);
        _pid = other._pid;
        _fd = std::exchange(other._fd, -1);
        _byPid = std::exchange(other._byPid, false);
    }
    return *this;
}

bool ymProcessHandle::hasEnded() const
{
    if (_byPid)
        return kill(_pid, 0) != 0 && errno == ESRCH;
    if (_fd < 0)
        return true;
    struct pollfd ended = {_fd, POLLIN, 0};
    int ready;
    do {
        ready = poll(&ended, 1, 0);
    } while (ready < 0 && errno == EINTR);
    return ready != 0;
}
