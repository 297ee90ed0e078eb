/// @file
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "YMSocketIPCChannelDelegate.h"
#include "ySocketDelegate.h"
#include "ymBase.h"

/// YMSocketIPCChannel_SDK: the socket transport as the rest of the SDK sees it.
///
/// A channel wraps a socket client (ySocketClientImpl_SDK) or a socket server
/// (ySocketServerImpl_SDK), passes outgoing text to it, decides from the incoming text whether a
/// whole message has arrived, and delivers each whole message to its delegate on the main loop.
///
/// The boundary rule: the gathered text is a whole message when it contains the key name
/// "commandId" (IPCMsg_Content_CommandId) anywhere and its last character, after trailing blanks
/// and line breaks, is "}". Braces are not counted, so a read that ends just after an inner "}"
/// of a message that already holds the key delivers the message cut there, and two messages that
/// arrive together are delivered as one text. An empty or all-blank text is never whole.
class YM_EXPORT YMSocketIPCChannel_SDK : public ySocketDelegate,
                                         public std::enable_shared_from_this<YMSocketIPCChannel_SDK> {
public:
    /// A client channel on the path: its client starts connecting on a thread of its own at once.
    /// Nil when the path is missing or empty.
    static std::shared_ptr<YMSocketIPCChannel_SDK> ipcClientWithSocketPath(const std::optional<std::string> &socketPath);

    /// A server channel on the path: its server starts listening on a thread of its own at once.
    /// Nil when the path is missing or empty.
    static std::shared_ptr<YMSocketIPCChannel_SDK> ipcServerWithSocketPath(const std::optional<std::string> &socketPath);

    /// An idle channel, with neither socket.
    static std::shared_ptr<YMSocketIPCChannel_SDK> create();

    /// Releases the socket objects without ending or disconnecting them: a connected client or
    /// a listening server lives on with its threads, and simply stops delivering to this channel.
    ~YMSocketIPCChannel_SDK() override;

    /// Makes this channel a client of the path and starts connecting without waiting. Answers 0,
    /// or -1 for a missing or empty path. A failed connection is retried by the next send.
    int initIPCClientWithSocketPath(const std::optional<std::string> &socketPath);

    /// Makes this channel a server on the path and starts listening without waiting. 0 or -1.
    int initIPCServerWithSocketPath(const std::optional<std::string> &socketPath);

    /// Sends the text as it is: broadcast to every peer on a server channel, to the server on a
    /// client channel (connecting first when needed). It may hold the caller for a few seconds at
    /// most: 4 for a connection attempt, 3 for a write to a peer that does not read (see
    /// ySocketClientImpl_SDK). The outcome is not reported.
    void sendMessage(const std::optional<std::string> &message);

    /// The socket's reader threads call this with the text gathered so far: answers 0 when it is
    /// a whole message (queued for the delegate on the main loop), -1 to keep gathering.
    int32_t onMessageRecieved(const std::string &message) override;

    /// The receiver of whole messages. Not retained: it must outlive the channel's deliveries.
    YMSocketIPCChannelDelegate *delegate() const;
    /// Sets the receiver of whole messages (not retained).
    void setDelegate(YMSocketIPCChannelDelegate *delegate);

    YMSocketIPCChannel_SDK(const YMSocketIPCChannel_SDK &) = delete;
    YMSocketIPCChannel_SDK &operator=(const YMSocketIPCChannel_SDK &) = delete;

    /// The channel's state, inside the SDK.
    struct YM_HIDDEN Impl;

private:
    YM_HIDDEN YMSocketIPCChannel_SDK();
    std::shared_ptr<Impl> _impl;
};
