// How a facade's finished texts reach the meeting client and its host process: one small interface
// over the two transports, the sockets (ymSocketTransport) and the notifications
// (ymNotificationTransport). The facade has one of each, and each command takes the one the
// installed client speaks.
#pragma once

#include <cstdint>
#include <string>

class ymTransport {
public:
    enum class Peer { meetingClient, host };

    virtual ~ymTransport() = default;

    // Hands the finished text to the peer: ymCommandStatusSent, or ymCommandStatusNoTransport when
    // there is nothing to send it with. Whether it arrives is not known here.
    virtual int32_t send(Peer peer, const std::string &text) = 0;

    // Sends and receives nothing more.
    virtual void close() = 0;
};
