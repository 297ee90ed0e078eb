// A shared object bound to the process that made it: in the child of a fork it is abandoned whole
// (never used, never destroyed, none of its descriptors touched) and a fresh one takes its place
// on first use, made from what the old one says (a path, a delegate) but from nothing it holds.
//
// Asking for the object costs two loads when nothing has forked: it is handed out by reference,
// valid for as long as its owner lives (an abandoned one lives for ever).
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "platform/ymFork.h"
#include "platform/ymMutex.h"

template <typename T>
class ymProcessBound {
public:
    explicit ymProcessBound(std::shared_ptr<T> made = nullptr)
    {
        if (made)
            _entry.store(new Entry{std::move(made), ymFork::generation()}, std::memory_order_release);
    }

    // The object of this process. `make(const T *before)` makes it when there is none yet (before
    // is null), and in a child, from the abandoned one.
    template <typename Make>
    T &get(Make make)
    {
        Entry *entry = _entry.load(std::memory_order_acquire);
        if (entry && entry->generation == ymFork::generation())
            return *entry->object;
        std::lock_guard<ymMutex> guard(_lock);
        entry = _entry.load(std::memory_order_acquire);
        if (entry && entry->generation == ymFork::generation())
            return *entry->object;
        auto *fresh = new Entry{make(entry ? entry->object.get() : nullptr), ymFork::generation()};
        _entry.store(fresh, std::memory_order_release);
        // The parent's is kept for ever, untouched: its destructor would act on the parent's behalf.
        if (entry)
            ymFork::abandon(std::shared_ptr<Entry>(entry));
        return *fresh->object;
    }

    // The object when it is this process's, else null (nothing is made): for clean-up.
    T *ifCurrent() const
    {
        Entry *entry = _entry.load(std::memory_order_acquire);
        return entry && entry->generation == ymFork::generation() ? entry->object.get() : nullptr;
    }

    ~ymProcessBound()
    {
        Entry *entry = _entry.load(std::memory_order_acquire);
        if (!entry)
            return;
        if (entry->generation == ymFork::generation())
            delete entry;
        else
            ymFork::abandon(std::shared_ptr<Entry>(entry));  // the parent's: not destroyed here
    }

    ymProcessBound(const ymProcessBound &) = delete;
    ymProcessBound &operator=(const ymProcessBound &) = delete;

private:
    struct Entry {
        std::shared_ptr<T> object;
        uint64_t generation;
    };
    ymMutex _lock;
    std::atomic<Entry *> _entry{nullptr};
};
