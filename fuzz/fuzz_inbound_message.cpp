// The facade's reading of inbound messages: any text, as either transport would hand it over,
// decoded and (for registered devices) passed to a delegate. A text read without being parsed
// must be JSON, and read as its parsed value is.
#include <YumoClientSdk/yStringUtils.h>
#include <YumoClientSdk/ymMainLoop.h>
#include <YumoClientSdk/ymSdkImplement.h>
#include <cstdlib>

#include "FuzzSupport.h"
#include "sdk/ymIPCMessage.h"

namespace {

class Receiver : public ymSdkDelegate {
public:
    size_t calls = 0;
    void ymSdkIMPresenceStatus(YMPresenceStatus_s status) override { calls += status.text ? status.text->size() : 1; }
    void ymSdkAudioInfo(YMAudioInfo_s info) override { calls += info.audioDevice.deviceName ? 1 : 2; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static auto receiver = std::make_shared<Receiver>();
    static std::shared_ptr<ymSdkImplement> facade = [] {
        fuzzsupport::useTemporaryHome();
        auto made = ymSdkImplement::create();
        fuzzsupport::silenceLog();  // the facade sent the log to a file; keep it from growing
        made->setDelegate(receiver);
        made->addToDeviceArray("Headset", "1");
        made->addToDeviceArray("", "0");
        return made;
    }();
    const std::string text(reinterpret_cast<const char *>(data), size);
    if (std::optional<ymIPCMessage::Reading> read = ymIPCMessage::read(std::string_view(text))) {
        std::optional<nlohmann::json> value = yStringUtils::toArrayOrNSDictionary(text);
        if (!value)
            std::abort();  // read as JSON, but it is not
        ymIPCMessage::Reading parsed = ymIPCMessage::read(*value);
        if (read->commandId != parsed.commandId || read->result.error != parsed.result.error || read->result.code != parsed.result.code ||
            read->result.text != parsed.result.text || read->presenceStatus != parsed.presenceStatus || read->audioCmd != parsed.audioCmd ||
            read->deviceName != parsed.deviceName || read->deviceIndex != parsed.deviceIndex)
            std::abort();  // read otherwise than parsed
    }
    facade->onMessageRecieved(text);
    ymMainLoop::shared().dispatch();
    return 0;
}
