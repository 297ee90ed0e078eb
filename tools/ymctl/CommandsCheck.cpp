// ymctl check-client: plays a companion against the meeting client that runs now, on the transport
// its version chooses, and checks every answer against docs/PROTOCOL.md. It sees the texts as they
// arrive (the transports' own channels), not as the facade reads them, so a field in the wrong
// place is named instead of read as 0.
#include <YumoClientSdk/YumoClientSdk.h>
#include <YumoClientSdk/yStringUtils.h>
#include <algorithm>
#include <functional>

#include "Commands.h"

namespace {

constexpr int kExitNo = 1;
const char *const kPresenceRequest = R"({"commandId":1,"from":1,"version":"1.0.0","data":""})";
const char *const kDeviceName = "ymctl-check";
const char *const kDeviceIndex = "1";

std::string audioCommand(int code, const std::string &name)
{
    return R"({"commandId":2,"from":1,"version":"1.0.0","data":[{"AudioCmd":)" + std::to_string(code) +
           R"(}],"deviceIndex":")" + kDeviceIndex + R"(","deviceName":")" + name + R"(","usbVid":"0","usbPid":"0"})";
}

// A text that came, and by which way: "client" (the meeting client's socket or answer name) or
// "host"; parsed once, as it came (null when it is no JSON object).
struct Arrival {
    std::string way;
    std::string text;
    nlohmann::json parsed;

