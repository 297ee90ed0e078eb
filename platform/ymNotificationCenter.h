// The distributed notification centre: notifications posted by one process of the user reach
// observers of the same name in every process (the poster's included), on the session bus.
//
// On the wire a notification is one D-Bus signal, interface "com.yumocorp.DistributedNotification",
// member "Notification", path "/com/yumocorp/DistributedNotificationCenter", with the arguments
// (s name, a{sv} userInfo); the user information's values are strings. Observers subscribe with a
// match rule on the name (arg0), so the bus hands each process only what it observes.
//
// Observers are called on the main loop (ymMainLoop), in the order the notifications arrived.
// Posting works from any thread.
//
// The session bus is connected only once it is needed (the first post, observation or
// isConnected()), on the SDK's I/O thread, which serves the connection from then on: no caller
// ever drives the bus. A handshake that has not finished within a second is given up and counts as
// no bus; a caller waits for it at most that second, and only while the bus is believed to answer
// (at first, and again once it has answered): a frozen or absent bus costs the first call at most a
// second, and the calls after it nothing. Without a bus, posts are dropped and observers not
// called; nothing fails. Attempts are made again with a back-off (from a second, doubling up to
// thirty, with jitter) while there are observers, and at once on demand when the last attempt is
// older than the back-off; once a bus is there again every observer hears from it as before. A
// connection nobody observes is let go after a few quiet seconds (and made again on demand), so
// that a process that no longer uses the notifications keeps no descriptor and no I/O thread.
//
// Each process has a centre of its own: in the child of a fork the parent's connection and
// observers are left alone (never used, never released), and the child connects afresh on first use.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "platform/ymMutex.h"

class ymNotificationCenter {
public:
    using UserInfo = std::map<std::string, std::string>;
    using Observer = std::function<void(const std::string &name, const UserInfo &userInfo)>;

    // The process-wide centre. Connects to the session bus on first need, not when made.
    static ymNotificationCenter &defaultCenter();

    // Calls the observer for every notification of that name from now on (while there is a bus):
    // when it returns, the bus has taken the subscription, unless the bus has not answered in time.
    // Answers a token for removeObserver().
    uint64_t addObserver(const std::string &name, Observer observer);

    // Stops the observer; unknown tokens are ignored. Once it returns the observer is not called
    // again; a call of it under way on another thread (the main loop's) is waited for, never one
    // on the calling thread itself.
    void removeObserver(uint64_t token);

    // Posts the notification. A missing user information goes out as an empty one.
    void post(const std::string &name, const std::optional<UserInfo> &userInfo);

    // True when the centre has a session-bus connection now. Asks for one as a post would.
    bool isConnected();

    ymNotificationCenter(const ymNotificationCenter &) = delete;
    ymNotificationCenter &operator=(const ymNotificationCenter &) = delete;

    struct State;

private:
    ymNotificationCenter() = default;
    ~ymNotificationCenter() = delete;
    // This process's state, made on first use in each process.
    State &state();
    std::atomic<State *> _state{nullptr};
    ymMutex _making;
};
