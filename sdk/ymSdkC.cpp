// The C interface: each function is the shared facade's, the main loop's, the error manager's or
// the app helper's own, with plain C types on the outside. No exception leaves a function: a
// failure answers NO, NULL or a status.
#include <YumoClientSdk/ymAPIErrorMgr.h>
#include <YumoClientSdk/ymAppHelper.h>
#include <YumoClientSdk/ymClientFeatureMgr.h>
#include <YumoClientSdk/ymLogHelper.h>
#include <YumoClientSdk/ymMainLoop.h>
#include <YumoClientSdk/ymSdkC.h>
#include <YumoClientSdk/ymSdkImplement.h>
#include <mutex>

#include "platform/ymMutex.h"

#include "foundation/ymAnswerStorage.h"
#include "foundation/ymCallbackSlot.h"

namespace {

// Runs `body`; anything it throws (memory running out, say) becomes the failure answer.
template <typename Result, typename Body>
Result guarded(Result failure, Body body) noexcept
{
    try {
        return body();
    } catch (...) {
        return failure;
    }
}

template <typename Body>
void guarded(Body body) noexcept
{
    try {
        body();
    } catch (...) {
    }
}

// The callbacks, as the shared facade's delegate: it lives as long as the process. Once a setter
// returns, the callback it replaced is not called again (see ymCallbackSlot.h).
class CallbackDelegate : public ymSdkDelegate {
public:
    template <typename Callback>
    struct Bound {
        Callback callback = nullptr;
        void *context = nullptr;
        explicit operator bool() const { return callback != nullptr; }
        template <typename Record>
        void operator()(const Record *record) const { callback(record, context); }
    };

    void setPresence(ymPresenceStatusCallback callback, void *context)
    {
        _presence.set(Bound<ymPresenceStatusCallback>{callback, context});
    }
    void setAudio(ymAudioInfoCallback callback, void *context) { _audio.set(Bound<ymAudioInfoCallback>{callback, context}); }

    void ymSdkIMPresenceStatus(YMPresenceStatus_s status) override
    {
        ymPresenceStatus record = {status.error, status.code, status.text ? status.text->c_str() : nullptr, status.presenceStatus};
        _presence.call(&record);
    }
    void ymSdkAudioInfo(YMAudioInfo_s info) override
    {
        const auto &device = info.audioDevice;
        ymAudioInfo record = {info.audioCmd, device.deviceIndex ? device.deviceIndex->c_str() : nullptr,
                              device.deviceName ? device.deviceName->c_str() : nullptr};
        _audio.call(&record);
    }

private:
    ymCallbackSlot<Bound<ymPresenceStatusCallback>> _presence;
    ymCallbackSlot<Bound<ymAudioInfoCallback>> _audio;
};

CallbackDelegate &callbacks()
{
    static auto *shared = new std::shared_ptr<CallbackDelegate>(std::make_shared<CallbackDelegate>());
    ymSdkImplement::SharedInstance()->setDelegate(*shared);
    return **shared;
}

ymSdkImplement &facade() { return *ymSdkImplement::SharedInstance(); }
ymAppHelper &helper() { return *ymAppHelper::sharedInstance(); }

std::optional<std::string> textOf(const char *text) { return text ? std::optional<std::string>(text) : std::nullopt; }

// What a function answers, kept per thread and per function (the tag).
template <typename Tag>
struct Answer {
    std::optional<std::string> text;
};

template <typename Tag>
const char *answer(std::optional<std::string> text)
{
    Answer<Tag> &kept = ymAnswerStorage<Answer<Tag>>();
    kept.text = std::move(text);
    return kept.text ? kept.text->c_str() : nullptr;
}

BOOL yesOrNo(bool value) { return value ? YES : NO; }

}  // namespace

namespace {

// The client state in C types: the texts point into the C++ record, which outlives the call.
ymClientState recordOf(const YMClientState_s &state)
{
    return {state.change, yesOrNo(state.installed), yesOrNo(state.running), state.transport, state.version.c_str(),
            state.installPath.c_str()};
}

}  // namespace

