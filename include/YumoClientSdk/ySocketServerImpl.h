/// @file
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "ySocketDelegate.h"
#include "ymBase.h"

/// ySocketServerImpl_SDK: the listening end of the local socket transport.
///
/// It binds a Unix-domain stream socket at a path, accepts any number of peers, hands each whole
/// message a peer sends to its delegate (see ySocketDelegate), and broadcasts outgoing text to every
/// peer at once. It knows nothing of the message content.
///
/// Threads: the listening socket and every peer are served by the SDK's I/O thread (one per
/// process), which calls the delegate (for one peer after another, never at the same time).
/// start() returns as soon as the socket listens; end() stops accepting and closes every peer.
/// send() and end() may come from any thread. (The transport the meeting client and its companions
/// share gives each peer a thread of its own, and an accept loop that outlives end().)
///
/// Writes never raise SIGPIPE: a write to a peer that has gone is a failed write.
///
/// Bounded waits: a broadcast never waits for a peer. What a peer does not take at once is queued
/// for it and written as it reads; once that peer has taken nothing for 3 seconds, the texts it has
/// not begun are dropped ("partial write!"), and until it has taken what is queued, further texts
/// to it fail at once. So one peer that stops reading never stops the server answering the others.
///
/// In the child of a fork the server does not listen (its socket and peers are the parent's).
///
/// Releasing the server ends it (see end()): it leaves no thread and no descriptor behind.
class YM_EXPORT ySocketServerImpl_SDK : public std::enable_shared_from_this<ySocketServerImpl_SDK> {
public:
    /// A new server without a socket.
    static std::shared_ptr<ySocketServerImpl_SDK> create();

    /// Ends the server (see end()).
    ~ySocketServerImpl_SDK();

    /// Makes, binds and listens on the socket; from then on the I/O thread accepts peers, until
    /// end(). Answers YES once the socket listens, NO when the set-up fails: no path, a path of 104
    /// UTF-16 units or more (refused before any socket is made), or socket(), bind() or listen()
    /// failed. A stale socket file at the path is removed first.
    bool start();

    /// Writes the text once to every accepted peer, in the order they were accepted, never waiting
    /// for one (see above). Answers NO when there is no listening socket or no peer; otherwise YES,
    /// whatever the writes did. Each peer's outcome is logged once it is known. A text whose UTF-8
    /// form has 65,535 bytes or more is not sent whole (nothing of it goes).
    bool send(const std::optional<std::string> &message);

    /// Stops accepting, closes the listening socket, and closes every accepted connection once
    /// what was sent to it has gone (at most 3 seconds later). Answers NO, touching nothing, when
    /// there is no listening socket.
    bool end();

    /// Serves an accepted descriptor as one of the server's peers, on the I/O thread; the
    /// descriptor is the server's from then on. Returns at once.
    void connectionProcessFunc(int fd);

    /// The socket's path (copied). Set it before start().
    std::optional<std::string> socketPath() const;
    /// Sets the path (copied).
    void setSocketPath(const std::optional<std::string> &socketPath);

    /// The receiver of the text read (weak: it is never kept alive by the server).
    std::shared_ptr<ySocketDelegate> delegate() const;
    /// Sets the receiver of the text read (held weakly).
    void setDelegate(const std::weak_ptr<ySocketDelegate> &delegate);

    ySocketServerImpl_SDK(const ySocketServerImpl_SDK &) = delete;
    ySocketServerImpl_SDK &operator=(const ySocketServerImpl_SDK &) = delete;

    /// The server's state, inside the SDK.
    struct YM_HIDDEN Impl;

private:
    YM_HIDDEN ySocketServerImpl_SDK();
    std::unique_ptr<Impl> _impl;
};
