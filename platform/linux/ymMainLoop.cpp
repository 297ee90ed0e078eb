// The main loop on sd-event. Work posted from any thread waits in a queue that an eventfd signals;
// each source a companion adds is an io source with a timer beside it, refreshed before every wait.
// The sd-event loop's own descriptor is what a companion hooks into its loop.
//
// The queue is served in batches of at most kBatch items a dispatch, one item at a time from its
// front, so that a callback that runs the loop again (to wait for an answer) takes the next item
// in order, and a flood of deliveries leaves the companion's own loop its turns. sd-event does not
// nest: a dispatch from inside a callback serves the queue and the sources directly.
#include <YumoClientSdk/ymMainLoop.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <systemd/sd-event.h>
#include <unistd.h>
#include <vector>

#include "platform/ymFork.h"
#include "platform/ymGuarded.h"
#include "platform/ymMutex.h"
#include "platform/ymNSLog.h"

namespace {

// Queued items run by one dispatch, and sources one dispatch serves at most.
constexpr size_t kBatch = 64;
constexpr int kSourcesPerDispatch = 32;

// Dispatches under way on this thread: above 0, a callback is running.
thread_local int dispatchDepth = 0;

template <typename Body>
void guarded(const char *what, Body &&body) noexcept
{
    // Whatever a companion's callback throws stops there: the loop and the deliveries after it go on.
    ymGuarded("ymMainLoop", what, std::forward<Body>(body));
}

uint32_t epollEventsOf(short pollEvents)
{
    return ((pollEvents & POLLIN) ? uint32_t(EPOLLIN) : 0u) | ((pollEvents & POLLOUT) ? uint32_t(EPOLLOUT) : 0u);
}

}  // namespace

struct ymMainLoop::State {
    // Made with its descriptors, so that a companion finds them there from the start (and tried
    // again at every use when they could not be made).
    State()
    {
        std::lock_guard<ymRecursiveMutex> dispatching(dispatchLock);
        ready();
    }

    // The process it serves: the child of a fork makes its own.
    const uint64_t generation = ymFork::generation();
    sd_event *event = nullptr;
    int wakeFd = -1;
    sd_event_source *wakeSource = nullptr;

    ymMutex queueLock;
    std::deque<std::function<void()>> queue;
    bool signalled = false;  // the eventfd has been written since it was last read

    // One thread dispatches at a time; the same thread may dispatch again from a callback.
    ymRecursiveMutex dispatchLock;
    std::atomic<bool> stopRequested{false};
    size_t ranThisDispatch = 0;
    bool batchServed = false;  // the queue had its batch in this dispatch
    bool moreLeft = false;     // work or sources left for the next dispatch

    // A companion's source: an io source on its descriptor and a timer for its timeout, both
    // brought up to date before every wait.
    struct Watched {
        State *state;
        std::shared_ptr<Source> source;
        sd_event_source *io = nullptr;
        sd_event_source *timer = nullptr;
        int fd = -1;
    };
    std::vector<std::unique_ptr<Watched>> sources;

    // Under the dispatch lock: the loop, made when first needed (and again if it could not be).
    bool ready();
    // Under the queue lock.
    bool hasWakeDescriptor();
    void signal();
    size_t runQueue();
    static int onWake(sd_event_source *, int fd, uint32_t, void *userdata);
    static int onSourceReady(sd_event_source *, int, uint32_t, void *userdata);
    static int onSourceTime(sd_event_source *, uint64_t, void *userdata);
    static int prepareSource(sd_event_source *, void *userdata);
    void serveSourcesDirectly();
    // Under the dispatch lock: what a wait inside a callback waits for, and for how long at most.
    std::vector<struct pollfd> nestedWaits(int &milliseconds);

    // The loop's descriptor once made: asked for without the dispatch lock.
    std::atomic<int> loopFd{-1};
};

