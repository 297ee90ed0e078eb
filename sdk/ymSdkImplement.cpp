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
#include "foundation/ymCallbackSlot.h"
#include "foundation/ymLog.h"
#include "foundation/ymThread.h"
#include "foundation/ymValueJSON.h"
#include "foundation/ymWeakReference.h"
#include "sdk/ymAudioDeviceStore.h"
#include "sdk/ymClientChecks.h"
#include "sdk/ymIPCMessage.h"
#include "sdk/ymNotificationTransport.h"
#include "platform/ymGuarded.h"
#include "platform/ymIOLoop.h"
#include "platform/ymProcessBound.h"
#include "sdk/ymSocketTransport.h"

struct ymSdkImplement::Impl {
    struct DeviceEntry {
        std::optional<std::string> deviceName;
        std::optional<std::string> deviceIndex;
    };
    using Peer = ymTransport::Peer;
    using ClientStateHandler = std::function<void(const YMClientState_s &)>;

    /// What belongs to the process that made it: the devices it registered, its connections and
    /// its observations. The child of a fork starts with its own (no device of its parent's, new
    /// connections) and never touches its parent's.
    struct ProcessPart {
        /// The in-memory registry: written on the callers' threads, read on the main loop's.
        std::vector<DeviceEntry> devicesArray;
        ymMutex devicesLock;
        ymSocketTransport sockets;
        ymNotificationTransport notifications;
        /// The companion's handler of the client's changes, and the watch's observation that calls it.
        ymCallbackSlot<ClientStateHandler> clientStateHandler;
        ymMutex observationLock;
        uint64_t clientObservation = 0;
    };

    ymWeakReference<ymSdkDelegate> delegate;
    std::atomic<int64_t> features{0};
    /// The client as the companion last read it: a handler set next hears of every change from there.
    ymMutex lastReadLock;
    std::shared_ptr<const ymClientSnapshot> lastRead;
    ymProcessBound<ProcessPart> bound;
    std::weak_ptr<ymSdkImplement> self;

    /// This process's part, opened on first use in the child of a fork.
    ProcessPart &part()
    {
        return bound.get([this](const ProcessPart *) { return open(self); });
    }
    static std::shared_ptr<ProcessPart> open(const std::weak_ptr<ymSdkImplement> &facade);
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
    // From here on every line of the SDK goes to the log file.
    ymLogHelper::redirectNSLog(NO);
    // A facade whose last reference goes on the I/O thread is not destroyed there: its clean-up
    // writes the shared list and sends, which the I/O thread must never wait for.
    std::shared_ptr<ymSdkImplement> facade(new ymSdkImplement(), [](ymSdkImplement *released) {
        if (!ymIOLoop::onIOThread() || !ymDetachThread([released] { delete released; }))
            delete released;
    });
    facade->_impl->self = facade;
    facade->setFeatures(0);
    facade->_impl->part();
    return facade;
}

ymSdkImplement::ymSdkImplement() : _impl(std::make_unique<Impl>()) {}

std::shared_ptr<ymSdkImplement::Impl::ProcessPart> ymSdkImplement::Impl::open(const std::weak_ptr<ymSdkImplement> &facade)
{
    auto part = std::make_shared<ProcessPart>();
    // The socket channels are opened whatever the installed client speaks (a channel that cannot
    // be made, for want of a group container, stays nil); the notification transport, and with it
    // the session bus, only when the installed client needs it, or at the first command that does.
    // Both deliver to the facade weakly: nothing reaches a facade that is being released.
    part->sockets.open(facade);
    bool needsNotifications = !ymClientChecks::isYumoClientSupportNewIPC(*ymClientWatch::shared().current());
    part->notifications.open(facade, needsNotifications);
    return part;
}

