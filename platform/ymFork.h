// What a process that forks needs from the SDK: a number that changes in the child of every fork.
//
// After fork() the child has one thread, a copy of the parent's memory, and the parent's
// descriptors: the SDK's loops, sockets, watches and registered devices there are the parent's.
// Whatever holds such things remembers the generation it was made in; in a later generation it
// is abandoned whole (never used, never destroyed, none of its descriptors touched) and made
// afresh on first use.
#pragma once

#include <cstdint>

namespace ymFork {

// Changes in the child of every fork, before fork() returns there; the same for the life of a
// process that does not fork. Any thread, at the cost of one atomic load.
uint64_t generation();

}  // namespace ymFork
