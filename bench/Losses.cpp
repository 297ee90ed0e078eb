#include "Losses.h"

#include <YumoClientSdk/YumoClientSdk.h>
#include <nlohmann/json.hpp>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <filesystem>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include "Child.h"

namespace bench {
namespace {

class Counter : public ymSdkDelegate {
public:
    std::atomic<size_t> presence{0};
    std::atomic<size_t> audio{0};
    void ymSdkIMPresenceStatus(YMPresenceStatus_s) override { ++presence; }
    void ymSdkAudioInfo(YMAudioInfo_s) override { ++audio; }
};

std::string home() { return std::getenv("HOME"); }
std::string container() { return *YMSocketIPCHelper_SDK::groupContainerDir(); }

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

size_t openSockets()
{
    size_t sockets = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (std::filesystem::read_symlink(entry.path(), error).string().rfind("socket:", 0) == 0)
            ++sockets;
    }
    return sockets;
}

long fileSize(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? static_cast<long>(status.st_size) : 0;
}

void row(const char *what, const std::string &figure) { std::printf("%-64s %s\n", what, figure.c_str()); }

}  // namespace

nlohmann::json measureLosses(const std::string &toolsFolder)
{
    nlohmann::json figures;
    const std::string simulator = home() + "/Applications/yumoapp.app/Contents/MacOS/yumoapp";
    auto install = [&](const char *version) { Child(toolsFolder + "/ymsim", {"install", "--version", version}).readLine(); };
    install("5.6.0");
    auto counter = std::make_shared<Counter>();
    ymSdkImplement *sdk = ymSdkImplement::SharedInstance();
    sdk->setDelegate(counter);
    sdk->addToDeviceArray("Headset", "1");
    const YMAudioDevice_s headset{"1", "Headset", 2830, 3};

    {
        // Audio events written back to back by the host process: reads join them into texts that
        // are not one JSON object, and each such text is dropped whole.
        Child client(simulator, {"--quiet", "--no-audio-events"});
        client.readLine();
        int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::string hostPath = *YMSocketIPCHelper_SDK::ipcSocketPathForYyHost();
        std::strncpy(address.sun_path, hostPath.c_str(), sizeof address.sun_path - 1);
        unlink(hostPath.c_str());
        bind(listening, reinterpret_cast<sockaddr *>(&address), sizeof address);
        listen(listening, 4);
        auto facade = ymSdkImplement::create();  // connects to this host socket
        facade->setDelegate(counter);
        facade->addToDeviceArray("Headset", "1");
        int host = accept(listening, nullptr, nullptr);
        const std::string event = R"({"commandId":2,"from":2,"version":"1.0.0","data":[{"AudioCmd":5}],"deviceIndex":"1","deviceName":"Headset"})";
        counter->audio = 0;
        for (int i = 0; i < 1000; ++i)
            send(host, event.data(), event.size(), MSG_NOSIGNAL);
        size_t backToBack = settle(counter->audio);
        counter->audio = 0;
        for (int i = 0; i < 1000; ++i) {
            size_t before = counter->audio;
            send(host, event.data(), event.size(), MSG_NOSIGNAL);
            ymMainLoop::shared().runUntil([&] { return counter->audio > before; }, std::chrono::seconds(5));
        }
        size_t oneAtATime = counter->audio;
        row("audio events, 1000 written back to back: delivered", std::to_string(backToBack));
        row("audio events, 1000 written one at a time: delivered", std::to_string(oneAtATime));
        figures["audioEventsBackToBack"] = {{"sent", 1000}, {"delivered", backToBack}};
        figures["audioEventsOneAtATime"] = {{"sent", 1000}, {"delivered", oneAtATime}};
        close(host);
        close(listening);
        unlink(hostPath.c_str());
    }

    // Presence asked from 8 threads at once: on a socket the answers come back joined; on the bus
    // each is a signal of its own.
    auto presenceFromThreads = [&](const char *version) {
        install(version);
        Child client(simulator, {"--quiet"});
        client.readLine();
        counter->presence = 0;
        std::vector<std::thread> threads;
        std::atomic<size_t> sent{0};
        for (int t = 0; t < 8; ++t)
            threads.emplace_back([&] {
                for (int i = 0; i < 125; ++i)
                    sent += sdk->GetIMPresenceStatus() == 0 ? 1 : 0;
            });
        for (std::thread &thread : threads)
            thread.join();
        size_t answered = settle(counter->presence);
        return nlohmann::json{{"asked", sent.load()}, {"answered", answered}};
    };
    nlohmann::json socketPresence = presenceFromThreads("5.6.0");
    nlohmann::json busPresence = presenceFromThreads("5.5.0");
    row("presence from 8 threads, sockets: answered of asked",
        socketPresence["answered"].dump() + " of " + socketPresence["asked"].dump());
    row("presence from 8 threads, D-Bus: answered of asked", busPresence["answered"].dump() + " of " + busPresence["asked"].dump());
    figures["presenceFrom8ThreadsSockets"] = socketPresence;
    figures["presenceFrom8ThreadsBus"] = busPresence;

    install("5.6.0");
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

        // A device name holding a quote: the text sent is not JSON, and nothing comes back.
        counter->audio = 0;
        sdk->addToDeviceArray("He said \"hi\"", "1");
        sdk->SetAudioCmd(5, YMAudioDevice_s{"1", "He said \"hi\"", 1, 1});
        size_t quoted = settle(counter->audio);
        sdk->SetAudioCmd(5, headset);
        size_t plain = settle(counter->audio) - quoted;
        row("audio event for a name with a quote / a plain name", std::to_string(quoted) + " / " + std::to_string(plain));
        figures["nameWithQuote"] = {{"delivered", quoted}, {"plainNameDelivered", plain}};

        // Extra facades, released: each keeps its two connections.
        size_t socketsBefore = openSockets();
        for (int i = 0; i < 10; ++i)
            ymSdkImplement::create();
        ymMainLoop::shared().runFor(std::chrono::milliseconds(500));
        size_t kept = openSockets() - socketsBefore;
        row("sockets still open after 10 extra facades were released", std::to_string(kept));
        figures["socketsKeptBy10ReleasedFacades"] = kept;
    }

    // A shared list that cannot be written (a folder where its file goes): the registration says YES.
    std::filesystem::create_directories(home() + "/Library/Preferences/YumoClientSdk.ShareData.plist");
    bool registered = sdk->RegisterAudioDevice("Speaker", "2", 1, 1);
    row("registration when the shared list cannot be written", registered ? "YES (nothing written)" : "NO");
    figures["registrationWithUnwritableList"] = registered;
    return figures;
}

}  // namespace bench