BOOL ymSetTakesStandardError(BOOL takes)
{
    return guarded(NO, [&] { return ymLogHelper::setTakesStandardError(takes); });
}

BOOL ymSetLogSizeLimit(uint64_t bytes)
{
    return guarded(NO, [&] { return ymLogHelper::setLogSizeLimit(bytes); });
}

void ymSetClientStateCallback(ymClientStateCallback callback, void *context)
{
    guarded([&] {
        if (!callback) {
            facade().SetClientStateHandler(nullptr);
            return;
        }
        facade().SetClientStateHandler([callback, context](const YMClientState_s &state) {
            ymClientState record = recordOf(state);
            callback(&record, context);
        });
    });
}

BOOL ymGetClientState(ymClientState *state)
{
    return guarded(NO, [&] {
        if (!state)
            return NO;
        struct Kept {
            YMClientState_s state;
        };
        Kept &kept = ymAnswerStorage<Kept>();
        kept.state = facade().GetClientState();
        *state = recordOf(kept.state);
        return YES;
    });
}

void ymSetPresenceStatusCallback(ymPresenceStatusCallback callback, void *context)
{
    guarded([&] { callbacks().setPresence(callback, context); });
}

void ymSetAudioInfoCallback(ymAudioInfoCallback callback, void *context)
{
    guarded([&] { callbacks().setAudio(callback, context); });
}

BOOL ymRegisterAudioDevice(const char *deviceName, const char *deviceIndex, uint32_t usbVid, uint32_t usbPid)
{
    return guarded(NO, [&] {
        return yesOrNo(facade().RegisterAudioDevice(textOf(deviceName), textOf(deviceIndex), ymValue(usbVid), ymValue(usbPid)));
    });
}

BOOL ymRegisterAudioDeviceWithTexts(const char *deviceName, const char *deviceIndex, const char *usbVid, const char *usbPid)
{
    return guarded(NO, [&] {
        std::optional<ymValue> vid = usbVid ? std::optional<ymValue>(ymValue(usbVid)) : std::nullopt;
        std::optional<ymValue> pid = usbPid ? std::optional<ymValue>(ymValue(usbPid)) : std::nullopt;
        return yesOrNo(facade().RegisterAudioDevice(textOf(deviceName), textOf(deviceIndex), vid, pid));
    });
}

void ymCleanupAudioDevices(void) { guarded([] { facade().CleanupAudioDevices(); }); }

size_t ymCleanupAudioDevicesAndCount(void)
{
    return guarded<size_t>(0, [] { return facade().CleanupAudioDevicesAndCount(); });
}

BOOL ymIsRegisteredDevice(const char *deviceName, const char *deviceIndex)
{
    return guarded(NO, [&] { return yesOrNo(facade().isRegisteredDevice(textOf(deviceName), textOf(deviceIndex))); });
}

int32_t ymGetIMPresenceStatus(void)
{
    return guarded<int32_t>(ymCommandStatusNoTransport, [] { return facade().GetIMPresenceStatus(); });
}

int32_t ymSetAudioCmd(int32_t audioCmd, const char *deviceIndex, const char *deviceName, uint32_t usbVid, uint32_t usbPid)
{
    return guarded<int32_t>(ymCommandStatusNoTransport, [&] {
        return facade().SetAudioCmd(audioCmd, YMAudioDevice_s{textOf(deviceIndex), textOf(deviceName), usbVid, usbPid});
    });
}

int64_t ymGetSDKAvailableFeatures(void)
{
    return guarded<int64_t>(0, [] { return facade().GetSDKAvailableFeatures(); });
}

BOOL ymRegisterFeature(int64_t features)
{
    return guarded(NO, [&] { return yesOrNo(facade().RegisterFeature(features)); });
}

int64_t ymGetFeatures(void) { return guarded<int64_t>(0, [] { return facade().features(); }); }

int ymGetMainLoopDescriptor(void) { return guarded(-1, [] { return ymMainLoop::shared().fileDescriptor(); }); }

size_t ymDispatchMainLoop(void) { return guarded<size_t>(0, [] { return ymMainLoop::shared().dispatch(); }); }

