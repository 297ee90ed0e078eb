/// @file
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "ySocketDelegate.h"
#include "ymBase.h"

/// ySocketClientImpl_SDK: the connecting end of the local socket transport.
///
/// The client's socket is served by the SDK's I/O thread (one per process): it connects there,
/// reads there, and hands each whole message it reads to the delegate there (see
/// ySocketDelegate). send() writes on the caller's thread when the socket takes the text at once,
/// and otherwise leaves the rest to the I/O thread; texts from several threads go out whole and in
/// order. When there is no connection, send() first asks for one attempt and waits for its outcome.
///
/// The connection comes back by itself: from the first attempt on (connect() or send()) until
/// disconnect(), a client whose peer went away, or that could not connect, connects again as soon
/// as a peer listens on its path again. It is woken by the socket being made again in its folder,
/// not by polling: with nobody listening, it does not wake at all. (The transport the meeting
/// client and its companions share re-opens a connection only on the next send.)
///
/// Writes never raise SIGPIPE: a write to a peer that has gone is a failed write, and a failed
/// write of a non-empty text still answers YES.
///
/// Bounded waits: send() waits at most 4 seconds for a connection attempt (a connect to a full
/// listen queue is given 3 of them). What the peer does not take at once is queued (16 MiB at most)
/// and written as it reads; a sender that finds the queue full waits for room while the peer takes
/// something. Only a peer that has taken nothing for 3 seconds loses the texts it has not begun
/// (failed writes), and until it has taken what is queued, further texts fail at once: a text
/// never fails for waiting behind others. A caller's thread is never held longer by a meeting
/// client that is stopped.
///
/// A peer that accepts the connection and closes it at once is connected to again after a pause
/// that doubles from 50 ms to 2 s, with jitter.
///
/// Releasing the client (or disconnect()) closes its socket, once what was already sent has gone
/// (or the peer has taken nothing for 3 seconds), and ends its watches: it leaves no thread and no
/// descriptor behind. In the child of a fork the client connects anew (the parent's connection is
/// never used there) on its first send or connect().
///
/// Threads: every method may be called from any thread; the delegate is called on the I/O thread.
class YM_EXPORT ySocketClientImpl_SDK : public std::enable_shared_from_this<ySocketClientImpl_SDK> {
public:
    /// A new, unconnected client.
    static std::shared_ptr<ySocketClientImpl_SDK> create();

    /// Disconnects (see disconnect()).
    ~ySocketClientImpl_SDK();

    /// Makes one connection attempt on the I/O thread and waits for its outcome (4 seconds at
    /// most; on the I/O thread it does not wait). Does nothing but log when already connected.
    /// Fails (logging why) when the path is missing, has 104 UTF-16 units or more, or nobody
    /// listens on it; the client then connects by itself once somebody does.
    void connect();

    /// Writes the text once. When not connected, first makes one connection attempt and waits for
    /// it (4 seconds at most); answers NO when that fails or does not end in time. Answers NO for
    /// a missing or empty text. Otherwise YES when the text had bytes to send, whatever became of
    /// them; for a text that converts to no bytes (65,535 bytes of UTF-8 or more), YES unless the
    /// connection could take nothing at all.
    bool send(const std::optional<std::string> &message);

    /// Closes the socket when it is open (once what was sent has gone, at most 3 seconds later)
    /// and stops connecting again by itself, until the next connect() or send().
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
