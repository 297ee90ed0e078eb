// A companion with its own poll(2) loop, as a program that already waits on descriptors of its
// own (a USB device, a pipe) runs it: the SDK's descriptor is one more in the set, and dispatch()
// runs whatever it has ready. Exits 0 once the presence answer and the audio event came.
#include <YumoClientSdk/YumoClientSdk.h>
#include <chrono>
#include <cstdio>
#include <poll.h>

class Companion : public ymSdkDelegate {
public:
    bool presenceAnswered = false;
    bool audioAnswered = false;
    void ymSdkIMPresenceStatus(YMPresenceStatus_s status) override
    {
        std::printf("presence: code=%d status=%d\n", status.code, status.presenceStatus);
        presenceAnswered = true;
    }
    void ymSdkAudioInfo(YMAudioInfo_s info) override
    {
        std::printf("audio event: command %d for %s\n", info.audioCmd, info.audioDevice.deviceName.value_or("?").c_str());
        audioAnswered = true;
    }
};

int main()
{
    auto companion = std::make_shared<Companion>();
    ymSdkImplement *sdk = ymSdkImplement::SharedInstance();
    sdk->setDelegate(companion);
    sdk->RegisterAudioDevice("Headset", "1", 2830, 3);
    if (sdk->GetIMPresenceStatus() != ymCommandStatusSent || sdk->SetAudioCmd(5, YMAudioDevice_s{"1", "Headset", 2830, 3}) != ymCommandStatusSent) {
        std::printf("refused: %s\n", ymAPIErrorMgr::sharedInstance()->to3rdClientErrorStr().c_str());
        return 1;
    }
    // The program's own loop: its descriptors (here only the SDK's) and a deadline.
    struct pollfd watched[1] = {{ymMainLoop::shared().fileDescriptor(), POLLIN, 0}};
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!(companion->presenceAnswered && companion->audioAnswered) && std::chrono::steady_clock::now() < deadline) {
        if (poll(watched, 1, 100) > 0 && (watched[0].revents & POLLIN))
            ymMainLoop::shared().dispatch();
    }
    sdk->CleanupAudioDevices();
    return companion->presenceAnswered && companion->audioAnswered ? 0 : 1;
}
