#include <YumoClientSdk/yStringUtils.h>
#include <YumoClientSdk/ymAPIErrorMgr.h>
#include <YumoClientSdk/ymAudioCommand.h>
#include <YumoClientSdk/ymClientFeatureMgr.h>
#include <YumoClientSdk/ymLogHelper.h>
#include <YumoClientSdk/ymSdkImplement.h>

#include <atomic>
#include <mutex>

#include "platform/ymMutex.h"
#include <vector>

#include "common/ymClientWatch.h"
#include "foundation/ymLog.h"
#include "foundation/ymValueJSON.h"
#include "foundation/ymWeakReference.h"
#include "sdk/ymAudioDeviceStore.h"
#include "sdk/ymClientChecks.h"
#include "sdk/ymIPCMessage.h"
#include "sdk/ymNotificationTransport.h"
#include "sdk/ymSocketTransport.h"

struct ymSdkImplement::Impl {
    struct DeviceEntry {
        std::optional<std::string> deviceName;
        std::optional<std::string> deviceIndex;
    };
    using Peer = ymTransport::Peer;

    /// The in-memory registry: written on the callers' threads, read on the main loop's.
    std::vector<DeviceEntry> devicesArray;
    ymMutex devicesLock;
    ymWeakReference<ymSdkDelegate> delegate;
    std::atomic<int64_t> features{0};
    ymSocketTransport sockets;
    ymNotificationTransport notifications;
    /// The companion's handler of the client's changes, and the watch's observation that calls it.
    ymMutex clientStateLock;
    std::function<void(const YMClientState_s &)> clientStateHandler;
    uint64_t clientObservation = 0;

    void setUp(ymSdkImplement &facade);
    // Hands the text to the transport the installed client speaks: 0, or 8 without one.
    int32_t sendByInstalledTransport(const ymClientSnapshot &client, const std::string &message, Peer peer);
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

    // Both transports are opened whatever the installed client speaks; a channel that cannot be
    // made (no group container) stays nil. They deliver to the facade weakly: nothing reaches a
    // facade that is being released.
    sockets.open(facade.weak_from_this());
    notifications.open(facade.weak_from_this());

    std::lock_guard<ymMutex> guard(devicesLock);
    devicesArray.clear();
}

ymSdkImplement::~ymSdkImplement()
{
    SetClientStateHandler(nullptr);
    CleanupAudioDevices();
    // The channels close their sockets; the notification manager goes on observing for the rest
    // of the process, delivering to nobody.
    _impl->sockets.close();
    _impl->notifications.close();
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
    // One look at the meeting client for the whole command.
    std::shared_ptr<const ymClientSnapshot> client = ymClientWatch::shared().current();
    int32_t error = ymClientChecks::checkYumoAppError(*client);
    if (error != 0)
        return error;
    std::string message = ymIPCMessage::audioCommand(audioCmd, audioDevice.deviceIndex, audioDevice.deviceName,
                                                     audioDevice.usbVid, audioDevice.usbPid);
    return _impl->sendByInstalledTransport(*client, message, Impl::Peer::host);
}

int32_t ymSdkImplement::Impl::sendByInstalledTransport(const ymClientSnapshot &client, const std::string &message, Peer peer)
{
    // Sockets for clients that speak them, notifications for older ones; chosen afresh each time.
    ymTransport &transport = ymClientChecks::isYumoClientSupportNewIPC(client)
                                 ? static_cast<ymTransport &>(sockets)
                                 : static_cast<ymTransport &>(notifications);
    return transport.send(peer, message);
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
    std::lock_guard<ymMutex> guard(_impl->devicesLock);
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
        std::lock_guard<ymMutex> guard(_impl->devicesLock);
        if (_impl->devicesArray.empty())
            return;
        for (const Impl::DeviceEntry &entry : _impl->devicesArray)
            devices.push_back({entry.deviceName, entry.deviceIndex});
    }
    ymAudioDeviceStore::CleanupResult result = ymAudioDeviceStore::removeDevices(devices);
    if (result.nothingStored) {
        std::lock_guard<ymMutex> guard(_impl->devicesLock);
        _impl->devicesArray.clear();
        return;
    }
    // The releases go out once the shared list is written; those that cannot be sent are lost.
    for (const ymAudioDeviceStore::Release &release : result.released) {
        YMAudioDevice_s device;
        device.deviceIndex = release.deviceIndex;
        device.deviceName = release.deviceName;
        SetAudioCmd(ymAudioCommandRelease, device);
    }
}

int32_t ymSdkImplement::GetIMPresenceStatus()
{
    YM_LOG(">> %s start", "-[ymSdkImplement GetIMPresenceStatus]");
    std::shared_ptr<const ymClientSnapshot> client = ymClientWatch::shared().current();
    int32_t error = ymClientChecks::checkYumoAppError(*client);
    if (error != 0)
        return error;
    return _impl->sendByInstalledTransport(*client, ymIPCMessage::presenceRequest(), Impl::Peer::meetingClient);
}

