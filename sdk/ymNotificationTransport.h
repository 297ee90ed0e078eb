// The notification transport of a facade, for meeting clients older than 5.6: the notification
// manager (ymIPCMsgMgr). The manager is the facade's property: a companion may replace it, or set
// it to nil.
//
// The transport may be opened without its manager: it then remembers the receiver and makes the
// manager (which starts observing, and so connects to the session bus) only when it is first
// needed, by a send or by a call of manager(). A facade whose client speaks the sockets so never
// touches the session bus.
#pragma once

#include <YumoClientSdk/ymIPCMsgMgr.h>
#include <memory>
#include <mutex>

#include "platform/ymMutex.h"

#include "sdk/ymTransport.h"

class ymNotificationTransport : public ymTransport {
public:
    // Opens the transport for `receiver` (held weakly). With `now` the manager is made at once and
    // observes from here on; without, it is made on first need.
    void open(const std::weak_ptr<YMSocketIPCChannelDelegate> &receiver, bool now = true);

    int32_t send(Peer peer, const std::string &text) override;

    // Releases the manager (or forgets that it was to be made): its observations end with it unless
    // the companion holds it too. Nothing is made after this.
    void close() override;

    // The manager; made now when the transport was opened without it and nobody has set one since.
    // Null once closed, or when set to nil.
    std::shared_ptr<ymIPCMsgMgr> manager() const;
    void setManager(const std::shared_ptr<ymIPCMsgMgr> &manager);

private:
    mutable ymMutex _lock;  // the fields below
    mutable ymMutex _making;  // one manager made at a time, without holding _lock
    mutable std::shared_ptr<ymIPCMsgMgr> _manager;
    std::weak_ptr<YMSocketIPCChannelDelegate> _receiver;
    mutable bool _pending = false;  // opened, and the manager still to be made
};
