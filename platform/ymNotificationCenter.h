// The distributed notification centre: notifications posted by one process of the user reach
// observers of the same name in every process (the poster's included), on the session bus.
//
// On the wire a notification is one D-Bus signal, interface "com.yumocorp.DistributedNotification",
// member "Notification", path "/com/yumocorp/DistributedNotificationCenter", with the arguments
// (s name, a{sv} userInfo); the user information's values are strings. Observers subscribe with a
// match rule on the name (arg0), so the bus hands each process only what it observes.
//
// Observers are called on the main loop (ymMainLoop), in the order the notifications arrived.
// Posting works from any thread. Without a session bus, posts are dropped and observers not
// called; nothing fails. A bus that goes away (its daemon ends) is let go; the centre tries to
// connect again every second (from the main loop, and before a post), and once a bus is there
// again every observer hears from it as before.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

class ymNotificationCenter {
public:
    using UserInfo = std::map<std::string, std::string>;
    using Observer = std::function<void(const std::string &name, const UserInfo &userInfo)>;

    // The process-wide centre; connects to the session bus on first use.
    static ymNotificationCenter &defaultCenter();

    // Calls the observer for every notification of that name from now on (while there is a bus).
    // Answers a token for removeObserver().
    uint64_t addObserver(const std::string &name, Observer observer);

    // Stops the observer; unknown tokens are ignored.
    void removeObserver(uint64_t token);

    // Posts the notification. A missing user information goes out as an empty one.
    void post(const std::string &name, const std::optional<UserInfo> &userInfo);

    // True when the centre has a session-bus connection now.
    bool isConnected();

    ymNotificationCenter(const ymNotificationCenter &) = delete;
    ymNotificationCenter &operator=(const ymNotificationCenter &) = delete;

    struct State;

private:
    ymNotificationCenter();
    ~ymNotificationCenter() = delete;
    State *_state;
};
