// Starting a detached thread without letting a failure escape as an exception: when the system
// cannot make another thread, the caller is told and goes on.
#pragma once

#include <system_error>
#include <thread>
#include <utility>

template <typename Body>
bool ymDetachThread(Body &&body) noexcept
{
    try {
        std::thread(std::forward<Body>(body)).detach();
        return true;
    } catch (const std::system_error &) {
        return false;
    }
}
