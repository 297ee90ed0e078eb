// Mutexes that a fork cannot leave locked.
//
// A thread of the parent may hold a lock at the instant another thread forks; in the child that
// thread does not exist, and a plain mutex stays locked for ever. These register themselves, and in
// the child of every fork each is made unlocked again before fork() returns. What it guarded may
// be half changed: the SDK abandons its process-bound state in the child anyway (ymFork.h), and
// keeps everything else consistent at every unlock of a short critical section.
//
// Use them as std::mutex and std::recursive_mutex (lock_guard, unique_lock, condition_variable_any).
#pragma once

#include <mutex>
#include <new>

// One entry of the registry of mutexes renewed in the child of a fork.
class ymMutexRegistration {
public:
    using Renew = void (*)(void *lock);
    // Registers the lock; `renew` makes it anew, unlocked, in the child of a fork.
    ymMutexRegistration(Renew renew, void *lock);
    ~ymMutexRegistration();
    ymMutexRegistration(const ymMutexRegistration &) = delete;
    ymMutexRegistration &operator=(const ymMutexRegistration &) = delete;

private:
    friend struct ymMutexRegistry;
    Renew _renew;
    void *_lock;
    ymMutexRegistration *_previous = nullptr;
    ymMutexRegistration *_next = nullptr;
};

template <typename Lock>
class ymForkSafe {
public:
    ymForkSafe() = default;
    void lock() { _lock.lock(); }
    bool try_lock() { return _lock.try_lock(); }
    void unlock() { _lock.unlock(); }
    ymForkSafe(const ymForkSafe &) = delete;
    ymForkSafe &operator=(const ymForkSafe &) = delete;

private:
    // The child has one thread. A lock it can take is free (or, recursive, its own): it is left as it
    // is. One it cannot take was held by a thread that is not there: it is made anew in place.
    static void renew(void *lock)
    {
        Lock *held = static_cast<Lock *>(lock);
        if (held->try_lock()) {
            held->unlock();
            return;
        }
        new (lock) Lock();
    }
    Lock _lock;
    ymMutexRegistration _registration{&ymForkSafe::renew, &_lock};  // made after the lock, gone before it
};

using ymMutex = ymForkSafe<std::mutex>;
using ymRecursiveMutex = ymForkSafe<std::recursive_mutex>;
