#include <YumoClientSdk/YMSocketIPCHelper.h>
#include <YumoClientSdk/yStringUtils.h>
#include <YumoClientSdk/ymAPIErrorMgr.h>
#include <YumoClientSdk/ymClientFeatureMgr.h>
#include <YumoClientSdk/ymLogHelper.h>
#include <YumoClientSdk/ymSdkImplement.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "common/ymClientLookupScope.h"
#include "foundation/ymLog.h"
#include "foundation/ymValueJSON.h"
#include "foundation/ymWeakReference.h"
#include "sdk/ymAudioDeviceStore.h"
#include "sdk/ymIPCMessage.h"

struct ymSdkImplement::Impl {
    struct DeviceEntry {
        std::optional<std::string> deviceName;
        std::optional<std::string> deviceIndex;
    };
    enum class Peer { meetingClient, host };

    /// The in-memory registry: written on the callers' threads, read on the main loop's.
    std::vector<DeviceEntry> devicesArray;
    std::mutex devicesLock;
    ymWeakReference<ymSdkDelegate> delegate;
    std::atomic<int64_t> features{0};
    /// Replaced only by the setters; read by commands on any thread.
    mutable std::mutex propertiesLock;
    std::shared_ptr<YMSocketIPCChannel_SDK> socketIPCChannelToYumo;
    std::shared_ptr<YMSocketIPCChannel_SDK> socketIPCChannelToYyhost;
    std::shared_ptr<ymIPCMsgMgr> ipcMsgMgr;

    void setUp(ymSdkImplement &facade);
    // Hands the text to the transport the installed client speaks: 0, or 8 without one.
    int32_t sendByInstalledTransport(ymSdkImplement &facade, const std::string &message, Peer peer);
};

ymSdkImplement *ymSdkImplement::SharedInstance()
{
    // Never destroyed; the shared pointer only lets the notification manager hold it weakly.
    static std::shared_ptr<ymSdkImplement> *shared = new std::shared_ptr<ymSdkImplement>(create());
    return shared->get();
}

std::shared_ptr<ymSdkImplement> ymSdkImplement::create()
{
    std::shared_ptr<ymSdkImplement> facade(new ymSdkImplement());
    facade->_impl->setUp(*facade);
    return facade;
}

ymSdkImplement::ymSdkImplement() : _impl(std::make_unique<Impl>()) {}

void ymSdkImplement::Impl::setUp(ymSdkImplement &facade)
{
    // From here on every line of the SDK goes to the log file.
    ymLogHelper::redirectNSLog(NO);
    facade.setFeatures(0);

    // Both channels are opened whatever the installed client speaks; one that cannot be made
    // (no group container) stays nil.
    std::shared_ptr<YMSocketIPCChannel_SDK> toYumo =
        YMSocketIPCChannel_SDK::ipcClientWithSocketPath(YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient());
    facade.setSocketIPCChannelToYumo(toYumo);
    if (toYumo)
        toYumo->setDelegate(&facade);
    std::shared_ptr<YMSocketIPCChannel_SDK> toYyhost =
        YMSocketIPCChannel_SDK::ipcClientWithSocketPath(YMSocketIPCHelper_SDK::ipcSocketPathForYyHost());
    facade.setSocketIPCChannelToYyhost(toYyhost);
    if (toYyhost)
        toYyhost->setDelegate(&facade);

    std::shared_ptr<ymIPCMsgMgr> manager = ymIPCMsgMgr::create();
    facade.setIpcMsgMgr(manager);
    manager->setDelegate(facade.weak_from_this());

    std::lock_guard<std::mutex> guard(devicesLock);
    devicesArray.clear();
}

ymSdkImplement::~ymSdkImplement()
{
    CleanupAudioDevices();
    // The channels may still hold deliveries on the main loop: they must not reach this object.
    for (const std::shared_ptr<YMSocketIPCChannel_SDK> &channel : {socketIPCChannelToYumo(), socketIPCChannelToYyhost()})
        if (channel)
            channel->setDelegate(nullptr);
    setSocketIPCChannelToYumo(nullptr);
    setSocketIPCChannelToYyhost(nullptr);
    // The notification manager is kept: it goes on observing for the rest of the process (its
    // delegate, this object, is gone, so it delivers nothing).
    static auto *keptManagers = new std::vector<std::shared_ptr<ymIPCMsgMgr>>();
    static std::mutex keptLock;
    std::lock_guard<std::mutex> guard(keptLock);
    keptManagers->push_back(ipcMsgMgr());
}

int64_t ymSdkImplement::GetSDKAvailableFeatures() { return 3; }

bool ymSdkImplement::RegisterFeature(int64_t features)
{
    if ((GetSDKAvailableFeatures() & features) == 0)
        return false;
    setFeatures(features);  // the mask as given, not as narrowed
    return true;
}

