// A socket descriptor that some threads use (read, write, accept) while another may close it.
//
// A bare descriptor number shared that way is unsafe: once one thread has closed it, the number
// may be handed out again by the next open() anywhere in the process, and a second thread that
// still holds the number would read from or write into somebody else's file. Here, users take
// the descriptor through a Use, which counts them; close() first withdraws the number (every new
// Use sees -1), wakes the current users with shutdown(), waits until the last of them is done,
// and only then closes it.
#pragma once

#include <atomic>
#include <sys/socket.h>
#include <unistd.h>

class ySocketDescriptor {
public:
    // Holds the descriptor for one operation; fd() is -1 when there is none.
    class Use {
    public:
        explicit Use(ySocketDescriptor &owner) : _owner(owner)
        {
            _owner._users.fetch_add(1);
            _fd = _owner._fd.load();
        }
        ~Use()
        {
            if (_owner._users.fetch_sub(1) == 1)
                _owner._users.notify_all();
        }
        int fd() const { return _fd; }
        Use(const Use &) = delete;
        Use &operator=(const Use &) = delete;

    private:
        ySocketDescriptor &_owner;
        int _fd;
    };

    // The current number, for tests and log lines; -1 when there is none.
    int load() const { return _fd.load(); }

    // Publishes a descriptor that nobody else holds yet.
    void publish(int fd) { _fd.store(fd); }

    // Withdraws the descriptor and answers it (-1 when there was none, or when another thread
    // withdrew it first); the caller then closes it with closeWithdrawn().
    int withdraw()
    {
        int fd = _fd.load();
        while (fd >= 0 && !_fd.compare_exchange_weak(fd, -1)) {
        }
        return fd;
    }

    // Wakes the users of a withdrawn descriptor, waits for them, and closes it. Answers close()'s
    // result. Never call it while holding a Use of the same descriptor.
    int closeWithdrawn(int fd)
    {
        shutdown(fd, SHUT_RDWR);
        for (int users = _users.load(); users != 0; users = _users.load())
            _users.wait(users);
        return close(fd);
    }

private:
    std::atomic<int> _fd{-1};
    std::atomic<int> _users{0};
};
