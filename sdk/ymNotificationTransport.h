// The notification transport of a facade, for meeting clients older than 5.6: the notification
// manager (ymIPCMsgMgr), observing from the start. The manager is the facade's property: a
// companion may replace it, or set it to nil.
#pragma once

#include <YumoClientSdk/ymIPCMsgMgr.h>
#include <memory>
#include <mutex>

#include "platform/ymMutex.h"

#include "sdk/ymTransport.h"

class ymNotificationTransport : public ymTransport {
public:
    // Creates the manager; what it receives goes to `receiver`, held weakly.
    void open(const std::weak_ptr<YMSocketIPCChannelDelegate> &receiver);

    int32_t send(Peer peer, const std::string &text) override;
    // Lets the manager go without releasing it: it goes on observing for the rest of the process,
    // delivering to nobody once its receiver has gone.
    void close() override;

    std::shared_ptr<ymIPCMsgMgr> manager() const;
    void setManager(const std::shared_ptr<ymIPCMsgMgr> &manager);

private:
    mutable ymMutex _lock;
    std::shared_ptr<ymIPCMsgMgr> _manager;
};