int32_t ymSdkImplement::SetAudioCmd(int32_t audioCmd, YMAudioDevice_s audioDevice)
{
    YM_LOG(">> %s: cmd = %d", "-[ymSdkImplement SetAudioCmd:audioDevice:]", audioCmd);
    ymClientLookupScope lookupOnce;
    int32_t error = ymAPIErrorMgr::sharedInstance()->checkYumoAppError();
    if (error != 0)
        return error;
    std::string message = ymIPCMessage::audioCommand(audioCmd, audioDevice.deviceIndex, audioDevice.deviceName,
                                                     audioDevice.usbVid, audioDevice.usbPid);
    return _impl->sendByInstalledTransport(*this, message, Impl::Peer::host);
}

int32_t ymSdkImplement::Impl::sendByInstalledTransport(ymSdkImplement &facade, const std::string &message, Peer peer)
{
    // Sockets for clients that speak them, notifications for older ones; chosen afresh each time.
    if (ymClientFeatureMgr::sharedInstance()->isYumoClientSupportNewIPC()) {
        std::shared_ptr<YMSocketIPCChannel_SDK> channel =
            peer == Peer::meetingClient ? facade.socketIPCChannelToYumo() : facade.socketIPCChannelToYyhost();
        if (!channel)
            return ymCommandStatusNoTransport;
        channel->sendMessage(message);
    } else {
        std::shared_ptr<ymIPCMsgMgr> manager = facade.ipcMsgMgr();
        if (!manager)
            return ymCommandStatusNoTransport;
        if (peer == Peer::meetingClient)
            manager->sendIPCMessageToYumoClient(message);
        else
            manager->sendIPCMessageToYyhost(message);
    }
    return ymCommandStatusSent;
}

bool ymSdkImplement::RegisterAudioDevice(const std::optional<std::string> &deviceName,
                                         const std::optional<std::string> &deviceIndex, const std::optional<ymValue> &usbVid,
                                         const std::optional<ymValue> &usbPid)
{
    if (!usbVid || !deviceName || !deviceIndex || !usbPid)
        return false;
    if (deviceName->empty() || deviceIndex->empty())
        return false;
    // This process's list first, whatever becomes of the shared one.
    addToDeviceArray(deviceName, deviceIndex);
    ymAudioDeviceStore::registerDevice(*deviceName, *deviceIndex, ymValueJSON::toJSON(*usbVid), ymValueJSON::toJSON(*usbPid));
    return true;
}

void ymSdkImplement::addToDeviceArray(const std::optional<std::string> &deviceName,
                                      const std::optional<std::string> &deviceIndex)
{
    std::lock_guard<std::mutex> guard(_impl->devicesLock);
    for (const Impl::DeviceEntry &entry : _impl->devicesArray) {
        // A missing value matches nothing, as a nil never equals a text.
        bool sameName = entry.deviceName && deviceName && *entry.deviceName == *deviceName;
        bool sameIndex = entry.deviceIndex && deviceIndex && *entry.deviceIndex == *deviceIndex;
        if (sameName && sameIndex)
            return;
    }
    _impl->devicesArray.push_back({deviceName, deviceIndex});
}

void ymSdkImplement::CleanupAudioDevices()
{
    std::vector<ymAudioDeviceStore::Device> devices;
    {
        std::lock_guard<std::mutex> guard(_impl->devicesLock);
        if (_impl->devicesArray.empty())
            return;
        for (const Impl::DeviceEntry &entry : _impl->devicesArray)
            devices.push_back({entry.deviceName, entry.deviceIndex});
    }
    ymAudioDeviceStore::CleanupResult result = ymAudioDeviceStore::removeDevices(devices);
    if (result.nothingStored) {
        std::lock_guard<std::mutex> guard(_impl->devicesLock);
        _impl->devicesArray.clear();
        return;
    }
    // The releases go out once the shared list is written; those that cannot be sent are lost.
    for (const ymAudioDeviceStore::Release &release : result.released) {
        YMAudioDevice_s device;
        device.deviceIndex = release.deviceIndex;
        device.deviceName = release.deviceName;
        SetAudioCmd(ymIPCMessage::kAudioCommandRelease, device);
    }
}

int32_t ymSdkImplement::GetIMPresenceStatus()
{
    YM_LOG(">> %s start", "-[ymSdkImplement GetIMPresenceStatus]");
    ymClientLookupScope lookupOnce;
    int32_t error = ymAPIErrorMgr::sharedInstance()->checkYumoAppError();
    if (error != 0)
        return error;
    return _impl->sendByInstalledTransport(*this, ymIPCMessage::presenceRequest(), Impl::Peer::meetingClient);
}

