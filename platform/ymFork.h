// What a process that forks needs from the SDK: a number that changes in the child of every fork.
//
// After fork() the child has one thread, a copy of the parent's memory, and the parent's
// descriptors: the SDK's loops, sockets, watches and registered devices there are the parent's.
// Whatever holds such things remembers the generation it was made in; in a later generation it
// is abandoned whole (never used, never destroyed, none of its descriptors touched) and made
// afresh on first use.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

namespace ymFork {

// The generation now; never 0. Read through generation().
extern std::atomic<uint64_t> currentGeneration;

// Changes in the child of every fork, before fork() returns there; the same for the life of a
// process that does not fork. Any thread, at the cost of one atomic load.
inline uint64_t generation() { return currentGeneration.load(std::memory_order_acquire); }

// Keeps what the parent of this process made for the rest of the process, untouched: its
// destructor would close the parent's connections, remove its devices or touch its loops.
void abandon(std::shared_ptr<void> parentsObject);

}  // namespace ymFork
