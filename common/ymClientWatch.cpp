#include "common/ymClientWatch.h"

#include <YumoClientSdk/ymMainLoop.h>
#include <algorithm>
#include <atomic>
#include <exception>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <unistd.h>
#include <utility>
#include <vector>

#include "platform/ymFolderWatch.h"
#include "platform/ymGuarded.h"
#include "platform/ymFork.h"
#include "platform/ymIOLoop.h"
#include "platform/ymProcessBound.h"
#include "platform/ymMutex.h"
#include "platform/ymProcessHandle.h"
#include "platform/ymWorkspace.h"

namespace {

// While no client runs, after a change the process table is looked at again after these delays
// (an exec of the client is seen in its folder before the process has become the client), and then
// once a minute (a client may start from a bundle elsewhere).
constexpr std::chrono::milliseconds kStartChecks[] = {std::chrono::milliseconds(50), std::chrono::milliseconds(250),
                                                      std::chrono::milliseconds(1000)};
constexpr std::chrono::minutes kIdleCheck{1};

// Changes to the folders come in bursts (a bundle copied or removed file by file): the client is
// looked at once the folders have been quiet this long, or at the latest this long after the first.
constexpr std::chrono::milliseconds kQuietFor{100};
constexpr std::chrono::milliseconds kQuietAtMost{500};

// While inotify cannot watch every folder, they are looked at with stat this often (give or take
// the slack), and inotify is tried again.
constexpr std::chrono::milliseconds kStatEvery{1000};
constexpr std::chrono::milliseconds kStatSlack{500};

std::atomic<uint64_t> snapshotCount{0};

// Whether observers hear of the difference: a client that quit and started again between two looks
// (none of its processes is the same) is a difference too.
bool sameForObservers(const ymClientSnapshot &a, const ymClientSnapshot &b)
{
    return a.installed == b.installed && a.running == b.running && a.version == b.version && a.installPath == b.installPath &&
           !ymClientSnapshotRestarted(a, b);
}

bool covers(const std::vector<std::string> &watched, const std::string &watchedExec, const ymClientSnapshot &snapshot)
{
    if (snapshot.executableFolder != watchedExec)
        return false;
    for (const std::string &folder : snapshot.folders)
        if (std::find(watched.begin(), watched.end(), folder) == watched.end())
            return false;
    return true;
}

// A descriptor of the loop's own for a source: a copy, close-on-exec as every descriptor here.
int copyOf(int fd) { return fcntl(fd, F_DUPFD_CLOEXEC, 0); }

// What a loop runs for the watch: nothing it throws goes further than a line in the log.
template <typename Body>
void guarded(const char *what, Body &&body) noexcept
{
    ymGuarded("ymClientWatch", what, std::forward<Body>(body));
}

}  // namespace

struct ymClientWatch::State : std::enable_shared_from_this<ymClientWatch::State> {
    explicit State(uint64_t generation) : generation(generation) {}

    // The process it was made in: in the child of a fork it is abandoned whole, and work queued
    // for it there does nothing.
    const uint64_t generation;
    bool ours() const { return generation == ymFork::generation(); }

    ymMutex lock;  // orders the snapshots, and the observers' calls with them
    ymFolderWatch folders;
    std::vector<std::string> watched;  // the folders armed, and the executable folder
    std::string watchedExec;
    bool trusted = false;              // inotify watched every folder the snapshot depends on before it was taken
    bool foldersChanged = false;       // a change the I/O thread took from the watch and nobody has looked at
    std::shared_ptr<const ymClientSnapshot> snapshot;
    std::vector<ymProcessHandle> processes;
    std::map<uint64_t, Observer> observers;
    uint64_t nextToken = 1;
    bool lookQueued = false;           // a look waits on the main loop
    bool restartChecks = false;        // ... after a change: the start checks begin again

    // The I/O thread's, while there are observers (the Use is taken and given up under the lock).
    std::shared_ptr<ymIOLoop::Use> use;
    std::unique_ptr<ymIOLoop::Descriptor> foldersSource;
    int foldersCopy = -1;
    struct ProcessSource {
        pid_t pid;
        int copy;
        std::unique_ptr<ymIOLoop::Descriptor> source;
    };
    std::vector<ProcessSource> processSources;
    std::unique_ptr<ymIOLoop::Timer> timer;
    std::unique_ptr<ymIOLoop::Timer> quietTimer;
    std::unique_ptr<ymIOLoop::Timer> statTimer;
    std::chrono::steady_clock::time_point firstUnsettled;
    size_t startChecks = 0;

