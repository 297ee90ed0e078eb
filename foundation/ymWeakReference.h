// A zeroing weak reference that one thread may read while another sets it, as the delegates of
// the transport are: set on the caller's thread, read on reader threads. A receiver called through
// call() is never called again once set() has replaced it (see ymCallbackSlot.h).
#pragma once

#include <memory>
#include <mutex>

#include "foundation/ymCallbackSlot.h"
#include "platform/ymMutex.h"

template <typename T>
class ymWeakReference {
public:
    std::shared_ptr<T> get() const
    {
        std::lock_guard<ymMutex> guard(_lock);
        return _reference.lock();
    }

    std::weak_ptr<T> weak() const
    {
        std::lock_guard<ymMutex> guard(_lock);
        return _reference;
    }

    bool expired() const
    {
        std::lock_guard<ymMutex> guard(_lock);
        return _reference.expired();
    }

    // Replaces the receiver; a call of the old one under way on another thread is waited for.
    void set(std::weak_ptr<T> reference)
    {
        std::unique_lock<ymMutex> guard(_lock);
        _reference = std::move(reference);
        _underWay.settle(guard);
    }

    // Calls `use` with the receiver set now, if there is one that lives; answers whether it did.
    template <typename Use>
    bool call(Use use)
    {
        std::shared_ptr<T> receiver;
        {
            std::unique_lock<ymMutex> guard(_lock);
            if (!_underWay.begin(guard, [&] { return static_cast<bool>(receiver = _reference.lock()); }))
                return false;
        }
        struct Ending {
            const ymWeakReference &reference;
            ~Ending()
            {
                std::unique_lock<ymMutex> guard(reference._lock);
                reference._underWay.end(guard);
            }
        } ending{*this};
        ymNSLogUnbatched unbatched;  // the receiver is the companion's
        use(*receiver);
        return true;
    }

private:
    mutable ymMutex _lock;
    std::weak_ptr<T> _reference;
    mutable ymCallsUnderWay _underWay;
};