ymSdkImplement::~ymSdkImplement()
{
    // A facade the parent of this process made is left to the parent: its devices are not this
    // process's to release, nor its connections to close.
    Impl::ProcessPart *part = _impl->bound.ifCurrent();
    if (!part)
        return;
    SetClientStateHandler(nullptr);
    CleanupAudioDevices();
    // The channels close their sockets; the notification manager goes, and its observations with it.
    part->sockets.close();
    part->notifications.close();
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
    ymNSLogBatch batch;  // the command's lines go out together
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
    ProcessPart &kept = part();
    ymTransport &transport = ymClientChecks::isYumoClientSupportNewIPC(client)
                                 ? static_cast<ymTransport &>(kept.sockets)
                                 : static_cast<ymTransport &>(kept.notifications);
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
    Impl::ProcessPart *part = &_impl->part();
    std::lock_guard<ymMutex> guard(part->devicesLock);
    for (const Impl::DeviceEntry &entry : part->devicesArray) {
        // A missing value matches nothing, as a nil never equals a text.
        bool sameName = entry.deviceName && deviceName && *entry.deviceName == *deviceName;
        bool sameIndex = entry.deviceIndex && deviceIndex && *entry.deviceIndex == *deviceIndex;
        if (sameName && sameIndex)
            return;
    }
    part->devicesArray.push_back({deviceName, deviceIndex});
}

void ymSdkImplement::CleanupAudioDevices() { CleanupAudioDevicesAndCount(); }

size_t ymSdkImplement::CleanupAudioDevicesAndCount()
{
    Impl::ProcessPart *part = &_impl->part();
    std::vector<ymAudioDeviceStore::Device> devices;
    {
        std::lock_guard<ymMutex> guard(part->devicesLock);
        if (part->devicesArray.empty())
            return 0;
        for (const Impl::DeviceEntry &entry : part->devicesArray)
            devices.push_back({entry.deviceName, entry.deviceIndex});
    }
    ymAudioDeviceStore::CleanupResult result = ymAudioDeviceStore::removeDevices(devices);
    if (result.nothingStored) {
        std::lock_guard<ymMutex> guard(part->devicesLock);
        part->devicesArray.clear();
        return 0;
    }
    // The releases go out once the shared list is written; those that cannot be sent are lost.
    for (const ymAudioDeviceStore::Release &release : result.released) {
        YMAudioDevice_s device;
        device.deviceIndex = release.deviceIndex;
        device.deviceName = release.deviceName;
        SetAudioCmd(ymAudioCommandRelease, device);
    }
    return result.released.size();
}

