// peer: a program in the meeting client's place on its socket, and a companion beside it
// (figures 2 and 4). It does not use the SDK.
//
//   peer flood SECONDS COMPANION [ARGUMENTS...]
//       listens on $HOME/Library/Group Containers/Q4W7N2R8TX.YumoClient3rd/s.yumoclient, starts the
//       companion, and writes 4 KiB messages {"commandId":2,"data":{"pad":"..."}} to every
//       connection as fast as the sockets take them. After SECONDS it reads the companion's memory
//       and prints
//         rss_kib N hwm_kib N written_mib N connections N
//   peer accept-close SECONDS COMPANION [ARGUMENTS...]
//       the same socket; every connection is accepted and closed at once. After SECONDS prints
//         accepted N
//
// The companion is killed (SIGKILL) at the end; the socket file is removed.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <string>
#include <vector>

#include "desktop.h"

namespace {

constexpr size_t kMessage = 4096;
constexpr size_t kMessagesPerBlock = 16;

std::string block()
{
    std::string head = "{\"commandId\":2,\"data\":{\"pad\":\"";
    std::string tail = "\"}}";
    std::string message = head + std::string(kMessage - head.size() - tail.size(), 'x') + tail;
    std::string all;
    for (size_t i = 0; i < kMessagesPerBlock; ++i)
        all += message;
    return all;
}

int listenOn(const std::string &path)
{
    std::string folder = desk::groupContainer();
    std::string command = "mkdir -p '" + folder + "' && chmod 700 '" + folder + "'";
    if (std::system(command.c_str()) != 0)
        return -1;
    unlink(path.c_str());
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return -1;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    if (bind(fd, reinterpret_cast<struct sockaddr *>(&address), sizeof address) != 0 || listen(fd, 128) != 0) {
        std::perror("peer: bind/listen");
        return -1;
    }
    return fd;
}

pid_t startCompanion(char **argv)
{
    pid_t pid = fork();
    if (pid == 0) {
        execv(argv[0], argv);
        std::perror("peer: exec");
        _exit(127);
    }
    return pid;
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc < 4) {
        std::fprintf(stderr, "usage: peer flood|accept-close SECONDS COMPANION [ARGUMENTS...]\n");
        return 64;
    }
    std::string mode = argv[1];
    double seconds = std::atof(argv[2]);
    signal(SIGPIPE, SIG_IGN);
    std::string path = desk::clientSocketPath();
    int server = listenOn(path);
    if (server < 0)
        return 1;

    pid_t companion = startCompanion(argv + 3);
    double deadline = desk::monotonic() + seconds;

    if (mode == "accept-close") {
        long accepted = 0;
        for (;;) {
            double left = deadline - desk::monotonic();
            if (left <= 0)
                break;
            struct pollfd entry = {server, POLLIN, 0};
            if (poll(&entry, 1, static_cast<int>(left * 1000) + 1) <= 0)
                continue;
            for (;;) {
                int fd = accept4(server, nullptr, nullptr, SOCK_CLOEXEC);
                if (fd < 0)
                    break;
                ++accepted;
                close(fd);
            }
        }
        kill(companion, SIGKILL);
        waitpid(companion, nullptr, 0);
        std::printf("accepted %ld\n", accepted);
    } else if (mode == "flood") {
        const std::string bytes = block();
        struct Connection {
            int fd;
            size_t offset;
        };
        std::vector<Connection> connections;
        long long written = 0;
        long accepted = 0;
        char sink[65536];
        for (;;) {
            double left = deadline - desk::monotonic();
            if (left <= 0)
                break;
            std::vector<struct pollfd> entries;
            entries.push_back({server, POLLIN, 0});
            for (const Connection &connection : connections)
                entries.push_back({connection.fd, POLLIN | POLLOUT, 0});
            if (poll(entries.data(), entries.size(), static_cast<int>(left * 1000) + 1) <= 0)
                continue;
            if (entries[0].revents & POLLIN)
                for (int fd; (fd = accept4(server, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)) >= 0;) {
                    connections.push_back({fd, 0});
                    ++accepted;
                }
            for (size_t i = 1; i < entries.size(); ++i) {
                Connection &connection = connections[i - 1];
                if (entries[i].revents & POLLIN)
                    while (read(connection.fd, sink, sizeof sink) > 0) {
                    }
                if (entries[i].revents & (POLLHUP | POLLERR)) {
                    close(connection.fd);
                    connection.fd = -1;
                    continue;
                }
                if (entries[i].revents & POLLOUT)
                    for (;;) {
                        ssize_t count = send(connection.fd, bytes.data() + connection.offset, bytes.size() - connection.offset,
                                             MSG_DONTWAIT | MSG_NOSIGNAL);
                        if (count <= 0)
                            break;
                        written += count;
                        connection.offset = (connection.offset + static_cast<size_t>(count)) % bytes.size();
                    }
            }
            std::vector<Connection> open;
            for (const Connection &connection : connections)
                if (connection.fd >= 0)
                    open.push_back(connection);
            connections.swap(open);
        }
        std::string status = "/proc/" + std::to_string(companion) + "/status";
        long long rss = desk::statusField(status, "VmRSS");
        long long hwm = desk::statusField(status, "VmHWM");
        kill(companion, SIGKILL);
        waitpid(companion, nullptr, 0);
        std::printf("rss_kib %lld hwm_kib %lld written_mib %lld connections %ld\n", rss, hwm, written >> 20, accepted);
    } else {
        kill(companion, SIGKILL);
        waitpid(companion, nullptr, 0);
        std::fprintf(stderr, "peer: unknown mode %s\n", mode.c_str());
        return 64;
    }
    unlink(path.c_str());
    return 0;
}
