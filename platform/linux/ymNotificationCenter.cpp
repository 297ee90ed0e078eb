// The distributed notification centre on sd-bus, served by the SDK's I/O thread.
//
// The connection is made with sd_bus_start (which does not wait) and driven from the I/O thread:
// a watch on the bus's descriptor for the events it asks for, a timer for its own deadlines, and
// sd_bus_process in bounded rounds. A post is written on the poster's thread when the socket takes
// it (sd_bus_send writes at once when nothing is queued); what stays queued is written by the I/O
// thread once the socket is writable. sd-bus is not thread-safe: every use of the connection, its
// slots and its messages holds the state's lock, and so do the bus's callbacks (they run inside
// sd_bus_process).
#include "platform/ymNotificationCenter.h"

#include <YumoClientSdk/ymMainLoop.h>
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <poll.h>
#include <random>
#include <sys/stat.h>
#include <systemd/sd-bus.h>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "platform/ymFork.h"
#include "platform/ymIOLoop.h"
#include "platform/ymNSLog.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

const char *const kInterface = "com.yumocorp.DistributedNotification";
const char *const kMember = "Notification";
const char *const kObjectPath = "/com/yumocorp/DistributedNotificationCenter";

// A handshake not finished by then is given up, and counts as no bus. It is also the longest a
// caller waits, in all, for the bus.
constexpr Clock::duration kHandshakeLimit = std::chrono::seconds(1);
// The pause after a failed attempt: doubling from the first to the longest, with jitter.
constexpr Clock::duration kFirstBackOff = std::chrono::seconds(1);
constexpr Clock::duration kLongestBackOff = std::chrono::seconds(30);
// A connection whose socket has taken nothing of what waits to be written for this long is
// given up, as a bus that does not answer: what was queued is lost.
constexpr milliseconds kStallLimit = std::chrono::seconds(10);
// A connection nobody observes is let go once nothing has been posted for this long.
constexpr Clock::duration kQuietBeforeRelease = std::chrono::seconds(5);
// sd_bus_process calls per turn of the I/O thread; more waits for the next turn.
constexpr int kProcessRounds = 64;

// Tokens are unique in the process and in its children, so that a token of the parent's never
// names an observer made in a child.
std::atomic<uint64_t> nextToken{1};

// The bus's match rule for one notification name. The bus cannot match a value holding an
// apostrophe: for such a name the rule takes every notification, and the handler picks its own.
std::string matchRuleFor(const std::string &name)
{
    std::string rule = std::string("type='signal',interface='") + kInterface + "',member='" + kMember + "'";
    if (name.find('\'') == std::string::npos)
        rule += ",arg0='" + name + "'";
    return rule;
}

// The session bus's address, as sd_bus_open_user() would find it: $DBUS_SESSION_BUS_ADDRESS, else
// the socket "bus" in $XDG_RUNTIME_DIR.
std::optional<std::string> sessionBusAddress()
{
    const char *given = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (given && *given)
        return std::string(given);
    const char *runtime = std::getenv("XDG_RUNTIME_DIR");
    if (!runtime || *runtime != '/')
        return std::nullopt;
    std::string address = "unix:path=";
    for (unsigned char c : std::string(runtime) + "/bus") {
        if (std::isalnum(c) || std::strchr("-_/.\\*", c)) {
            address += static_cast<char>(c);
        } else {
            char escaped[4];
            std::snprintf(escaped, sizeof escaped, "%%%02x", c);
            address += escaped;
        }
    }
    return address;
}

milliseconds untilThen(Clock::time_point then)
{
    return std::max(std::chrono::ceil<milliseconds>(then - Clock::now()), milliseconds(0));
}

