#include <YumoClientSdk/YumoClientSdk.h>
#include <YumoClientSdk/yStringUtils.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "Commands.h"

namespace {

constexpr int kExitNo = 1;
constexpr int kExitTimedOut = 75;

// Receives the facade's callbacks and prints them as they come, or keeps them for a command.
class Receiver : public ymSdkDelegate {
public:
    explicit Receiver(Output &output) : _output(output) {}
    bool printEvents = false;
    std::optional<YMPresenceStatus_s> presence;
    std::optional<YMAudioInfo_s> audio;

    void ymSdkIMPresenceStatus(YMPresenceStatus_s status) override
    {
        presence = status;
        if (printEvents) {
            _output.field("event", "presence", "event");
            showPresence(_output, status);
            _output.flush();
        }
    }
    void ymSdkAudioInfo(YMAudioInfo_s info) override
    {
        audio = info;
        if (printEvents) {
            _output.field("event", "audio", "event");
            showAudio(_output, info);
            _output.flush();
        }
    }
    static void showPresence(Output &output, const YMPresenceStatus_s &status)
    {
        output.field("error", status.error == YES, "error");
        output.field("code", status.code, "code");
        output.field("text", status.text ? nlohmann::json(*status.text) : nlohmann::json(), "text");
        output.field("presenceStatus", status.presenceStatus, "presence status");
    }
    static void showAudio(Output &output, const YMAudioInfo_s &info)
    {
        output.field("audioCmd", info.audioCmd, "audio command");
        output.field("deviceIndex", info.audioDevice.deviceIndex ? nlohmann::json(*info.audioDevice.deviceIndex) : nlohmann::json(),
                     "device index");
        output.field("deviceName", info.audioDevice.deviceName ? nlohmann::json(*info.audioDevice.deviceName) : nlohmann::json(),
                     "device name");
    }

private:
    Output &_output;
};

ymSdkImplement *facadeWith(const std::shared_ptr<Receiver> &receiver)
{
    ymSdkImplement *sdk = ymSdkImplement::SharedInstance();
    sdk->setDelegate(receiver);
    return sdk;
}

std::chrono::milliseconds secondsOption(Arguments &arguments, const char *name, long long fallback)
{
    return std::chrono::seconds(arguments.number(name, kSeconds).value_or(fallback));
}

// The status of a command; a refusal carries its error text, in JSON too.
void showStatus(Output &output, int32_t status)
{
    ymAPIErrorMgr::sharedInstance()->setErrorCode(status);
    std::string text = ymAPIErrorMgr::sharedInstance()->to3rdClientErrorStr();
    if (status == 8)
        text = "no transport to send with";
    output.field("status", status, "status", status == 0 ? "0 (sent)" : std::to_string(status));
    if (status != 0)
        output.field("error", text, "error");
}

// A device's name and index are texts that are not empty, as the SDK registers them.
void refuseEmpty(const std::optional<std::string> &name, const std::optional<std::string> &index)
{
    if (name && name->empty())
        throw UsageError("--name takes a device name that is not empty");
    if (index && index->empty())
        throw UsageError("--index takes a device index that is not empty");
}

// NAME:INDEX; the index is what follows the last colon.
std::pair<std::string, std::string> deviceOf(const std::string &text)
{
    size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == text.size())
        throw UsageError("--device takes NAME:INDEX, not \"" + text + "\"");
    return {text.substr(0, colon), text.substr(colon + 1)};
}

// The shared device list, read through the SDK's property-list reading.
std::vector<nlohmann::json> sharedDevices()
{
    const char *home = std::getenv("HOME");
    std::string suite = std::string(home ? home : "") + "/Library/Preferences/" + YMCLIENTSDK_SHAREDATA + ".plist";
    std::optional<ymValue> list = ymAppHelper::sharedInstance()->objectForPropertyListKey(std::string(AUDIODEVICE), suite);
    std::vector<nlohmann::json> devices;
    if (!list || list->type() != ymValue::Type::array)
        return devices;
    for (const ymValue &text : list->elements()) {
        std::optional<nlohmann::json> device = text.isText() ? yStringUtils::toArrayOrNSDictionary(text.text()) : std::nullopt;
        devices.push_back(device && device->is_object() ? *device : nlohmann::json{{"unreadable", text.isText() ? text.text() : "(not a text)"}});
    }
    return devices;
}

// Makes every device of the shared list one of this process's, so that clean-up releases it and
// its audio events are delivered here.
void adoptSharedDevices(ymSdkImplement &sdk, const std::vector<nlohmann::json> &devices)
{
    for (const nlohmann::json &device : devices) {
        if (!device.contains("deviceName") || !device["deviceName"].is_string())
            continue;
        std::optional<std::string> index;
        if (device.contains("deviceIndex") && device["deviceIndex"].is_string())
            index = device["deviceIndex"].get<std::string>();
        sdk.addToDeviceArray(device["deviceName"].get<std::string>(), index);
    }
}