bool ymMainLoop::State::hasWakeDescriptor()
{
    if (wakeFd < 0)
        wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return wakeFd >= 0;
}

bool ymMainLoop::State::ready()
{
    if (event)
        return true;
    {
        std::lock_guard<ymMutex> guard(queueLock);
        if (!hasWakeDescriptor())
            return false;
    }
    if (sd_event_new(&event) < 0) {
        event = nullptr;
        return false;
    }
    if (sd_event_add_io(event, &wakeSource, wakeFd, EPOLLIN, onWake, this) < 0) {
        event = sd_event_unref(event);
        return false;
    }
    loopFd.store(sd_event_get_fd(event), std::memory_order_release);
    // What was queued before the loop was made is told now.
    std::lock_guard<ymMutex> guard(queueLock);
    if (!queue.empty())
        signal();
    return true;
}

void ymMainLoop::State::signal()
{
    signalled = true;
    uint64_t one = 1;
    while (write(wakeFd, &one, sizeof one) < 0 && errno == EINTR) {
    }
}

size_t ymMainLoop::State::runQueue()
{
    {
        std::lock_guard<ymMutex> guard(queueLock);
        uint64_t count;
        while (read(wakeFd, &count, sizeof count) < 0 && errno == EINTR) {
        }
        signalled = false;
    }
    size_t ran = 0;
    for (; ran < kBatch; ++ran) {
        std::function<void()> work;
        {
            std::lock_guard<ymMutex> guard(queueLock);
            if (queue.empty())
                break;
            work = std::move(queue.front());
            queue.pop_front();
        }
        if (work) {
            ymNSLogUnbatched unbatched;  // the work may be the companion's
            guarded("queued work", work);
        }
        // What the work held is let go here, before the next item runs.
    }
    std::lock_guard<ymMutex> guard(queueLock);
    if (!queue.empty())
        moreLeft = true;
    return ran;
}

int ymMainLoop::State::onWake(sd_event_source *, int, uint32_t, void *userdata)
{
    auto *self = static_cast<State *>(userdata);
    if (self->batchServed) {
        self->moreLeft = true;  // signalled again meanwhile: the next dispatch takes it
        uint64_t count;
        while (read(self->wakeFd, &count, sizeof count) < 0 && errno == EINTR) {
        }
        return 0;
    }
    self->batchServed = true;
    self->ranThisDispatch += self->runQueue();
    return 0;
}

int ymMainLoop::State::onSourceReady(sd_event_source *, int, uint32_t, void *userdata)
{
    auto *watched = static_cast<Watched *>(userdata);
    std::shared_ptr<Source> source = watched->source;
    ymNSLogUnbatched unbatched;  // the companion's own code
    guarded("a source", [&] { source->dispatch(); });
    return 0;
}

int ymMainLoop::State::onSourceTime(sd_event_source *timer, uint64_t, void *userdata)
{
    sd_event_source_set_enabled(timer, SD_EVENT_OFF);
    return onSourceReady(nullptr, -1, 0, userdata);
}

int ymMainLoop::State::prepareSource(sd_event_source *, void *userdata)
{
    // The descriptor, its events and the timeout may change from one dispatch to the next.
    auto *watched = static_cast<Watched *>(userdata);
    int fd = -1;
    short events = 0;
    int timeout = -1;
    guarded("a source", [&] {
        fd = watched->source->fileDescriptor();
        events = watched->source->pollEvents();
        timeout = watched->source->timeoutMilliseconds();
    });
    if (fd >= 0) {
        if (fd != watched->fd)
            sd_event_source_set_io_fd(watched->io, fd);
        watched->fd = fd;
        sd_event_source_set_io_events(watched->io, epollEventsOf(events));
        sd_event_source_set_enabled(watched->io, SD_EVENT_ON);
    } else {
        sd_event_source_set_enabled(watched->io, SD_EVENT_OFF);
    }
    if (timeout >= 0) {
        uint64_t now = 0;
        sd_event_now(watched->state->event, CLOCK_MONOTONIC, &now);
        sd_event_source_set_time(watched->timer, now + static_cast<uint64_t>(timeout) * 1000);
        sd_event_source_set_enabled(watched->timer, SD_EVENT_ONESHOT);
    } else {
        sd_event_source_set_enabled(watched->timer, SD_EVENT_OFF);
    }
    return 0;
}

