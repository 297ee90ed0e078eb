// ymdemo: a companion talking to the simulated meeting client, end to end.
//
//   ymdemo TOOLS_DIR     (TOOLS_DIR holds ymsim)
//
// Run it under a private $HOME and session bus (scripts/run-demo.sh does): it installs the
// simulator as the meeting client there, starts and stops it, and shows each step.
#include <YumoClientSdk/YumoClientSdk.h>
#include <YumoClientSdk/yStringUtils.h>
#include <nlohmann/json.hpp>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sdk/ymAudioDeviceStore.h"

extern char **environ;

namespace {

std::string tools;

// ---- the simulator as a child process ----

class Simulator {
public:
    explicit Simulator(const std::string &version)
    {
        std::string install = "'" + tools + "/ymsim' install --version " + version + " >/dev/null";
        if (CMD::runAsCommand_ret(install) != 0)
            throw std::runtime_error("ymsim install failed");
        BOOL exists = NO;
        std::optional<std::string> executable = ymAppHelper::sharedInstance()->getYumoappLaunchPath(&exists);
        int fds[2];
        if (!executable || !exists || pipe2(fds, O_CLOEXEC) != 0)
            throw std::runtime_error("the simulated client is not where the SDK looks");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
        char *argv[] = {executable->data(), nullptr};
        posix_spawn(&_pid, executable->c_str(), &actions, nullptr, argv, environ);
        posix_spawn_file_actions_destroy(&actions);
        close(fds[1]);
        _output = fds[0];
        if (readLine(5000) != "ready")
            throw std::runtime_error("the simulated client did not start");
    }
    ~Simulator()
    {
        kill(_pid, SIGTERM);
        waitpid(_pid, nullptr, 0);
        close(_output);
    }
    // Prints what the simulator reported receiving, waiting up to `milliseconds` for the first.
    void showReceived(int milliseconds = 2000)
    {
        for (std::optional<std::string> line = readLine(milliseconds); line; line = readLine(200))
            std::printf("      meeting client %s\n", line->c_str());
    }

private:
    std::optional<std::string> readLine(int milliseconds)
    {
        for (;;) {
            size_t newline = _buffer.find('\n');
            if (newline != std::string::npos) {
                std::string line = _buffer.substr(0, newline);
                _buffer.erase(0, newline + 1);
                return line;
            }
            struct pollfd ready = {_output, POLLIN, 0};
            if (poll(&ready, 1, milliseconds) <= 0)
                return std::nullopt;
            char chunk[4096];
            ssize_t count = read(_output, chunk, sizeof chunk);
            if (count <= 0)
                return std::nullopt;
            _buffer.append(chunk, static_cast<size_t>(count));
        }
    }

    pid_t _pid = -1;
    int _output = -1;
    std::string _buffer;
};

// ---- the companion's delegate ----

class Companion : public ymSdkDelegate {
public:
    int presenceAnswers = 0;
    int audioEvents = 0;

    void ymSdkIMPresenceStatus(YMPresenceStatus_s status) override
    {
        ++presenceAnswers;
        std::printf("   <- ymSdkIMPresenceStatus: error=%s code=%d text=\"%s\" presenceStatus=%d\n",
                    status.error ? "YES" : "NO", status.code, status.text.value_or("(null)").c_str(), status.presenceStatus);
    }
    void ymSdkAudioInfo(YMAudioInfo_s info) override
    {
        ++audioEvents;
        std::printf("   <- ymSdkAudioInfo: audioCmd=%d deviceName=%s deviceIndex=%s\n", info.audioCmd,
                    info.audioDevice.deviceName.value_or("(null)").c_str(),
                    info.audioDevice.deviceIndex.value_or("(null)").c_str());
    }
};

void step(const char *title) { std::printf("\n== %s\n", title); }

const char *statusText(int32_t status)
{
    static std::string text;
    ymAPIErrorMgr::sharedInstance()->setErrorCode(status);
    text = status == 0 ? "sent" : ymAPIErrorMgr::sharedInstance()->to3rdClientErrorStr();
    return text.c_str();
}

void showSharedList()
{
    std::optional<std::vector<std::string>> texts = ymAudioDeviceStore::storedTexts();
    std::printf("   shared device list (%zu):", texts ? texts->size() : 0);
    if (!texts || texts->empty())
        std::printf(" empty");
    for (const std::string &text : texts.value_or(std::vector<std::string>())) {
        std::optional<nlohmann::json> entry = yStringUtils::toArrayOrNSDictionary(text);
        std::printf(" %s", entry ? entry->dump().c_str() : text.c_str());
    }
    std::printf("\n");
}

bool waitFor(const std::function<bool()> &done) { return ymMainLoop::shared().runUntil(done, std::chrono::seconds(5)); }

void exchange(Companion &companion, const YMAudioDevice_s &headset, Simulator &simulator)
{
    int before = companion.presenceAnswers;
    int32_t status = ymSdkImplement::SharedInstance()->GetIMPresenceStatus();
    std::printf("   -> GetIMPresenceStatus() = %d (%s)\n", status, statusText(status));
    simulator.showReceived();
    if (!waitFor([&] { return companion.presenceAnswers > before; }))
        std::printf("   (no presence answer)\n");

    before = companion.audioEvents;
    status = ymSdkImplement::SharedInstance()->SetAudioCmd(5, headset);
    std::printf("   -> SetAudioCmd(5, %s #%s) = %d (%s)\n", headset.deviceName->c_str(), headset.deviceIndex->c_str(),
                status, statusText(status));
    simulator.showReceived();
    if (!waitFor([&] { return companion.audioEvents > before; }))
        std::printf("   (no audio event)\n");
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc != 2 || access((std::string(argv[1]) + "/ymsim").c_str(), X_OK) != 0) {
        std::fprintf(stderr, "ymdemo: takes one argument, the folder that holds ymsim (the build's tools folder)\n");
        return 64;
    }
    tools = argv[1];
    signal(SIGPIPE, SIG_IGN);
    std::printf("YumoClientSdk demo: a companion and the simulated meeting client\n");
    std::printf("HOME=%s\n", std::getenv("HOME") ? std::getenv("HOME") : "(unset)");

