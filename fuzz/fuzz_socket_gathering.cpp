// The socket framing, fed by the fuzzer. Two kinds of input, chosen by the first byte:
//   - any bytes, cut into reads where the input says: the splitter never fails, and everything it
//     hands on as a message is one JSON object;
//   - a stream made of valid messages (built from the input) with stray bytes between them that
//     cannot begin a message, cut anywhere: every message arrives, once, in order, byte for byte.
// Then the channel's boundary rule and delivery for each message, and the framing of the same
// bytes for sending.
#include <YumoClientSdk/YMSocketIPCChannel.h>
#include <YumoClientSdk/ymMainLoop.h>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <vector>

#include "3rdSDKIPC/ipc_socket/ySocketFraming.h"
#include "FuzzSupport.h"

namespace {

class Collector : public ySocketFraming::Receiver {
public:
    std::vector<std::string> messages;
    void messageSplit(std::string_view message) override { messages.emplace_back(message); }
    void textDropped(Dropped, std::string_view) override {}
};

class Counter : public YMSocketIPCChannelDelegate {
public:
    size_t messages = 0;
    int32_t onMessageRecieved(const std::optional<std::string> &) override
    {
        ++messages;
        return 0;
    }
};

// Feeds the stream in reads whose lengths the input gives.
void feedInReads(const std::string &stream, fuzzsupport::Bytes &cuts, ySocketFraming::Splitter &splitter, Collector &collector)
{
    size_t at = 0;
    while (at < stream.size()) {
        size_t length = 1 + cuts.byte() * 37 % ySocketFraming::kReadSize;
        splitter.feed(std::string_view(stream).substr(at, length), collector);
        at += length;
    }
}

// A message built from the input: strings with escapes and multibyte characters, numbers,
// literals, nested arrays and objects, each a valid JSON text.
std::string messageFrom(fuzzsupport::Bytes &input)
{
    nlohmann::json message = {{"commandId", input.byte() % 3}};
    int fields = input.byte() % 5;
    for (int i = 0; i < fields; ++i) {
        std::string key = "k" + std::to_string(i);
        switch (input.byte() % 6) {
        case 0:
            message[key] = input.take(input.byte() % 12);  // any bytes: the dump below makes them UTF-8
            break;
        case 1:
            message[key] = static_cast<int>(input.byte()) - 128;
            break;
        case 2:
            message[key] = input.byte() / 7.0;
            break;
        case 3:
            message[key] = nlohmann::json::array({{{"PresenceStatus", input.byte()}}, nullptr, true});
            break;
        case 4:
            message[key] = {{"inner", {{"}", "{"}}}};
            break;
        default:
            message[key] = "\"quoted\" \\ {}[] \xc3\xa9\xe2\x82\xac\xf0\x9f\x8e\xa7";
        }
    }
    return message.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static Counter counter;
    static std::shared_ptr<YMSocketIPCChannel_SDK> channel = [] {
        auto made = YMSocketIPCChannel_SDK::create();
        made->setDelegate(&counter);
        return made;
    }();
    fuzzsupport::Bytes input(data, size);
    ySocketFraming::Splitter splitter;
    Collector collector;
    if (input.byte() % 2 == 0) {
        std::string stream = input.take(input.byte() * 64);
        feedInReads(stream, input, splitter, collector);
        for (const std::string &message : collector.messages)
            if (!nlohmann::json::accept(message) || message.front() != '{')
                std::abort();
    } else {
        std::vector<std::string> sent;
        std::string stream;
        int count = 1 + input.byte() % 16;
        for (int i = 0; i < count; ++i) {
            for (char stray : input.take(input.byte() % 4))
                stream.push_back(stray == '{' ? '}' : stray);  // anything but what begins a message
            sent.push_back(messageFrom(input));
            stream += sent.back();
        }
        feedInReads(stream, input, splitter, collector);
        if (collector.messages != sent)
            std::abort();
    }
    for (const std::string &message : collector.messages)
        channel->onMessageRecieved(message);
    ySocketFraming::bytesToSend(std::string(reinterpret_cast<const char *>(data), size));
    ymMainLoop::shared().dispatch();
    return 0;
}
