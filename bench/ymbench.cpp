// ymbench: the SDK's main job measured the way a companion feels it, each figure beside its
// baseline taken in the same run. Run it under a session bus with the simulator built beside it:
//
//   scripts/run-bench.sh [--quick]        (prints a table, writes build/bench-results.json)
#include <YumoClientSdk/YumoClientSdk.h>
#include <nlohmann/json.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "Child.h"
#include "ClientStateDelay.h"
#include "Instructions.h"
#include "Losses.h"
#include "Peers.h"

extern char **environ;

using bench::Child;

namespace {

using Clock = std::chrono::steady_clock;
const std::string kPresence = R"({"commandId":1,"from":1,"version":"1.0.0","data":""})";

double microseconds(Clock::duration duration) { return std::chrono::duration<double, std::micro>(duration).count(); }

struct Figure {
    std::string name;
    double median = 0;
    double p99 = 0;
    size_t samples = 0;
    std::string unit = "us";
};

Figure summarize(const std::string &name, std::vector<double> samples)
{
    std::sort(samples.begin(), samples.end());
    Figure figure;
    figure.name = name;
    figure.samples = samples.size();
    if (!samples.empty()) {
        figure.median = samples[samples.size() / 2];
        figure.p99 = samples[std::min(samples.size() - 1, samples.size() * 99 / 100)];
    }
    return figure;
}

std::string self() { return std::filesystem::read_symlink("/proc/self/exe").string(); }
std::string tool(const std::string &name) { return std::filesystem::path(self()).parent_path().parent_path() / "tools" / name; }

// A plain Unix socket connected to the path; -1 when nobody listens there.
int connectTo(const std::string &path)
{
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

void writeAll(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        ssize_t written = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (written <= 0)
            return;
        bytes.remove_prefix(static_cast<size_t>(written));
    }
}

// ---- baselines ----

Figure rawSocketPingPong(size_t iterations)
{
    std::string path = std::string(std::getenv("HOME")) + "/raw.sock";
    Child echo(self(), {"--echo-socket", path});
    echo.readLine();
    int fd = connectTo(path);
    if (fd < 0)
        throw std::runtime_error("raw connect");
    std::vector<double> samples;
    char buffer[256];
    for (size_t i = 0; i < iterations; ++i) {
        auto start = Clock::now();
        if (send(fd, kPresence.data(), kPresence.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(kPresence.size()))
            break;
        size_t got = 0;
        while (got < kPresence.size()) {
            ssize_t count = read(fd, buffer, sizeof buffer);
            if (count <= 0)
                break;
            got += static_cast<size_t>(count);
        }
        samples.push_back(microseconds(Clock::now() - start));
    }
    close(fd);
    return summarize("raw Unix socket ping-pong", samples);
}

Figure rawBusRoundTrip(size_t iterations)
{
    Child echo(self(), {"--echo-bus"});
    echo.readLine();
    auto connection = sdbus::createSessionBusConnection();
    auto object = sdbus::createObject(*connection, "/com/yumocorp/bench/Ping");
    bool answered = false;
    auto slot = connection->addMatch("type='signal',interface='com.yumocorp.Bench',member='BenchPong'",
                                     [&](sdbus::Message &) { answered = true; });
    std::vector<double> samples;
    for (size_t i = 0; i < iterations; ++i) {
        answered = false;
        auto start = Clock::now();
        auto ping = object->createSignal("com.yumocorp.Bench", "BenchPing");
        ping << kPresence;
        object->emitSignal(ping);
        while (!answered) {
            while (!answered && connection->processPendingRequest()) {
            }
            if (answered)
                break;
            auto data = connection->getEventLoopPollData();
            struct pollfd ready = {data.fd, data.events, 0};
            poll(&ready, 1, 1000);
        }
        samples.push_back(microseconds(Clock::now() - start));
    }
    return summarize("raw D-Bus signal round trip", samples);
}

// ---- the SDK ----

class Collector : public YMSocketIPCChannelDelegate {
public:
    size_t received = 0;
    int32_t onMessageRecieved(const std::optional<std::string> &) override
    {
        ++received;
        return 0;
    }
};

Figure channelRoundTrip(size_t iterations)
{
    Collector collector;
    auto channel = YMSocketIPCChannel_SDK::ipcClientWithSocketPath(YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient());
    channel->setDelegate(&collector);
    std::vector<double> samples;
    for (size_t i = 0; i < iterations; ++i) {
        size_t before = collector.received;
        auto start = Clock::now();
        channel->sendMessage(kPresence);
        ymMainLoop::shared().runUntil([&] { return collector.received > before; }, std::chrono::seconds(10));
        samples.push_back(microseconds(Clock::now() - start));
    }
    channel->setDelegate(nullptr);
    return summarize("channel round trip (send to delegate)", samples);
}

// A peer that floods a connection with "}" and no message boundary, then ends it with a message:
// the time until the message is delivered, in seconds. Each read is looked at once, so the time
// grows with the size; looking at the whole gathered text on every read made it grow with its
// square.
Figure floodGathering(size_t mebibytes)
{
    // A path of this flood's own: the server of an earlier one still listens on its own.
    std::string path = std::string(std::getenv("HOME")) + "/flood-" + std::to_string(mebibytes) + ".sock";
    Collector collector;
    auto server = YMSocketIPCChannel_SDK::ipcServerWithSocketPath(path);
    server->setDelegate(&collector);
    int fd = -1;
    for (int tries = 0; fd < 0 && tries < 5000; ++tries) {
        fd = connectTo(path);
        if (fd < 0)
            usleep(1000);
    }
    const std::string flood(mebibytes << 20, '}');
    auto start = Clock::now();
    std::thread writer([&] {
        writeAll(fd, flood);
        writeAll(fd, "{\"commandId\":9}");
    });
    ymMainLoop::shared().runUntil([&] { return collector.received > 0; }, std::chrono::minutes(10));
    double seconds = microseconds(Clock::now() - start) / 1e6;
    writer.join();
    close(fd);
    server->setDelegate(nullptr);
    Figure figure;
    figure.name = "flood of " + std::to_string(mebibytes) + " MiB of \"}\" gathered";
    figure.median = seconds;
    figure.samples = 1;
    figure.unit = "s";
    return figure;
}

class Companion : public ymSdkDelegate {
public:
    size_t presence = 0;
    size_t audio = 0;
    void ymSdkIMPresenceStatus(YMPresenceStatus_s) override { ++presence; }
    void ymSdkAudioInfo(YMAudioInfo_s) override { ++audio; }
};

Figure presenceRoundTrip(const std::string &name, const std::shared_ptr<Companion> &companion, size_t iterations)
{
    ymSdkImplement *sdk = ymSdkImplement::SharedInstance();
    std::vector<double> samples;
    for (size_t i = 0; i < iterations; ++i) {
        size_t before = companion->presence;
        auto start = Clock::now();
        if (sdk->GetIMPresenceStatus() != 0)
            throw std::runtime_error("GetIMPresenceStatus refused");
        ymMainLoop::shared().runUntil([&] { return companion->presence > before; }, std::chrono::seconds(10));
        samples.push_back(microseconds(Clock::now() - start));
    }
    return summarize(name, samples);
}

template <typename Call>
Figure timeCalls(const std::string &name, size_t iterations, Call call)
{
    std::vector<double> samples;
    for (size_t i = 0; i < iterations; ++i) {
        auto start = Clock::now();
        call();
        samples.push_back(microseconds(Clock::now() - start));
    }
    return summarize(name, samples);
}

// Audio commands per second from one companion, counted by the simulator as received: after the
// commands, a report command makes it print its count, which comes once it has taken them all.
Figure audioThroughput(Child &simulator, size_t commands)
{
    ymSdkImplement *sdk = ymSdkImplement::SharedInstance();
    YMAudioDevice_s device{"1", "Headset", 2830, 3};
    auto start = Clock::now();
    for (size_t i = 0; i < commands; ++i)
        sdk->SetAudioCmd(5, device);
    sdk->SetAudioCmd(0, YMAudioDevice_s{"0", "ymsim-report", 0, 0});
    std::string line = simulator.readLine();
    double seconds = microseconds(Clock::now() - start) / 1e6;
    long received = line.rfind("received ", 0) == 0 ? std::atol(line.c_str() + 9) : 0;
    Figure figure;
    figure.name = "audio commands received by ymsim (" + std::to_string(received) + "/" + std::to_string(commands) + ")";
    figure.median = received / seconds;
    figure.samples = commands;
    figure.unit = "per s";
    return figure;
}

std::vector<pid_t> startIdleProcesses(int count)
{
    std::vector<pid_t> pids;
    for (int i = 0; i < count; ++i) {
        pid_t pid;
        char *argv[] = {const_cast<char *>("/bin/sleep"), const_cast<char *>("3600"), nullptr};
        if (posix_spawn(&pid, "/bin/sleep", nullptr, nullptr, argv, environ) == 0)
            pids.push_back(pid);
    }
    return pids;
}

void printRow(const Figure &figure, const Figure *baseline, double target)
{
    if (figure.unit == "s") {
        std::printf("%-48s %12.2f %9s\n", figure.name.c_str(), figure.median, figure.unit.c_str());
        return;
    }
    if (figure.unit != "us") {
        std::printf("%-48s %12.0f %9s %10s %8s %8s\n", figure.name.c_str(), figure.median, figure.unit.c_str(), "", "",
                    target > 0 ? (">= " + std::to_string(static_cast<long>(target))).c_str() : "");
        return;
    }
    char ratio[16] = "", goal[16] = "";
    if (baseline && baseline->median > 0)
        std::snprintf(ratio, sizeof ratio, "%.2fx", figure.median / baseline->median);
    if (target > 0)
        std::snprintf(goal, sizeof goal, "<= %.1fx", target);
    std::printf("%-48s %12.1f %9.1f %10zu %8s %8s\n", figure.name.c_str(), figure.median, figure.p99, figure.samples, ratio, goal);
}

nlohmann::json toJSON(const Figure &figure)
{
    return {{"name", figure.name}, {"median", figure.median}, {"p99", figure.p99}, {"samples", figure.samples}, {"unit", figure.unit}};
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc >= 3 && !std::strcmp(argv[1], "--echo-socket"))
        return bench::runSocketEcho(argv[2]);
    if (argc >= 2 && !std::strcmp(argv[1], "--echo-bus"))
        return bench::runBusEcho();
    if (argc >= 2 && !std::strcmp(argv[1], "--startup-probe"))
        return bench::runStartupProbe();
    if (argc >= 3 && !std::strcmp(argv[1], "--idle-probe"))
        return bench::runIdleProbe(std::atoi(argv[2]));
    if (argc >= 3 && !std::strcmp(argv[1], "--wakeup-probe"))
        return bench::runWakeUpProbe(std::atoi(argv[2]));
    if (argc >= 5 && !std::strcmp(argv[1], "--host-events"))
        return bench::runHostEvents(argv[2], std::atoi(argv[3]), std::atoi(argv[4]));
    if (argc >= 3 && !std::strcmp(argv[1], "--client-state-probe"))
        return bench::runClientStateProbe(std::atoi(argv[2]));
    if (argc >= 4 && !std::strcmp(argv[1], "--instruction-probe"))
        return bench::runInstructionProbe(argv[2], std::atoi(argv[3]));

    bool quick = false;
    bool losses = false;
    bool instructions = false;
    std::string jsonPath = "bench-results.json";
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--quick")) {
            quick = true;
        } else if (!std::strcmp(argv[i], "--losses")) {
            losses = true;
        } else if (!std::strcmp(argv[i], "--instructions")) {
            instructions = true;
        } else if (!std::strcmp(argv[i], "--json") && i + 1 < argc) {
            jsonPath = argv[++i];
        } else {
            std::fprintf(stderr, "ymbench: unknown argument \"%s\": --quick, --losses, --instructions or --json FILE\n", argv[i]);
            return 64;
        }
    }
    const size_t scale = quick ? 10 : 1;
    signal(SIGPIPE, SIG_IGN);

    // Everything happens under a home of the benchmark's own.
    std::string home = std::filesystem::temp_directory_path() / ("ymbench-" + std::to_string(getpid()));
    std::filesystem::create_directories(home);
    setenv("HOME", home.c_str(), 1);
    nlohmann::json results = {{"figures", nlohmann::json::array()}};
    std::vector<pid_t> idle;
    if (losses || instructions) {
        // What the transport loses and keeps, or what a command costs in instructions; not how fast
        // anything is.
        try {
            std::string tools = std::filesystem::path(tool("ymsim")).parent_path();
            if (losses) {
                results = bench::measureLosses(tools, quick ? 10 : 60);
                results["clientState"] = bench::measureClientStateDelays(tools, self(), quick ? 5 : 20, quick ? 10 : 60);
            }
            else
                results = {{"instructions", bench::measureInstructions(tools, self())}};
        } catch (const std::exception &error) {
            std::fprintf(stderr, "ymbench: %s\n", error.what());
        }
        std::filesystem::remove_all(home);
        std::ofstream(jsonPath) << results.dump(2) << "\n";
        std::printf("\nwritten: %s\n", jsonPath.c_str());
        // The shared facade lives until the process ends, its I/O thread with it: nothing is
        // waited for.
        std::fflush(stdout);
        _exit(0);
    }
    try {
        std::printf("%-48s %12s %9s %10s %8s %8s\n", "", "median", "p99", "samples", "ratio", "target");
        Figure raw = rawSocketPingPong(20000 / scale);
        printRow(raw, nullptr, 0);
        Figure rawBus = rawBusRoundTrip(3000 / scale);
        printRow(rawBus, nullptr, 0);

        // The meeting client, 5.6: the socket transport.
        Child install(tool("ymsim"), {"install", "--version", "5.6.0"});
        install.readLine();
        auto companion = std::make_shared<Companion>();
        std::string executable = home + "/Applications/yumoapp.app/Contents/MacOS/yumoapp";
        Figure channel, presenceSocket, statusCheck, transportCheck, presenceBus, throughput;
        {
            Child simulator(executable, {"--quiet"});
            simulator.readLine();
            ymSdkImplement::SharedInstance()->setDelegate(companion);
            channel = channelRoundTrip(5000 / scale);
            printRow(channel, &raw, 4);

            idle = startIdleProcesses(300);
            presenceSocket = presenceRoundTrip("GetIMPresenceStatus round trip, sockets", companion, 2000 / scale);
            printRow(presenceSocket, &raw, 10);
            statusCheck = timeCalls("checkYumoAppError", 2000 / scale, [] { ymAPIErrorMgr::sharedInstance()->checkYumoAppError(); });
            printRow(statusCheck, nullptr, 0);
            transportCheck = timeCalls("isYumoClientSupportNewIPC", 2000 / scale,
                                       [] { ymClientFeatureMgr::sharedInstance()->isYumoClientSupportNewIPC(); });
            printRow(transportCheck, nullptr, 0);
            for (pid_t pid : idle)
                kill(pid, SIGKILL);
            for (pid_t pid : idle)
                waitpid(pid, nullptr, 0);
            idle.clear();

        }
        {
            // Commands only: the simulator takes them without answering.
            Child simulator(executable, {"--quiet", "--no-audio-events"});
            simulator.readLine();
            throughput = audioThroughput(simulator, 100000 / scale);
            printRow(throughput, nullptr, 50000);
        }
        // The meeting client, 5.5: the notification transport.
        {
            Child reinstall(tool("ymsim"), {"install", "--version", "5.5.0"});
            reinstall.readLine();
            Child simulator(executable, {"--quiet"});
            simulator.readLine();
            presenceBus = presenceRoundTrip("GetIMPresenceStatus round trip, D-Bus", companion, 3000 / scale);
            printRow(presenceBus, &rawBus, 1.3);
        }
        // A peer that floods: the cost grows with what it sends, not with its square.
        std::vector<Figure> floods;
        for (size_t mebibytes : quick ? std::vector<size_t>{10, 30} : std::vector<size_t>{10, 30, 100}) {
            floods.push_back(floodGathering(mebibytes));
            printRow(floods.back(), nullptr, 0);
        }
        // A companion's own costs.
        std::vector<double> startups;
        for (int i = 0; i < 30; ++i) {
            Child probe(self(), {"--startup-probe"});
            startups.push_back(std::atof(probe.readLine().c_str()));
        }
        Figure startup = summarize("SharedInstance in a cold process", startups);
        printRow(startup, nullptr, 0);
        Child idleProbe(self(), {"--idle-probe", quick ? "1" : "3"});
        nlohmann::json idleCompanion = nlohmann::json::parse(idleProbe.readLine(), nullptr, false);
        std::printf("%-48s %s\n", "idle companion", idleCompanion.dump().c_str());

        for (const Figure *figure : {&raw, &rawBus, &channel, &presenceSocket, &statusCheck, &transportCheck, &presenceBus, &throughput, &startup})
            results["figures"].push_back(toJSON(*figure));
        for (const Figure &flood : floods)
            results["figures"].push_back(toJSON(flood));
        results["idleCompanion"] = idleCompanion;
        results["instructions"] = bench::measureInstructions(std::filesystem::path(tool("ymsim")).parent_path(), self());
        results["ratios"] = {{"channelToRawSocket", channel.median / raw.median},
                             {"presenceSocketToRawSocket", presenceSocket.median / raw.median},
                             {"presenceBusToRawBus", presenceBus.median / rawBus.median}};
    } catch (const std::exception &error) {
        std::fprintf(stderr, "ymbench: %s\n", error.what());
        for (pid_t pid : idle)
            kill(pid, SIGKILL);
        std::filesystem::remove_all(home);
        return 1;
    }
    std::filesystem::remove_all(home);
    std::ofstream(jsonPath) << results.dump(2) << "\n";
    std::printf("\nwritten: %s\n", jsonPath.c_str());
    return 0;
}
