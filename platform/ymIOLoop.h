// The SDK's I/O thread: one per process, owned by the SDK, on which every socket of the transport is
// served (connecting, reading, writing, accepting) together with the watches on the file system.
//
// The thread, named "yumosdk-io", starts when the first Use is taken (or work is posted) and ends
// once the last Use has gone and no posted work is left; a later Use starts it again. Between events
// it sleeps: nothing here wakes it on a timer unless a Timer asks.
//
// Sources (Descriptor, Timer, DirectoryWatch) are made, changed and destroyed on the
// I/O thread only, and call back on it; a source that is destroyed calls back no more, even when
// it is destroyed from inside its own callback. An object that owns sources destroys them in work
// it runs on the I/O thread, and keeps a Use for as long as it has any. Work posted from other
// threads holds what it needs by weak reference, or by a strong one it gives up when it has run.
// Nothing a handler or posted work throws leaves the I/O thread: it is logged and dropped.
//
// In the child of a fork the loop starts afresh on first use: the parent's thread, queue and
// descriptors are left alone there (sources made in the parent are never served in the child).
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

class ymIOLoop {
public:
    // The process-wide loop. Created on first use and never destroyed.
    static ymIOLoop &shared();

    // Keeps the I/O thread running while it lives (starting it when needed).
    class Use {
    public:
        Use();
        ~Use();
        // False when no thread could be started: nothing will be served.
        bool running() const { return _running; }
        Use(const Use &) = delete;
        Use &operator=(const Use &) = delete;

    private:
        uint64_t _generation;  // a Use the parent took does not count in a child
        bool _running;
    };

    // Queues work for the I/O thread, to run after everything posted before it. Any thread.
    // Answers false, dropping the work, when no thread could be started.
    bool post(std::function<void()> work);

    // Runs the work on the I/O thread and waits until it has run, at most `limit`; on the I/O thread
    // itself it runs at once. Answers false when it had not run in time (it still runs later) or
    // could not be queued at all.
    bool runAndWait(std::function<void()> work, std::chrono::milliseconds limit);

    // True on the I/O thread.
    static bool onIOThread();

    // A descriptor watched for reading, and for writing while asked. The descriptor stays the
    // caller's to close, after the watch has been destroyed.
    class Descriptor {
    public:
        // readable, writable, and hangup (the peer closed, or an error is pending).
        using Handler = std::function<void(bool readable, bool writable, bool hangup)>;
        // Null when the descriptor cannot be watched.
        static std::unique_ptr<Descriptor> watch(int fd, Handler handler);
        virtual ~Descriptor() = default;
        // Watches for writability too, or no more.
        virtual void setWritable(bool writable) = 0;
        // Watches for readability (as at first), or no more: the peer then feels the socket's
        // pressure. A hangup is told whatever is watched.
        virtual void setReadable(bool readable) = 0;
    };

    // Calls back once, after the delay; destroying it first cancels it. `slack` lets the wake-up be
    // moved later by that much, so that timers of the process and of other processes share it.
    class Timer {
    public:
        static std::unique_ptr<Timer> after(std::chrono::milliseconds delay, std::function<void()> handler,
                                            std::chrono::milliseconds slack = std::chrono::milliseconds(1));
        virtual ~Timer() = default;
    };

    // Calls back with the name of every entry created in the folder or moved into it, and with
    // nullptr once the folder itself has gone (removed or moved away): the watch has then ended.
    // When the kernel lost events (its queue overflowed), every entry the folder holds is told.
    // Where no inotify instance or watch can be had, the folder is looked at every second or so
    // instead (a stat, and a read only when it changed; an entry is told when it is new or its
    // inode is), and inotify is tried again at each look.
    class DirectoryWatch {
    public:
        using Handler = std::function<void(const char *name)>;
        // Null when the folder cannot be watched (it does not exist, say).
        static std::unique_ptr<DirectoryWatch> watch(const std::string &path, Handler handler);
        virtual ~DirectoryWatch() = default;
    };

    ymIOLoop(const ymIOLoop &) = delete;
    ymIOLoop &operator=(const ymIOLoop &) = delete;

    struct State;

private:
    ymIOLoop();
    ~ymIOLoop() = delete;
    // The state of this process: the child of a fork starts afresh (no thread, no descriptor of
    // the parent's), leaving the parent's untouched.
    State &state();
    std::atomic<State *> _state;
};