    // As a whole number, or 0 (read without throwing, whatever type a peer puts there).
    int64_t commandId() const
    {
        auto found = parsed.is_object() ? parsed.find("commandId") : parsed.end();
        return found != parsed.end() && found->is_number_integer() ? found->get<int64_t>() : 0;
    }
    bool names(const char *deviceName) const
    {
        auto found = parsed.is_object() ? parsed.find("deviceName") : parsed.end();
        return found != parsed.end() && found->is_string() && *found == deviceName;
    }
};

class Collector : public YMSocketIPCChannelDelegate {
public:
    explicit Collector(std::string way, std::vector<Arrival> &arrivals) : _way(std::move(way)), _arrivals(arrivals) {}
    int32_t onMessageRecieved(const std::optional<std::string> &message) override
    {
        std::string text = message.value_or("");
        std::optional<nlohmann::json> parsed = yStringUtils::toArrayOrNSDictionary(text);
        _arrivals.push_back({_way, text, parsed && parsed->is_object() ? *parsed : nlohmann::json()});
        return 0;
    }

private:
    std::string _way;
    std::vector<Arrival> &_arrivals;
};

// One line per check, PASS or FAIL with what was expected and what came.
class Checks {
public:
    explicit Checks(Output &output) : _output(output) {}
    void report(const std::string &check, bool passed, const std::string &expected, const std::string &got)
    {
        _failed = _failed || !passed;
        _output.field("check", check, passed ? "PASS" : "FAIL",
                      check + (passed ? ": " + got : ": expected " + expected + ", got " + got));
        _output.jsonField("result", passed ? "PASS" : "FAIL");
        _output.jsonField("expected", expected);
        _output.jsonField("got", got);
        _output.flush();
    }
    bool failed() const { return _failed; }

private:
    Output &_output;
    bool _failed = false;
};

const nlohmann::json *member(const nlohmann::json &object, const char *key)
{
    auto found = object.find(key);
    return found == object.end() ? nullptr : &*found;
}

// The first element of "data" when it is a list of objects.
const nlohmann::json *firstInData(const nlohmann::json &message)
{
    const nlohmann::json *data = member(message, "data");
    if (!data || !data->is_array() || data->empty() || !(*data)[0].is_object())
        return nullptr;
    return &(*data)[0];
}

std::string shapeOfData(const nlohmann::json &message, const char *field)
{
    const nlohmann::json *data = member(message, "data");
    if (member(message, field))
        return std::string("\"") + field + "\" at the top level, outside \"data\"";
    if (!data)
        return "no \"data\"";
    if (!data->is_array())
        return "\"data\" of another type: " + data->dump();
    return "\"data\":" + data->dump();
}

void checkPresenceAnswer(Checks &checks, const Arrival &answer, bool sockets)
{
    const nlohmann::json *parsed = &answer.parsed;
    checks.report("presence.json", parsed->is_object(), "one JSON object", answer.text);
    if (!parsed->is_object())
        return;
    if (sockets)
        checks.report("presence.connection", answer.way == "client", "on the connection to s.yumoclient the request went by",
                      "on the connection to s." + std::string(answer.way == "client" ? "yumoclient" : "yyhost"));
    const nlohmann::json *result = member(*parsed, "result");
    bool resultShaped = result && result->is_string() && result->get<std::string>().find(':') != std::string::npos &&
                        result->get<std::string>().find(':') == result->get<std::string>().rfind(':');
    checks.report("presence.result", resultShaped, "\"result\":\"CODE:TEXT\" with one colon, such as \"1:OK\"",
                  result ? "\"result\":" + result->dump() : "no \"result\"");
    const nlohmann::json *first = firstInData(*parsed);
    const nlohmann::json *status = first ? member(*first, "PresenceStatus") : nullptr;
    checks.report("presence.data", status && status->is_number_integer(),
                  "\"data\":[{\"PresenceStatus\":N}], N a whole number, in the first element",
                  status ? "\"data\":" + member(*parsed, "data")->dump() : shapeOfData(*parsed, "PresenceStatus"));
}

void checkAudioEvent(Checks &checks, const std::string &name, const std::optional<Arrival> &event, int code)
{
    if (!event) {
        checks.report(name, false, "an audio event for " + std::string(kDeviceName) + " #" + kDeviceIndex, "none");
        return;
    }
    const nlohmann::json *parsed = event->parsed.is_object() ? &event->parsed : nullptr;
    const nlohmann::json *first = parsed ? firstInData(*parsed) : nullptr;
    const nlohmann::json *audio = first ? member(*first, "AudioCmd") : nullptr;
    bool shaped = audio && audio->is_number_integer() && audio->get<int64_t>() == code;
    checks.report(name + ".data", shaped, "\"data\":[{\"AudioCmd\":" + std::to_string(code) + "}]",
                  audio ? "\"data\":" + member(*parsed, "data")->dump() : (parsed ? shapeOfData(*parsed, "AudioCmd") : event->text));
    const nlohmann::json *index = parsed ? member(*parsed, "deviceIndex") : nullptr;
    const nlohmann::json *device = parsed ? member(*parsed, "deviceName") : nullptr;
    bool named = device && device->is_string() && *device == kDeviceName && index && index->is_string() && *index == kDeviceIndex;
    checks.report(name + ".device", named,
                  std::string("\"deviceIndex\":\"") + kDeviceIndex + "\",\"deviceName\":\"" + kDeviceName + "\"",
                  std::string("\"deviceIndex\":") + (index ? index->dump() : "(none)") + ",\"deviceName\":" +
                      (device ? device->dump() : "(none)"));
}

// Whether the text is an audio event (command 2) whose "data" holds this code in its first element.
bool isAudioEvent(const Arrival &arrival, std::optional<int> code)
{
    if (arrival.commandId() != 2)
        return false;
    if (!code)
        return true;
    const nlohmann::json *element = firstInData(arrival.parsed);
    const nlohmann::json *audio = element ? member(*element, "AudioCmd") : nullptr;
    return audio && audio->is_number_integer() && audio->get<int64_t>() == *code;
}

// The audio event for the command of this code that came after `from`: the first one holding the
// code, or else the first one at all (which the checks then find wrong). An event that came twice
// (sent on both of a companion's connections) is not taken for the next one.
std::optional<Arrival> audioEventAfter(const std::vector<Arrival> &arrivals, size_t from, int code)
{
    for (size_t i = from; i < arrivals.size(); ++i)
        if (isAudioEvent(arrivals[i], code))
            return arrivals[i];
    for (size_t i = from; i < arrivals.size(); ++i)
        if (isAudioEvent(arrivals[i], std::nullopt))
            return arrivals[i];
    return std::nullopt;
}

}  // namespace

