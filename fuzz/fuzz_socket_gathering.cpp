// The socket framing and the channel's message boundary, fed arbitrary chunk sequences: each
// chunk is what one read returned; the channel decides after every chunk whether a whole
// message has arrived and queues it for the main loop, which runs after each input.
#include <YumoClientSdk/YMSocketIPCChannel.h>
#include <YumoClientSdk/ymMainLoop.h>

#include "3rdSDKIPC/ipc_socket/ySocketFraming.h"
#include "FuzzSupport.h"

namespace {

class Counter : public YMSocketIPCChannelDelegate {
public:
    size_t messages = 0;
    size_t bytes = 0;
    int32_t onMessageRecieved(const std::optional<std::string> &message) override
    {
        ++messages;
        bytes += message ? message->size() : 0;
        return 0;
    }
};

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
    ySocketFraming::Gatherer gatherer;
    while (!input.empty()) {
        // A length byte, then that many bytes as one read (at most what a read takes).
        size_t length = input.byte() * 33 % ySocketFraming::kReadSize;
        gatherer.takeChunk(input.take(length), channel);
    }
    // What would be sent back for each text is its framing: exercise that too.
    std::string text(reinterpret_cast<const char *>(data), size);
    ySocketFraming::bytesToSend(text);
    ymMainLoop::shared().dispatch();
    return 0;
}
