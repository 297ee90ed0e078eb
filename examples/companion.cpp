// A companion on the SDK's own loop: registers its headset, asks for the presence status, sends an
// audio command, and prints the answers as they arrive. Exits 0 once both answers came.
#include <YumoClientSdk/YumoClientSdk.h>
#include <cstdio>

class Companion : public ymSdkDelegate {
public:
    bool presenceAnswered = false;
    bool audioAnswered = false;
    void ymSdkIMPresenceStatus(YMPresenceStatus_s status) override
    {
        std::printf("presence: error=%d code=%d text=%s status=%d\n", status.error, status.code,
                    status.text.value_or("(none)").c_str(), status.presenceStatus);
        presenceAnswered = true;
    }
    void ymSdkAudioInfo(YMAudioInfo_s info) override
    {
        std::printf("audio event: command %d for %s #%s\n", info.audioCmd, info.audioDevice.deviceName.value_or("?").c_str(),
                    info.audioDevice.deviceIndex.value_or("?").c_str());
        audioAnswered = true;
    }
};

int main()
{
    auto companion = std::make_shared<Companion>();
    ymSdkImplement *sdk = ymSdkImplement::SharedInstance();
    sdk->setDelegate(companion);
    sdk->RegisterAudioDevice("Headset", "1", 2830, 3);

    int32_t status = sdk->GetIMPresenceStatus();
    std::printf("GetIMPresenceStatus: %d %s\n", status, ymAPIErrorMgr::sharedInstance()->to3rdClientErrorStr().c_str());
    if (status == ymCommandStatusSent)
        status = sdk->SetAudioCmd(5, YMAudioDevice_s{"1", "Headset", 2830, 3});
    std::printf("SetAudioCmd: %d\n", status);
    // The answers come on the loop this thread runs.
    if (status == ymCommandStatusSent)
        ymMainLoop::shared().runUntil([&] { return companion->presenceAnswered && companion->audioAnswered; },
                                      std::chrono::seconds(5));
    sdk->CleanupAudioDevices();
    return status == ymCommandStatusSent && companion->presenceAnswered && companion->audioAnswered ? 0 : 1;
}
