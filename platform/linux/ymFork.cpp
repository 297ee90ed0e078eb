// The fork generation and the registry of the SDK's mutexes, both kept by pthread_atfork: the
// registry's own lock is taken before the fork, so the list is whole in the child, where every
// registered mutex is made anew.
#include "platform/ymFork.h"
#include "platform/ymMutex.h"

#include <atomic>
#include <mutex>
#include <vector>
#include <pthread.h>

std::atomic<uint64_t> ymFork::currentGeneration{1};

struct ymMutexRegistry {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    ymMutexRegistration *first = nullptr;

    static ymMutexRegistry &shared()
    {
        // Never destroyed: mutexes of objects released at exit leave it then.
        static ymMutexRegistry *registry = [] {
            auto *made = new ymMutexRegistry();
            pthread_atfork([] { pthread_mutex_lock(&shared().lock); },
                           [] { pthread_mutex_unlock(&shared().lock); },
                           [] {
                               ymMutexRegistry &self = shared();
                               self.lock = PTHREAD_MUTEX_INITIALIZER;
                               for (ymMutexRegistration *entry = self.first; entry; entry = entry->_next)
                                   entry->_renew(entry->_lock);
                               ymFork::currentGeneration.fetch_add(1);
                           });
            return made;
        }();
        return *registry;
    }

    void add(ymMutexRegistration *entry)
    {
        pthread_mutex_lock(&lock);
        entry->_next = first;
        if (first)
            first->_previous = entry;
        first = entry;
        pthread_mutex_unlock(&lock);
    }

    void remove(ymMutexRegistration *entry)
    {
        pthread_mutex_lock(&lock);
        if (entry->_previous)
            entry->_previous->_next = entry->_next;
        else
            first = entry->_next;
        if (entry->_next)
            entry->_next->_previous = entry->_previous;
        pthread_mutex_unlock(&lock);
    }
};

namespace {

// The handlers are registered when the library is loaded, so that a fork before the first mutex
// is made still counts.
[[maybe_unused]] const bool registered = (ymMutexRegistry::shared(), true);

}  // namespace

void ymFork::abandon(std::shared_ptr<void> parentsObject)
{
    static auto *kept = new std::vector<std::shared_ptr<void>>();
    static auto *keptLock = new ymMutex();
    std::lock_guard<ymMutex> guard(*keptLock);
    kept->push_back(std::move(parentsObject));
}

ymMutexRegistration::ymMutexRegistration(Renew renew, void *lock) : _renew(renew), _lock(lock)
{
    ymMutexRegistry::shared().add(this);
}

ymMutexRegistration::~ymMutexRegistration() { ymMutexRegistry::shared().remove(this); }
