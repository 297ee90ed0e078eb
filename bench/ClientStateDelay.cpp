#include "ClientStateDelay.h"

#include <YumoClientSdk/YumoClientSdk.h>
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <sstream>
#include <vector>

#include "Child.h"
#include "Peers.h"

namespace bench {
namespace {

long long monotonicNanoseconds()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

void row(const std::string &what, const std::string &figure) { std::printf("%-72s %s\n", what.c_str(), figure.c_str()); }

// Reads the probe's lines until a change of this kind; answers when it was heard (0: never).
long long heard(Child &probe, int kind)
{
    for (;;) {
        std::string line = probe.readLine(10);
        if (line.empty())
            return 0;
        std::istringstream words(line);
        std::string word;
        int change = -1;
        long long at = 0;
        if (words >> word >> change >> at && word == "change" && change == kind)
            return at;
    }
}

nlohmann::json summary(std::vector<double> delays)
{
    if (delays.empty())
        return nullptr;
    std::sort(delays.begin(), delays.end());
    return {{"medianMs", delays[delays.size() / 2]}, {"worstMs", delays.back()}, {"samples", delays.size()}};
}

std::string shown(const nlohmann::json &figure)
{
    if (figure.is_null())
        return "not heard";
    char text[64];
    std::snprintf(text, sizeof text, "%.1f ms (worst %.1f ms)", figure["medianMs"].get<double>(), figure["worstMs"].get<double>());
    return text;
}

double idleWakeUpsPerMinute(const std::string &self, int seconds)
{
    Child probe(self, {"--client-state-probe", std::to_string(seconds)});
    probe.readLine();
    for (;;) {
        std::string line = probe.readLine(seconds + 30);
        if (line.empty())
            return -1;
        if (line.rfind("wakeUps ", 0) == 0)
            return std::atol(line.c_str() + 8) * 60.0 / seconds;
    }
}

}  // namespace

int runClientStateProbe(int seconds)
{
    ymSdkImplement *sdk = ymSdkImplement::SharedInstance();
    sdk->SetClientStateHandler([](const YMClientState_s &state) {
        std::printf("change %d %lld\n", static_cast<int>(state.change), monotonicNanoseconds());
        std::fflush(stdout);
    });
    // The first looks at the client (50 ms, 250 ms, 1 s) and the quick connection attempts (2.6 s in
    // all) are over before anything is counted: what is counted is the steady state.
    ymMainLoop::shared().runFor(std::chrono::seconds(3));
    std::printf("ready\n");
    std::fflush(stdout);
    long before = voluntarySwitches();
    ymMainLoop::shared().runFor(std::chrono::seconds(seconds));
    std::printf("wakeUps %ld\n", voluntarySwitches() - before);
    std::fflush(stdout);
    return 0;
}

nlohmann::json measureClientStateDelays(const std::string &toolsFolder, const std::string &self, int rounds, int idleSeconds)
{
    Child(toolsFolder + "/ymsim", {"install", "--version", "5.6.0"}).readLine();
    const std::string client = std::string(std::getenv("HOME")) + "/Applications/yumoapp.app/Contents/MacOS/yumoapp";
    std::vector<double> starts, quits;
    {
        Child probe(self, {"--client-state-probe", std::to_string(rounds * 5 + 10)});
        probe.readLine();
        for (int round = 0; round < rounds; ++round) {
            long long spawned = monotonicNanoseconds();
            auto simulator = std::make_unique<Child>(client, std::vector<std::string>{"--quiet"}, true);
            long long startHeard = heard(probe, ymClientChangeStarted);
            long long killed = monotonicNanoseconds();
            simulator.reset();  // killed and reaped
            long long quitHeard = heard(probe, ymClientChangeQuit);
            if (startHeard)
                starts.push_back((startHeard - spawned) / 1e6);
            if (quitHeard)
                quits.push_back((quitHeard - killed) / 1e6);
        }
    }
    nlohmann::json figures = {{"started", summary(starts)}, {"quit", summary(quits)}};
    row("client started -> companion's callback, median over " + std::to_string(rounds), shown(figures["started"]));
    row("client killed -> companion's callback, median over " + std::to_string(rounds), shown(figures["quit"]));

    double idleNotRunning = idleWakeUpsPerMinute(self, idleSeconds);
    double idleRunning;
    {
        Child simulator(client, {"--quiet"});
        simulator.readLine();
        idleRunning = idleWakeUpsPerMinute(self, idleSeconds);
    }
    row("wake-ups per minute of a companion following the client, client not running", std::to_string(idleNotRunning));
    row("wake-ups per minute of a companion following the client, client running", std::to_string(idleRunning));
    figures["idleWakeUpsPerMinuteNotRunning"] = idleNotRunning;
    figures["idleWakeUpsPerMinuteRunning"] = idleRunning;
    return figures;
}

}  // namespace bench