    // Any thread but the I/O thread takes a snapshot when the last one is stale; `resyncAnyway`
    // has the I/O thread's sources armed afresh even when not.
    std::shared_ptr<const ymClientSnapshot> current(bool resyncAnyway = false);
    void take();
    // Under the lock: the observers of now (or those of `tokens`) hear of the change, on the main loop.
    void tell(const std::shared_ptr<const ymClientSnapshot> &now, const std::shared_ptr<const ymClientSnapshot> &before);
    void tell(const std::shared_ptr<const ymClientSnapshot> &now, const std::shared_ptr<const ymClientSnapshot> &before,
              std::vector<uint64_t> tokens);
    void askForLook(bool afterChange);
    void look();
    void postResync();
    // On the I/O thread.
    void resync();
    void onFoldersChanged();
    void noteFolderChanges();  // under the lock
    void onProcessEnded(pid_t pid);
    void onTimer();
    void onStatTimer();
    void armStatTimer();  // under the lock
    void stop();
    void stopSources();
};

std::shared_ptr<const ymClientSnapshot> ymClientWatch::State::current(bool resyncAnyway)
{
    std::lock_guard<ymMutex> guard(lock);
    bool changed = folders.changed() || foldersChanged;
    if (snapshot && ymIOLoop::onIOThread()) {
        // No snapshot is taken on the I/O thread: the last one is answered, and the main loop looks.
        if (changed) {
            foldersChanged = true;
            askForLook(true);
        }
        return snapshot;
    }
    foldersChanged = false;
    bool fresh = snapshot && trusted && !changed && ymClientSnapshotIsForNow(*snapshot);
    if (fresh && snapshot->running) {
        for (const ymProcessHandle &process : processes)
            if (process.hasEnded())
                fresh = false;
    } else if (fresh) {
        fresh = !ymWorkspace::isApplicationRunning(snapshot->identifier);
    }
    if (!fresh) {
        std::shared_ptr<const ymClientSnapshot> before = snapshot;
        take();
        if (before && !sameForObservers(*before, *snapshot))
            tell(snapshot, before);  // queued before the lock is let go: in the order taken
    }
    if (!fresh || resyncAnyway)
        postResync();
    return snapshot;
}

void ymClientWatch::State::take()
{
    // Every folder the snapshot depends on is watched before the search that makes it, so that no
    // change after the search goes unseen. The folders of the last search are watched again first
    // (one that has been made since is watched itself now, not through its parent; one made anew
    // is watched anew); a search that finds folders not watched yet has them watched, and is made
    // again.
    std::shared_ptr<ymClientSnapshot> taken;
    bool covered = false;
    for (int pass = 0; pass < 3 && !covered; ++pass) {
        if (pass > 0 || !watched.empty()) {
            trusted = folders.watchOnly(watched, watchedExec);
            folders.changed();  // the search below sees whatever this was
        }
        taken = ymTakeClientSnapshot();
        snapshotCount.fetch_add(1, std::memory_order_relaxed);
        covered = covers(watched, watchedExec, *taken);
        if (!covered) {
            watched = taken->folders;
            watchedExec = taken->executableFolder;
        }
    }
    trusted = trusted && covered;
    processes.clear();
    for (pid_t pid : taken->processes)
        processes.emplace_back(pid);
    snapshot = taken;
}

void ymClientWatch::State::tell(const std::shared_ptr<const ymClientSnapshot> &now, const std::shared_ptr<const ymClientSnapshot> &before)
{
    std::vector<uint64_t> tokens;
    for (const auto &[token, observer] : observers)
        tokens.push_back(token);
    tell(now, before, std::move(tokens));
}

void ymClientWatch::State::tell(const std::shared_ptr<const ymClientSnapshot> &now, const std::shared_ptr<const ymClientSnapshot> &before,
                                std::vector<uint64_t> tokens)
{
    // Posted under the lock, so changes are told in the order they were taken; an observer removed
    // before its call comes is not called.
    if (tokens.empty())
        return;
    std::weak_ptr<State> weak = weak_from_this();
    ymMainLoop::shared().post([weak, tokens, now, before] {
        std::shared_ptr<State> self = weak.lock();
        if (!self || !self->ours())
            return;
        for (uint64_t token : tokens) {
            Observer observer;
            {
                std::lock_guard<ymMutex> guard(self->lock);
                auto found = self->observers.find(token);
                if (found == self->observers.end())
                    continue;
                observer = found->second;
            }
            guarded("an observer", [&] { observer(*now, *before); });
        }
    });
}

void ymClientWatch::State::askForLook(bool afterChange)
{
    // Under the lock; any thread.
    restartChecks = restartChecks || afterChange;
    if (lookQueued)
        return;
    lookQueued = true;
    std::weak_ptr<State> weak = weak_from_this();
    ymMainLoop::shared().post([weak] {
        if (std::shared_ptr<State> self = weak.lock(); self && self->ours())
            guarded("a look", [&] { self->look(); });
    });
}