int runCheckClient(Arguments &arguments, Output &output)
{
    std::chrono::seconds wait(arguments.number("--timeout", kSeconds).value_or(5));
    arguments.finish();
    Checks checks(output);

    bool running = ymAPIErrorMgr::sharedInstance()->checkYumoAppError() == 0;
    std::string version = ymClientFeatureMgr::getYumoClientVersion();
    checks.report("running", running, "a process of this user running Contents/MacOS/<executable> of a bundle with "
                                      "CFBundleIdentifier com.yumocorp.yumoapp",
                  running ? "running, version " + version : "not running (" + ymAppHelper::sharedInstance()->getYumoClientInstallPath() + ")");
    if (!running)
        return kExitNo;
    bool sockets = ymClientFeatureMgr::sharedInstance()->isYumoClientSupportNewIPC();
    checks.report("transport", true, "sockets from 5.6, D-Bus before", std::string(sockets ? "sockets" : "D-Bus") + " (version " + version + ")");

    std::vector<Arrival> arrivals;
    auto fromClient = std::make_shared<Collector>("client", arrivals);
    auto fromHost = std::make_shared<Collector>("host", arrivals);
    std::shared_ptr<YMSocketIPCChannel_SDK> clientChannel, hostChannel;
    std::shared_ptr<ymIPCMsgMgr> notifications;
    std::function<void(const std::string &)> toClient, toHost;
    if (sockets) {
        clientChannel = YMSocketIPCChannel_SDK::ipcClientWithSocketPath(YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient());
        hostChannel = YMSocketIPCChannel_SDK::ipcClientWithSocketPath(YMSocketIPCHelper_SDK::ipcSocketPathForYyHost());
        if (!clientChannel || !hostChannel) {
            checks.report("sockets", false, "the two sockets of the group container", "no socket path");
            return kExitNo;
        }
        clientChannel->setDelegate(std::weak_ptr<YMSocketIPCChannelDelegate>(fromClient));
        hostChannel->setDelegate(std::weak_ptr<YMSocketIPCChannelDelegate>(fromHost));
        toClient = [&](const std::string &text) { clientChannel->sendMessage(text); };
        toHost = [&](const std::string &text) { hostChannel->sendMessage(text); };
    } else {
        notifications = ymIPCMsgMgr::create();
        notifications->setDelegate(std::weak_ptr<YMSocketIPCChannelDelegate>(fromClient));
        toClient = [&](const std::string &text) { notifications->sendIPCMessageToYumoClient(text); };
        toHost = [&](const std::string &text) { notifications->sendIPCMessageToYyhost(text); };
    }
    // Runs the main loop until a text that fits has come after `from`, or the wait is over.
    auto waitFor = [&](size_t from, const std::function<bool(const Arrival &)> &fits) {
        ymMainLoop::shared().runUntil([&] { return std::any_of(arrivals.begin() + static_cast<long>(from), arrivals.end(), fits); },
                                      wait);
    };

    // The presence answer: its shape, and the way it came.
    auto isPresenceAnswer = [](const Arrival &arrival) { return arrival.commandId() == 1; };
    toClient(kPresenceRequest);
    waitFor(0, isPresenceAnswer);
    auto answer = std::find_if(arrivals.begin(), arrivals.end(), isPresenceAnswer);
    if (answer == arrivals.end())
        checks.report("presence", false, "an answer with \"commandId\":1 within " + std::to_string(wait.count()) + " s", "none");
    else
        checkPresenceAnswer(checks, *answer, sockets);

    // An audio command for this companion's device: the event names it.
    size_t before = arrivals.size();
    toHost(audioCommand(5, kDeviceName));
    waitFor(before, [](const Arrival &arrival) { return isAudioEvent(arrival, 5); });
    checkAudioEvent(checks, "audio", audioEventAfter(arrivals, before, 5), 5);

    // The release of the device is taken like any command.
    before = arrivals.size();
    toHost(audioCommand(ymAudioCommandRelease, kDeviceName));
    waitFor(before, [](const Arrival &arrival) { return isAudioEvent(arrival, ymAudioCommandRelease); });
    std::optional<Arrival> released = audioEventAfter(arrivals, before, ymAudioCommandRelease);
    if (released)
        checkAudioEvent(checks, "release", released, ymAudioCommandRelease);
    else
        checks.report("release", true, "taken (an event for it, or none)", "none");

    // Nothing named another device meanwhile: the host answers for the device commanded.
    std::string other;
    for (const Arrival &arrival : arrivals) {
        if (arrival.commandId() == 2 && !arrival.names(kDeviceName))
            other = arrival.text;
    }
    checks.report("audio.others", other.empty(), "no event for a device that was not commanded", other.empty() ? "none" : other);
    return checks.failed() ? kExitNo : 0;
}
