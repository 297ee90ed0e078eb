#include "Peers.h"

#include <YumoClientSdk/ymMainLoop.h>
#include <YumoClientSdk/ymSdkImplement.h>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace bench {
namespace {

// A socket listening on the path (a stale one removed first); -1 when it cannot be made.
int listenOn(const std::string &path, int backlog)
{
    int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    unlink(path.c_str());
    if (bind(listening, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 || listen(listening, backlog) != 0) {
        close(listening);
        return -1;
    }
    return listening;
}

}  // namespace

int runSocketEcho(const std::string &path)
{
    int listening = listenOn(path, 1);
    if (listening < 0)
        return 1;
    std::printf("ready\n");
    std::fflush(stdout);
    int peer = accept(listening, nullptr, nullptr);
    char buffer[8192];
    for (;;) {
        ssize_t count = read(peer, buffer, sizeof buffer);
        if (count <= 0)
            return 0;
        if (write(peer, buffer, static_cast<size_t>(count)) != count)
            return 0;
    }
}

int runBusEcho()
{
    auto connection = sdbus::createSessionBusConnection();
    auto object = sdbus::createObject(*connection, "/com/yumocorp/bench/Echo");
    auto slot = connection->addMatch("type='signal',interface='com.yumocorp.Bench',member='BenchPing'", [&](sdbus::Message &message) {
        std::string text;
        message >> text;
        auto pong = object->createSignal("com.yumocorp.Bench", "BenchPong");
        pong << text;
        object->emitSignal(pong);
    });
    std::printf("ready\n");
    std::fflush(stdout);
    for (;;) {
        while (connection->processPendingRequest()) {
        }
        auto data = connection->getEventLoopPollData();
        struct pollfd ready = {data.fd, data.events, 0};
        if (poll(&ready, 1, 60000) == 0)
            return 0;
    }
}

int runStartupProbe()
{
    auto start = std::chrono::steady_clock::now();
    ymSdkImplement *sdk = ymSdkImplement::SharedInstance();
    auto took = std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
    std::printf("%.1f\n", sdk ? took : -1.0);
    return 0;
}

int runIdleProbe(int seconds)
{
    ymSdkImplement::SharedInstance();
    ymMainLoop::shared().runFor(std::chrono::milliseconds(200));  // let the start-up settle
    struct rusage before, after;
    getrusage(RUSAGE_SELF, &before);
    ymMainLoop::shared().runFor(std::chrono::seconds(seconds));
    getrusage(RUSAGE_SELF, &after);
    auto seconds_of = [](const timeval &t) { return t.tv_sec + t.tv_usec / 1e6; };
    double cpu = seconds_of(after.ru_utime) - seconds_of(before.ru_utime) + seconds_of(after.ru_stime) - seconds_of(before.ru_stime);
    long rss = 0, threads = 0;
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0)
            rss = std::atol(line.c_str() + 6);
        if (line.rfind("Threads:", 0) == 0)
            threads = std::atol(line.c_str() + 8);
    }
    std::printf("{\"cpuSeconds\":%.4f,\"rssKiB\":%ld,\"threads\":%ld}\n", cpu, rss, threads);
    return 0;
}

}  // namespace bench

namespace bench {
namespace {

long threadCount() { return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}); }

}  // namespace

long voluntarySwitches()
{
    long total = 0;
    for (const auto &task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream status(task.path() / "status");
        for (std::string line; std::getline(status, line);)
            if (line.rfind("voluntary_ctxt_switches:", 0) == 0)
                total += std::atol(line.c_str() + 24);
    }
    return total;
}

int runWakeUpProbe(int seconds)
{
    ymSdkImplement::SharedInstance();
    ymMainLoop::shared().runFor(std::chrono::seconds(3));  // the first connection attempts and looks settle
    long before = voluntarySwitches();
    ymMainLoop::shared().runFor(std::chrono::seconds(seconds));
    long after = voluntarySwitches();
    std::printf("{\"wakeUps\":%ld,\"threads\":%ld}\n", after - before, threadCount());
    return 0;
}

int runHostEvents(const std::string &path, int count, int acceptSeconds)
{
    int listening = listenOn(path, 4);
    if (listening < 0)
        return 1;
    std::printf("ready\n");
    std::fflush(stdout);
    struct pollfd ready = {listening, POLLIN, 0};
    if (poll(&ready, 1, acceptSeconds * 1000) != 1) {
        std::printf("sent 0\n");
        std::fflush(stdout);
        return 0;
    }
    int peer = accept(listening, nullptr, nullptr);
    const std::string event = R"({"commandId":2,"from":2,"version":"1.0.0","data":[{"AudioCmd":5}],"deviceIndex":"1","deviceName":"Headset"})";
    int sent = 0;
    for (; sent < count; ++sent)
        if (send(peer, event.data(), event.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(event.size()))
            break;
    std::printf("sent %d\n", sent);
    std::fflush(stdout);
    char buffer[4096];
    while (read(peer, buffer, sizeof buffer) > 0) {
    }
    return 0;
}

}  // namespace bench