void ymClientWatch::State::look()
{
    {
        std::lock_guard<ymMutex> guard(lock);
        lookQueued = false;  // a change from now on asks for another look
        if (std::exchange(restartChecks, false))
            startChecks = 0;
    }
    current(true);
}

void ymClientWatch::State::postResync()
{
    // Under the lock.
    if (!use)
        return;
    std::weak_ptr<State> weak = weak_from_this();
    ymIOLoop::shared().post([weak] {
        if (std::shared_ptr<State> self = weak.lock(); self && self->ours())
            guarded("arming its sources", [&] { self->resync(); });
    });
}

void ymClientWatch::State::resync()
{
    std::lock_guard<ymMutex> guard(lock);
    if (!use)
        return;  // no observers any more: the sources are ending
    std::weak_ptr<State> weak = weak_from_this();
    if (!foldersSource && folders.descriptor() >= 0 && (foldersCopy = copyOf(folders.descriptor())) >= 0) {
        foldersSource = ymIOLoop::Descriptor::watch(foldersCopy, [weak](bool, bool, bool) {
            if (std::shared_ptr<State> self = weak.lock())
                guarded("a folder change", [&] { self->onFoldersChanged(); });
        });
        if (!foldersSource) {
            close(foldersCopy);
            foldersCopy = -1;
        }
    }
    // What inotify does not watch is looked at with stat, and inotify tried again.
    if (folders.complete() && foldersSource) {
        statTimer.reset();
    } else if (!statTimer) {
        armStatTimer();
    }
    // A source for each process of the client, on a descriptor of its own.
    std::vector<pid_t> pids;
    for (const ymProcessHandle &process : processes)
        if (process.descriptor() >= 0)
            pids.push_back(process.pid());
    std::vector<pid_t> sourced;
    for (const ProcessSource &source : processSources)
        sourced.push_back(source.pid);
    if (pids != sourced) {
        for (ProcessSource &source : processSources) {
            source.source.reset();
            close(source.copy);
        }
        processSources.clear();
        for (const ymProcessHandle &process : processes) {
            int copy = process.descriptor() >= 0 ? copyOf(process.descriptor()) : -1;
            if (copy < 0)
                continue;
            pid_t pid = process.pid();
            auto source = ymIOLoop::Descriptor::watch(copy, [weak, pid](bool, bool, bool) {
                if (std::shared_ptr<State> self = weak.lock())
                    guarded("a process's end", [&] { self->onProcessEnded(pid); });
            });
            processSources.push_back({process.pid(), copy, std::move(source)});
        }
    }
    bool unseenEnds = std::any_of(processes.begin(), processes.end(), [&](const ymProcessHandle &process) {
        return process.valid() && std::none_of(processSources.begin(), processSources.end(), [&](const ProcessSource &source) {
                   return source.pid == process.pid() && source.source;
               });
    });
    if (snapshot && snapshot->running && unseenEnds) {
        // No descriptor tells of these processes' end: they are asked every second.
        timer = ymIOLoop::Timer::after(std::chrono::seconds(1), [weak] {
            if (std::shared_ptr<State> self = weak.lock())
                guarded("a look at the client", [&] { self->onTimer(); });
        });
    } else if (snapshot && !snapshot->running) {
        bool quick = startChecks < std::size(kStartChecks);
        auto delay = quick ? kStartChecks[startChecks++] : std::chrono::duration_cast<std::chrono::milliseconds>(kIdleCheck);
        timer = ymIOLoop::Timer::after(
            delay,
            [weak] {
                if (std::shared_ptr<State> self = weak.lock())
                    guarded("a look at the client", [&] { self->onTimer(); });
            },
            quick ? std::chrono::milliseconds(10) : std::chrono::milliseconds(10000));
    } else {
        timer.reset();
    }
}

void ymClientWatch::State::onProcessEnded(pid_t pid)
{
    // The descriptor stays readable: its source ends here, and the look that follows arms the
    // sources of the processes it finds.
    std::lock_guard<ymMutex> guard(lock);
    auto ended = std::find_if(processSources.begin(), processSources.end(),
                              [pid](const ProcessSource &source) { return source.pid == pid; });
    if (ended != processSources.end()) {
        ended->source.reset();
        close(ended->copy);
        processSources.erase(ended);
    }
    askForLook(true);
}

void ymClientWatch::State::onTimer()
{
    std::lock_guard<ymMutex> guard(lock);
    if (!use)
        return;
    // While the folders are changing, the look waits for them to be quiet (a bundle half copied
    // is no news).
    noteFolderChanges();
    if (!quietTimer)
        askForLook(false);
}

