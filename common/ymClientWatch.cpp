#include "common/ymClientWatch.h"

#include <YumoClientSdk/ymMainLoop.h>
#include <algorithm>
#include <map>
#include <mutex>

#include "platform/ymMutex.h"
#include <unistd.h>
#include <vector>

#include "platform/ymFolderWatch.h"
#include "platform/ymIOLoop.h"
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

}  // namespace

struct ymClientWatch::State : std::enable_shared_from_this<ymClientWatch::State> {
    ymMutex lock;
    ymFolderWatch folders;
    std::vector<std::string> watched;  // the folders armed, and the executable folder
    std::string watchedExec;
    bool trusted = false;              // every folder the snapshot depends on was watched before it was taken
    bool foldersChanged = false;       // a change the I/O thread took from the watch and has not acted on
    std::shared_ptr<const ymClientSnapshot> snapshot;
    std::vector<ymProcessHandle> processes;
    std::map<uint64_t, Observer> observers;
    uint64_t nextToken = 1;

    // The I/O thread's, while there are observers.
    std::shared_ptr<ymIOLoop::Use> use;  // set and cleared under the lock
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
    std::chrono::steady_clock::time_point firstUnsettled;
    size_t startChecks = 0;

    std::shared_ptr<const ymClientSnapshot> current();
    void take();
    void resync();
    void onChange(bool startAgain);
    void onFoldersChanged();
    void onTimer();
    void stopSources();
};

std::shared_ptr<const ymClientSnapshot> ymClientWatch::State::current()
{
    std::shared_ptr<const ymClientSnapshot> result, before;
    std::vector<Observer> toTell;
    bool resyncLoop = false;
    {
        std::lock_guard<ymMutex> guard(lock);
        bool changed = folders.changed() || foldersChanged;
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
            before = snapshot;
            take();
            if (before && !sameForObservers(*before, *snapshot))
                for (const auto &[token, observer] : observers)
                    toTell.push_back(observer);
            resyncLoop = use != nullptr;
        }
        result = snapshot;
    }
    if (!toTell.empty())
        ymMainLoop::shared().post([toTell, result, before] {
            for (const Observer &observer : toTell)
                observer(*result, *before);
        });
    if (resyncLoop) {
        std::weak_ptr<State> weak = weak_from_this();
        ymIOLoop::shared().post([weak] {
            if (std::shared_ptr<State> self = weak.lock())
                self->resync();
        });
    }
    return result;
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

void ymClientWatch::State::resync()
{
    std::lock_guard<ymMutex> guard(lock);
    if (!use)
        return;  // no observers any more: the sources are ending
    std::weak_ptr<State> weak = weak_from_this();
    if (!foldersSource && folders.descriptor() >= 0) {
        foldersCopy = dup(folders.descriptor());
        foldersSource = ymIOLoop::Descriptor::watch(foldersCopy, [weak](bool, bool, bool) {
            if (std::shared_ptr<State> self = weak.lock())
                self->onFoldersChanged();
        });
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
            if (process.descriptor() < 0)
                continue;
            int copy = dup(process.descriptor());
            auto source = ymIOLoop::Descriptor::watch(copy, [weak](bool, bool, bool) {
                if (std::shared_ptr<State> self = weak.lock())
                    self->onChange(true);
            });
            processSources.push_back({process.pid(), copy, std::move(source)});
        }
    }
    bool unseenEnds = std::any_of(processes.begin(), processes.end(),
                                  [](const ymProcessHandle &process) { return process.valid() && process.descriptor() < 0; });
    if (snapshot && snapshot->running && unseenEnds) {
        // No descriptor tells of these processes' end: they are asked every second.
        timer = ymIOLoop::Timer::after(std::chrono::seconds(1), [weak] {
            if (std::shared_ptr<State> self = weak.lock())
                self->onTimer();
        });
    } else if (snapshot && !snapshot->running) {
        bool quick = startChecks < std::size(kStartChecks);
        auto delay = quick ? kStartChecks[startChecks++] : std::chrono::duration_cast<std::chrono::milliseconds>(kIdleCheck);
        timer = ymIOLoop::Timer::after(
            delay,
            [weak] {
                if (std::shared_ptr<State> self = weak.lock())
                    self->onTimer();
            },
            quick ? std::chrono::milliseconds(10) : std::chrono::milliseconds(10000));
    } else {
        timer.reset();
    }
}

void ymClientWatch::State::onChange(bool startAgain)
{
    if (startAgain) {
        std::lock_guard<ymMutex> guard(lock);
        startChecks = 0;
    }
    current();
    resync();
}

void ymClientWatch::State::onTimer()
{
    // While the folders are changing, the look waits for them to be quiet (a bundle half copied
    // is no news).
    bool settling;
    bool newChanges;
    {
        std::lock_guard<ymMutex> guard(lock);
        newChanges = folders.pending();
        settling = quietTimer != nullptr;
    }
    if (newChanges)
        onFoldersChanged();
    else if (!settling)
        onChange(false);
}

void ymClientWatch::State::onFoldersChanged()
{
    std::lock_guard<ymMutex> guard(lock);
    if (!use)
        return;
    if (folders.changed() && !foldersChanged) {
        foldersChanged = true;
        firstUnsettled = std::chrono::steady_clock::now();
    }
    if (!foldersChanged)
        return;
    auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - firstUnsettled);
    auto delay = std::max(std::chrono::milliseconds(0), std::min(kQuietFor, kQuietAtMost - waited));
    std::weak_ptr<State> weak = weak_from_this();
    quietTimer = ymIOLoop::Timer::after(delay, [weak] {
        if (std::shared_ptr<State> self = weak.lock()) {
            {
                std::lock_guard<ymMutex> guard(self->lock);
                self->quietTimer.reset();
            }
            self->onChange(true);
        }
    });
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
}

ymClientWatch &ymClientWatch::shared()
{
    static ymClientWatch *watch = new ymClientWatch();
    return *watch;
}

ymClientWatch::ymClientWatch() : _state(std::make_shared<State>()) {}

std::shared_ptr<const ymClientSnapshot> ymClientWatch::current() { return _state->current(); }

uint64_t ymClientWatch::addObserver(Observer observer)
{
    current();  // what observers hear of is measured from here
    uint64_t token;
    bool start;
    {
        std::lock_guard<ymMutex> guard(_state->lock);
        token = _state->nextToken++;
        _state->observers.emplace(token, std::move(observer));
        start = !_state->use;
        if (start)
            _state->use = std::make_shared<ymIOLoop::Use>();
    }
    if (start) {
        std::weak_ptr<State> weak = _state;
        ymIOLoop::shared().post([weak] {
            if (std::shared_ptr<State> self = weak.lock())
                self->resync();
        });
    }
    return token;
}

void ymClientWatch::removeObserver(uint64_t token)
{
    std::shared_ptr<ymIOLoop::Use> use;
    {
        std::lock_guard<ymMutex> guard(_state->lock);
        if (!_state->observers.erase(token) || !_state->observers.empty())
            return;
        use = std::move(_state->use);
    }
    // The sources end on the I/O thread, and the use of the thread is given up after them.
    ymIOLoop::shared().post([state = _state, use]() mutable {
        {
            std::lock_guard<ymMutex> guard(state->lock);
            state->stopSources();
        }
        use.reset();
    });
}
