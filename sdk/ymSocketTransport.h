// The socket transport of a facade: a client channel to the meeting client's socket and one to
// its host process's, both connecting from the start and again whenever their peer comes back.
// The channels are the facade's properties: a companion may replace them, or set them to nil.
#pragma once

#include <YumoClientSdk/YMSocketIPCChannel.h>
#include <memory>
#include <mutex>

#include "platform/ymMutex.h"

#include "sdk/ymTransport.h"

class ymSocketTransport : public ymTransport {
public:
    // Opens both channels (a channel that cannot be made, for want of a group container, stays
    // nil); what they receive goes to `receiver`, held weakly.
    void open(const std::weak_ptr<YMSocketIPCChannelDelegate> &receiver);

    int32_t send(Peer peer, const std::string &text) override;
    // Releases both channels, which closes their sockets.
    void close() override;

    std::shared_ptr<YMSocketIPCChannel_SDK> channel(Peer peer) const;
    void setChannel(Peer peer, const std::shared_ptr<YMSocketIPCChannel_SDK> &channel);

private:
    // Replaced by the setters on one thread while commands read them on others.
    mutable ymMutex _lock;
    std::shared_ptr<YMSocketIPCChannel_SDK> _toYumo;
    std::shared_ptr<YMSocketIPCChannel_SDK> _toYyhost;
};
