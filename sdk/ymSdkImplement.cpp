#include <YumoClientSdk/YMSocketIPCHelper.h>
#include <YumoClientSdk/yStringUtils.h>
#include <YumoClientSdk/ymAPIErrorMgr.h>
#include <YumoClientSdk/ymClientFeatureMgr.h>
#include <YumoClientSdk/ymLogHelper.h>
#include <YumoClientSdk/ymSdkImplement.h>

#include "common/ymClientLookupScope.h"
#include "sdk/ymAudioDeviceStore.h"
#include "sdk/ymIPCMessage.h"
#include "foundation/ymLog.h"
#include "foundation/ymWeakReference.h"

struct ymSdkImplement::DelegateReference : ymWeakReference<ymSdkDelegate> {};

ymSdkImplement *ymSdkImplement::SharedInstance()
{
    // Never destroyed; the shared pointer only lets the notification manager hold it weakly.
    static std::shared_ptr<ymSdkImplement> *shared = new std::shared_ptr<ymSdkImplement>(create());
    return shared->get();
}

std::shared_ptr<ymSdkImplement> ymSdkImplement::create()
{
    std::shared_ptr<ymSdkImplement> facade(new ymSdkImplement());
    facade->setUp();
    return facade;
}

ymSdkImplement::ymSdkImplement() : _delegate(std::make_unique<DelegateReference>()) {}

void ymSdkImplement::setUp()
{
    // From here on every line of the SDK goes to the log file.
    ymLogHelper::redirectNSLog(NO);
    setFeatures(0);

    // Both channels are opened whatever the installed client speaks; one that cannot be made
    // (no group container) stays nil.
    std::shared_ptr<YMSocketIPCChannel_SDK> toYumo =
        YMSocketIPCChannel_SDK::ipcClientWithSocketPath(YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient());
    setSocketIPCChannelToYumo(toYumo);
    if (toYumo)
        toYumo->setDelegate(this);
    std::shared_ptr<YMSocketIPCChannel_SDK> toYyhost =
        YMSocketIPCChannel_SDK::ipcClientWithSocketPath(YMSocketIPCHelper_SDK::ipcSocketPathForYyHost());
    setSocketIPCChannelToYyhost(toYyhost);
    if (toYyhost)
        toYyhost->setDelegate(this);

    std::shared_ptr<ymIPCMsgMgr> manager = ymIPCMsgMgr::create();
    setIpcMsgMgr(manager);
    manager->setDelegate(weak_from_this());

    std::lock_guard<std::mutex> guard(_devicesLock);
    _devicesArray.clear();
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
    return sendByInstalledTransport(message, Peer::host);
}

int32_t ymSdkImplement::sendByInstalledTransport(const std::string &message, Peer peer)
{
    // Sockets for clients that speak them, notifications for older ones; chosen afresh each time.
    if (ymClientFeatureMgr::sharedInstance()->isYumoClientSupportNewIPC()) {
        std::shared_ptr<YMSocketIPCChannel_SDK> channel =
            peer == Peer::meetingClient ? socketIPCChannelToYumo() : socketIPCChannelToYyhost();
        if (!channel)
            return 8;
        channel->sendMessage(message);
    } else {
        std::shared_ptr<ymIPCMsgMgr> manager = ipcMsgMgr();
        if (!manager)
            return 8;
        if (peer == Peer::meetingClient)
            manager->sendIPCMessageToYumoClient(message);
        else
            manager->sendIPCMessageToYyhost(message);
    }
    return 0;
}

bool ymSdkImplement::RegisterAudioDevice(const std::optional<std::string> &deviceName,
                                         const std::optional<std::string> &deviceIndex,
                                         const std::optional<nlohmann::json> &usbVid,
                                         const std::optional<nlohmann::json> &usbPid)
{
    if (!usbVid || !deviceName || !deviceIndex || !usbPid)
        return false;
    if (deviceName->empty() || deviceIndex->empty())
        return false;
    // This process's list first, whatever becomes of the shared one.
    addToDeviceArray(deviceName, deviceIndex);
    ymAudioDeviceStore::registerDevice(*deviceName, *deviceIndex, *usbVid, *usbPid);
    return true;
}

void ymSdkImplement::addToDeviceArray(const std::optional<std::string> &deviceName,
                                      const std::optional<std::string> &deviceIndex)
{
    std::lock_guard<std::mutex> guard(_devicesLock);
    for (const DeviceEntry &entry : _devicesArray) {
        // A missing value matches nothing, as a nil never equals a text.
        bool sameName = entry.deviceName && deviceName && *entry.deviceName == *deviceName;
        bool sameIndex = entry.deviceIndex && deviceIndex && *entry.deviceIndex == *deviceIndex;
        if (sameName && sameIndex)
            return;
    }
    _devicesArray.push_back({deviceName, deviceIndex});
}

void ymSdkImplement::CleanupAudioDevices()
{
    std::vector<ymAudioDeviceStore::Device> devices;
    {
        std::lock_guard<std::mutex> guard(_devicesLock);
        if (_devicesArray.empty())
            return;
        for (const DeviceEntry &entry : _devicesArray)
            devices.push_back({entry.deviceName, entry.deviceIndex});
    }
    ymAudioDeviceStore::CleanupResult result = ymAudioDeviceStore::removeDevices(devices);
    if (result.nothingStored) {
        std::lock_guard<std::mutex> guard(_devicesLock);
        _devicesArray.clear();
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
    return sendByInstalledTransport(ymIPCMessage::presenceRequest(), Peer::meetingClient);
}

bool ymSdkImplement::isRegisteredDevice(const std::optional<std::string> &deviceName,
                                        const std::optional<std::string> &deviceIndex)
{
    if (!deviceName || !deviceIndex)
        return false;
    bool registered = false;
    {
        std::lock_guard<std::mutex> guard(_devicesLock);
        for (const DeviceEntry &entry : _devicesArray) {
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

std::shared_ptr<ymSdkDelegate> ymSdkImplement::delegate() const { return _delegate->get(); }
void ymSdkImplement::setDelegate(const std::weak_ptr<ymSdkDelegate> &delegate) { _delegate->set(delegate); }
int64_t ymSdkImplement::features() const { return _features.load(); }
void ymSdkImplement::setFeatures(int64_t features) { _features.store(features); }

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
    return lockedRead(_propertiesLock, _socketIPCChannelToYumo);
}

void ymSdkImplement::setSocketIPCChannelToYumo(const std::shared_ptr<YMSocketIPCChannel_SDK> &channel)
{
    lockedWrite(_propertiesLock, _socketIPCChannelToYumo, channel);
}

std::shared_ptr<YMSocketIPCChannel_SDK> ymSdkImplement::socketIPCChannelToYyhost() const
{
    return lockedRead(_propertiesLock, _socketIPCChannelToYyhost);
}

void ymSdkImplement::setSocketIPCChannelToYyhost(const std::shared_ptr<YMSocketIPCChannel_SDK> &channel)
{
    lockedWrite(_propertiesLock, _socketIPCChannelToYyhost, channel);
}

std::shared_ptr<ymIPCMsgMgr> ymSdkImplement::ipcMsgMgr() const { return lockedRead(_propertiesLock, _ipcMsgMgr); }

void ymSdkImplement::setIpcMsgMgr(const std::shared_ptr<ymIPCMsgMgr> &manager)
{
    lockedWrite(_propertiesLock, _ipcMsgMgr, manager);
}
