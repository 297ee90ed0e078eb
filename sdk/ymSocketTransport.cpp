#include "sdk/ymSocketTransport.h"

#include <YumoClientSdk/YMSocketIPCHelper.h>
#include <YumoClientSdk/ymCommandStatus.h>

void ymSocketTransport::open(const std::weak_ptr<YMSocketIPCChannelDelegate> &receiver)
{
    for (Peer peer : {Peer::meetingClient, Peer::host}) {
        std::shared_ptr<YMSocketIPCChannel_SDK> made = YMSocketIPCChannel_SDK::ipcClientWithSocketPath(
            peer == Peer::meetingClient ? YMSocketIPCHelper_SDK::ipcSocketPathForYumoClient()
                                        : YMSocketIPCHelper_SDK::ipcSocketPathForYyHost());
        setChannel(peer, made);
        if (made)
            made->setDelegate(receiver);
    }
}

int32_t ymSocketTransport::send(Peer peer, const std::string &text)
{
    std::shared_ptr<YMSocketIPCChannel_SDK> target = channel(peer);
    if (!target)
        return ymCommandStatusNoTransport;
    target->sendMessage(text);
    return ymCommandStatusSent;
}

void ymSocketTransport::close()
{
    setChannel(Peer::meetingClient, nullptr);
    setChannel(Peer::host, nullptr);
}

std::shared_ptr<YMSocketIPCChannel_SDK> ymSocketTransport::channel(Peer peer) const
{
    std::lock_guard<ymMutex> guard(_lock);
    return peer == Peer::meetingClient ? _toYumo : _toYyhost;
}

void ymSocketTransport::setChannel(Peer peer, const std::shared_ptr<YMSocketIPCChannel_SDK> &channel)
{
    std::shared_ptr<YMSocketIPCChannel_SDK> released;
    {
        std::lock_guard<ymMutex> guard(_lock);
        std::shared_ptr<YMSocketIPCChannel_SDK> &field = peer == Peer::meetingClient ? _toYumo : _toYyhost;
        released = std::move(field);
        field = channel;
    }
    // The old channel (and its socket) goes here, outside the lock.
}
