// Where the plain C functions keep what they answer: per thread and per function, valid until the
// same function is called again on the same thread (the SDK's stand-in for an autoreleased
// answer).
#pragma once

#include <memory>

#include "platform/ymFork.h"
#include "platform/ymThreadLocal.h"

// The calling thread's object of type T. A call made while the thread ends, after its storage is
// gone, gets an object of its own that is kept, reachable, for the rest of the process.
template <typename T>
T &ymAnswerStorage()
{
    if (T *kept = ymThreadLocalInstance<T>())
        return *kept;
    auto late = std::make_shared<T>();
    ymFork::abandon(late);
    return *late;
}
