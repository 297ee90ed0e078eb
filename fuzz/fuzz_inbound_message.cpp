// The facade's reading of inbound messages: any text, as either transport would hand it over,
// decoded and (for registered devices) passed to a delegate.
#include <YumoClientSdk/ymMainLoop.h>
#include <YumoClientSdk/ymSdkImplement.h>

#include "FuzzSupport.h"

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
    facade->onMessageRecieved(std::string(reinterpret_cast<const char *>(data), size));
    ymMainLoop::shared().dispatch();
    return 0;
}
