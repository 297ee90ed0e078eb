#include "Losses.h"

#include <YumoClientSdk/YumoClientSdk.h>
#include <nlohmann/json.hpp>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "Child.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

class Counter : public ymSdkDelegate {
public:
    std::atomic<size_t> presence{0};
    std::atomic<size_t> audio{0};
    void ymSdkIMPresenceStatus(YMPresenceStatus_s) override { ++presence; }
    void ymSdkAudioInfo(YMAudioInfo_s) override { ++audio; }
};

std::string home() { return std::getenv("HOME"); }
std::string container() { return *YMSocketIPCHelper_SDK::groupContainerDir(); }
std::string self() { return std::filesystem::read_symlink("/proc/self/exe").string(); }

// Runs the loop until `count` stops growing for half a second: what has not come by then is lost.
size_t settle(const std::atomic<size_t> &count)
{
    for (;;) {
        size_t before = count;
        ymMainLoop::shared().runFor(std::chrono::milliseconds(500));
        if (count == before)
            return before;
    }
}

long entriesOf(const std::string &folder)
{
    std::error_code error;
    long count = 0;
    for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        ++count;
    return count;
}

long fileSize(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? static_cast<long>(status.st_size) : 0;
}

void row(const std::string &what, const std::string &figure) { std::printf("%-72s %s\n", what.c_str(), figure.c_str()); }

// A facade of its own that counts the audio events for Headset #1.
std::shared_ptr<ymSdkImplement> listeningCompanion(const std::shared_ptr<Counter> &counter)
{
    auto facade = ymSdkImplement::create();
    facade->setDelegate(counter);
    facade->addToDeviceArray("Headset", "1");
    return facade;
}

std::unique_ptr<Child> startHost(int events, int acceptSeconds)
{
    auto host = std::make_unique<Child>(self(), std::vector<std::string>{"--host-events", *YMSocketIPCHelper_SDK::ipcSocketPathForYyHost(),
                                                                         std::to_string(events), std::to_string(acceptSeconds)});
    host->readLine();  // "ready": it listens
    return host;
}

// Audio events written back to back by a host process that only talks, each whole in a write of
// its own.
nlohmann::json backToBackEvents(int events)
{
    auto counter = std::make_shared<Counter>();
    auto host = startHost(events, 10);
    auto facade = listeningCompanion(counter);
    host->readLine();  // "sent N"
    size_t delivered = settle(counter->audio);
    row("audio events, " + std::to_string(events) + " written back to back: delivered", std::to_string(delivered));
    return {{"sent", events}, {"delivered", delivered}};
}

// A host process that talks, is killed, and starts again on the same path while the companion
// only listens: the events of the second one that reach the companion, and how long after it
// listened the first one came.
nlohmann::json eventsAfterRestart()
{
    auto counter = std::make_shared<Counter>();
    auto host = startHost(20, 10);
    auto facade = listeningCompanion(counter);
    host->readLine();
    size_t before = settle(counter->audio);
    host.reset();  // killed: its socket file stays behind
    // Longer than the companion tries again on its own after losing its peer: from here only
    // the socket appearing again can wake it.
    ymMainLoop::shared().runFor(std::chrono::seconds(4));
    counter->audio = 0;
    host = startHost(20, 10);
    auto listening = Clock::now();
    bool arrived = ymMainLoop::shared().runUntil([&] { return counter->audio > 0; }, std::chrono::seconds(10));
    double delayMs = std::chrono::duration<double, std::milli>(Clock::now() - listening).count();
    size_t after = settle(counter->audio);
    row("events from a host process, 20 before it restarts: delivered", std::to_string(before));
    row("events from a host process, 20 after it restarts: delivered", std::to_string(after));
    row("delay from the restarted host listening to the first event, ms", arrived ? std::to_string(delayMs) : "never (10 s)");
    return {{"sentBefore", 20}, {"deliveredBefore", before}, {"sentAfter", 20}, {"deliveredAfter", after},
            {"delayMs", arrived ? nlohmann::json(delayMs) : nlohmann::json(nullptr)}};
}

// Presence asked from 8 threads at once, as fast as they can.
nlohmann::json presenceFromThreads(const std::string &simulator, const std::shared_ptr<Counter> &counter, int perThread)
{
    Child client(simulator, {"--quiet"});
    client.readLine();
    ymSdkImplement *sdk = ymSdkImplement::SharedInstance();
    counter->presence = 0;
    std::vector<std::thread> threads;
    std::atomic<size_t> sent{0};
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < perThread; ++i)
                sent += sdk->GetIMPresenceStatus() == 0 ? 1 : 0;
        });
    for (std::thread &thread : threads)
        thread.join();
    size_t answered = settle(counter->presence);
    return nlohmann::json{{"asked", sent.load()}, {"answered", answered}};
}