// A notification's arguments: (s name, a{sv} userInfo); values that are not strings are passed
// over. False when the message is not of that form.
bool readNotification(sd_bus_message *message, std::string &name, ymNotificationCenter::UserInfo &userInfo)
{
    // Every handler of the message reads it from the start.
    if (sd_bus_message_rewind(message, 1) < 0)
        return false;
    const char *text = nullptr;
    if (sd_bus_message_read_basic(message, 's', &text) < 0 || !text)
        return false;
    name = text;
    if (sd_bus_message_enter_container(message, 'a', "{sv}") <= 0)
        return false;
    int entered;
    while ((entered = sd_bus_message_enter_container(message, 'e', "sv")) > 0) {
        const char *key = nullptr;
        if (sd_bus_message_read_basic(message, 's', &key) < 0 || !key)
            return false;
        char type = 0;
        const char *contents = nullptr;
        if (sd_bus_message_peek_type(message, &type, &contents) < 0)
            return false;
        if (type == 'v' && contents && std::strcmp(contents, "s") == 0) {
            const char *value = nullptr;
            if (sd_bus_message_read(message, "v", "s", &value) < 0 || !value)
                return false;
            userInfo.emplace(key, value);
        } else if (sd_bus_message_skip(message, "v") < 0) {
            return false;
        }
        if (sd_bus_message_exit_container(message) < 0)
            return false;
    }
    return entered == 0 && sd_bus_message_exit_container(message) >= 0;
}

int appendNotification(sd_bus_message *message, const std::string &name,
                       const std::optional<ymNotificationCenter::UserInfo> &userInfo)
{
    int r = sd_bus_message_append_basic(message, 's', name.c_str());
    if (r >= 0)
        r = sd_bus_message_open_container(message, 'a', "{sv}");
    if (userInfo) {
        for (const auto &[key, value] : *userInfo) {
            if (r >= 0)
                r = sd_bus_message_open_container(message, 'e', "sv");
            if (r >= 0)
                r = sd_bus_message_append_basic(message, 's', key.c_str());
            if (r >= 0)
                r = sd_bus_message_open_container(message, 'v', "s");
            if (r >= 0)
                r = sd_bus_message_append_basic(message, 's', value.c_str());
            if (r >= 0)
                r = sd_bus_message_close_container(message);
            if (r >= 0)
                r = sd_bus_message_close_container(message);
        }
    }
    if (r >= 0)
        r = sd_bus_message_close_container(message);
    return r;
}

