/// @file
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "ySocketDelegate.h"
#include "ymBase.h"

/// ySocketServerImpl_SDK: the listening end of the local socket transport.
///
/// It binds a Unix-domain stream socket at a path, accepts any number of peers, reads each peer on
/// a thread of its own and hands what arrives to its delegate (see ySocketDelegate), and broadcasts
/// outgoing text to every peer at once. It knows nothing of the message content.
///
/// Threads: start() runs the accept loop on the thread that calls it and never returns once the
/// socket listens, not even after end(): from then on every accept fails and the loop keeps
/// logging "accept error, discard!". Each accepted peer gets a detached reader thread, which calls
/// the delegate (so different peers call it at the same time). send() and end() may come from any
/// thread. The accept thread and the reader threads keep the object alive while they run.
///
/// Writes never raise SIGPIPE: a write to a peer that has gone is a failed write.
///
/// Bounded waits: a write to a peer that does not read waits at most 3 seconds and then counts as
/// the failed write it is ("partial write!"); until that peer takes a whole text again, writes
/// to it do not wait at all. So one peer that stops reading holds a broadcast once, for 3 seconds,
/// and never stops the server answering the others. (The original transport waited without
/// limit.)
class YM_EXPORT ySocketServerImpl_SDK : public std::enable_shared_from_this<ySocketServerImpl_SDK> {
public:
    /// A new server without a socket. Servers live in shared pointers: their threads hold them.
    static std::shared_ptr<ySocketServerImpl_SDK> create();

    /// Ends the server (see end()).
    ~ySocketServerImpl_SDK();

    /// Makes, binds and listens on the socket, then accepts peers for ever on the calling thread.
    /// Returns only when the set-up fails, and then answers NO: no path, a path of 104 UTF-16
    /// units or more (refused before any socket is made), or socket(), bind() or listen() failed.
    /// A stale socket file at the path is removed first. Run it on a thread of its own.
    bool start();

    /// Writes the text once to every accepted peer, in the order they were accepted (at most 3
    /// seconds for a peer that does not read). Answers NO when there is no listening socket or no
    /// peer; otherwise YES, whatever the writes did.
    /// A text whose UTF-8 form has 65,535 bytes or more is not sent whole (see ySocketFraming).
    bool send(const std::optional<std::string> &message);

    /// Closes the listening socket and every accepted connection. Answers NO, touching nothing,
    /// when there is no listening socket. The reader threads then finish by themselves.
    bool end();

    /// Body of the reader thread of one accepted connection.
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
