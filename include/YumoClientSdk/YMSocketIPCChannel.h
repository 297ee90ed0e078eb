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
/// (ySocketServerImpl_SDK), passes outgoing text to it, and delivers each whole message that comes
/// in to its delegate on the main loop (ymMainLoop), in the order it came.
///
/// Framing: the bytes a connection reads are split into the top-level JSON objects they hold,
/// strings and escapes understood, whatever the reads were: many messages in one read, one message
/// over many reads, a cut anywhere. Between messages, bytes that cannot begin one (anything but
/// "{") are skipped; a text that turns out not to be JSON costs itself only, and reading goes on
/// with the next message (from the next "{" inside it, where the peer may have begun one). One
/// connection gathers at most 16 MiB for one message and nests at most 512 deep: a longer text is
/// dropped with a log line and reading goes on after it. The protocol the meeting client and its
/// companions share leaves the boundary to a rule on the gathered text (see below), which loses
/// messages that arrive together; the rule still decides, text by text, what is a message.
///
/// The boundary rule: a text is a message when it contains the key name "commandId"
/// (IPCMsg_Content_CommandId) anywhere and its last character, after trailing blanks and line
/// breaks, is "}". Texts that are not messages are dropped (after their log line).
///
/// Lifetime: releasing a channel releases its socket object, which closes its socket (a client
/// disconnects, a server ends); deliveries still queued on the main loop are then dropped.
class YM_EXPORT YMSocketIPCChannel_SDK : public ySocketDelegate,
                                         public std::enable_shared_from_this<YMSocketIPCChannel_SDK> {
public:
    /// A client channel on the path: its client starts connecting on the I/O thread at once, and
    /// connects again by itself whenever its peer goes and comes back. Nil when the path is missing
    /// or empty.
    static std::shared_ptr<YMSocketIPCChannel_SDK> ipcClientWithSocketPath(const std::optional<std::string> &socketPath);

    /// A server channel on the path, listening at once (a server that cannot listen says why in the
    /// log). Nil when the path is missing or empty.
    static std::shared_ptr<YMSocketIPCChannel_SDK> ipcServerWithSocketPath(const std::optional<std::string> &socketPath);

    /// An idle channel, with neither socket.
    static std::shared_ptr<YMSocketIPCChannel_SDK> create();

    /// Releases the socket object, which closes its socket and leaves no thread behind.
    ~YMSocketIPCChannel_SDK() override;

    /// Makes this channel a client of the path and starts connecting without waiting. Answers 0,
    /// or -1 for a missing or empty path. A failed connection is made again by itself once a peer
    /// listens, or by the next send.
    int initIPCClientWithSocketPath(const std::optional<std::string> &socketPath);

    /// Makes this channel a server on the path, listening at once. 0 or -1.
    int initIPCServerWithSocketPath(const std::optional<std::string> &socketPath);

    /// Sends the text as it is: broadcast to every peer on a server channel, to the server on a
    /// client channel (connecting first when needed). It holds the caller 4 seconds at most, for a
    /// connection attempt, and never waits for a peer to read (see ySocketClientImpl_SDK). The
    /// outcome is not reported.
    void sendMessage(const std::optional<std::string> &message);

    /// The socket object calls this on the I/O thread with each whole text it has read: answers 0
    /// when it is a message (queued for the delegate on the main loop), -1 when it is not one.
    int32_t onMessageRecieved(const std::string &message) override;

    /// The receiver of whole messages: the one set last, whichever way.
    YMSocketIPCChannelDelegate *delegate() const;
    /// Sets the receiver of whole messages, not retained: it must outlive the channel's deliveries.
    void setDelegate(YMSocketIPCChannelDelegate *delegate);
    /// Sets the receiver of whole messages, held weakly: once it is gone, nothing is delivered.
    void setDelegate(const std::weak_ptr<YMSocketIPCChannelDelegate> &delegate);

    YMSocketIPCChannel_SDK(const YMSocketIPCChannel_SDK &) = delete;
    YMSocketIPCChannel_SDK &operator=(const YMSocketIPCChannel_SDK &) = delete;

    /// The channel's state, inside the SDK.
    struct YM_HIDDEN Impl;

private:
    YM_HIDDEN YMSocketIPCChannel_SDK();
    std::shared_ptr<Impl> _impl;
};
