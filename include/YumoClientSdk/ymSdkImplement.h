/// @file
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "YMSocketIPCChannel.h"
#include "YMSocketIPCChannelDelegate.h"
#include "ymBase.h"
#include "ymClientState.h"
#include "ymCommandStatus.h"
#include "ymIPCMsgMgr.h"
#include "ymSdkDelegate.h"
#include "ymValue.h"

/// ymSdkImplement: the one object a companion talks to.
///
/// ymSdkImplement *sdk = ymSdkImplement::SharedInstance();
/// sdk->setDelegate(myDelegate);                          // a std::shared_ptr<ymSdkDelegate>
/// sdk->RegisterAudioDevice("Headset", "1", 2830, 3);
/// int32_t status = sdk->GetIMPresenceStatus();           // 0: sent; the answer comes later
/// ymMainLoop::shared().run();                            // answers arrive here
///
/// On creation the facade sends the SDK's log to "yumoclientsdk.log" in the app-group container,
/// opens a socket channel to the meeting client and one to its host process, and starts observing
/// the notification transport. Each command first asks whether the meeting client can take it
/// (see ymAPIErrorMgr) and then goes by the socket transport when the installed client is 5.6 or
/// later, by notifications otherwise; the choice is made afresh for every command.
///
/// Threads: every method may be called from any thread, at the same time as any other. The
/// delegate is called on the thread that runs ymMainLoop, never on the caller's thread and never
/// from inside a command. onMessageRecieved() is called by the transports on that same thread.
///
/// The channels connect again by themselves whenever the meeting client or its host process comes
/// back (it was updated, it crashed, it started after the companion): a companion that only
/// listens hears them again without sending anything.
///
/// A command returns within a few seconds whatever the meeting client does: sending to a client
/// whose listen queue is full waits at most 4 seconds for the connection, and a client that takes
/// nothing for 3 seconds loses the texts queued for it (they count as sends that failed; the status
/// is still 0, as for any send the transport could not complete). Registration waits at most 10
/// seconds for the shared list's lock. No exception leaves the SDK. The session bus is connected
/// only when a command or the installed client needs the notification transport, on the SDK's own
/// thread, and never waited for more than a second.
///
/// fork(): a child may use the facade; it starts with no device and no client-state handler of its
/// own (the delegate is kept), connects anew, and never releases or uses its parent's devices or
/// connections, also when the facade is released or the child exits.
///
/// Command status (ymCommandStatus): 0 the text was handed to a transport (no answer is awaited);
/// 5 the meeting client is not running (also when not installed); 2 and 6 as ymAPIErrorMgr says;
/// 8 no transport to send with. ymAPIErrorMgr::sharedInstance()->to3rdClientErrorStr() gives the
/// text.
class YM_EXPORT ymSdkImplement : public YMSocketIPCChannelDelegate,
                                 public std::enable_shared_from_this<ymSdkImplement> {
public:
    /// The process-wide facade, created on the first call (from any thread) and never destroyed.
    static ymSdkImplement *SharedInstance();

    /// A facade of its own, with its own channels and notification manager. When the last
    /// reference goes it cleans up its devices (see CleanupAudioDevices()) and closes its two
    /// connections; its notification manager goes on observing until the process ends, delivering
    /// to nobody.
    static std::shared_ptr<ymSdkImplement> create();

    ~ymSdkImplement() override;

    /// The features this SDK offers: 3 (bits 1 and 2).
    virtual int64_t GetSDKAvailableFeatures();

    /// Stores the mask when it shares a bit with GetSDKAvailableFeatures() and answers YES;
    /// otherwise answers NO and keeps the old mask.
    bool RegisterFeature(int64_t features);

    /// Sends an audio command for the device to the host process. Any device may be named;
    /// it need not be registered. The device's index and name are escaped as JSON requires (a
    /// `"`, `\` or control character travels whole). The codes are the host process's own,
    /// carried unchanged both ways; 101 (ymAudioCommandRelease) releases the device, and a code
    /// a companion does not know is left alone (ymAudioCommand.h). Answers the command status
    /// (see above).
    int32_t SetAudioCmd(int32_t audioCmd, YMAudioDevice_s audioDevice);

    /// Registers a device this companion owns: in this process's list, which decides which audio
    /// events reach the delegate, and in the list shared by every companion of the user. NO when
    /// an argument is missing or the name or index is empty. YES also when already registered, and
    /// also when the shared list could not be written (it is never overwritten when it cannot be
    /// read). The USB identifiers are stored as given: a number (2830) or a text ("0xB0E").
    bool RegisterAudioDevice(const std::optional<std::string> &deviceName, const std::optional<std::string> &deviceIndex,
                             const std::optional<ymValue> &usbVid, const std::optional<ymValue> &usbPid);

    /// Adds the device to this process's list unless it is there.
    void addToDeviceArray(const std::optional<std::string> &deviceName, const std::optional<std::string> &deviceIndex);

    /// Removes this process's devices from the shared list and sends the release command 101 for
    /// each one removed. Call it before the companion quits.
    void CleanupAudioDevices();

    /// Does what CleanupAudioDevices() does and answers how many devices it removed from the shared
    /// list (a release command went out for each); 0 when this process registered none.
    size_t CleanupAudioDevicesAndCount();

    /// Asks the meeting client for the user's presence status. Answers the command status; the
    /// answer reaches the delegate's ymSdkIMPresenceStatus on the main loop, one call per answer,
    /// however many are asked for at once. Its status is the meeting client's own number, 0
    /// (ymPresenceStatusNone) when the answer carries none.
    int32_t GetIMPresenceStatus();

    /// YES when this process registered the device (same name and index) in its current run.
    bool isRegisteredDevice(const std::optional<std::string> &deviceName, const std::optional<std::string> &deviceIndex);

    /// A whole message from either transport. Answers -1 for a missing text or one that is not
    /// JSON, 0 otherwise.
    int32_t onMessageRecieved(const std::optional<std::string> &message) override;

    /// The meeting client now: installed, running, its version and where, and the transport
    /// commands take (the change is ymClientChangeNone).
    YMClientState_s GetClientState();

    /// Calls the handler, on the main loop, each time the meeting client starts, quits, is
    /// installed, removed, updated or moved (see ymClientState.h), within a second of the change.
    /// An empty handler stops the calls: once this returns, the old handler is never called again
    /// (a call of it under way on the loop's thread is waited for, unless this is called there).
    /// Setting one starts the SDK's watch of the client, which then waits on the file system and
    /// the client's processes: it does not poll. A handler set after GetClientState() hears of every
    /// change since that reading, also of one that came in between.
    void SetClientStateHandler(std::function<void(const YMClientState_s &state)> handler);

    /// The companion's receiver of answers (weak: keep your own reference).
    std::shared_ptr<ymSdkDelegate> delegate() const;
    /// Sets the companion's receiver of answers (held weakly). Once this returns the old one is never
    /// called again (a call of it under way on the loop's thread is waited for, unless this is
    /// called there).
    void setDelegate(const std::weak_ptr<ymSdkDelegate> &delegate);

    /// The feature mask last accepted by RegisterFeature(); 0 at first. No command consults it.
    int64_t features() const;
    /// Sets the feature mask as it is.
    void setFeatures(int64_t features);

    /// The socket channel to the meeting client (nil when it could not be made).
    std::shared_ptr<YMSocketIPCChannel_SDK> socketIPCChannelToYumo() const;
    /// Replaces the channel to the meeting client; nil leaves presence requests nothing to go by (8).
    void setSocketIPCChannelToYumo(const std::shared_ptr<YMSocketIPCChannel_SDK> &channel);
    /// The socket channel to the host process (nil when it could not be made).
    std::shared_ptr<YMSocketIPCChannel_SDK> socketIPCChannelToYyhost() const;
    /// Replaces the channel to the host process; nil leaves audio commands nothing to go by (8).
    void setSocketIPCChannelToYyhost(const std::shared_ptr<YMSocketIPCChannel_SDK> &channel);
    /// The notification transport.
    std::shared_ptr<ymIPCMsgMgr> ipcMsgMgr() const;
    /// Replaces the notification transport; nil leaves older clients unreachable (8).
    void setIpcMsgMgr(const std::shared_ptr<ymIPCMsgMgr> &manager);

    ymSdkImplement(const ymSdkImplement &) = delete;
    ymSdkImplement &operator=(const ymSdkImplement &) = delete;

    /// The facade's state, inside the SDK.
    struct YM_HIDDEN Impl;

private:
    YM_HIDDEN ymSdkImplement();
    std::unique_ptr<Impl> _impl;
};
