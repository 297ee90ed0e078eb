// What the I/O loop's sources share, inside the platform layer: the sd-event loop of the I/O
// thread, and a base that frees (and so silences) an sd-event source with the object.
#pragma once

#include <memory>
#include <utility>
#include <systemd/sd-event.h>

#include "platform/ymGuarded.h"

// The I/O thread's sd-event loop, on the I/O thread; null elsewhere (and when it could not be made).
sd_event *ymIOLoopEvent();

// Runs a handler on the I/O thread; whatever it throws is caught and logged, never let through.
template <typename Body>
void ymIOLoopGuarded(const char *what, Body &&body) noexcept
{
    ymGuarded("ymIOLoop", what, std::forward<Body>(body));
}

// What the sources share: the sd-event source, freed (and so silenced) with the object. The
// handler is held by a shared pointer that each call copies first, so that a handler that destroys
// its own source finishes with its captures intact.
template <typename Handler>
class ymIOLoopSourceOf {
protected:
    explicit ymIOLoopSourceOf(Handler handler) : _handler(std::make_shared<Handler>(std::move(handler))) {}
    ~ymIOLoopSourceOf() { sd_event_source_disable_unref(_source); }
    std::shared_ptr<Handler> handler() const { return _handler; }
    sd_event_source *_source = nullptr;

private:
    std::shared_ptr<Handler> _handler;
};
