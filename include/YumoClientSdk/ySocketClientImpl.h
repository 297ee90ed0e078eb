/// @file
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "ySocketDelegate.h"
#include "ymBase.h"

/// ySocketClientImpl_SDK: the connecting end of the local socket transport.
///
/// connect() runs on a thread of its own: it connects to the path, signals the outcome, and then
/// stays as the connection's reader, handing what it reads to the delegate (see ySocketDelegate)
/// until the peer closes. send() writes on the same socket; when there is no connection it starts
/// one fresh attempt on a new thread, waits for that attempt's outcome, and sends if it stood.
/// A connection the peer closes is re-opened only by the next send().
///
/// Writes never raise SIGPIPE: a write to a peer that has gone is a failed write, and since a
/// failed write of a non-empty text still answers YES, the caller learns of it only from the
/// next send(), which reconnects.
///
/// Bounded waits: a connect (to a server whose listen queue is full) and a write (to a server that
/// does not read) each wait at most 3 seconds, and then count as the failed connect or the failed
/// write they are; after a write that waited so, writes do not wait until the server takes a whole
/// text again. send() waits at most 4 seconds for a connection attempt, its own or another
/// sender's. A caller's thread is never held longer by a meeting client that is stopped. (The
/// original transport waited without limit.)
///
/// Threads: connect() runs on a thread of its own (the channel starts it); send() and disconnect()
/// may come from any thread at any time; the delegate is called on the connection's reader thread.
class YM_EXPORT ySocketClientImpl_SDK : public std::enable_shared_from_this<ySocketClientImpl_SDK> {
public:
    /// A new, unconnected client. Clients live in shared pointers: their reader threads hold them.
    static std::shared_ptr<ySocketClientImpl_SDK> create();

    /// Disconnects (see disconnect()).
    ~ySocketClientImpl_SDK();

    /// Thread body: connects, signals any send() waiting for the attempt, then reads until the
    /// connection ends. Does nothing but signal when already connected. Fails (logging why) when
    /// the path is missing, has 104 UTF-16 units or more, or nobody listens on it.
    void connect();

    /// Writes the text once. When not connected, first makes one connection attempt and waits for
    /// it (4 seconds at most); answers NO when that fails or does not end in time. Answers NO for a missing or empty text. Otherwise YES when
    /// the text had bytes to send, whatever the write did; for a text that converts to no bytes
    /// (65,535 bytes of UTF-8 or more), YES only when the empty write succeeded.
    bool send(const std::optional<std::string> &message);

    /// Closes the socket when it is open; the reader then finishes by itself.
    void disconnect();

    /// The server's socket path (copied). Set it before connect().
    std::optional<std::string> socketPath() const;
    /// Sets the path (copied).
    void setSocketPath(const std::optional<std::string> &socketPath);

    /// The receiver of the text read (weak: it is never kept alive by the client).
    std::shared_ptr<ySocketDelegate> delegate() const;
    /// Sets the receiver of the text read (held weakly).
    void setDelegate(const std::weak_ptr<ySocketDelegate> &delegate);

    ySocketClientImpl_SDK(const ySocketClientImpl_SDK &) = delete;
    ySocketClientImpl_SDK &operator=(const ySocketClientImpl_SDK &) = delete;

    /// The client's state, inside the SDK.
    struct YM_HIDDEN Impl;

private:
    YM_HIDDEN ySocketClientImpl_SDK();
    std::unique_ptr<Impl> _impl;
};
