#include "platform/ymNotificationCenter.h"

#include <YumoClientSdk/ymMainLoop.h>
#include <chrono>
#include <memory>
#include <mutex>

#include "platform/ymMutex.h"
#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <vector>

namespace {

const char *const kInterface = "com.yumocorp.DistributedNotification";
const char *const kMember = "Notification";
const char *const kObjectPath = "/com/yumocorp/DistributedNotificationCenter";

// How often a centre without a bus tries to connect again.
constexpr std::chrono::seconds kReconnectInterval{1};

// The bus's match rule for one notification name. The bus cannot match a value holding an
// apostrophe: for such a name the rule takes every notification, and the handler picks its own.
std::string matchRuleFor(const std::string &name)
{
    std::string rule = std::string("type='signal',interface='") + kInterface + "',member='" + kMember + "'";
    if (name.find('\'') == std::string::npos)
        rule += ",arg0='" + name + "'";
    return rule;
}

}  // namespace

// The bus can go away at any time (its daemon ends, the session ends): every call into sdbus-c++
// is made under the lock and may throw. A failing call marks the connection lost: it is dropped,
// observers are kept, and a new connection is tried every second from the main loop (and before a
// post or an observation when the last try is a second old). Once one stands, every observed name
// is subscribed again.
struct ymNotificationCenter::State {
    // sdbus-c++ connections are not thread-safe: every use of the connection and the object holds
    // this lock. It is recursive because the bus calls the match handlers while it is held.
    ymRecursiveMutex lock;
    std::unique_ptr<sdbus::IConnection> connection;
    std::unique_ptr<sdbus::IObject> poster;
    std::chrono::steady_clock::time_point lastAttempt;
    // Armed while there is no connection: the main loop watches it instead of the bus.
    int retryTimer = -1;

    struct Subscription {
        sdbus::Slot match;  // empty while there is no connection
        std::map<uint64_t, Observer> observers;
    };
    std::map<std::string, Subscription> subscriptions;
    std::map<uint64_t, std::string> nameOfToken;
    uint64_t nextToken = 1;

    bool connect();
    void dropConnection();
    bool subscribe(const std::string &name, Subscription &subscription);
    // Tries to connect when there is no connection and the last try is old enough. Under the lock.
    void reconnectIfDue();
    // Runs `use` on the connection under the lock; a connection that fails is let go, and then (as
    // without a connection) `fallback` is the answer.
    template <typename Use, typename Result>
    Result usingConnection(Use use, Result fallback);
    // The descriptor and events the main loop should watch now.
    int watchedDescriptor();
    short watchedEvents();
    int busTimeout();
    void serveBus();

    // Called by the bus, under the lock, on whichever thread took the notification in (the loop's,
    // serving the bus, or a poster's): it is queued on the main loop, so that notifications are
    // delivered in the order the bus handed them over.
    void received(sdbus::Message &message, const std::string &subscribed);
    void deliver(const std::string &name, const UserInfo &userInfo);
};

namespace {

// Set while this thread serves the bus for the main loop.
thread_local bool servingBusOnLoop = false;

// The bus connection as a source of the main loop: the bus's descriptor while connected, the
// retry timer while not.
class BusSource : public ymMainLoop::Source {
public:
    explicit BusSource(ymNotificationCenter::State &state) : _state(state) {}
    int fileDescriptor() const override { return _state.watchedDescriptor(); }
    short pollEvents() const override { return _state.watchedEvents(); }
    int timeoutMilliseconds() const override { return _state.busTimeout(); }
    void dispatch() override { _state.serveBus(); }

private:
    ymNotificationCenter::State &_state;
};

}  // namespace

bool ymNotificationCenter::State::connect()
{
    lastAttempt = std::chrono::steady_clock::now();
    try {
        connection = sdbus::createSessionBusConnection();
        poster = sdbus::createObject(*connection, kObjectPath);
    } catch (const sdbus::Error &) {
        dropConnection();
        return false;
    }
    for (auto &[name, subscription] : subscriptions) {
        if (!subscribe(name, subscription)) {
            dropConnection();
            return false;
        }
    }
    struct itimerspec disarmed = {};
    timerfd_settime(retryTimer, 0, &disarmed, nullptr);
    return true;
}

void ymNotificationCenter::State::dropConnection()
{
    // Slots first, then the object, then the connection they belong to.
    for (auto &entry : subscriptions)
        entry.second.match = sdbus::Slot();
    poster.reset();
    connection.reset();
    struct itimerspec every = {};
    every.it_interval.tv_sec = kReconnectInterval.count();
    every.it_value.tv_sec = kReconnectInterval.count();
    timerfd_settime(retryTimer, 0, &every, nullptr);
}

bool ymNotificationCenter::State::subscribe(const std::string &name, Subscription &subscription)
{
    try {
        State *self = this;
        subscription.match = connection->addMatch(matchRuleFor(name),
                                                  [self, name](sdbus::Message &message) { self->received(message, name); });
        return true;
    } catch (const sdbus::Error &) {
        return false;
    }
}

void ymNotificationCenter::State::reconnectIfDue()
{
    if (connection || std::chrono::steady_clock::now() - lastAttempt < kReconnectInterval)
        return;
    if (connect() && !servingBusOnLoop)
        ymMainLoop::shared().post([] {});  // the loop watches the retry timer: have it look again
}

template <typename Use, typename Result>
Result ymNotificationCenter::State::usingConnection(Use use, Result fallback)
{
    std::lock_guard<ymRecursiveMutex> guard(lock);
    if (!connection)
        return fallback;
    try {
        return use(*connection);
    } catch (const sdbus::Error &) {
        dropConnection();
        return fallback;
    }
}