void ymMainLoop::State::serveSourcesDirectly()
{
    for (const std::unique_ptr<Watched> &watched : sources) {
        std::shared_ptr<Source> source = watched->source;
        bool due = false;
        guarded("a source", [&] {
            int fd = source->fileDescriptor();
            struct pollfd ready = {fd, source->pollEvents(), 0};
            due = source->timeoutMilliseconds() == 0 || (fd >= 0 && poll(&ready, 1, 0) > 0);
        });
        if (due) {
            ymNSLogUnbatched unbatched;
            guarded("a source", [&] { source->dispatch(); });
        }
    }
}

std::vector<struct pollfd> ymMainLoop::State::nestedWaits(int &milliseconds)
{
    // Inside a callback the loop's own descriptor may stay readable for what only the outer
    // dispatch serves: the queue and the sources are waited for one by one instead.
    std::vector<struct pollfd> waited = {{wakeFd, POLLIN, 0}};
    for (const std::unique_ptr<Watched> &watched : sources) {
        guarded("a source", [&] {
            int fd = watched->source->fileDescriptor();
            if (fd >= 0)
                waited.push_back({fd, watched->source->pollEvents(), 0});
            int timeout = watched->source->timeoutMilliseconds();
            if (timeout >= 0 && (milliseconds < 0 || timeout < milliseconds))
                milliseconds = timeout;
        });
    }
    return waited;
}

ymMainLoop::Source::~Source() = default;

ymMainLoop &ymMainLoop::shared()
{
    // Never destroyed: the I/O thread may post to it while the process exits.
    static ymMainLoop *loop = new ymMainLoop();
    return *loop;
}

ymMainLoop::ymMainLoop() : _state(new State()) {}

ymMainLoop::State &ymMainLoop::state()
{
    std::atomic_ref<State *> shared(_state);
    State *current = shared.load(std::memory_order_acquire);
    uint64_t generation = ymFork::generation();
    while (current->generation != generation) {
        // The child of a fork: the parent's loop, queue and descriptors are left as they are.
        State *fresh = new State();
        if (shared.compare_exchange_strong(current, fresh, std::memory_order_acq_rel))
            return *fresh;
        delete fresh;
    }
    return *current;
}

void ymMainLoop::post(std::function<void()> work)
{
    ymNSLogFlush();  // the lines that led to the work come before its own
    State &state = this->state();
    std::lock_guard<ymMutex> guard(state.queueLock);
    state.queue.push_back(std::move(work));
    // One signal stands for everything queued until the loop takes it.
    if (!state.signalled && state.hasWakeDescriptor())
        state.signal();
}

int ymMainLoop::fileDescriptor() const
{
    State &state = const_cast<ymMainLoop *>(this)->state();
    // Never waits for a dispatch under way on another thread.
    int fd = state.loopFd.load(std::memory_order_acquire);
    if (fd >= 0)
        return fd;
    std::lock_guard<ymRecursiveMutex> dispatching(state.dispatchLock);
    return state.ready() ? sd_event_get_fd(state.event) : -1;
}