// Whether two descriptors open the same file (here: the same socket).
bool sameFile(int one, int other)
{
    struct stat first = {}, second = {};
    return fstat(one, &first) == 0 && fstat(other, &second) == 0 && first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

uint64_t monotonicMicroseconds()
{
    struct timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

}  // namespace

// One process's centre. The bus can go away at any time (its daemon ends, the session ends) or stop
// answering (its daemon is stopped): a connection that fails is dropped whole, the observers are
// kept, and the names are subscribed again on the next connection.
struct ymNotificationCenter::State {
    explicit State(uint64_t made) : generation(made), random(static_cast<unsigned>(Clock::now().time_since_epoch().count() ^ getpid())) {}

    // The fork generation this state belongs to; in another one it is never touched.
    const uint64_t generation;

    ymMutex lock;
    // Told when the link changes, a subscription is taken, or an observer's call ends.
    std::condition_variable_any changed;

    enum class Link { none, connecting, ready };
    Link link = Link::none;
    sd_bus *bus = nullptr;
    std::optional<std::string> address;  // of the attempt under way
    // Whether callers wait for the bus: at first, and after the bus has answered; not once an
    // attempt or a subscription has not been answered in time.
    bool presumedAlive = true;
    Clock::time_point attemptDeadline;
    Clock::time_point nextDue;  // no attempt on demand before then
    Clock::time_point retryAt;  // the next attempt by itself, while there are observers
    Clock::duration backOff = Clock::duration::zero();
    Clock::time_point lastUse;
    bool kicked = false;  // a turn of the I/O thread is queued
    std::minstd_rand random;

    struct Subscription {
        State *state = nullptr;
        std::string name;
        sd_bus_slot *match = nullptr;  // null while there is no connection
        bool installed = false;        // the bus has answered the match's AddMatch
        std::map<uint64_t, std::shared_ptr<const Observer>> observers;
    };
    std::map<std::string, Subscription> subscriptions;
    std::map<uint64_t, std::string> nameOfToken;
    // The observers being called now, and on which thread.
    std::vector<std::pair<uint64_t, std::thread::id>> calling;
    // Work for the main loop, made under the lock and posted once it is released (the main loop
    // holds locks of its own while it delivers, and deliveries take this one), in order.
    std::vector<std::function<void()>> forMainLoop;

    // Made, changed and destroyed on the I/O thread only (under the lock as well). The Use is held
    // while any source is.
    std::unique_ptr<ymIOLoop::Use> use;
    // The watch is on a duplicate of the bus's descriptor, ours to close: sd-bus closes its own when
    // it ends a connection inside sd_bus_process, and a number the process may already have given
    // to another file must never be watched or unwatched.
    std::unique_ptr<ymIOLoop::Descriptor> watch;
    int watchedFd = -1;  // our duplicate
    int busFd = -1;      // the bus's descriptor it duplicates
    std::unique_ptr<ymIOLoop::Timer> busTimer;  // the bus's own deadline
    uint64_t busTimerAt = UINT64_MAX;
    std::unique_ptr<ymIOLoop::Timer> deadlineTimer;  // the handshake's limit
    std::unique_ptr<ymIOLoop::Timer> retryTimer;
    std::unique_ptr<ymIOLoop::Timer> quietTimer;
    std::unique_ptr<ymIOLoop::Timer> stallTimer;  // while something waits to be written
    bool unanswered = false;  // a call to the bus went unanswered: the connection is given up

    // Any thread, under the lock.
    // Asks for the bus: starts an attempt when there is no connection and none is due later; then
    // waits, at most until `limit`, for an attempt under way while the bus is believed to answer.
    void demand(std::unique_lock<ymMutex> &guard, Clock::time_point limit);
    void startAttempt();
    void subscribe(Subscription &subscription);
    // After a write: has the I/O thread write what stayed queued, or notice a lost connection.
    void wrote();
    // Has the I/O thread serve the bus (or settle without one) on its next turn.
    void kick();
    // The connection came or went: the main loop looks again at what it waits for (a companion may
    // run it until isConnected() changes).
    void linkChanged();
    // Posts the work gathered for the main loop; called without the lock.
    static void postToMainLoop(std::vector<std::function<void()>> &&work);
    // An attempt failed or a connection was lost (`frozen`: the bus took it but did not answer):
    // the back-off grows.
    void failed(bool frozen);

    // Runs `body` under the lock on the I/O thread; nothing of another process's state is touched,
    // and nothing thrown goes further.
    template <typename Body>
    void locked(Body body) noexcept;
    // The I/O thread, under the lock.
    void begin();
    void serve(bool hangup = false);
    void becameReady();
    void fail(bool frozen);
    void closeBus();
    void unwatch();
    void settle();
    void arrangeSources();

    // The bus's callbacks, inside sd_bus_process: under the lock, on the I/O thread.
    static int onSignal(sd_bus_message *message, void *userdata, sd_bus_error *error);
    static int onInstalled(sd_bus_message *message, void *userdata, sd_bus_error *error);

    // On the main loop: calls the name's observers, each looked up as its turn comes.
    void deliver(const std::string &name, const UserInfo &userInfo) noexcept;
    void deliverNow(const std::string &name, const UserInfo &userInfo);
};

template <typename Body>
void ymNotificationCenter::State::locked(Body body) noexcept
{
    if (generation != ymFork::generation())
        return;
    std::vector<std::function<void()>> work;
    try {
        std::lock_guard<ymMutex> guard(lock);
        body();
        work.swap(forMainLoop);
    } catch (...) {
        // Memory ran out: the state stays as it was left, and the next event goes on from there.
    }
    postToMainLoop(std::move(work));
}

void ymNotificationCenter::State::postToMainLoop(std::vector<std::function<void()>> &&work)
{
    for (std::function<void()> &item : work) {
        try {
            ymMainLoop::shared().post(std::move(item));
        } catch (...) {
        }
    }
}

void ymNotificationCenter::State::demand(std::unique_lock<ymMutex> &guard, Clock::time_point limit)
{
    Clock::time_point now = Clock::now();
    lastUse = now;
    if (link == Link::none && now >= nextDue)
        startAttempt();
    // The I/O thread drives the attempt: it never waits for it.
    if (ymIOLoop::onIOThread())
        return;
    while (link == Link::connecting && presumedAlive) {
        Clock::time_point until = std::min(limit, attemptDeadline);
        if (Clock::now() >= until)
            break;
        changed.wait_until(guard, until);
    }
}

void ymNotificationCenter::State::startAttempt()
{
    link = Link::connecting;
    attemptDeadline = Clock::now() + kHandshakeLimit;
    address = sessionBusAddress();
    if (ymIOLoop::onIOThread()) {
        begin();
        return;
    }
    if (!ymIOLoop::shared().post([this] { locked([this] { begin(); }); }))
        failed(false);  // no I/O thread: no bus
}

void ymNotificationCenter::State::begin()
{
    if (link != Link::connecting || bus)
        return;
    retryTimer.reset();
    if (!use)
        use = std::make_unique<ymIOLoop::Use>();
    sd_bus *made = nullptr;
    int r = address ? sd_bus_new(&made) : -ENOENT;
    if (r >= 0)
        r = sd_bus_set_address(made, address->c_str());
    if (r >= 0)
        r = sd_bus_set_bus_client(made, 1);
    if (r >= 0)
        r = sd_bus_start(made);  // connects without waiting; the handshake follows in serve()
    if (r < 0) {
        sd_bus_close_unref(made);
        fail(false);
        return;
    }
    bus = made;
    deadlineTimer = ymIOLoop::Timer::after(untilThen(attemptDeadline), [this] {
        locked([this] {
            deadlineTimer.reset();
            if (link == Link::connecting)
                fail(true);  // the bus took the connection but does not answer
        });
    });
    if (!deadlineTimer) {
        fail(false);
        return;
    }
    serve();
}

void ymNotificationCenter::State::serve(bool hangup)
{
    if (!bus) {
        settle();
        return;
    }
    int r = 0;
    int progress = 0;
    for (int round = 0; round < kProcessRounds; ++round) {
        r = sd_bus_process(bus, nullptr);
        if (r <= 0)
            break;
        ++progress;
    }
    // A hangup the bus makes nothing of would be told again at once: the connection is done.
    const bool open = r >= 0 && sd_bus_is_open(bus) > 0;
    if (!open || (hangup && progress == 0) || unanswered) {
        fail(open && unanswered);  // a call left unanswered on a connection still open: a frozen bus
        return;
    }
    if (link == Link::connecting && sd_bus_is_ready(bus) > 0)
        becameReady();
    if (r > 0)
        kick();  // more is waiting: served on the next turn, after the loop's other work
    arrangeSources();
}

void ymNotificationCenter::State::becameReady()
{
    link = Link::ready;
    presumedAlive = true;
    backOff = Clock::duration::zero();
    nextDue = Clock::time_point();
    deadlineTimer.reset();
    retryTimer.reset();
    for (auto &entry : subscriptions)
        subscribe(entry.second);
    changed.notify_all();
    linkChanged();
}

void ymNotificationCenter::State::fail(bool frozen)
{
    closeBus();
    failed(frozen);
    settle();
}

void ymNotificationCenter::State::failed(bool frozen)
{
    if (link == Link::ready)
        linkChanged();
    link = Link::none;
    if (frozen)
        presumedAlive = false;
    backOff = backOff == Clock::duration::zero() ? kFirstBackOff : std::min(backOff * 2, kLongestBackOff);
    Clock::time_point now = Clock::now();
    nextDue = now + backOff;
    std::uniform_real_distribution<double> spread(0.75, 1.25);
    retryAt = now + std::chrono::duration_cast<Clock::duration>(backOff * spread(random));
    changed.notify_all();
}

void ymNotificationCenter::State::closeBus()
{
    // The slots before the connection they hold.
    unwatch();
    busTimer.reset();
    busTimerAt = UINT64_MAX;
    deadlineTimer.reset();
    quietTimer.reset();
    stallTimer.reset();
    unanswered = false;
    for (auto &entry : subscriptions) {
        entry.second.match = sd_bus_slot_unref(entry.second.match);
        entry.second.installed = false;
    }
    bus = sd_bus_close_unref(bus);
}

void ymNotificationCenter::State::settle()
{
    if (link != Link::none)
        return;
    if (subscriptions.empty()) {
        retryTimer.reset();
    } else if (!retryTimer) {
        if (!use)
            use = std::make_unique<ymIOLoop::Use>();
        retryTimer = ymIOLoop::Timer::after(
            untilThen(retryAt),
            [this] {
                locked([this] {
                    retryTimer.reset();
                    if (link == Link::none && !subscriptions.empty())
                        startAttempt();
                    else
                        settle();
                });
            },
            milliseconds(100));
    }
    if (!retryTimer)
        use.reset();  // nothing left to serve: the I/O thread may end
}

void ymNotificationCenter::State::unwatch()
{
    watch.reset();  // the watch before the descriptor it watches
    if (watchedFd >= 0)
        close(watchedFd);
    watchedFd = -1;
    busFd = -1;
}

void ymNotificationCenter::State::arrangeSources()
{
    // While connecting, sd-bus may go on to the next address of a list with a new socket: one
    // under the same number is told apart by its identity.
    int fd = sd_bus_get_fd(bus);
    if (fd != busFd || (link == Link::connecting && !sameFile(fd, watchedFd))) {
        unwatch();
        int copy = fd >= 0 ? fcntl(fd, F_DUPFD_CLOEXEC, 3) : -1;
        if (copy >= 0) {
            watch = ymIOLoop::Descriptor::watch(copy, [this](bool, bool writable, bool hangup) {
                locked([this, writable, hangup] {
                    if (writable)
                        stallTimer.reset();  // the socket takes again: the stall starts afresh
                    serve(hangup);
                });
            });
            if (watch) {
                watchedFd = copy;
                busFd = fd;
            } else {
                close(copy);
            }
        }
        if (!watch) {
            fail(false);
            return;
        }
    }
    int events = sd_bus_get_events(bus);
    const bool writing = events > 0 && (events & POLLOUT);
    watch->setWritable(writing);
    if (!writing || link != Link::ready) {
        stallTimer.reset();
    } else if (!stallTimer) {
        stallTimer = ymIOLoop::Timer::after(
            kStallLimit,
            [this] {
                locked([this] {
                    stallTimer.reset();
                    if (bus)
                        fail(true);  // the bus has read nothing for all that time
                });
            },
            milliseconds(500));
    }

    uint64_t at = UINT64_MAX;
    if (sd_bus_get_timeout(bus, &at) < 0)
        at = UINT64_MAX;
    if (at == UINT64_MAX) {
        busTimer.reset();
        busTimerAt = UINT64_MAX;
    } else if (at != busTimerAt || !busTimer) {
        uint64_t now = monotonicMicroseconds();
        milliseconds delay(at > now ? static_cast<long long>((at - now + 999) / 1000) : 0);
        busTimerAt = at;
        busTimer = ymIOLoop::Timer::after(delay, [this] {
            locked([this] {
                busTimer.reset();
                busTimerAt = UINT64_MAX;
                serve();
            });
        });
    }

    // A connection nobody observes is kept while it is used, and let go once it has been quiet.
    if (link != Link::ready || !subscriptions.empty()) {
        quietTimer.reset();
    } else if (!quietTimer) {
        milliseconds delay = std::max(untilThen(lastUse + kQuietBeforeRelease), milliseconds(1000));
        quietTimer = ymIOLoop::Timer::after(
            delay,
            [this] {
                locked([this] {
                    quietTimer.reset();
                    if (!bus || link != Link::ready || !subscriptions.empty())
                        return;
                    int pending = sd_bus_get_events(bus);
                    if (Clock::now() - lastUse >= kQuietBeforeRelease && !(pending > 0 && (pending & POLLOUT))) {
                        closeBus();
                        link = Link::none;  // not a failure: the next need connects at once
                        changed.notify_all();
                        linkChanged();
                        settle();
                        return;
                    }
                    arrangeSources();  // used since: looked at again later
                });
            },
            milliseconds(250));
    }
}

void ymNotificationCenter::State::subscribe(Subscription &subscription)
{
    if (link != Link::ready || subscription.match)
        return;
    subscription.installed = false;
    if (sd_bus_add_match_async(bus, &subscription.match, matchRuleFor(subscription.name).c_str(), onSignal, onInstalled,
                               &subscription) < 0)
        subscription.match = nullptr;  // taken again with the next connection
}

void ymNotificationCenter::State::wrote()
{
    if (!bus)
        return;
    int events = sd_bus_get_events(bus);
    if (sd_bus_is_open(bus) <= 0 || (events > 0 && (events & POLLOUT)))
        kick();
}

void ymNotificationCenter::State::kick()
{
    if (kicked)
        return;
    kicked = true;
    if (!ymIOLoop::shared().post([this] {
            locked([this] {
                kicked = false;
                serve();
            });
        }))
        kicked = false;
}

void ymNotificationCenter::State::linkChanged()
{
    forMainLoop.emplace_back([] {});
}

int ymNotificationCenter::State::onSignal(sd_bus_message *message, void *userdata, sd_bus_error *)
{
    auto *subscription = static_cast<Subscription *>(userdata);
    try {
        std::string name;
        UserInfo userInfo;
        if (!readNotification(message, name, userInfo))
            return 0;  // not a notification of ours
        if (name != subscription->name)
            return 0;  // another name's, taken by a rule that could not name this one
        // Queued on the main loop in the order the bus handed them over.
        State *state = subscription->state;
        state->forMainLoop.emplace_back([state, name = std::move(name), userInfo = std::move(userInfo)] { state->deliver(name, userInfo); });
    } catch (...) {
        // Memory ran out: this notification is lost.
    }
    return 0;
}

int ymNotificationCenter::State::onInstalled(sd_bus_message *reply, void *userdata, sd_bus_error *)
{
    auto *subscription = static_cast<Subscription *>(userdata);
    State &state = *subscription->state;
    subscription->installed = true;  // taken or refused: nobody waits for it any more
    const sd_bus_error *error = sd_bus_message_get_error(reply);
    if (error && sd_bus_error_has_name(error, SD_BUS_ERROR_NO_REPLY))
        state.unanswered = true;  // no answer in sd-bus's own time: the bus is given up after this turn
    else
        state.presumedAlive = true;  // the bus has answered
    state.changed.notify_all();
    return 0;
}

void ymNotificationCenter::State::deliver(const std::string &name, const UserInfo &userInfo) noexcept
{
    if (generation != ymFork::generation())
        return;
    try {
        deliverNow(name, userInfo);
    } catch (...) {
        // Memory ran out: this notification is not delivered further.
    }
}

void ymNotificationCenter::State::deliverNow(const std::string &name, const UserInfo &userInfo)
{
    std::vector<std::pair<uint64_t, std::shared_ptr<const Observer>>> observers;
    {
        std::lock_guard<ymMutex> guard(lock);
        auto subscription = subscriptions.find(name);
        if (subscription == subscriptions.end())
            return;
        observers.assign(subscription->second.observers.begin(), subscription->second.observers.end());
    }
    const std::thread::id self = std::this_thread::get_id();
    for (const auto &[token, observer] : observers) {
        {
            // Each observer is looked up as its turn comes: one removed meanwhile is not called.
            std::lock_guard<ymMutex> guard(lock);
            if (nameOfToken.find(token) == nameOfToken.end())
                continue;
            calling.emplace_back(token, self);
        }
        // Called without the lock: an observer may post, observe or stop observing.
        try {
            (*observer)(name, userInfo);
        } catch (...) {
            // An observer's failure is its own: the others are called all the same.
        }
        std::lock_guard<ymMutex> guard(lock);
        auto entry = std::find(calling.rbegin(), calling.rend(), std::make_pair(token, self));
        if (entry != calling.rend())
            calling.erase(std::next(entry).base());
        changed.notify_all();
    }
}

ymNotificationCenter &ymNotificationCenter::defaultCenter()
{
    // Never destroyed: the main loop may still hold deliveries for it while the process exits.
    static ymNotificationCenter *center = new ymNotificationCenter();
    return *center;
}

ymNotificationCenter::State &ymNotificationCenter::state()
{
    const uint64_t generation = ymFork::generation();
    State *current = _state.load(std::memory_order_acquire);
    if (current && current->generation == generation)
        return *current;
    std::lock_guard<ymMutex> guard(_making);
    current = _state.load(std::memory_order_acquire);
    if (!current || current->generation != generation) {
        // A state made before a fork is the parent's: its connection, descriptors, sources and
        // observers are left exactly as they are (never used, never released), and this process
        // starts afresh. sd-bus would refuse the parent's connection here anyway.
        current = new State(generation);
        _state.store(current, std::memory_order_release);
    }
    return *current;
}

bool ymNotificationCenter::isConnected()
{
    bool connected = false;
    std::vector<std::function<void()>> work;
    try {
        State &s = state();
        std::unique_lock<ymMutex> guard(s.lock);
        s.demand(guard, Clock::now() + kHandshakeLimit);
        connected = s.link == State::Link::ready;
        work.swap(s.forMainLoop);
    } catch (...) {
    }
    State::postToMainLoop(std::move(work));
    return connected;
}

uint64_t ymNotificationCenter::addObserver(const std::string &name, Observer observer)
{
    const uint64_t token = nextToken.fetch_add(1);
    std::vector<std::function<void()>> work;
    try {
        State &s = state();
        std::unique_lock<ymMutex> guard(s.lock);
        const Clock::time_point limit = Clock::now() + kHandshakeLimit;
        auto found = s.subscriptions.find(name);
        if (found == s.subscriptions.end()) {
            found = s.subscriptions.try_emplace(name).first;
            found->second.state = &s;
            found->second.name = name;
        }
        // Our own token keeps the subscription (and this reference) in place until we return.
        State::Subscription &subscription = found->second;
        subscription.observers.emplace(token, std::make_shared<const Observer>(std::move(observer)));
        s.nameOfToken.emplace(token, name);
        s.demand(guard, limit);
        if (s.link == State::Link::ready) {
            s.subscribe(subscription);
            s.wrote();
        } else if (s.link == State::Link::none) {
            s.kick();  // the I/O thread tries again in its time
        }
        // Observing "from now on": once the bus has taken the rule, whatever is posted after this
        // returns reaches the observer. The wait is bounded like the handshake's.
        if (!ymIOLoop::onIOThread()) {
            while (s.link == State::Link::ready && subscription.match && !subscription.installed && s.presumedAlive) {
                if (Clock::now() >= limit) {
                    s.presumedAlive = false;  // the bus does not answer: later calls do not wait
                    break;
                }
                s.changed.wait_until(guard, limit);
            }
        }
        work.swap(s.forMainLoop);
    } catch (...) {
        // Memory ran out: the observer may not hear; the token stays valid for removeObserver().
    }
    State::postToMainLoop(std::move(work));
    return token;
}

void ymNotificationCenter::removeObserver(uint64_t token)
{
    try {
        State &s = state();
        std::unique_lock<ymMutex> guard(s.lock);
        auto named = s.nameOfToken.find(token);
        if (named != s.nameOfToken.end()) {
            auto subscription = s.subscriptions.find(named->second);
            s.nameOfToken.erase(named);
            if (subscription != s.subscriptions.end()) {
                subscription->second.observers.erase(token);
                if (subscription->second.observers.empty()) {
                    // The slot goes first: it names the subscription to the bus's callbacks.
                    sd_bus_slot_unref(subscription->second.match);
                    s.subscriptions.erase(subscription);
                    s.wrote();
                    if (s.subscriptions.empty())
                        s.kick();  // the I/O thread lets the connection go once it is quiet
                }
            }
        }
        // A call of this observer under way elsewhere ends before this returns; one under way on
        // this thread (the observer stops itself) is not waited for.
        const std::thread::id self = std::this_thread::get_id();
        s.changed.wait(guard, [&] {
            return std::none_of(s.calling.begin(), s.calling.end(),
                                [&](const auto &entry) { return entry.first == token && entry.second != self; });
        });
    } catch (...) {
    }
}

void ymNotificationCenter::post(const std::string &name, const std::optional<UserInfo> &userInfo)
{
    ymNSLogFlush();  // observers elsewhere may answer at once: the lines before the post come first
    std::vector<std::function<void()>> work;
    try {
        State &s = state();
        std::unique_lock<ymMutex> guard(s.lock);
        s.demand(guard, Clock::now() + kHandshakeLimit);
        work.swap(s.forMainLoop);
        if (s.link != State::Link::ready) {
            guard.unlock();
            State::postToMainLoop(std::move(work));
            return;  // no bus: the post is dropped
        }
        sd_bus_message *message = nullptr;
        int r = sd_bus_message_new_signal(s.bus, &message, kObjectPath, kInterface, kMember);
        // A name or text the bus refuses (not UTF-8, say) is not posted.
        if (r >= 0)
            r = appendNotification(message, name, userInfo);
        if (r >= 0)
            sd_bus_send(s.bus, message, nullptr);
        sd_bus_message_unref(message);
        s.wrote();
    } catch (...) {
    }
    State::postToMainLoop(std::move(work));
}
