#include "support/SocketPeer.h"

#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace ymtest {
namespace {

// A socket with `call` (connect or bind) made on it for the path; -1 on failure.
int socketFor(const std::string &path, int (*call)(int, const sockaddr *, socklen_t))
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (call(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

}  // namespace

bool isSocketFile(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

int connectTo(const std::string &path) { return socketFor(path, ::connect); }

int bindOn(const std::string &path)
{
    unlink(path.c_str());
    return socketFor(path, ::bind);
}

int listenOn(const std::string &path, int backlog)
{
    int fd = bindOn(path);
    if (fd != -1 && listen(fd, backlog) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

int acceptOne(int listeningFd)
{
    pollfd waiting{listeningFd, POLLIN, 0};
    if (poll(&waiting, 1, 20000) != 1)
        return -1;
    return accept4(listeningFd, nullptr, nullptr, SOCK_CLOEXEC);
}

bool writeText(int fd, const std::string &text)
{
    size_t done = 0;
    while (done < text.size()) {
        ssize_t written = send(fd, text.data() + done, text.size() - done, MSG_NOSIGNAL);
        if (written <= 0)
            return false;
        done += static_cast<size_t>(written);
    }
    return true;
}

std::string readText(int fd, size_t length)
{
    std::string text;
    char buffer[4096];
    while (text.size() < length) {
        ssize_t count = read(fd, buffer, std::min(sizeof buffer, length - text.size()));
        if (count <= 0)
            break;
        text.append(buffer, static_cast<size_t>(count));
    }
    return text;
}

}  // namespace ymtest
