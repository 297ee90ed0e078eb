// Per-thread objects that code running while a thread or the process ends can still ask for.
//
// A plain thread_local object is destroyed when its thread ends, and a destructor that runs
// after that on the same thread (a facade released at exit that still writes a log line) would
// use the destroyed object. Here the thread keeps only a pointer, which stays valid to the very
// end: once the object is freed the pointer is cleared, and later callers get nullptr and do
// without.
#pragma once

template <typename T>
T *ymThreadLocalInstance()
{
    struct Slot {
        T *instance = nullptr;
        bool finished = false;
    };
    // Trivially destructible: readable until the thread is gone.
    thread_local Slot slot;
    if (slot.finished)
        return nullptr;
    if (!slot.instance) {
        slot.instance = new T();
        struct Reaper {
            Slot *owner;
            ~Reaper()
            {
                delete owner->instance;
                owner->instance = nullptr;
                owner->finished = true;
            }
        };
        thread_local Reaper reaper{&slot};
        (void)reaper;
    }
    return slot.instance;
}
