// The I/O thread on sd-event. Work posted from other threads waits in a queue that an eventfd
// signals; the thread runs it between dispatches, and ends when no Use and no work is left.
#include "platform/ymIOLoop.h"
#include "platform/linux/ymEventSource.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <systemd/sd-event.h>
#include <thread>
#include <unistd.h>

#include "platform/ymFork.h"
#include "platform/ymMutex.h"
#include "platform/ymNSLog.h"

namespace {

// The I/O thread's name, as ps and /proc show it.
const char *const kThreadName = "yumosdk-io";

// Set on the I/O thread while it runs: that it is the I/O thread, and its sd-event loop (null when
// sd-event could not be set up).
thread_local sd_event *runningEvent = nullptr;
// The process generation the thread's loop belongs to, 0 on other threads: a thread that forked
// is not the child's I/O thread.
thread_local uint64_t loopGeneration = 0;

}  // namespace

struct ymIOLoop::State {
    // The process it serves: in the child of a fork the parent's state is abandoned (its thread does
    // not exist there, and its descriptors are the parent's).
    const uint64_t generation = ymFork::generation();
    ymMutex lock;
    std::deque<std::function<void()>> work;
    long uses = 0;
    bool running = false;
    int wakeFd = -1;

    // Under the lock: the thread runs after this, unless none could be started.
    bool ensureRunning();
    void wake() const;
    void run(sd_event *event, sd_event_source *wakeSource);
};

bool ymIOLoop::State::ensureRunning()
{
    if (running)
        return true;
    // Everything the thread needs is made here, so that a failure is told to the caller (and
    // tried again by the next one) instead of leaving a thread that cannot serve.
    if (wakeFd < 0 && (wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) < 0)
        return false;
    sd_event *event = nullptr;
    if (sd_event_new(&event) < 0)
        return false;
    sd_event_source *wakeSource = nullptr;
    auto drain = [](sd_event_source *, int fd, uint32_t, void *) {
        uint64_t count;
        while (read(fd, &count, sizeof count) < 0 && errno == EINTR) {
        }
        return 0;
    };
    if (sd_event_add_io(event, &wakeSource, wakeFd, EPOLLIN, drain, nullptr) < 0) {
        sd_event_unref(event);
        return false;
    }
    // The loop makes its clock's descriptor with the first timer and keeps it: made now, not when
    // a pause is first needed, since a pause is needed most where no descriptor can be made.
    sd_event_source *clock = nullptr;
    auto never = [](sd_event_source *, uint64_t, void *) { return 0; };
    if (sd_event_add_time_relative(event, &clock, CLOCK_MONOTONIC, 0, 0, never, nullptr) >= 0)
        sd_event_source_disable_unref(clock);
    // A thread that ended has given up the lock for good and frees its own loop only, so the next
    // one may start beside it: nobody waits for it, and it is not kept to be joined.
    try {
        std::thread(&State::run, this, event, wakeSource).detach();
    } catch (const std::system_error &) {
        sd_event_source_disable_unref(wakeSource);
        sd_event_unref(event);
        return false;
    }
    running = true;
    return true;
}

void ymIOLoop::State::wake() const
{
    uint64_t one = 1;
    while (write(wakeFd, &one, sizeof one) < 0 && errno == EINTR) {
    }
}

void ymIOLoop::State::run(sd_event *event, sd_event_source *wakeSource)
{
    pthread_setname_np(pthread_self(), kThreadName);
    runningEvent = event;
    loopGeneration = generation;
    for (;;) {
        std::deque<std::function<void()>> ready;
        {
            std::lock_guard<ymMutex> guard(lock);
            if (work.empty() && uses == 0) {
                running = false;
                break;
            }
            ready.swap(work);
        }
        for (std::function<void()> &item : ready)
            ymIOLoopGuarded("work", item);
        bool ranWork = !ready.empty();
        ready.clear();  // what the work held is let go now, not at the next wake-up
        // Pending events are served between batches of work, so that neither starves the other;
        // with nothing queued the thread sleeps until an event or new work comes.
        sd_event_run(event, ranWork ? 0 : UINT64_MAX);
    }
    runningEvent = nullptr;
    loopGeneration = 0;
    sd_event_source_disable_unref(wakeSource);
    sd_event_unref(event);
}

ymIOLoop &ymIOLoop::shared()
{
    // Never destroyed: the thread may still be serving while the process exits.
    static ymIOLoop *loop = new ymIOLoop();
    return *loop;
}

ymIOLoop::ymIOLoop() : _state(new State()) {}

ymIOLoop::State &ymIOLoop::state()
{
    State *current = _state.load(std::memory_order_acquire);
    uint64_t generation = ymFork::generation();
    while (current->generation != generation) {
        // The child of a fork: the parent's state is left as it is, never used or freed.
        State *fresh = new State();
        if (_state.compare_exchange_strong(current, fresh, std::memory_order_acq_rel))
            return *fresh;
        delete fresh;  // another thread of the child made one first
    }
    return *current;
}

ymIOLoop::Use::Use() : _generation(ymFork::generation())
{
    State &state = shared().state();
    std::lock_guard<ymMutex> guard(state.lock);
    ++state.uses;
    _running = state.ensureRunning();
}