// Facades created and released one after another: the threads and descriptors left in the
// companion and in the simulator that served them.
nlohmann::json releasedFacades(const std::string &simulator, int facades)
{
    Child client(simulator, {"--quiet"});
    client.readLine();
    const std::string simulatorProc = "/proc/" + std::to_string(client.pid());
    ymMainLoop::shared().runFor(std::chrono::milliseconds(300));
    long threadsBefore = entriesOf("/proc/self/task"), fdsBefore = entriesOf("/proc/self/fd");
    long simThreadsBefore = entriesOf(simulatorProc + "/task"), simFdsBefore = entriesOf(simulatorProc + "/fd");
    for (int i = 0; i < facades; ++i)
        ymSdkImplement::create();
    ymMainLoop::shared().runFor(std::chrono::seconds(1));
    long threadsAfter = entriesOf("/proc/self/task"), fdsAfter = entriesOf("/proc/self/fd");
    long simThreadsAfter = entriesOf(simulatorProc + "/task"), simFdsAfter = entriesOf(simulatorProc + "/fd");
    auto change = [](long before, long after) { return std::to_string(before) + " -> " + std::to_string(after); };
    row(std::to_string(facades) + " facades created and released: companion threads", change(threadsBefore, threadsAfter));
    row(std::to_string(facades) + " facades created and released: companion descriptors", change(fdsBefore, fdsAfter));
    row(std::to_string(facades) + " facades created and released: simulator threads", change(simThreadsBefore, simThreadsAfter));
    row(std::to_string(facades) + " facades created and released: simulator descriptors", change(simFdsBefore, simFdsAfter));
    return {{"facades", facades},
            {"companionThreads", {threadsBefore, threadsAfter}},
            {"companionDescriptors", {fdsBefore, fdsAfter}},
            {"simulatorThreads", {simThreadsBefore, simThreadsAfter}},
            {"simulatorDescriptors", {simFdsBefore, simFdsAfter}}};
}

// An idle companion with no meeting client running, in a home of its own: how often its threads
// wake up in a minute.
nlohmann::json idleWakeUps(const std::string &probeHome, const char *what, int seconds)
{
    std::string saved = home();
    setenv("HOME", probeHome.c_str(), 1);
    Child probe(self(), {"--wakeup-probe", std::to_string(seconds)});
    setenv("HOME", saved.c_str(), 1);
    nlohmann::json figures = nlohmann::json::parse(probe.readLine(seconds + 30), nullptr, false);
    long wakeUps = figures.is_object() ? figures.value("wakeUps", -1L) : -1L;
    double perMinute = wakeUps * 60.0 / seconds;
    row(std::string("wake-ups per minute of an idle companion, ") + what, std::to_string(perMinute));
    figures["perMinute"] = perMinute;
    return figures;
}

}  // namespace

nlohmann::json measureLosses(const std::string &toolsFolder, int idleSeconds)
{
    nlohmann::json figures;
    const std::string simulator = home() + "/Applications/yumoapp.app/Contents/MacOS/yumoapp";
    auto install = [&](const char *version) { Child(toolsFolder + "/ymsim", {"install", "--version", version}).readLine(); };

    // Before any client is installed: an idle companion in a fresh home.
    std::filesystem::create_directories(home() + "/fresh");
    figures["wakeUpsNoClient"] = idleWakeUps(home() + "/fresh", "no client ever", idleSeconds);

    figures["audioEventsBackToBack1000"] = backToBackEvents(1000);
    figures["audioEventsBackToBack10000"] = backToBackEvents(10000);
    figures["eventsAfterRestart"] = eventsAfterRestart();

    install("5.6.0");
    auto counter = std::make_shared<Counter>();
    ymSdkImplement *sdk = ymSdkImplement::SharedInstance();
    sdk->setDelegate(counter);
    sdk->addToDeviceArray("Headset", "1");
    const YMAudioDevice_s headset{"1", "Headset", 2830, 3};

    nlohmann::json socketPresence = presenceFromThreads(simulator, counter, 1250);
    install("5.5.0");
    nlohmann::json busPresence = presenceFromThreads(simulator, counter, 1250);
    row("presence from 8 threads, sockets: answered of asked",
        socketPresence["answered"].dump() + " of " + socketPresence["asked"].dump());
    row("presence from 8 threads, D-Bus: answered of asked", busPresence["answered"].dump() + " of " + busPresence["asked"].dump());
    figures["presenceFrom8ThreadsSockets"] = socketPresence;
    figures["presenceFrom8ThreadsBus"] = busPresence;

    install("5.6.0");
    figures["releasedFacades"] = releasedFacades(simulator, 1000);
    {
        Child client(simulator, {"--quiet"});
        client.readLine();
        // The log per presence round trip, one at a time.
        const std::string log = container() + "/yumoclientsdk.log";
        long before = fileSize(log);
        for (int i = 0; i < 100; ++i) {
            size_t answered = counter->presence;
            sdk->GetIMPresenceStatus();
            ymMainLoop::shared().runUntil([&] { return counter->presence > answered; }, std::chrono::seconds(5));
        }
        double perRoundTrip = (fileSize(log) - before) / 100.0;
        row("log written per presence round trip, bytes", std::to_string(static_cast<long>(perRoundTrip)));
        figures["logBytesPerPresenceRoundTrip"] = perRoundTrip;

        // A device name holding a quote, a backslash and a tab.
        counter->audio = 0;
        const std::string odd = "He said \"hi\"\\\t";
        sdk->addToDeviceArray(odd, "1");
        sdk->SetAudioCmd(5, YMAudioDevice_s{"1", odd, 1, 1});
        size_t quoted = settle(counter->audio);
        sdk->SetAudioCmd(5, headset);
        size_t plain = settle(counter->audio) - quoted;
        row("audio event for a name with a quote, backslash and tab / a plain name", std::to_string(quoted) + " / " + std::to_string(plain));
        figures["nameWithQuote"] = {{"delivered", quoted}, {"plainNameDelivered", plain}};
    }
    // The simulator was killed and its socket files stay behind.
    figures["wakeUpsClientKilled"] = idleWakeUps(home(), "its client killed", idleSeconds);

    // A shared list that cannot be written (a folder where its file goes): the registration says YES.
    std::filesystem::create_directories(home() + "/Library/Preferences/YumoClientSdk.ShareData.plist");
    bool registered = sdk->RegisterAudioDevice("Speaker", "2", 1, 1);
    row("registration when the shared list cannot be written", registered ? "YES (nothing written)" : "NO");
    figures["registrationWithUnwritableList"] = registered;
    return figures;
}

}  // namespace bench
