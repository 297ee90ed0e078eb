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
// client installed or removed, moved, started or quit, or its version changed, in the order the
// changes were seen. While there are observers the I/O thread (ymIOLoop) waits on the same
// descriptors; it only notices that something changed, and asks the main loop to look (one look
// pending at most): the snapshot is taken there, never on the I/O thread, the observers are told,
// and the I/O thread then waits on what the new snapshot depends on. An exec of the client's
// executable is seen through its folder, and while no client runs the process table is looked at
// again once a minute (for a client started from a bundle elsewhere). A folder inotify cannot
// watch (none to be had) is looked at with stat every second or so, inotify is tried again each
// time, and meanwhile each look takes a fresh snapshot.
//
// The watch belongs to the process that made it: the child of a fork leaves the parent's
// descriptors and sources alone and starts afresh on first use.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "common/ymClientSnapshot.h"
#include "platform/ymProcessBound.h"

class ymClientWatch {
public:
    // The process-wide watch. Never destroyed.
    static ymClientWatch &shared();

    // The meeting client now (see above). Any thread; on the I/O thread the last snapshot is
    // answered as it is (none is taken there), and the main loop asked to look when something changed.
    std::shared_ptr<const ymClientSnapshot> current();

    // Called on the main loop with the client as it is now and as it was before the change.
    using Observer = std::function<void(const ymClientSnapshot &now, const ymClientSnapshot &before)>;
    // Calls the observer for every change from `since` (what its caller last saw of the client),
    // or from now when it is null. Answers a token for removeObserver().
    uint64_t addObserver(Observer observer, std::shared_ptr<const ymClientSnapshot> since = nullptr);
    // Stops the observer; unknown tokens are ignored.
    void removeObserver(uint64_t token);

    // Snapshots taken by this process so far (for tests: what a change cost).
    static uint64_t snapshotsTaken();

    ymClientWatch(const ymClientWatch &) = delete;
    ymClientWatch &operator=(const ymClientWatch &) = delete;

    struct State;

private:
    ymClientWatch();
    ~ymClientWatch() = delete;
    // This process's state, made on first use (again in the child of a fork).
    // This process's state, made on first use (in the child of a fork, afresh).
    State &stateHere();
    std::shared_ptr<State> state();
    ymProcessBound<State> _state;
};
