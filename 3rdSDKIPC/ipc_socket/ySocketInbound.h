// What a connection has read and handed on, but the companion has not yet taken: the inbound side
// of the transport's pressure.
//
// A connection reads on the I/O thread and hands each message to its owner there; the channel
// queues the delivery for the main loop. Each delivery queued carries a Charge for its bytes,
// taken from the Budget of the connection it came from, and given back when the delivery has run
// (or has been dropped). Past its limit a connection stops reading (the peer feels the socket's
// pressure); it is asked to read again once the companion has taken half of it back.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>

class ySocketInbound {
public:
    // What one connection may have waiting for the main loop before it stops reading.
    static constexpr size_t kPendingLimit = 1024 * 1024;

    class Budget {
    public:
        // `resume` is called (on whichever thread gives a charge back) once a connection that
        // stopped reading may read again; it must only post work to the I/O thread.
        explicit Budget(std::function<void()> resume) : _resume(std::move(resume)) {}
        // I/O thread: true when the connection should stop reading now (it then waits for resume).
        bool overLimit();
        size_t pending() const { return _pending.load(std::memory_order_relaxed); }

    private:
        friend class ySocketInbound;
        void give(size_t bytes);
        void giveBack(size_t bytes);
        std::atomic<size_t> _pending{0};
        std::atomic<bool> _stopped{false};
        std::function<void()> _resume;
    };

    // Held by a queued delivery; gives its bytes back when destroyed.
    class Charge {
    public:
        Charge(std::shared_ptr<Budget> budget, size_t bytes);
        ~Charge();
        Charge(const Charge &) = delete;
        Charge &operator=(const Charge &) = delete;

    private:
        std::shared_ptr<Budget> _budget;
        size_t _bytes;
    };

    // I/O thread: while it lives, messages handed on are charged to the budget.
    class Handing {
    public:
        explicit Handing(const std::shared_ptr<Budget> &budget);
        ~Handing();
        Handing(const Handing &) = delete;
        Handing &operator=(const Handing &) = delete;

    private:
        const std::shared_ptr<Budget> *_previous;
    };

    // A charge for a message being handed on now, on the I/O thread; null when the message does
    // not come from a connection (nothing is charged then).
    static std::shared_ptr<Charge> charge(size_t bytes);
};