std::string textOf(const nlohmann::json &value)
{
    return value.is_string() ? value.get<std::string>() : value.is_null() ? "(none)" : value.dump();
}

}  // namespace

int runStatus(Arguments &arguments, Output &output)
{
    arguments.finish();
    ymAppHelper &helper = *ymAppHelper::sharedInstance();
    bool installed = helper.isYumoappInstalled();
    std::string path = helper.getYumoClientInstallPath();
    std::string version = ymClientFeatureMgr::getYumoClientVersion();
    int32_t code = ymAPIErrorMgr::sharedInstance()->checkYumoAppError();
    output.field("installed", installed, "installed");
    output.field("installPath", path, "install path", installed ? path : path + " (not there)");
    output.field("version", version, "version", version.empty() ? "(unreadable)" : version);
    output.field("running", helper.isYumoRunning(), "running");
    output.field("supported", ymClientFeatureMgr::sharedInstance()->isSupportedYumoClientVersion(), "supported (4.2+)");
    bool newIPC = ymClientFeatureMgr::sharedInstance()->isYumoClientSupportNewIPC();
    output.field("newIPC", newIPC, "transport", newIPC ? "sockets (5.6+)" : "notifications");
    output.field("errorCode", code, "error code");
    std::string text = ymAPIErrorMgr::sharedInstance()->to3rdClientErrorStr();
    output.field("errorText", text, "error text", text.empty() ? "(none)" : text);
    output.flush();
    return code;
}

int runPresence(Arguments &arguments, Output &output)
{
    std::chrono::milliseconds timeout = secondsOption(arguments, "--timeout", 5);
    arguments.finish();
    auto receiver = std::make_shared<Receiver>(output);
    int32_t status = facadeWith(receiver)->GetIMPresenceStatus();
    showStatus(output, status);
    if (status != 0) {
        output.flush();
        return status;
    }
    if (!ymMainLoop::shared().runUntil([&] { return receiver->presence.has_value(); }, timeout)) {
        output.field("timedOut", true, "answer", "none within the timeout");
        output.flush();
        return kExitTimedOut;
    }
    Receiver::showPresence(output, *receiver->presence);
    output.flush();
    return 0;
}

int runAudio(Arguments &arguments, Output &output)
{
    std::optional<std::string> name = arguments.option("--name");
    std::optional<std::string> index = arguments.option("--index");
    long long vid = arguments.number("--vid", kUsbIdentifier).value_or(0);
    long long pid = arguments.number("--pid", kUsbIdentifier).value_or(0);
    std::optional<long long> wait = arguments.number("--wait", kSeconds);
    std::string command = arguments.positional("the audio command (" + std::string(kAudioCommand.accepted) + ")");
    int32_t audioCmd = static_cast<int32_t>(parseNumber(command, "the audio command", kAudioCommand));
    arguments.finish();
    if (!name || !index)
        throw UsageError("--name NAME and --index INDEX are required");
    refuseEmpty(name, index);
    auto receiver = std::make_shared<Receiver>(output);
    ymSdkImplement *sdk = facadeWith(receiver);
    if (wait)
        sdk->addToDeviceArray(name, index);  // so that the device's event is delivered here
    YMAudioDevice_s device{index, name, static_cast<uint32_t>(vid), static_cast<uint32_t>(pid)};
    int32_t status = sdk->SetAudioCmd(audioCmd, device);
    showStatus(output, status);
    output.flush();
    if (status != 0 || !wait)
        return status;
    if (!ymMainLoop::shared().runUntil([&] { return receiver->audio.has_value(); }, std::chrono::seconds(*wait))) {
        output.note("no audio event within " + std::to_string(*wait) + " s");
        return kExitTimedOut;
    }
    Receiver::showAudio(output, *receiver->audio);
    output.flush();
    return 0;
}

int runRegister(Arguments &arguments, Output &output)
{
    std::optional<std::string> name = arguments.option("--name");
    std::optional<std::string> index = arguments.option("--index");
    std::optional<long long> vid = arguments.number("--vid", kUsbIdentifier);
    std::optional<long long> pid = arguments.number("--pid", kUsbIdentifier);
    arguments.finish();
    if (!name || !index || !vid || !pid)
        throw UsageError("--name NAME, --index INDEX, --vid V and --pid P are required");
    refuseEmpty(name, index);
    bool registered = ymSdkImplement::SharedInstance()->RegisterAudioDevice(name, index, *vid, *pid);
    output.field("registered", registered, "registered");
    output.flush();
    return registered ? 0 : kExitNo;
}