    auto companion = std::make_shared<Companion>();
    ymSdkImplement *sdk = ymSdkImplement::SharedInstance();
    sdk->setDelegate(companion);
    YMAudioDevice_s headset{"1", "Headset", 2830, 3};
    YMAudioDevice_s speaker{"2", "Speaker", 2830, 4};

    try {
        step("The meeting client is not installed");
        int32_t status = sdk->GetIMPresenceStatus();
        std::printf("   -> GetIMPresenceStatus() = %d \"%s\"\n", status, ymAPIErrorMgr::sharedInstance()->to3rdClientErrorStr().c_str());

        step("Register the companion's headset");
        std::printf("   -> RegisterFeature(3) = %s, RegisterAudioDevice(Headset, 1, 2830, 3) = %s\n",
                    sdk->RegisterFeature(3) ? "YES" : "NO", sdk->RegisterAudioDevice("Headset", "1", 2830, 3) ? "YES" : "NO");
        showSharedList();

        {
            step("Meeting client 5.6.0 running: the socket transport");
            Simulator simulator("5.6.0");
            std::printf("   client %s, version %s, new IPC: %s\n",
                        ymAppHelper::sharedInstance()->getYumoClientInstallPath().c_str(),
                        ymClientFeatureMgr::getYumoClientVersion().c_str(),
                        ymClientFeatureMgr::sharedInstance()->isYumoClientSupportNewIPC() ? "YES" : "NO");
            exchange(*companion, headset, simulator);

            step("An audio event for a device this companion did not register is not delivered");
            int before = companion->audioEvents;
            status = sdk->SetAudioCmd(6, speaker);
            std::printf("   -> SetAudioCmd(6, Speaker #2) = %d (%s)\n", status, statusText(status));
            simulator.showReceived();
            ymMainLoop::shared().runFor(std::chrono::milliseconds(500));  // time for a wrong delivery to show
            std::printf("   %s\n", companion->audioEvents == before ? "no ymSdkAudioInfo: Speaker is not registered here"
                                                                     : "unexpected: the event was delivered");
        }

        {
            step("Meeting client 5.5.0 running: the notification transport (session bus)");
            Simulator simulator("5.5.0");
            std::printf("   version %s, new IPC: %s\n", ymClientFeatureMgr::getYumoClientVersion().c_str(),
                        ymClientFeatureMgr::sharedInstance()->isYumoClientSupportNewIPC() ? "YES" : "NO");
            exchange(*companion, headset, simulator);

            step("Clean-up: the companion releases its devices");
            showSharedList();
            sdk->CleanupAudioDevices();
            std::printf("   -> CleanupAudioDevices()\n");
            simulator.showReceived();
            ymMainLoop::shared().runFor(std::chrono::milliseconds(300));
            showSharedList();
        }

        step("The meeting client has quit");
        status = sdk->SetAudioCmd(5, headset);
        std::printf("   -> SetAudioCmd(5, Headset #1) = %d \"%s\"\n", status, ymAPIErrorMgr::sharedInstance()->to3rdClientErrorStr().c_str());
    } catch (const std::exception &error) {
        std::printf("demo stopped: %s\n", error.what());
        return 1;
    }
    return 0;
}
