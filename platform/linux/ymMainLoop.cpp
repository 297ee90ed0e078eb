// The main loop on epoll: an eventfd says "work is queued", and each source's descriptor is
// watched with the events it asks for. The epoll descriptor itself is what a companion hooks
// into its own loop.
#include <YumoClientSdk/ymMainLoop.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <deque>
#include <mutex>

#include "platform/ymMutex.h"
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <vector>

struct ymMainLoop::State {
    int epollFd = -1;
    int wakeFd = -1;

    ymMutex queueLock;
    std::deque<std::function<void()>> queue;

    // Each source with the descriptor it is watched by: a source may change its descriptor (the
    // bus source does when its connection is lost and when it comes back).
    struct Watched {
        std::shared_ptr<Source> source;
        int fd;
    };
    ymMutex sourcesLock;
    std::vector<Watched> sources;

    // One thread dispatches at a time; the same thread may dispatch again from a callback.
    ymRecursiveMutex dispatchLock;
    std::atomic<bool> stopRequested{false};

    void wake() const
    {
        uint64_t one = 1;
        while (write(wakeFd, &one, sizeof one) < 0 && errno == EINTR) {
        }
    }

    static uint32_t epollEventsOf(short pollEvents)
    {
        uint32_t events = 0;
        if (pollEvents & POLLIN)
            events |= EPOLLIN;
        if (pollEvents & POLLOUT)
            events |= EPOLLOUT;
        return events;
    }

    // Watches the source's descriptor for the events it waits for now; a descriptor that changed
    // is swapped (the old one may be closed already, which took it out by itself).
    void watch(Watched &watched) const
    {
        int fd = watched.source->fileDescriptor();
        struct epoll_event event = {};
        event.events = epollEventsOf(watched.source->pollEvents());
        event.data.fd = fd;
        if (fd != watched.fd) {
            if (watched.fd >= 0)
                epoll_ctl(epollFd, EPOLL_CTL_DEL, watched.fd, nullptr);
            if (fd >= 0)
                epoll_ctl(epollFd, EPOLL_CTL_ADD, fd, &event);
            watched.fd = fd;
        } else if (fd >= 0 && epoll_ctl(epollFd, EPOLL_CTL_MOD, fd, &event) != 0 && errno == ENOENT) {
            epoll_ctl(epollFd, EPOLL_CTL_ADD, fd, &event);  // the same number, opened again
        }
    }

    int sourcesTimeout()
    {
        std::lock_guard<ymMutex> guard(sourcesLock);
        int timeout = -1;
        for (const auto &watched : sources) {
            int wanted = watched.source->timeoutMilliseconds();
            if (wanted >= 0 && (timeout < 0 || wanted < timeout))
                timeout = wanted;
        }
        return timeout;
    }
};

ymMainLoop::Source::~Source() = default;

ymMainLoop &ymMainLoop::shared()
{
    // Never destroyed: reader threads may post to it while the process exits.
    static ymMainLoop *loop = new ymMainLoop();
    return *loop;
}

ymMainLoop::ymMainLoop() : _state(new State())
{
    _state->epollFd = epoll_create1(EPOLL_CLOEXEC);
    _state->wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    struct epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = _state->wakeFd;
    epoll_ctl(_state->epollFd, EPOLL_CTL_ADD, _state->wakeFd, &event);
}

void ymMainLoop::post(std::function<void()> work)
{
    bool wasEmpty;
    {
        std::lock_guard<ymMutex> guard(_state->queueLock);
        wasEmpty = _state->queue.empty();
        _state->queue.push_back(std::move(work));
    }
    // A queue that already held work has already been signalled.
    if (wasEmpty)
        _state->wake();
}

int ymMainLoop::fileDescriptor() const { return _state->epollFd; }

void ymMainLoop::addSource(const std::shared_ptr<Source> &source)
{
    std::lock_guard<ymMutex> guard(_state->sourcesLock);
    _state->sources.push_back({source, -1});
    _state->watch(_state->sources.back());
}

size_t ymMainLoop::dispatch()
{
    std::lock_guard<ymRecursiveMutex> dispatching(_state->dispatchLock);

    // Clear the signal before taking the queue: work posted after this point signals again.
    uint64_t count;
    while (read(_state->wakeFd, &count, sizeof count) < 0 && errno == EINTR) {
    }
    std::deque<std::function<void()>> ready;
    {
        std::lock_guard<ymMutex> guard(_state->queueLock);
        ready.swap(_state->queue);
    }
    for (auto &work : ready)
        if (work)
            work();

    std::vector<std::shared_ptr<Source>> sources;
    {
        std::lock_guard<ymMutex> guard(_state->sourcesLock);
        for (const auto &watched : _state->sources)
            sources.push_back(watched.source);
    }
    for (const auto &source : sources)
        source->dispatch();
    {
        // The descriptors and the events they wait for may have changed.
        std::lock_guard<ymMutex> guard(_state->sourcesLock);
        for (auto &watched : _state->sources)
            _state->watch(watched);
    }
    return ready.size();
}

bool ymMainLoop::runUntil(const std::function<bool()> &done, std::chrono::milliseconds timeout)
{
    using Clock = std::chrono::steady_clock;
    const bool forever = timeout == std::chrono::milliseconds::max();
    const Clock::time_point deadline = forever ? Clock::time_point::max() : Clock::now() + timeout;
    for (;;) {
        dispatch();
        bool finished = done ? done() : false;
        if (finished)
            return true;
        if (_state->stopRequested.exchange(false))
            return finished;
        int wait = -1;
        if (!forever) {
            auto remaining = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            if (remaining.count() <= 0)
                return finished;
            wait = static_cast<int>(std::min<long long>(remaining.count() + 1, 60'000));
        }
        int sourceWait = _state->sourcesTimeout();
        if (sourceWait >= 0 && (wait < 0 || sourceWait < wait))
            wait = sourceWait;
        struct epoll_event events[8];
        epoll_wait(_state->epollFd, events, 8, wait);
    }
}

void ymMainLoop::runFor(std::chrono::milliseconds duration) { runUntil(nullptr, duration); }

void ymMainLoop::run() { runUntil(nullptr, std::chrono::milliseconds::max()); }

void ymMainLoop::stop()
{
    _state->stopRequested = true;
    _state->wake();
}