void ymClientWatch::State::onStatTimer()
{
    std::lock_guard<ymMutex> guard(lock);
    statTimer.reset();
    if (!use)
        return;
    bool changed = folders.poll();
    if (changed)
        foldersChanged = true;
    // Meanwhile every look takes a snapshot (it is not trusted): one while no client runs finds a
    // client started, which no folder may tell without inotify.
    if (changed || !snapshot || !snapshot->running)
        askForLook(changed);
    if (!folders.complete() || !foldersSource)
        armStatTimer();
}

void ymClientWatch::State::armStatTimer()
{
    std::weak_ptr<State> weak = weak_from_this();
    statTimer = ymIOLoop::Timer::after(
        kStatEvery,
        [weak] {
            if (std::shared_ptr<State> self = weak.lock())
                guarded("a look at the folders", [&] { self->onStatTimer(); });
        },
        kStatSlack);
}

void ymClientWatch::State::onFoldersChanged()
{
    std::lock_guard<ymMutex> guard(lock);
    if (use)
        noteFolderChanges();
}

void ymClientWatch::State::noteFolderChanges()
{
    if (folders.changed() && !foldersChanged) {
        foldersChanged = true;
        firstUnsettled = std::chrono::steady_clock::now();
    }
    if (!foldersChanged)
        return;  // nothing that counts (a busy folder standing for one not made yet, say)
    auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - firstUnsettled);
    auto delay = std::max(std::chrono::milliseconds(0), std::min(kQuietFor, kQuietAtMost - waited));
    std::weak_ptr<State> weak = weak_from_this();
    quietTimer = ymIOLoop::Timer::after(delay, [weak] {
        if (std::shared_ptr<State> self = weak.lock())
            guarded("a look after changes", [&] {
                std::lock_guard<ymMutex> guard(self->lock);
                self->quietTimer.reset();
                self->askForLook(true);
            });
    });
}

void ymClientWatch::State::stop()
{
    // On the I/O thread, after the last observer went; one that came meanwhile keeps the sources.
    std::shared_ptr<ymIOLoop::Use> ending;
    {
        std::lock_guard<ymMutex> guard(lock);
        if (!observers.empty() || !use)
            return;
        stopSources();
        ending = std::move(use);
    }
    // The use of the thread is given up after the sources, outside the lock.
}

void ymClientWatch::State::stopSources()
{
    foldersSource.reset();
    if (foldersCopy >= 0)
        close(foldersCopy);
    foldersCopy = -1;
    for (ProcessSource &source : processSources) {
        source.source.reset();
        close(source.copy);
    }
    processSources.clear();
    timer.reset();
    quietTimer.reset();
    statTimer.reset();
}

ymClientWatch &ymClientWatch::shared()
{
    static ymClientWatch *watch = new ymClientWatch();
    return *watch;
}

ymClientWatch::ymClientWatch() = default;

ymClientWatch::State &ymClientWatch::stateHere()
{
    return _state.get([](const State *) { return std::make_shared<State>(ymFork::generation()); });
}

std::shared_ptr<ymClientWatch::State> ymClientWatch::state()
{
    // Never destroyed: a fork may come at any time. The states of the processes this one was
    // forked from are kept (never destroyed, none of their descriptors touched) and none is used.
    return stateHere().shared_from_this();
}

std::shared_ptr<const ymClientSnapshot> ymClientWatch::current()
{
    // Every command asks: no reference is taken for it, the state outlives the call.
    return stateHere().current();
}

uint64_t ymClientWatch::addObserver(Observer observer, std::shared_ptr<const ymClientSnapshot> since)
{
    std::shared_ptr<State> state = this->state();
    state->current();
    std::lock_guard<ymMutex> guard(state->lock);
    uint64_t token = state->nextToken++;
    state->observers.emplace(token, std::move(observer));
    // A change between what the caller saw and the snapshot above is told first; later ones are
    // told to every observer, this one included, after it.
    if (since && state->snapshot && !sameForObservers(*since, *state->snapshot))
        state->tell(state->snapshot, since, {token});
    if (!state->use) {
        state->use = std::make_shared<ymIOLoop::Use>();
        state->postResync();
    }
    return token;
}

void ymClientWatch::removeObserver(uint64_t token)
{
    std::shared_ptr<State> state = this->state();
    {
        std::lock_guard<ymMutex> guard(state->lock);
        if (!state->observers.erase(token) || !state->observers.empty())
            return;
    }
    // The sources end on the I/O thread, unless an observer has come again by then.
    ymIOLoop::shared().post([state] {
        if (state->ours())
            guarded("ending its sources", [&] { state->stop(); });
    });
}

uint64_t ymClientWatch::snapshotsTaken() { return snapshotCount.load(std::memory_order_relaxed); }