ymIOLoop::Use::~Use()
{
    if (_generation != ymFork::generation())
        return;  // taken by the parent of this process: its loop is not this one
    State &state = shared().state();
    std::lock_guard<ymMutex> guard(state.lock);
    if (--state.uses == 0)
        state.wake();  // the thread looks again, and ends
}

bool ymIOLoop::post(std::function<void()> work)
{
    ymNSLogFlush();  // the lines that led to the work come before its own
    State &state = this->state();
    bool wasEmpty;
    {
        std::lock_guard<ymMutex> guard(state.lock);
        if (!state.ensureRunning())
            return false;
        wasEmpty = state.work.empty();
        state.work.push_back(std::move(work));
    }
    if (wasEmpty)
        state.wake();
    return true;
}

bool ymIOLoop::runAndWait(std::function<void()> work, std::chrono::milliseconds limit)
{
    if (onIOThread()) {
        work();
        return true;
    }
    struct Done {
        std::mutex lock;
        std::condition_variable condition;
        bool finished = false;
    };
    auto done = std::make_shared<Done>();
    bool queued = post([work = std::move(work), done] {
        work();
        std::lock_guard<std::mutex> guard(done->lock);
        done->finished = true;
        done->condition.notify_all();
    });
    if (!queued)
        return false;
    std::unique_lock<std::mutex> guard(done->lock);
    return done->condition.wait_for(guard, limit, [&] { return done->finished; });
}

bool ymIOLoop::onIOThread() { return loopGeneration == ymFork::generation(); }

sd_event *ymIOLoopEvent() { return ymIOLoop::onIOThread() ? runningEvent : nullptr; }

namespace {

class DescriptorSource : public ymIOLoop::Descriptor, ymIOLoopSourceOf<ymIOLoop::Descriptor::Handler> {
public:
    explicit DescriptorSource(Handler handler) : ymIOLoopSourceOf(std::move(handler)) {}
    bool add(int fd) { return ymIOLoopEvent() && sd_event_add_io(ymIOLoopEvent(), &_source, fd, EPOLLIN, onEvent, this) >= 0; }
    void setWritable(bool writable) override { setEvents(_readable, writable); }
    void setReadable(bool readable) override { setEvents(readable, _writable); }

private:
    void setEvents(bool readable, bool writable)
    {
        if (readable == _readable && writable == _writable)
            return;
        uint32_t events = (readable ? uint32_t(EPOLLIN) : 0u) | (writable ? uint32_t(EPOLLOUT) : 0u);
        // Watching nothing is switching the source off: a hangup would be told over and over.
        if (events != 0 && sd_event_source_set_io_events(_source, events) < 0)
            return;
        if (sd_event_source_set_enabled(_source, events != 0 ? SD_EVENT_ON : SD_EVENT_OFF) < 0)
            return;
        _readable = readable;
        _writable = writable;
    }
    static int onEvent(sd_event_source *, int, uint32_t events, void *userdata)
    {
        std::shared_ptr<Handler> handler = static_cast<DescriptorSource *>(userdata)->handler();
        ymIOLoopGuarded("descriptor", [&] {
            (*handler)((events & EPOLLIN) != 0, (events & EPOLLOUT) != 0, (events & (EPOLLHUP | EPOLLERR)) != 0);
        });
        return 0;
    }
    bool _readable = true;
    bool _writable = false;
};

class TimerSource : public ymIOLoop::Timer, ymIOLoopSourceOf<std::function<void()>> {
public:
    explicit TimerSource(std::function<void()> handler) : ymIOLoopSourceOf(std::move(handler)) {}
    bool add(std::chrono::milliseconds delay, std::chrono::milliseconds slack)
    {
        uint64_t usec = static_cast<uint64_t>(std::max<long long>(delay.count(), 0)) * 1000;
        // sd-event takes an accuracy of 0 as its default of 250 ms: never ask for less than 1 us.
        uint64_t accuracy = std::max<uint64_t>(static_cast<uint64_t>(std::max<long long>(slack.count(), 0)) * 1000, 1);
        return ymIOLoopEvent() && sd_event_add_time_relative(ymIOLoopEvent(), &_source, CLOCK_MONOTONIC, usec, accuracy, onTime, this) >= 0;
    }

private:
    static int onTime(sd_event_source *, uint64_t, void *userdata)
    {
        std::shared_ptr<std::function<void()>> handler = static_cast<TimerSource *>(userdata)->handler();
        ymIOLoopGuarded("timer", *handler);
        return 0;
    }
};

}  // namespace

std::unique_ptr<ymIOLoop::Descriptor> ymIOLoop::Descriptor::watch(int fd, Handler handler)
{
    auto source = std::make_unique<DescriptorSource>(std::move(handler));
    return source->add(fd) ? std::move(source) : nullptr;
}

std::unique_ptr<ymIOLoop::Timer> ymIOLoop::Timer::after(std::chrono::milliseconds delay, std::function<void()> handler,
                                                        std::chrono::milliseconds slack)
{
    auto source = std::make_unique<TimerSource>(std::move(handler));
    return source->add(delay, slack) ? std::move(source) : nullptr;
}
