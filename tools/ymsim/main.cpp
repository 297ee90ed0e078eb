// ymsim: the meeting client and its host process, simulated (ymsim --help tells every option).
//
//   ymsim install --version V [--dir D]
//       makes D/yumoapp.app (D defaults to $HOME/Applications): an Info.plist with the meeting
//       client's identifier and CFBundleVersion V, and this program as Contents/MacOS/yumoapp.
//
//   <bundle>/Contents/MacOS/yumoapp [--result R] [--presence N] [--seconds S] [--quiet] [--no-audio-events]
//       plays the meeting client and the host process: listens on both sockets of the group
//       container and observes the notification names they observe; answers every presence
//       request with "result" R and "PresenceStatus" N, and turns every audio command into an
//       audio event for the same device, each on the transport the request came by. Prints
//       "ready" when serving and a line per message received (unless --quiet); runs until
//       killed, for S seconds, or until its group container is removed. An audio command for the
//       device "ymsim-report" prints "received N", the number of messages received before it.
#include <YumoClientSdk/YumoClientSdk.h>
#include <YumoClientSdk/yStringUtils.h>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <thread>
#include <unistd.h>

#include "Options.h"
#include "platform/ymBundle.h"
#include "platform/ymNSLog.h"
#include "platform/ymNotificationCenter.h"
#include "platform/ymPropertyList.h"