int ymNotificationCenter::State::watchedDescriptor()
{
    return usingConnection([](sdbus::IConnection &bus) { return bus.getEventLoopPollData().fd; }, retryTimer);
}

short ymNotificationCenter::State::watchedEvents()
{
    return usingConnection([](sdbus::IConnection &bus) { return static_cast<short>(bus.getEventLoopPollData().events); },
                           static_cast<short>(POLLIN));
}

int ymNotificationCenter::State::busTimeout()
{
    // Without a connection the retry timer wakes the loop.
    return usingConnection(
        [](sdbus::IConnection &bus) {
            std::optional<std::chrono::microseconds> relative = bus.getEventLoopPollData().getRelativeTimeout();
            if (!relative)
                return -1;
            return static_cast<int>(std::min<long long>(std::chrono::ceil<std::chrono::milliseconds>(*relative).count(), 60'000));
        },
        -1);
}

void ymNotificationCenter::State::serveBus()
{
    std::lock_guard<ymRecursiveMutex> guard(lock);
    if (!connection) {
        uint64_t expirations;
        while (read(retryTimer, &expirations, sizeof expirations) > 0) {
        }
        reconnectIfDue();
        if (!connection)
            return;
    }
    servingBusOnLoop = true;
    try {
        while (connection->processPendingRequest()) {
        }
    } catch (const sdbus::Error &) {
        dropConnection();  // the bus went away; what arrived before is delivered below
    }
    servingBusOnLoop = false;
}

void ymNotificationCenter::State::received(sdbus::Message &message, const std::string &subscribed)
{
    std::string name;
    std::map<std::string, sdbus::Variant> values;
    try {
        message >> name >> values;
    } catch (const sdbus::Error &) {
        return;  // not a notification of ours
    }
    if (name != subscribed)
        return;  // another name's, taken by a rule that could not name this one
    UserInfo userInfo;
    for (auto &[key, value] : values) {
        if (value.containsValueOfType<std::string>())
            userInfo.emplace(key, value.get<std::string>());
    }
    ymMainLoop::shared().post([this, name, userInfo] { deliver(name, userInfo); });
}

void ymNotificationCenter::State::deliver(const std::string &name, const UserInfo &userInfo)
{
    std::vector<Observer> observers;
    {
        std::lock_guard<ymRecursiveMutex> guard(lock);
        auto subscription = subscriptions.find(name);
        if (subscription == subscriptions.end())
            return;
        for (auto &[token, observer] : subscription->second.observers)
            observers.push_back(observer);
    }
    // Called without the lock: an observer may post, observe or stop observing.
    for (const Observer &observer : observers)
        observer(name, userInfo);
}

ymNotificationCenter &ymNotificationCenter::defaultCenter()
{
    // Never destroyed: the main loop may still hold deliveries for it while the process exits.
    static ymNotificationCenter *center = new ymNotificationCenter();
    return *center;
}

ymNotificationCenter::ymNotificationCenter() : _state(new State())
{
    _state->retryTimer = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    {
        std::lock_guard<ymRecursiveMutex> guard(_state->lock);
        _state->connect();
    }
    ymMainLoop::shared().addSource(std::make_shared<BusSource>(*_state));
}

bool ymNotificationCenter::isConnected()
{
    std::lock_guard<ymRecursiveMutex> guard(_state->lock);
    return _state->connection != nullptr;
}

uint64_t ymNotificationCenter::addObserver(const std::string &name, Observer observer)
{
    std::lock_guard<ymRecursiveMutex> guard(_state->lock);
    _state->reconnectIfDue();
    auto subscription = _state->subscriptions.find(name);
    if (subscription == _state->subscriptions.end()) {
        subscription = _state->subscriptions.emplace(name, State::Subscription{}).first;
        // Without a bus the name is subscribed once one is there.
        if (_state->connection && !_state->subscribe(name, subscription->second))
            _state->dropConnection();
    }
    uint64_t token = _state->nextToken++;
    subscription->second.observers.emplace(token, std::move(observer));
    _state->nameOfToken.emplace(token, name);
    return token;
}

void ymNotificationCenter::removeObserver(uint64_t token)
{
    std::lock_guard<ymRecursiveMutex> guard(_state->lock);
    auto named = _state->nameOfToken.find(token);
    if (named == _state->nameOfToken.end())
        return;
    auto subscription = _state->subscriptions.find(named->second);
    _state->nameOfToken.erase(named);
    if (subscription == _state->subscriptions.end())
        return;
    subscription->second.observers.erase(token);
    if (subscription->second.observers.empty())
        _state->subscriptions.erase(subscription);  // drops the match rule with its slot
}

void ymNotificationCenter::post(const std::string &name, const std::optional<UserInfo> &userInfo)
{
    std::lock_guard<ymRecursiveMutex> guard(_state->lock);
    _state->reconnectIfDue();
    if (!_state->poster)
        return;
    std::map<std::string, sdbus::Variant> values;
    try {
        if (userInfo)
            for (const auto &[key, value] : *userInfo)
                values.emplace(key, sdbus::Variant(value));
        sdbus::Signal signal = _state->poster->createSignal(kInterface, kMember);
        signal << name << values;
        _state->poster->emitSignal(signal);
    } catch (const sdbus::Error &) {
        // A name or text the bus refuses (not UTF-8, say) is not posted; a lost bus shows below.
    }
    try {
        // Write out whatever the bus could not take at once, and take in what has arrived; the
        // observers still hear of it on the main loop.
        while (_state->connection->processPendingRequest()) {
        }
    } catch (const sdbus::Error &) {
        _state->dropConnection();
    }
}