void ymRunMainLoop(void) { guarded([] { ymMainLoop::shared().run(); }); }

void ymRunMainLoopFor(int64_t milliseconds)
{
    guarded([&] { ymMainLoop::shared().runFor(std::chrono::milliseconds(milliseconds < 0 ? 0 : milliseconds)); });
}

void ymStopMainLoop(void) { guarded([] { ymMainLoop::shared().stop(); }); }

int32_t ymCheckYumoAppError(void)
{
    return guarded<int32_t>(ymCommandStatusClientNotRunning, [] { return ymAPIErrorMgr::sharedInstance()->checkYumoAppError(); });
}

int32_t ymGetYumoAppStatus(void)
{
    return guarded<int32_t>(1, [] { return ymAPIErrorMgr::sharedInstance()->getYumoAppStatus(); });
}

int32_t ymGetErrorCode(void) { return guarded<int32_t>(0, [] { return ymAPIErrorMgr::sharedInstance()->errorCode(); }); }

void ymSetErrorCode(int32_t errorCode) { guarded([&] { ymAPIErrorMgr::sharedInstance()->setErrorCode(errorCode); }); }

const char *ymGetErrorText(void)
{
    struct Tag;
    return guarded<const char *>("", [] { return answer<Tag>(ymAPIErrorMgr::sharedInstance()->to3rdClientErrorStr()); });
}

BOOL ymIsYumoappInstalled(void) { return guarded(NO, [] { return yesOrNo(helper().isYumoappInstalled()); }); }

BOOL ymIsYumoRunning(void) { return guarded(NO, [] { return yesOrNo(helper().isYumoRunning()); }); }

const char *ymGetYumoClientInstallPath(void)
{
    struct Tag;
    return guarded<const char *>(nullptr, [] { return answer<Tag>(helper().getYumoClientInstallPath()); });
}

const char *ymGetYumoClientVersion(void)
{
    struct Tag;
    return guarded<const char *>("", [] { return answer<Tag>(ymClientFeatureMgr::getYumoClientVersion()); });
}

BOOL ymIsSupportedYumoClientVersion(void)
{
    return guarded(NO, [] { return yesOrNo(ymClientFeatureMgr::sharedInstance()->isSupportedYumoClientVersion()); });
}

BOOL ymIsYumoClientSupportNewIPC(void)
{
    return guarded(NO, [] { return yesOrNo(ymClientFeatureMgr::sharedInstance()->isYumoClientSupportNewIPC()); });
}

BOOL ymLaunchYumoClient(void) { return guarded(NO, [] { return yesOrNo(helper().LaunchYumoClient()); }); }

void ymSilentActiveYumoClient(void) { guarded([] { helper().silentActiveYumoClient(); }); }

BOOL ymIsOutlookInstalled(void) { return guarded(NO, [] { return yesOrNo(helper().isOutlookInstalled()); }); }

BOOL ymIsOutlookRunning(void) { return guarded(NO, [] { return yesOrNo(helper().isOutlookRunning()); }); }

const char *ymGetOutlookVersion(void)
{
    struct Tag;
    return guarded<const char *>(nullptr, [] { return answer<Tag>(helper().OutlookVersion()); });
}

BOOL ymIsSupportedOutlookVersion(void) { return guarded(NO, [] { return yesOrNo(helper().isSupportedOutlookVersion()); }); }

BOOL ymIsSupportedOSVersion(void) { return guarded(NO, [] { return yesOrNo(helper().isSupportedOSVersion()); }); }

const char *ymGetSystemLanguage(void)
{
    struct Tag;
    return guarded<const char *>(nullptr, [] { return answer<Tag>(helper().getSystemLanguage()); });
}

BOOL ymCheckAppCodeSign(const char *bundlePath)
{
    return guarded(NO, [&] { return yesOrNo(helper().checkAppCodeSign(textOf(bundlePath))); });
}

BOOL ymCheckCodeSignForYumoPkg(const char *packagePath)
{
    return guarded(NO, [&] { return yesOrNo(helper().checkCodeSignForYumoPkg(textOf(packagePath))); });
}
