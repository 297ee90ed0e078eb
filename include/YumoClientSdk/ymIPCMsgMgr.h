/// @file
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "YMSocketIPCChannelDelegate.h"
#include "ymBase.h"

/// ymIPCMsgMgr: the notification transport, for meeting clients older than 5.6.
///
/// Messages travel as distributed notifications (signals on the D-Bus session bus) whose user
/// information holds the message text under "content" (IPCMsg_CONTENT). From its creation the
/// manager observes the two answer names, NOTIFY_IPC_YUMOCLIENT_TO_YUMOSDK and
/// NOTIFY_IPC_YYHOST_TO_YUMOSDK, and hands each "content" to its delegate on the main loop
/// (ymMainLoop); it posts requests under NOTIFY_IPC_YUMOSDK_TO_YUMOCLIENT and
/// NOTIFY_IPC_YUMOSDK_TO_YYHOST. The names are read from those variables at each use.
///
/// Nothing reports whether anybody listens: a post nobody observes is lost.
class YM_EXPORT ymIPCMsgMgr : public std::enable_shared_from_this<ymIPCMsgMgr> {
public:
    /// A manager, already observing the two answer names.
    static std::shared_ptr<ymIPCMsgMgr> create();

    /// Stops observing.
    ~ymIPCMsgMgr();

    /// Does nothing; observation goes on.
    void cleanup();

    /// Handles one received notification: hands its "content" to the delegate. A notification
    /// without "content" is logged and dropped.
    void onYumoClientMessageResponse(const std::optional<std::map<std::string, std::string>> &userInfo);

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

private:
    ymIPCMsgMgr();
    void observe();
    void post(const char *name, const std::optional<std::string> &message);

    struct DelegateReference;
    std::unique_ptr<DelegateReference> _delegate;
    uint64_t _clientObservation = 0;
    uint64_t _hostObservation = 0;
};