bool ymSdkImplement::isRegisteredDevice(const std::optional<std::string> &deviceName,
                                        const std::optional<std::string> &deviceIndex)
{
    if (!deviceName || !deviceIndex)
        return false;
    bool registered = false;
    {
        std::lock_guard<std::mutex> guard(_impl->devicesLock);
        for (const Impl::DeviceEntry &entry : _impl->devicesArray) {
            if (entry.deviceName == deviceName && entry.deviceIndex == deviceIndex) {
                registered = true;
                break;
            }
        }
    }
    YM_LOG("%s: result=%d, deviceName=%s, deviceIndex=%s", "-[ymSdkImplement isRegisteredDevice:deviceIndex:]",
           registered ? 1 : 0, deviceName->c_str(), deviceIndex->c_str());
    return registered;
}

int32_t ymSdkImplement::onMessageRecieved(const std::optional<std::string> &message)
{
    YM_LOG("%s: message=%s", "-[ymSdkImplement onMessageRecieved:]", ymlog::describe(message));
    if (!message)
        return -1;
    std::optional<nlohmann::json> parsed = yStringUtils::toArrayOrNSDictionary(message);
    if (!parsed)
        return -1;

    int32_t commandId = ymIPCMessage::commandId(*parsed);
    if (commandId == ymIPCMessage::kCommandAudio) {
        YMAudioInfo_s audioInfo;
        audioInfo.audioCmd = ymIPCMessage::audioCmd(*parsed);
        audioInfo.audioDevice.deviceName = ymIPCMessage::deviceName(*parsed);
        audioInfo.audioDevice.deviceIndex = ymIPCMessage::deviceIndex(*parsed);
        // The delegate is weak: it is looked up afresh before each step.
        if (!delegate())
            return 0;
        if (!isRegisteredDevice(audioInfo.audioDevice.deviceName, audioInfo.audioDevice.deviceIndex))
            return 0;
        if (std::shared_ptr<ymSdkDelegate> receiver = delegate())
            receiver->ymSdkAudioInfo(audioInfo);
    } else if (commandId == ymIPCMessage::kCommandPresenceStatus) {
        ymIPCMessage::ResultReading result = ymIPCMessage::result(*parsed);
        YMPresenceStatus_s status;
        status.error = result.error ? YES : NO;
        status.code = result.code;
        status.text = result.text;
        status.presenceStatus = ymIPCMessage::presenceStatus(*parsed);
        if (std::shared_ptr<ymSdkDelegate> receiver = delegate())
            receiver->ymSdkIMPresenceStatus(status);
    }
    return 0;
}

std::shared_ptr<ymSdkDelegate> ymSdkImplement::delegate() const { return _impl->delegate.get(); }
void ymSdkImplement::setDelegate(const std::weak_ptr<ymSdkDelegate> &delegate) { _impl->delegate.set(delegate); }
int64_t ymSdkImplement::features() const { return _impl->features.load(); }
void ymSdkImplement::setFeatures(int64_t features) { _impl->features.store(features); }

namespace {

// The transport properties are replaced by setters on one thread and read by commands on others.
template <typename T>
T lockedRead(std::mutex &lock, const T &field)
{
    std::lock_guard<std::mutex> guard(lock);
    return field;
}

template <typename T>
void lockedWrite(std::mutex &lock, T &field, const T &value)
{
    std::lock_guard<std::mutex> guard(lock);
    field = value;
}

}  // namespace

std::shared_ptr<YMSocketIPCChannel_SDK> ymSdkImplement::socketIPCChannelToYumo() const
{
    return lockedRead(_impl->propertiesLock, _impl->socketIPCChannelToYumo);
}

void ymSdkImplement::setSocketIPCChannelToYumo(const std::shared_ptr<YMSocketIPCChannel_SDK> &channel)
{
    lockedWrite(_impl->propertiesLock, _impl->socketIPCChannelToYumo, channel);
}

std::shared_ptr<YMSocketIPCChannel_SDK> ymSdkImplement::socketIPCChannelToYyhost() const
{
    return lockedRead(_impl->propertiesLock, _impl->socketIPCChannelToYyhost);
}

void ymSdkImplement::setSocketIPCChannelToYyhost(const std::shared_ptr<YMSocketIPCChannel_SDK> &channel)
{
    lockedWrite(_impl->propertiesLock, _impl->socketIPCChannelToYyhost, channel);
}

std::shared_ptr<ymIPCMsgMgr> ymSdkImplement::ipcMsgMgr() const { return lockedRead(_impl->propertiesLock, _impl->ipcMsgMgr); }

void ymSdkImplement::setIpcMsgMgr(const std::shared_ptr<ymIPCMsgMgr> &manager)
{
    lockedWrite(_impl->propertiesLock, _impl->ipcMsgMgr, manager);
}