namespace {

// An audio command for this device makes the simulator print how many messages it has received
// (the benchmark's way of asking without stopping it).
const char *const kReportDevice = "ymsim-report";

ServeOptions options;
std::atomic<long> receivedCount{0};

// ---- install ----

int install(const InstallOptions &install)
{
    const std::string &version = install.version;
    const std::string &folder = install.folder;
    if (folder.empty()) {
        std::fprintf(stderr, "ymsim install: no home folder ($HOME is unset or empty): give --dir FOLDER\n");
        return 1;
    }
    std::string bundle = folder + "/" + kYumoClientAppName;
    std::error_code error;
    std::filesystem::create_directories(bundle + "/Contents/MacOS", error);
    ymValue info = ymValue::dictionary({{"CFBundleIdentifier", kYumoappIdentify},
                                        {"CFBundleExecutable", "yumoapp"},
                                        {"CFBundleName", "yumoapp"},
                                        {"CFBundleVersion", version},
                                        {"CFBundleShortVersionString", version}});
    std::string xml = ymPropertyList::serialize(info, false);
    if (ymCreateFile((bundle + "/Contents/Info.plist").c_str(), xml.c_str()) != YES) {
        std::fprintf(stderr, "ymsim: cannot write %s/Contents/Info.plist\n", bundle.c_str());
        return 1;
    }
    // A copy of this very program, so that a running simulator is a process of the bundle.
    std::string executable = bundle + "/Contents/MacOS/yumoapp";
    std::filesystem::copy_file("/proc/self/exe", executable, std::filesystem::copy_options::overwrite_existing, error);
    if (error) {
        std::fprintf(stderr, "ymsim: cannot copy the simulator to %s: %s\n", executable.c_str(), error.message().c_str());
        return 1;
    }
    std::filesystem::permissions(executable, std::filesystem::perms(0755), error);
    std::printf("%s\n", bundle.c_str());
    return 0;
}

// ---- serving ----

void say(const char *format, const std::string &text)
{
    if (options.quiet)
        return;
    std::printf(format, text.c_str());
    std::printf("\n");
    std::fflush(stdout);
}

std::string presenceAnswer()
{
    nlohmann::json answer = {{"commandId", 1}, {"from", 2}, {"version", "1.0.0"}, {"result", options.result},
                             {"data", nlohmann::json::array({{{"PresenceStatus", options.presence}}})}};
    if (options.presenceAtTopLevel) {
        answer["data"] = nlohmann::json::array();
        answer["PresenceStatus"] = options.presence;
    }
    return answer.dump();
}

// The audio event for the device named in an audio command; nothing when it names none.
std::optional<std::string> audioEvent(const nlohmann::json &command)
{
    nlohmann::json event = {{"commandId", 2}, {"from", 2}, {"version", "1.0.0"}};
    int32_t audioCmd = 0;
    if (auto data = command.find("data"); data != command.end() && data->is_array())
        for (const nlohmann::json &element : *data)
            if (element.is_object() && element.contains("AudioCmd") && element["AudioCmd"].is_number_integer())
                audioCmd = element["AudioCmd"].get<int32_t>();
    event["data"] = nlohmann::json::array({{{"AudioCmd", audioCmd}}});
    for (const char *key : {"deviceIndex", "deviceName"})
        if (auto value = command.find(key); value != command.end())
            event[key] = *value;
    return event.dump();
}

// Answers one message; `reply` sends the answer back the way the message came.
void handle(const std::string &transport, const std::string &text, const std::function<void(const std::string &)> &reply)
{
    ++receivedCount;
    say(("received " + transport + ": %s").c_str(), text);
    // Taking audio commands without answering them needs no parsing: only count them.
    if (!options.audioEvents && text.find("\"commandId\":2") != std::string::npos &&
        text.find(kReportDevice) == std::string::npos)
        return;
    std::optional<nlohmann::json> message = yStringUtils::toArrayOrNSDictionary(text);
    if (!message || !message->is_object())
        return;
    int64_t commandId = message->value("commandId", 0);
    if (commandId == 1) {
        reply(presenceAnswer());
    } else if (commandId == 2) {
        if (message->value("deviceName", "") == kReportDevice) {
            std::printf("received %ld\n", receivedCount.load() - 1);
            std::fflush(stdout);
        } else if (options.audioEvents) {
            if (std::optional<std::string> event = audioEvent(*message))
                reply(*event);
        }
    }
}

class SocketPeer : public YMSocketIPCChannelDelegate {
public:
    SocketPeer(std::string name, const std::optional<std::string> &path) : _name(std::move(name))
    {
        _channel = YMSocketIPCChannel_SDK::ipcServerWithSocketPath(path);
        if (_channel)
            _channel->setDelegate(this);
    }
    bool listening() const { return _channel != nullptr; }
    int32_t onMessageRecieved(const std::optional<std::string> &text) override
    {
        // One whole message at a time, however the companion's writes arrived.
        if (text)
            handle("socket " + _name, *text, [this](const std::string &answer) { _channel->sendMessage(answer); });
        return 0;
    }

private:
    std::string _name;
    std::shared_ptr<YMSocketIPCChannel_SDK> _channel;
};

void observe(const char *listenName, const char *answerName, const std::string &label)
{
    std::string answer = answerName;
    ymNotificationCenter::defaultCenter().addObserver(
        listenName, [answer, label](const std::string &, const ymNotificationCenter::UserInfo &userInfo) {
            auto content = userInfo.find(IPCMsg_CONTENT);
            if (content == userInfo.end())
                return;
            handle("notification " + label, content->second, [answer](const std::string &reply) {
                ymNotificationCenter::defaultCenter().post(answer, ymNotificationCenter::UserInfo{{IPCMsg_CONTENT, reply}});
            });
        });
}

int serve(const ServeOptions &served)
{
    options = served;
    std::optional<std::string> container = YMSocketIPCHelper_SDK::groupContainerDir();
    if (!container) {
        std::fprintf(stderr, "ymsim: no group container (is $HOME set?)\n");
        return 1;
    }
    // The transport's own log lines go to a file of the simulator's, beside the SDK's log;
    // standard error stays the simulator's own, for its error messages.
    int log = open((*container + "/ymsim.log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (log >= 0)
        ymNSLogSetDestination(log);

    SocketPeer client("client", YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient());
    SocketPeer host("host", YMSocketIPCHelper_SDK::ipcSocketPathForYyHost());
    observe(NOTIFY_IPC_YUMOSDK_TO_YUMOCLIENT, NOTIFY_IPC_YUMOCLIENT_TO_YUMOSDK, "client");
    observe(NOTIFY_IPC_YUMOSDK_TO_YYHOST, NOTIFY_IPC_YYHOST_TO_YUMOSDK, "host");

    // Serving starts once both sockets exist (a path too long for a socket never will: the
    // notification transport is served all the same).
    for (const std::optional<std::string> &path : {YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient(),
                                                   YMSocketIPCHelper_SDK::ipcSocketPathForYyHost()})
        for (int tries = 0; path && path->size() < 104 && access(path->c_str(), F_OK) != 0 && tries < 5000; ++tries)
            usleep(1000);
    std::printf("ready\n");
    std::fflush(stdout);

    // A simulator whose home is removed (a finished test's, a finished demo's) has nobody left to
    // serve: it leaves rather than linger.
    std::thread([folder = *container] {
        for (;;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(500));
            if (access(folder.c_str(), F_OK) != 0)
                _exit(0);
        }
    }).detach();

    // SIGTERM ends the run normally, so that --quiet can still say how much it received.
    signal(SIGTERM, [](int) { ymMainLoop::shared().stop(); });
    if (options.seconds >= 0)
        ymMainLoop::shared().runFor(std::chrono::seconds(options.seconds));
    else
        ymMainLoop::shared().run();
    if (options.quiet)
        std::printf("received %ld\n", receivedCount.load());
    return 0;
}

bool runsFromABundle()
{
    char executable[4096];
    ssize_t length = readlink("/proc/self/exe", executable, sizeof executable - 1);
    if (length <= 0)
        return false;
    return ymBundle::bundlePathOfExecutable(std::string(executable, static_cast<size_t>(length))).has_value();
}

}  // namespace

int main(int argc, char **argv)
{
    std::vector<std::string> arguments(argv + 1, argv + argc);
    if (asksForHelp(arguments)) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    try {
        bool inABundle = runsFromABundle();
        if (inABundle && !arguments.empty() && arguments[0].rfind("-", 0) != 0)
            throw UsageError("\"" + arguments[0] + "\" is not for the copy in a bundle: it serves as the meeting client and takes "
                             "only options (--help); to install, run ymsim install from where ymsim is installed");
        if (!arguments.empty() && arguments[0] == "install") {
            const char *home = std::getenv("HOME");
            return install(parseInstallOptions(std::vector<std::string>(arguments.begin() + 1, arguments.end()), home ? home : ""));
        }
        if (inABundle)
            return serve(parseServeOptions(arguments));
        throw UsageError(arguments.empty() ? "say what to do: ymsim install --version VERSION, then run the copy in the bundle"
                                           : "unknown command \"" + arguments[0] + "\": ymsim install, or the copy in the bundle");
    } catch (const UsageError &error) {
        std::fprintf(stderr, "ymsim: %s\n", error.what());
        return 64;
    }
}