int32_t ymSdkImplement::GetIMPresenceStatus()
{
    ymNSLogBatch batch;  // the command's lines go out together
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
        Impl::ProcessPart *part = &_impl->part();
        std::lock_guard<ymMutex> guard(part->devicesLock);
        for (const Impl::DeviceEntry &entry : part->devicesArray) {
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
    ymNSLogBatch batch;  // written before the delegate is called, or at the end
    YM_LOG("%s: message=%s", "-[ymSdkImplement onMessageRecieved:]", ymlog::describe(message));
    if (!message)
        return -1;
    // A plain message is read from its text; any other is parsed first.
    std::optional<ymIPCMessage::Reading> reading = ymIPCMessage::read(std::string_view(*message));
    if (!reading) {
        std::optional<nlohmann::json> parsed = yStringUtils::toArrayOrNSDictionary(message);
        if (!parsed)
            return -1;
        reading = ymIPCMessage::read(*parsed);
    }

    if (reading->commandId == ymIPCMessage::kCommandAudio) {
        YMAudioInfo_s audioInfo;
        audioInfo.audioCmd = reading->audioCmd;
        audioInfo.audioDevice.deviceName = std::move(reading->deviceName);
        audioInfo.audioDevice.deviceIndex = std::move(reading->deviceIndex);
        // The delegate is weak: it is looked up afresh before each step, and one replaced
        // meanwhile is not called.
        if (_impl->delegate.expired())
            return 0;
        if (!isRegisteredDevice(audioInfo.audioDevice.deviceName, audioInfo.audioDevice.deviceIndex))
            return 0;
        _impl->delegate.call([&](ymSdkDelegate &receiver) { receiver.ymSdkAudioInfo(audioInfo); });
    } else if (reading->commandId == ymIPCMessage::kCommandPresenceStatus) {
        YMPresenceStatus_s status;
        status.error = reading->result.error ? YES : NO;
        status.code = reading->result.code;
        status.text = std::move(reading->result.text);
        status.presenceStatus = reading->presenceStatus;
        _impl->delegate.call([&](ymSdkDelegate &receiver) { receiver.ymSdkIMPresenceStatus(status); });
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

YMClientState_s ymSdkImplement::GetClientState()
{
    std::shared_ptr<const ymClientSnapshot> client = ymClientWatch::shared().current();
    {
        std::lock_guard<ymMutex> guard(_impl->lastReadLock);
        _impl->lastRead = client;
    }
    return stateOf(*client, ymClientChangeNone);
}

void ymSdkImplement::SetClientStateHandler(std::function<void(const YMClientState_s &state)> handler)
{
    Impl::ProcessPart *part = _impl->bound.ifCurrent();
    if (!part && !handler)
        return;  // nothing of this process's to stop
    if (!part)
        part = &_impl->part();
    bool wanted = static_cast<bool>(handler);
    // From here the old handler is not called again (a call under way on another thread is
    // waited for).
    part->clientStateHandler.set(std::move(handler));
    std::lock_guard<ymMutex> guard(part->observationLock);
    if (!wanted) {
        if (uint64_t stop = std::exchange(part->clientObservation, 0))
            ymClientWatch::shared().removeObserver(stop);
        return;
    }
    if (part->clientObservation != 0)
        return;
    // The observer holds this facade weakly: a facade that is gone hears nothing. The handler is
    // looked up for every change it is told, so one removed in the middle of a batch hears no more.
    // A companion that read the state first hears of what changed since it read it.
    std::shared_ptr<const ymClientSnapshot> since;
    {
        std::lock_guard<ymMutex> guard(_impl->lastReadLock);
        since = std::exchange(_impl->lastRead, nullptr);
    }
    std::weak_ptr<ymSdkImplement> weak = weak_from_this();
    part->clientObservation = ymClientWatch::shared().addObserver([weak](const ymClientSnapshot &now, const ymClientSnapshot &before) {
        std::shared_ptr<ymSdkImplement> self = weak.lock();
        if (!self)
            return;
        Impl::ProcessPart *current = self->_impl->bound.ifCurrent();
        if (!current)
            return;
        // A handler that throws is said in the log; the rest of the batch still reaches it.
        for (const YMClientState_s &state : changesBetween(now, before)) {
            bool set = true;
            ymGuarded("ymSdkImplement", "the client-state handler", [&] { set = current->clientStateHandler.call(state); });
            if (!set)
                return;
        }
    }, std::move(since));
}

std::shared_ptr<ymSdkDelegate> ymSdkImplement::delegate() const { return _impl->delegate.get(); }
void ymSdkImplement::setDelegate(const std::weak_ptr<ymSdkDelegate> &delegate) { _impl->delegate.set(delegate); }
int64_t ymSdkImplement::features() const { return _impl->features.load(); }
void ymSdkImplement::setFeatures(int64_t features) { _impl->features.store(features); }

std::shared_ptr<YMSocketIPCChannel_SDK> ymSdkImplement::socketIPCChannelToYumo() const
{
    return _impl->part().sockets.channel(Impl::Peer::meetingClient);
}

void ymSdkImplement::setSocketIPCChannelToYumo(const std::shared_ptr<YMSocketIPCChannel_SDK> &channel)
{
    _impl->part().sockets.setChannel(Impl::Peer::meetingClient, channel);
}

std::shared_ptr<YMSocketIPCChannel_SDK> ymSdkImplement::socketIPCChannelToYyhost() const
{
    return _impl->part().sockets.channel(Impl::Peer::host);
}

void ymSdkImplement::setSocketIPCChannelToYyhost(const std::shared_ptr<YMSocketIPCChannel_SDK> &channel)
{
    _impl->part().sockets.setChannel(Impl::Peer::host, channel);
}

std::shared_ptr<ymIPCMsgMgr> ymSdkImplement::ipcMsgMgr() const { return _impl->part().notifications.manager(); }

void ymSdkImplement::setIpcMsgMgr(const std::shared_ptr<ymIPCMsgMgr> &manager) { _impl->part().notifications.setManager(manager); }
