/// @file
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "YMSocketIPCChannelDelegate.h"
#include "ymBase.h"
#include "ymValue.h"

/// ymIPCMsgMgr: the notification transport, for meeting clients older than 5.6.
///
/// Messages travel as distributed notifications whose user information holds the message text
/// under "content" (IPCMsg_CONTENT). From its creation the manager observes the two answer names,
/// NOTIFY_IPC_YUMOCLIENT_TO_YUMOSDK and NOTIFY_IPC_YYHOST_TO_YUMOSDK, and hands each "content" to
/// its delegate on the main loop (ymMainLoop); it posts requests under
/// NOTIFY_IPC_YUMOSDK_TO_YUMOCLIENT and NOTIFY_IPC_YUMOSDK_TO_YYHOST. The names are read from
/// those variables at each use.
///
/// On the wire a notification is one D-Bus signal on the session bus, which a meeting client on
/// Linux sends and observes as well:
///
///     object path  /com/yumocorp/DistributedNotificationCenter
///     interface    com.yumocorp.DistributedNotification
///     member       Notification
///     signature    sa{sv}: the notification's name, then its user information, every value a
///                  string in a variant ("s"); values of other types are passed over
///
/// An observer subscribes with the match rule
/// type='signal',interface='com.yumocorp.DistributedNotification',member='Notification',arg0='NAME',
/// so the bus hands each process only the names it observes; the sender (the signal's path and
/// its unique bus name) is not looked at. For example, a presence request to a 5.5 client is
/// ("YumoLauncher3rdSdkToYumoVideoClient", {"content": <"{\"commandId\":1,...}">}), and its
/// answer ("YumoVideoClientToYumoLauncher3rdSdk", {"content": <"{\"commandId\":1,\"result\":...}">}).
///
/// The SDK connects to the session bus when a manager first observes or posts, on its own I/O
/// thread and within a second: a bus that does not answer costs the first call at most that
/// second and later calls nothing. Without a session bus posts are dropped; when the bus goes away
/// the manager stops hearing, and hears again once the SDK has connected to a new one (it tries
/// again after a second, then less and less often, up to every thirty seconds).
///
/// A manager observes for as long as it lives: releasing it (a facade releases its own with
/// itself) ends its observations, and once the release has returned its handler is not called
/// again.
///
/// Threads: the sends may come from any thread; the delegate is called on the main loop's thread.
/// Nothing reports whether anybody listens: a post nobody observes is lost.
class YM_EXPORT ymIPCMsgMgr : public std::enable_shared_from_this<ymIPCMsgMgr> {
public:
    /// A manager, already observing the two answer names.
    static std::shared_ptr<ymIPCMsgMgr> create();

    /// Stops observing. Released on another thread than the main loop's, it first waits for a
    /// delivery to it that is under way there.
    ~ymIPCMsgMgr();

    /// Does nothing; observation goes on.
    void cleanup();

    /// Handles one received notification: hands its "content" to the delegate (a "content" that
    /// is not a text is handed over missing). User information that is missing, no dictionary,
    /// or without "content" is logged and dropped. The log line lists the user information as the
    /// platform lists a dictionary: keys in ascending order, texts and numbers quoted unless made
    /// of letters, digits and "_" only ("1.5", "-5"), the same in every locale.
    void onYumoClientMessageResponse(const std::optional<ymValue> &userInfo);

    /// Posts the text to the meeting client; a missing text posts an empty user information.
    void sendIPCMessageToYumoClient(const std::optional<std::string> &message);

    /// Posts the text to the host process; a missing text posts an empty user information.
    void sendIPCMessageToYyhost(const std::optional<std::string> &message);

    /// The receiver of the messages (weak: never kept alive by the manager).
    std::shared_ptr<YMSocketIPCChannelDelegate> delegate() const;
    /// Sets the receiver of the messages (held weakly).
    void setDelegate(const std::weak_ptr<YMSocketIPCChannelDelegate> &delegate);

    ymIPCMsgMgr(const ymIPCMsgMgr &) = delete;
    ymIPCMsgMgr &operator=(const ymIPCMsgMgr &) = delete;

    /// The manager's state, inside the SDK.
    struct YM_HIDDEN Impl;

private:
    YM_HIDDEN ymIPCMsgMgr();
    std::unique_ptr<Impl> _impl;
};