void ymMainLoop::addSource(const std::shared_ptr<Source> &source)
{
    State &state = this->state();
    std::lock_guard<ymRecursiveMutex> dispatching(state.dispatchLock);
    if (!source || !state.ready())
        return;
    auto watched = std::make_unique<State::Watched>();
    watched->state = &state;
    watched->source = source;
    // Made with the descriptor of the moment; prepareSource() follows it from then on.
    int fd = -1;
    guarded("a source", [&] { fd = source->fileDescriptor(); });
    int placeholder = fd >= 0 ? fd : state.wakeFd;
    if (sd_event_add_io(state.event, &watched->io, placeholder, 0, State::onSourceReady, watched.get()) < 0)
        return;
    watched->fd = placeholder;
    sd_event_source_set_prepare(watched->io, State::prepareSource);
    if (sd_event_add_time(state.event, &watched->timer, CLOCK_MONOTONIC, UINT64_MAX, 1000, State::onSourceTime,
                          watched.get()) >= 0)
        sd_event_source_set_enabled(watched->timer, SD_EVENT_OFF);
    State::prepareSource(watched->io, watched.get());
    state.sources.push_back(std::move(watched));
    state.signal();  // a companion waiting on the descriptor looks again
}

size_t ymMainLoop::dispatch()
{
    State &state = this->state();
    std::lock_guard<ymRecursiveMutex> dispatching(state.dispatchLock);
    if (!state.ready())
        return 0;
    ++dispatchDepth;
    size_t ran;
    if (sd_event_get_state(state.event) == SD_EVENT_INITIAL) {
        state.ranThisDispatch = 0;
        state.batchServed = false;
        state.moreLeft = false;
        int served = 0;
        while (served < kSourcesPerDispatch && sd_event_run(state.event, 0) > 0)
            ++served;
        if (served == kSourcesPerDispatch)
            state.moreLeft = true;
        ran = state.ranThisDispatch;
    } else {
        // From inside a callback: the queue goes on from its next item, the sources are asked.
        ran = state.runQueue();
        state.serveSourcesDirectly();
    }
    if (state.moreLeft) {
        // The descriptor stays readable: the companion's loop comes back after its other work.
        state.moreLeft = false;
        std::lock_guard<ymMutex> guard(state.queueLock);
        state.signal();
    }
    --dispatchDepth;
    return ran;
}

bool ymMainLoop::runUntil(const std::function<bool()> &done, std::chrono::milliseconds timeout)
{
    using Clock = std::chrono::steady_clock;
    State &state = this->state();
    const bool forever = timeout == std::chrono::milliseconds::max();
    // Far enough for any wait: a later deadline is as good as none.
    const auto longest = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::hours(24 * 365 * 100));
    const Clock::time_point deadline = forever || timeout > longest ? Clock::time_point::max() : Clock::now() + timeout;
    for (;;) {
        dispatch();
        bool finished = false;
        guarded("a loop's condition", [&] { finished = done ? done() : false; });
        if (finished)
            return true;
        if (state.stopRequested.exchange(false))
            return false;
        int wait = -1;
        if (deadline != Clock::time_point::max()) {
            auto remaining = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            if (remaining.count() <= 0)
                return false;
            wait = static_cast<int>(std::min<long long>(remaining.count() + 1, 60'000));
        }
        if (dispatchDepth > 0) {
            std::vector<struct pollfd> waited;
            {
                std::lock_guard<ymRecursiveMutex> dispatching(state.dispatchLock);
                waited = state.nestedWaits(wait);
            }
            poll(waited.data(), waited.size(), wait);
        } else {
            int fd = fileDescriptor();
            struct pollfd ready = {fd, POLLIN, 0};
            if (fd >= 0)
                poll(&ready, 1, wait);
            else
                poll(nullptr, 0, wait < 0 || wait > 100 ? 100 : wait);  // no loop could be made: look again soon
        }
    }
}

void ymMainLoop::runFor(std::chrono::milliseconds duration) { runUntil(nullptr, duration); }

void ymMainLoop::run() { runUntil(nullptr, std::chrono::milliseconds::max()); }

void ymMainLoop::stop()
{
    State &state = this->state();
    state.stopRequested = true;
    std::lock_guard<ymMutex> guard(state.queueLock);
    if (state.hasWakeDescriptor())
        state.signal();
}