int runDevices(Arguments &arguments, Output &output)
{
    arguments.finish();
    std::vector<nlohmann::json> devices = sharedDevices();
    if (output.json()) {
        output.field("devices", devices, "devices");
        output.flush();
        return 0;
    }
    if (devices.empty())
        output.note("no devices in the shared list");
    for (const nlohmann::json &device : devices)
        output.note(textOf(device.value("deviceName", nlohmann::json())) + "  #" + textOf(device.value("deviceIndex", nlohmann::json())) +
                    "  vid " + textOf(device.value("usbVid", nlohmann::json())) + "  pid " +
                    textOf(device.value("usbPid", nlohmann::json())));
    return 0;
}

int runCleanup(Arguments &arguments, Output &output)
{
    bool all = arguments.flag("--all");
    std::vector<std::string> named = arguments.options("--device");
    arguments.finish();
    if (!all && named.empty())
        throw UsageError("cleanup takes --device NAME:INDEX (as often as needed) or --all");
    ymSdkImplement *sdk = ymSdkImplement::SharedInstance();
    std::vector<nlohmann::json> before = sharedDevices();
    // Clean-up releases the devices of this process: those named are made this process's first.
    if (all)
        adoptSharedDevices(*sdk, before);
    for (const std::string &text : named) {
        auto [name, index] = deviceOf(text);
        sdk->addToDeviceArray(name, index);
    }
    sdk->CleanupAudioDevices();
    size_t after = sharedDevices().size();
    output.field("removed", before.size() - after, "removed");
    output.field("remaining", after, "remaining");
    output.flush();
    return 0;
}

namespace {

void stopListening(int) { ymMainLoop::shared().stop(); }

// Runs the main loop for the seconds given, or until SIGINT or SIGTERM.
void runUntilInterrupted(const std::optional<long long> &seconds)
{
    signal(SIGINT, stopListening);
    signal(SIGTERM, stopListening);
    if (seconds)
        ymMainLoop::shared().runFor(std::chrono::seconds(*seconds));
    else
        ymMainLoop::shared().run();
}

}  // namespace

int runListen(Arguments &arguments, Output &output)
{
    std::optional<long long> seconds = arguments.number("--seconds", kSeconds);
    std::vector<std::string> named = arguments.options("--device");
    bool allDevices = arguments.flag("--all-devices");
    arguments.finish();
    auto receiver = std::make_shared<Receiver>(output);
    receiver->printEvents = true;
    ymSdkImplement *sdk = facadeWith(receiver);
    for (const std::string &text : named) {
        auto [name, index] = deviceOf(text);
        sdk->addToDeviceArray(name, index);
    }
    if (allDevices)
        adoptSharedDevices(*sdk, sharedDevices());
    output.note("listening; interrupt to stop");
    runUntilInterrupted(seconds);
    return 0;
}

namespace {

const char *changeName(ymClientChange change)
{
    switch (change) {
    case ymClientChangeStarted: return "started";
    case ymClientChangeQuit: return "quit";
    case ymClientChangeInstalled: return "installed";
    case ymClientChangeRemoved: return "removed";
    case ymClientChangeUpdated: return "updated";
    case ymClientChangeMoved: return "moved";
    case ymClientChangeNone: break;
    }
    return "now";
}

const char *transportName(ymClientTransport transport)
{
    switch (transport) {
    case ymClientTransportSockets: return "sockets";
    case ymClientTransportNotifications: return "notifications";
    case ymClientTransportNone: break;
    }
    return "none";
}

}  // namespace

int runWatch(Arguments &arguments, Output &output)
{
    std::optional<long long> seconds = arguments.number("--seconds", kSeconds);
    arguments.finish();
    ymSdkImplement *sdk = ymSdkImplement::SharedInstance();
    // The state as it is first ("now"), then one line a change: for a person
    // "started  5.6.0  sockets  /path", in JSON every field.
    auto print = [&output](const YMClientState_s &state) {
        if (output.json()) {
            output.field("change", changeName(state.change), "change");
            output.field("installed", state.installed, "installed");
            output.field("running", state.running, "running");
            output.field("version", state.version, "version");
            output.field("transport", transportName(state.transport), "transport");
            output.field("installPath", state.installPath, "install path");
            output.flush();
            return;
        }
        // Columns wide enough for every change and state, so that the lines align.
        char line[128];
        std::snprintf(line, sizeof line, "%-9s  %-13s  %-12s  %-13s  ", changeName(state.change),
                      !state.installed ? "not installed" : state.running ? "running" : "not running",
                      state.version.empty() ? "(no version)" : state.version.substr(0, 12).c_str(), transportName(state.transport));
        output.note(line + state.installPath);
    };
    sdk->SetClientStateHandler(print);
    print(sdk->GetClientState());
    runUntilInterrupted(seconds);
    sdk->SetClientStateHandler(nullptr);
    return 0;
}
