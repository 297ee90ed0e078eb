// The meeting client, watched: one snapshot (ymClientSnapshot) serves every command for as long as
// nothing it depends on has changed, and companions hear of the client coming and going.
//
// A command asks current(). The snapshot it gets is the last one taken, unless since then anything
// changed in a folder it depends on (the candidates' folders, the defaults domain's, the bundle and
// its Contents: one read of a watch descriptor tells), a process of the client ended (one poll of
// its pidfd), or, while none runs, a process of the client appeared in the process table; then a
// fresh one is taken. A client installed, updated, moved, started or quit before a command is seen
// by that command: the kernel records the change before the call that made it returns.
//
// Observers hear, on the main loop (ymMainLoop), each change of what a companion cares about: the
// client installed or removed, moved, started or quit, or its version changed. While there are
// observers the I/O thread (ymIOLoop) waits on the same descriptors and reacts at once; an exec of
// the client's executable is seen through its folder, and while no client runs the process table
// is looked at again once a minute (for a client started from a bundle elsewhere).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "common/ymClientSnapshot.h"

class ymClientWatch {
public:
    // The process-wide watch. Never destroyed.
    static ymClientWatch &shared();

    // The meeting client now (see above). Any thread.
    std::shared_ptr<const ymClientSnapshot> current();

    // Called on the main loop with the client as it is now and as it was before the change.
    using Observer = std::function<void(const ymClientSnapshot &now, const ymClientSnapshot &before)>;
    // Calls the observer for every change from now on. Answers a token for removeObserver().
    uint64_t addObserver(Observer observer);
    // Stops the observer; unknown tokens are ignored.
    void removeObserver(uint64_t token);

    ymClientWatch(const ymClientWatch &) = delete;
    ymClientWatch &operator=(const ymClientWatch &) = delete;

    struct State;

private:
    ymClientWatch();
    ~ymClientWatch() = delete;
    std::shared_ptr<State> _state;
};
