// A zeroing weak reference that one thread may read while another sets it, as the delegates of
// the transport are: set on the caller's thread, read on reader threads.
#pragma once

#include <memory>
#include <mutex>

#include "platform/ymMutex.h"

template <typename T>
class ymWeakReference {
public:
    std::shared_ptr<T> get() const
    {
        std::lock_guard<ymMutex> guard(_lock);
        return _reference.lock();
    }

    void set(std::weak_ptr<T> reference)
    {
        std::lock_guard<ymMutex> guard(_lock);
        _reference = std::move(reference);
    }

private:
    mutable ymMutex _lock;
    std::weak_ptr<T> _reference;
};
