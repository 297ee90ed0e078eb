/// @file
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

#include "ymBase.h"

/// ymMainLoop: the SDK's main loop, where every answer reaches the companion.
///
/// Messages from the meeting client and its host process arrive on the SDK's own I/O thread; the
/// SDK posts each whole message to this loop, and the companion's delegate is called on the thread
/// that runs it, in the order the messages arrived: also when a callback runs the loop itself (to
/// wait for an answer), which then goes on with the next delivery in order. The loop is an sd-event
/// loop of the SDK's own.
///
/// Run it in one of two ways, from the thread that should receive the callbacks (normally main):
///
/// 1. Let the SDK run it:
/// ymMainLoop::shared().run();                  // until stop()
/// ymMainLoop::shared().runFor(std::chrono::seconds(5));
/// ymMainLoop::shared().runUntil([&] { return answered; }, std::chrono::seconds(2));
///
/// 2. Hook it into your own loop (poll, epoll, GLib, Qt, ...): watch fileDescriptor() for
/// readability, and whenever it is readable call dispatch(). For example with poll(2):
/// struct pollfd p = { ymMainLoop::shared().fileDescriptor(), POLLIN, 0 };
/// while (poll(&p, 1, -1) >= 0) ymMainLoop::shared().dispatch();
/// With GLib: g_unix_fd_add(fd, G_IO_IN, callback that calls dispatch() and returns TRUE).
/// The descriptor is sd-event's (sd_event_get_fd): level-triggered, readable while anything is
/// ready; no timer needs arming. One dispatch() runs a bounded batch (64 queued items at most):
/// when more is left, the descriptor stays readable, so a flood of messages never keeps your loop
/// from its other work.
///
/// Work nobody dispatches waits in the queue; nothing is dropped. (The SDK's I/O thread stops
/// reading a connection whose deliveries wait here beyond 1 MiB, and reads it again as you
/// dispatch: a peer that floods cannot fill the companion's memory.)
///
/// Whatever a callback throws is caught and logged; the deliveries after it go on.
///
/// In the child of a fork the loop starts afresh on first use, with a descriptor of its own.
class YM_EXPORT ymMainLoop {
public:
    /// The process-wide loop. Created on first use and never destroyed.
    static ymMainLoop &shared();

    /// Queues work to run on the loop's thread after everything queued before it. Any thread may
    /// call it; it never blocks on the loop.
    void post(std::function<void()> work);

    /// A descriptor that polls readable while there is something to dispatch. Never closed (in a
    /// child of a fork, the child has one of its own). -1 when no loop could be made.
    int fileDescriptor() const;

    /// Runs what is ready now (queued work, at most 64 items, and the sources) without waiting, on
    /// the calling thread. Answers the number of queued items that ran. Safe to call from inside a
    /// callback: it goes on with the next queued item.
    size_t dispatch();

    /// Runs the loop on the calling thread until `done` answers true (tested after each round),
    /// stop() is called, or the time is up. Answers the last answer of `done`.
    bool runUntil(const std::function<bool()> &done, std::chrono::milliseconds timeout);

    /// Runs the loop for the given time (or until stop()).
    void runFor(std::chrono::milliseconds duration);

    /// Runs the loop until stop() is called.
    void run();

    /// Makes run(), runFor() and runUntil() return after the current round. Any thread.
    void stop();

    /// Something besides the queue that the loop serves: a descriptor to watch and what to do
    /// when it is ready. Its descriptor, events and timeout are asked before every wait.
    class Source {
    public:
        virtual ~Source();
        /// The descriptor to watch, -1 for none. It may change from one dispatch to the next.
        virtual int fileDescriptor() const = 0;
        /// poll(2) events to wait for now (POLLIN, POLLOUT).
        virtual short pollEvents() const = 0;
        /// Milliseconds until the source wants to be dispatched anyway; -1 for no limit.
        virtual int timeoutMilliseconds() const { return -1; }
        /// Handles whatever is ready, without blocking.
        virtual void dispatch() = 0;
    };
    /// Serves the source from now on, on the loop's thread.
    void addSource(const std::shared_ptr<Source> &source);

    ymMainLoop(const ymMainLoop &) = delete;
    ymMainLoop &operator=(const ymMainLoop &) = delete;

private:
    YM_HIDDEN ymMainLoop();
    ~ymMainLoop() = delete;
    struct YM_HIDDEN State;
    YM_HIDDEN State &state();
    State *_state;
};
