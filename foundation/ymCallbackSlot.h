// A companion's callback, set on any thread and called on the main loop: once a call that replaces
// or removes it returns, the old callback is never called again, also in the middle of a batch of
// deliveries. A replacement from another thread while the old callback runs waits for that call to
// return (so that the companion may free what the old one used as soon as it has replaced it); on
// the calling thread itself (inside the callback) it does not wait.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/ymMutex.h"
#include "platform/ymNSLog.h"

class ymCallsUnderWay {
public:
    // Begins a call when `available` says there is something to call; answers whether it began.
    // The caller calls end() after the call.
    template <typename Available>
    bool begin(std::unique_lock<ymMutex> &guard, Available available)
    {
        (void)guard;
        if (!available())
            return false;
        if (_calls++ == 0)
            _caller = std::this_thread::get_id();
        return true;
    }
    void end(std::unique_lock<ymMutex> &guard)
    {
        (void)guard;
        if (--_calls == 0)
            _idle.notify_all();
    }
    // After a change: waits until no call of the old callback is under way, unless this thread is
    // the one calling it.
    void settle(std::unique_lock<ymMutex> &guard)
    {
        _idle.wait(guard, [&] { return _calls == 0 || _caller == std::this_thread::get_id(); });
    }

private:
    int _calls = 0;
    std::thread::id _caller;
    std::condition_variable_any _idle;
};

template <typename Callback>
class ymCallbackSlot {
public:
    // Replaces the callback (an empty one removes it); see above.
    void set(Callback callback)
    {
        Callback old;
        {
            std::unique_lock<ymMutex> guard(_lock);
            old = std::exchange(_callback, std::move(callback));
            _underWay.settle(guard);
        }
        // `old` goes here, outside the lock: what it holds may take locks of its own.
    }

    bool isSet()
    {
        std::lock_guard<ymMutex> guard(_lock);
        return static_cast<bool>(_callback);
    }

    // Calls the callback set now with the arguments; answers whether there was one.
    template <typename... Arguments>
    bool call(Arguments &&...arguments)
    {
        Callback current;
        {
            std::unique_lock<ymMutex> guard(_lock);
            if (!_underWay.begin(guard, [&] { return static_cast<bool>(_callback); }))
                return false;
            current = _callback;
        }
        struct Ending {
            ymCallbackSlot &slot;
            ~Ending()
            {
                std::unique_lock<ymMutex> guard(slot._lock);
                slot._underWay.end(guard);
            }
        } ending{*this};
        ymNSLogUnbatched unbatched;  // the callback is the companion's
        current(std::forward<Arguments>(arguments)...);
        return true;
    }

private:
    ymMutex _lock;
    Callback _callback;
    ymCallsUnderWay _underWay;
};
