// One connected stream socket, served by the I/O thread (ymIOLoop): what it reads is split into
// messages (ySocketFraming) and handed to its owner; what is written to it goes out whole and in
// order, however many threads write.
//
// A text goes out at once, on the writer's thread, when nothing is queued before it and the socket
// takes it whole. Otherwise it is queued, and the I/O thread writes the queue as the peer takes it.
// A queue is given up only when its peer has taken nothing for the wait limit (no progress), never
// for waiting behind others: the texts not begun are dropped (failed writes), and until the queue
// has drained, further texts fail at once. A queue at its bound makes a writer wait for room, as
// long as the peer makes progress (on the I/O thread, which cannot wait, the text is queued past
// the bound). A text once begun is never cut off by a later one. Writes never raise SIGPIPE.
//
// Inbound, the messages read and not yet taken by the companion are bounded (ySocketInbound): past
// the bound the connection stops reading until the companion has caught up. Nothing thrown while a
// message is handed on leaves the I/O thread: the connection is then closed with a log line.
//
// A message the peer leaves unfinished for the wait limit, with nothing more arriving, is given up
// as not JSON (reading goes on from the next "{" inside it): a peer that broke off one message and
// then sent a whole one is heard at once, not only when it next writes. Texts given up are logged
// under the owner's reader name.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "3rdSDKIPC/ipc_socket/ySocketFraming.h"
#include "3rdSDKIPC/ipc_socket/ySocketInbound.h"
#include "platform/ymIOLoop.h"
#include "platform/ymMutex.h"

class ySocketConnection : public std::enable_shared_from_this<ySocketConnection>, ySocketFraming::Receiver {
public:
    // What the connection tells its owner, on the I/O thread.
    class Owner {
    public:
        virtual ~Owner() = default;
        // Every read, before the messages it completes.
        virtual void connectionRead(ySocketConnection &connection, long count, std::string_view chunk) = 0;
        // One whole message.
        virtual void connectionReceived(ySocketConnection &connection, const std::string &message) = 0;
        // The peer closed, or reading failed: the descriptor is closed now.
        virtual void connectionEnded(ySocketConnection &connection) = 0;
    };

    // On the I/O thread: serves the connected descriptor, which is the connection's from now on
    // (closed with it). Null, with the descriptor closed, when it cannot be watched.
    // `readerName` names the reading function in log lines, as the owner's other lines do.
    static std::shared_ptr<ySocketConnection> serve(int fd, std::weak_ptr<Owner> owner, const char *readerName);

    ~ySocketConnection() override;

    // The descriptor's number, for log lines (also once it is closed).
    int number() const { return _number; }

    enum class Written { whole, queued, failed };
    // Any thread: writes the bytes, or queues them (see above). With `waitForRoom`, a full queue
    // makes the writer wait while its peer takes something at least every wait limit; without (a
    // server's broadcast, which must not be held by one peer), the text then fails. For a queued
    // text, `done` is called on the I/O thread once it has gone whole (true) or been dropped (false).
    Written write(std::string_view bytes, std::function<void(bool whole)> done = nullptr, bool waitForRoom = true);

    // Any thread: takes no more texts and ends the connection once what is queued has gone (at
    // most the wait limit later). The owner hears nothing more of it.
    void close();

    ySocketConnection(const ySocketConnection &) = delete;
    ySocketConnection &operator=(const ySocketConnection &) = delete;

private:
    ySocketConnection(int fd, std::weak_ptr<Owner> owner, const char *readerName);

    struct Queued {
        std::string bytes;
        size_t sent = 0;
        std::function<void(bool)> done;
    };
    using Completions = std::vector<std::pair<std::function<void(bool)>, bool>>;

    // Runs the work on the I/O thread (at once when called there) while the connection is served.
    void onIOThread(void (*work)(ySocketConnection &self));

    // I/O thread.
    void ready(bool readable, bool writable, bool hangup);
    void readAvailable();
    void writeQueued(Completions &completions);
    void dropIfStalled(Completions &completions);
    void armTimer();
    void readAgain();
    // Under the lock: true while the queue is full and its peer still takes something.
    bool waitForRoom(std::unique_lock<ymMutex> &guard, size_t bytes);
    void watchUnfinished();
    void end(bool byPeer);
    void closeWhenFlushed();
    static void complete(Completions &completions);

    void messageSplit(std::string_view message) override;
    void textDropped(Dropped why, std::string_view text) override;

    // Guards the descriptor number and the queue: writers on any thread, the I/O thread writing
    // the queue, and the close.
    mutable ymMutex _lock;
    int _fd;
    std::deque<Queued> _queue;
    size_t _queuedBytes = 0;  // not yet sent
    std::chrono::steady_clock::time_point _lastProgress;  // the peer last took bytes (or the queue began)
    bool _stalled = false;  // the peer took nothing for the limit; nothing is taken until the queue drains
    std::condition_variable_any _room;  // writers waiting for a full queue to take them
    std::atomic<bool> _closing{false};
    const int _number;

    // I/O thread only.
    std::weak_ptr<Owner> _owner;
    ymIOLoop::Use _use;
    std::unique_ptr<ymIOLoop::Descriptor> _watch;
    std::unique_ptr<ymIOLoop::Timer> _timer;
    std::unique_ptr<ymIOLoop::Timer> _unfinished;  // set while the splitter holds part of a message
    ySocketFraming::Splitter _splitter;
    const char *_readerName;
    std::shared_ptr<ySocketConnection> _lingering;  // itself, while it flushes after close()
    std::shared_ptr<ySocketInbound::Budget> _inbound;
    bool _readingStopped = false;  // past the inbound bound: waits for the companion
};