bool ymSdkImplement::isRegisteredDevice(const std::optional<std::string> &deviceName,
                                        const std::optional<std::string> &deviceIndex)
{
    if (!deviceName || !deviceIndex)
        return false;
    bool registered = false;
    {
        std::lock_guard<ymMutex> guard(_impl->devicesLock);
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

namespace {

YMClientState_s stateOf(const ymClientSnapshot &client, ymClientChange change)
{
    YMClientState_s state;
    state.change = change;
    state.installed = client.installed;
    state.running = client.running;
    state.version = client.version;
    state.installPath = client.installPath;
    state.transport = ymClientChecks::transportOf(client);
    return state;
}

// What a companion is told of the difference between two looks at the client: each kind of
// change once, in the order they happen when a client is replaced (the old one quits, the bundle
// changes, the new one starts), each with the client as it stands after that step.
std::vector<YMClientState_s> changesBetween(const ymClientSnapshot &now, const ymClientSnapshot &before)
{
    bool restarted = ymClientSnapshotRestarted(now, before);
    bool quit = before.running && (!now.running || restarted);
    bool started = now.running && (!before.running || restarted);
    std::vector<YMClientState_s> changes;
    if (quit) {
        YMClientState_s state = stateOf(before, ymClientChangeQuit);
        state.running = false;
        state.transport = ymClientTransportNone;
        changes.push_back(state);
    }
    // The bundle's steps: the client runs in them only when it ran all along.
    YMClientState_s bundle = stateOf(now, ymClientChangeNone);
    if (started) {
        bundle.running = false;
        bundle.transport = ymClientTransportNone;
    }
    auto tell = [&](ymClientChange change) {
        bundle.change = change;
        changes.push_back(bundle);
    };
    if (now.installed != before.installed) {
        tell(now.installed ? ymClientChangeInstalled : ymClientChangeRemoved);
    } else if (now.installed) {
        if (now.installPath != before.installPath)
            tell(ymClientChangeMoved);
        if (now.version != before.version)
            tell(ymClientChangeUpdated);
    }
    if (started)
        changes.push_back(stateOf(now, ymClientChangeStarted));
    return changes;
}

}  // namespace

YMClientState_s ymSdkImplement::GetClientState() { return stateOf(*ymClientWatch::shared().current(), ymClientChangeNone); }

void ymSdkImplement::SetClientStateHandler(std::function<void(const YMClientState_s &state)> handler)
{
    uint64_t stop = 0;
    bool start = false;
    {
        std::lock_guard<ymMutex> guard(_impl->clientStateLock);
        _impl->clientStateHandler = std::move(handler);
        if (!_impl->clientStateHandler)
            stop = std::exchange(_impl->clientObservation, 0);
        else
            start = _impl->clientObservation == 0;
    }
    if (stop)
        ymClientWatch::shared().removeObserver(stop);
    if (!start)
        return;
    // The observer holds this facade weakly: a facade that is gone hears nothing.
    std::weak_ptr<ymSdkImplement> weak = weak_from_this();
    uint64_t token = ymClientWatch::shared().addObserver([weak](const ymClientSnapshot &now, const ymClientSnapshot &before) {
        std::shared_ptr<ymSdkImplement> self = weak.lock();
        if (!self)
            return;
        std::function<void(const YMClientState_s &)> current;
        {
            std::lock_guard<ymMutex> guard(self->_impl->clientStateLock);
            current = self->_impl->clientStateHandler;
        }
        if (!current)
            return;
        for (const YMClientState_s &state : changesBetween(now, before))
            current(state);
    });
    std::lock_guard<ymMutex> guard(_impl->clientStateLock);
    if (_impl->clientObservation == 0 && _impl->clientStateHandler)
        _impl->clientObservation = token;
    else
        ymClientWatch::shared().removeObserver(token);  // set meanwhile by another thread, or cleared
}

std::shared_ptr<ymSdkDelegate> ymSdkImplement::delegate() const { return _impl->delegate.get(); }
void ymSdkImplement::setDelegate(const std::weak_ptr<ymSdkDelegate> &delegate) { _impl->delegate.set(delegate); }
int64_t ymSdkImplement::features() const { return _impl->features.load(); }
void ymSdkImplement::setFeatures(int64_t features) { _impl->features.store(features); }

std::shared_ptr<YMSocketIPCChannel_SDK> ymSdkImplement::socketIPCChannelToYumo() const
{
    return _impl->sockets.channel(Impl::Peer::meetingClient);
}

void ymSdkImplement::setSocketIPCChannelToYumo(const std::shared_ptr<YMSocketIPCChannel_SDK> &channel)
{
    _impl->sockets.setChannel(Impl::Peer::meetingClient, channel);
}

std::shared_ptr<YMSocketIPCChannel_SDK> ymSdkImplement::socketIPCChannelToYyhost() const
{
    return _impl->sockets.channel(Impl::Peer::host);
}

void ymSdkImplement::setSocketIPCChannelToYyhost(const std::shared_ptr<YMSocketIPCChannel_SDK> &channel)
{
    _impl->sockets.setChannel(Impl::Peer::host, channel);
}

std::shared_ptr<ymIPCMsgMgr> ymSdkImplement::ipcMsgMgr() const { return _impl->notifications.manager(); }

void ymSdkImplement::setIpcMsgMgr(const std::shared_ptr<ymIPCMsgMgr> &manager) { _impl->notifications.setManager(manager); }
