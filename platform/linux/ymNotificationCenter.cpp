#include "platform/ymNotificationCenter.h"

#include <YumoClientSdk/ymMainLoop.h>
#include <memory>
#include <mutex>
#include <sdbus-c++/sdbus-c++.h>
#include <vector>

namespace {

const char *const kInterface = "com.yumocorp.DistributedNotification";
const char *const kMember = "Notification";
const char *const kObjectPath = "/com/yumocorp/DistributedNotificationCenter";

// A value for a match rule: quoted, with a quote inside written as '\''.
std::string quotedForMatch(const std::string &value)
{
    std::string quoted = "'";
    for (char c : value) {
        if (c == '\'')
            quoted += "'\\''";
        else
            quoted += c;
    }
    return quoted + "'";
}

}  // namespace

struct ymNotificationCenter::State {
    // sdbus-c++ connections are not thread-safe: every use of the connection and the object holds
    // this lock. It is recursive because the bus calls the match handlers while it is held.
    std::recursive_mutex lock;
    std::unique_ptr<sdbus::IConnection> connection;
    std::unique_ptr<sdbus::IObject> poster;

    struct Subscription {
        sdbus::Slot match;
        std::map<uint64_t, Observer> observers;
    };
    std::map<std::string, Subscription> subscriptions;
    std::map<uint64_t, std::string> nameOfToken;
    uint64_t nextToken = 1;

    // Called by the bus, under the lock. On the loop's thread, while it serves the bus, the
    // notification is kept and delivered as soon as the bus has been served; on any other thread
    // (a post that took in what had arrived) it is handed to the main loop.
    void received(sdbus::Message &message);
    void deliver(const std::string &name, const UserInfo &userInfo);
    void deliverKept();

    std::vector<std::pair<std::string, UserInfo>> kept;
};

namespace {

// Set while this thread serves the bus for the main loop.
thread_local bool servingBusOnLoop = false;

// The bus connection as a source of the main loop.
class BusSource : public ymMainLoop::Source {
public:
    BusSource(ymNotificationCenter::State &state, std::recursive_mutex &lock, sdbus::IConnection &connection)
        : _state(state), _lock(lock), _connection(connection)
    {
        _fd = _connection.getEventLoopPollData().fd;
    }
    int fileDescriptor() const override { return _fd; }
    short pollEvents() const override
    {
        std::lock_guard<std::recursive_mutex> guard(_lock);
        return _connection.getEventLoopPollData().events;
    }
    int timeoutMilliseconds() const override
    {
        std::lock_guard<std::recursive_mutex> guard(_lock);
        std::optional<std::chrono::microseconds> relative = _connection.getEventLoopPollData().getRelativeTimeout();
        if (!relative)
            return -1;
        return static_cast<int>(std::min<long long>(std::chrono::ceil<std::chrono::milliseconds>(*relative).count(), 60'000));
    }
    void dispatch() override
    {
        {
            std::lock_guard<std::recursive_mutex> guard(_lock);
            servingBusOnLoop = true;
            try {
                while (_connection.processPendingRequest()) {
                }
            } catch (const sdbus::Error &) {
                // A broken connection: nothing more will arrive.
            }
            servingBusOnLoop = false;
        }
        _state.deliverKept();
    }

private:
    ymNotificationCenter::State &_state;
    std::recursive_mutex &_lock;
    sdbus::IConnection &_connection;
    int _fd;
};

}  // namespace

void ymNotificationCenter::State::received(sdbus::Message &message)
{
    std::string name;
    std::map<std::string, sdbus::Variant> values;
    try {
        message >> name >> values;
    } catch (const sdbus::Error &) {
        return;  // not a notification of ours
    }
    UserInfo userInfo;
    for (auto &[key, value] : values) {
        if (value.containsValueOfType<std::string>())
            userInfo.emplace(key, value.get<std::string>());
    }
    if (servingBusOnLoop)
        kept.emplace_back(std::move(name), std::move(userInfo));
    else
        ymMainLoop::shared().post([this, name, userInfo] { deliver(name, userInfo); });
}

void ymNotificationCenter::State::deliverKept()
{
    std::vector<std::pair<std::string, UserInfo>> ready;
    {
        std::lock_guard<std::recursive_mutex> guard(lock);
        ready.swap(kept);
    }
    for (const auto &[name, userInfo] : ready)
        deliver(name, userInfo);
}

void ymNotificationCenter::State::deliver(const std::string &name, const UserInfo &userInfo)
{
    std::vector<Observer> observers;
    {
        std::lock_guard<std::recursive_mutex> guard(lock);
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
    try {
        _state->connection = sdbus::createSessionBusConnection();
        _state->poster = sdbus::createObject(*_state->connection, kObjectPath);
    } catch (const sdbus::Error &) {
        _state->poster.reset();
        _state->connection.reset();  // no session bus: posts are dropped
        return;
    }
    ymMainLoop::shared().addSource(std::make_shared<BusSource>(*_state, _state->lock, *_state->connection));
}

bool ymNotificationCenter::isConnected()
{
    std::lock_guard<std::recursive_mutex> guard(_state->lock);
    return _state->connection != nullptr;
}

uint64_t ymNotificationCenter::addObserver(const std::string &name, Observer observer)
{
    std::lock_guard<std::recursive_mutex> guard(_state->lock);
    if (!_state->connection)
        return 0;
    auto subscription = _state->subscriptions.find(name);
    if (subscription == _state->subscriptions.end()) {
        std::string rule = std::string("type='signal',interface='") + kInterface + "',member='" + kMember +
                           "',arg0=" + quotedForMatch(name);
        sdbus::Slot match;
        try {
            State *state = _state;
            match = _state->connection->addMatch(rule, [state](sdbus::Message &message) { state->received(message); });
        } catch (const sdbus::Error &) {
            return 0;
        }
        subscription = _state->subscriptions.emplace(name, State::Subscription{std::move(match), {}}).first;
    }
    uint64_t token = _state->nextToken++;
    subscription->second.observers.emplace(token, std::move(observer));
    _state->nameOfToken.emplace(token, name);
    return token;
}

void ymNotificationCenter::removeObserver(uint64_t token)
{
    std::lock_guard<std::recursive_mutex> guard(_state->lock);
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
    std::lock_guard<std::recursive_mutex> guard(_state->lock);
    if (!_state->poster)
        return;
    try {
        std::map<std::string, sdbus::Variant> values;
        if (userInfo)
            for (const auto &[key, value] : *userInfo)
                values.emplace(key, sdbus::Variant(value));
        sdbus::Signal signal = _state->poster->createSignal(kInterface, kMember);
        signal << name << values;
        _state->poster->emitSignal(signal);
        // Write out whatever the bus could not take at once, and take in what has arrived; the
        // observers still hear of it on the main loop.
        while (_state->connection->processPendingRequest()) {
        }
    } catch (const sdbus::Error &) {
        // A name or text the bus refuses (not UTF-8, say) is not posted.
    }
}
