// Whether this system has System V shared memory for the provider, which cannot begin without it.
#ifndef OXT_MONITOR_SHAREDMEMORY_H
#define OXT_MONITOR_SHAREDMEMORY_H

#include <cstddef>

#include "failure.h"

namespace oxttool {

// What shmget(2) answers to segments like the provider's over so many file systems: 0 when it makes them, else errno.
// None of them stays.
int sharedMemoryRefusal(std::size_t fileSystems);

// The failure for it: what the system said, and what can be done.
Failure noSharedMemory(int error);

} // namespace oxttool

#endif
