// ymdemo: the SDK's transport at work. A server channel plays the meeting client on its socket in
// the group container; a client channel, as a companion has, sends the presence request and
// receives the answer on the main loop.
#include <YumoClientSdk/YumoClientSdk.h>
#include <cstdio>
#include <unistd.h>

#include "sdk/ymIPCMessage.h"

namespace {

class MeetingClient : public YMSocketIPCChannelDelegate {
public:
    std::shared_ptr<YMSocketIPCChannel_SDK> channel;
    int32_t onMessageRecieved(const std::optional<std::string> &message) override
    {
        std::printf("  meeting client received: %s\n", message.value_or("(null)").c_str());
        std::string answer = R"({"commandId":1,"from":2,"version":"1.0.0","result":"1:OK","data":[{"PresenceStatus":3}]})";
        std::printf("  meeting client answers:  %s\n", answer.c_str());
        channel->sendMessage(answer);
        return 0;
    }
};

class Companion : public YMSocketIPCChannelDelegate {
public:
    bool answered = false;
    int32_t onMessageRecieved(const std::optional<std::string> &message) override
    {
        std::optional<nlohmann::json> parsed = yStringUtils::toArrayOrNSDictionary(message);
        if (!parsed)
            return -1;
        ymIPCMessage::ResultReading result = ymIPCMessage::result(*parsed);
        std::printf("  companion decoded: error=%s code=%d text=%s presence=%d\n", result.error ? "YES" : "NO",
                    result.code, result.text.value_or("(null)").c_str(), ymIPCMessage::presenceStatus(*parsed));
        answered = true;
        return 0;
    }
};

}  // namespace

int main()
{
    std::optional<std::string> path = YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient();
    if (!path) {
        std::fprintf(stderr, "ymdemo: no group container (is $HOME set?)\n");
        return 1;
    }
    ymLogHelper::redirectNSLog(NO);  // the SDK's log lines go to yumoclientsdk.log
    std::printf("YumoClientSdk transport demo\n  socket: %s\n", path->c_str());

    MeetingClient meetingClient;
    meetingClient.channel = YMSocketIPCChannel_SDK::ipcServerWithSocketPath(path);
    meetingClient.channel->setDelegate(&meetingClient);
    while (access(path->c_str(), F_OK) != 0)
        usleep(1000);

    Companion companion;
    auto channel = YMSocketIPCChannel_SDK::ipcClientWithSocketPath(path);
    channel->setDelegate(&companion);
    std::string request = ymIPCMessage::presenceRequest();
    std::printf("  companion sends:   %s\n", request.c_str());
    channel->sendMessage(request);

    bool done = ymMainLoop::shared().runUntil([&] { return companion.answered; }, std::chrono::seconds(10));
    std::printf(done ? "done.\n" : "no answer within 10 seconds.\n");
    std::printf("  the SDK's log: %s/yumoclientsdk.log\n", YMSocketIPCHelper_SDK::groupContainerDir().value_or("").c_str());
    return done ? 0 : 1;
}
