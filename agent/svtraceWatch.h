// Who looks after something that every thread of a process uses: one thread at a time, about once a second, whichever
// comes first. A Watch is zero at the start and right in a forked child, where the parent's threads are nobody.
#ifndef SVTRACE_WATCH_H
#define SVTRACE_WATCH_H

#include "svtraceLine.h"

#include <atomic>
#include <cstdint>

namespace agent {

struct Watch {
    std::atomic<std::uint64_t> looked{0}; // process and second of the last look
    std::atomic<int> keeper{0};           // process of the thread that looks now, 0: none
};

// Whether this process has looked at all. A child's first look comes before its first use: a descriptor that it
// inherited may have been closed since, or be another file's.
bool hasLooked(const Watch &watch, int process);

// Whether it is time to look.
bool isLookDue(const Watch &watch, const TraceMoment &now);

// True when the caller is to look now and to call endLook afterwards. Otherwise another thread is looking; if the
// caller needs what it finds (`needed`, or the first look of this process) it has waited for the end, but not longer
// than some 20 ms.
bool beginLook(Watch &watch, const TraceMoment &now, bool needed);

// Ends the look; what it changed is seen by whoever finds hasLooked.
void endLook(Watch &watch, const TraceMoment &now);

} // namespace agent

#endif
