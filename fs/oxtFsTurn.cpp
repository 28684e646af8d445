#include "oxtFsTurn.h"

#include <algorithm>
#include <pthread.h>

#include "oxtWait.h"

std::atomic<int> gfs_first{OXT_FS_UNINITIALISED};

namespace {

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER; // guards the following and the changes of gfs_first
pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
bool taken[FS_TURN_COUNT];
int inside; // requests
int behind; // while the gate is closed: the state that it opens to

// When the time of a caller is over who has spent so many milliseconds of it.
timespec endOfWait(long long spent) {
    const long long end = oxtMillis() + std::max(OXT_WAIT_MILLIS - spent, 0LL);
    return {end / 1000, end % 1000 * 1'000'000};
}

// The mutex for the length of a block. Its end wakes everybody who waits: they wait for different things, and each
// looks for his own.
struct Hold {
    Hold() { pthread_mutex_lock(&mutex); }
    ~Hold() {
        pthread_cond_broadcast(&changed);
        pthread_mutex_unlock(&mutex);
    }
    Hold(const Hold &) = delete;
    Hold &operator=(const Hold &) = delete;
};

// Within a Hold: false when the condition has not come true before `until`.
template <typename Condition> bool awaits(const timespec &until, Condition condition) {
    while (!condition())
        if (pthread_cond_clockwait(&changed, &mutex, CLOCK_MONOTONIC, &until) != 0)
            return condition();
    return true;
}

} // namespace

int fsTurnBegin(FsTurn turn, long long spent) {
    const timespec until = endOfWait(spent);
    const Hold hold;
    if (!awaits(until, [turn] { return !taken[turn]; }))
        return -1;
    taken[turn] = true;
    return 0;
}

void fsTurnEnd(FsTurn turn) {
    const Hold hold;
    taken[turn] = false;
}

int fsGateEnter() {
    const Hold hold;
    const int state = gfs_first.load();
    if (state == OXT_FS_INITIALISED)
        ++inside;
    if (state == OXT_FS_UNINITIALISED) { // this request builds; those that come now wait until it is done
        behind = state;
        gfs_first.store(OXT_FS_IN_PROGRESS);
    }
    return state;
}

void fsGateBuilt(bool ok) {
    const Hold hold;
    gfs_first.store(ok ? OXT_FS_INITIALISED : OXT_FS_UNINITIALISED);
    inside += ok ? 1 : 0; // the builder itself, in the same step: a clean-up must not slip in before it
}

void fsGateLeave() {
    const Hold hold;
    --inside;
}

int fsGateState() {
    const Hold hold;
    return gfs_first.load() == OXT_FS_IN_PROGRESS ? behind : gfs_first.load();
}

void fsGateForget() {
    const Hold hold;
    behind = OXT_FS_UNINITIALISED;
    if (gfs_first.load() == OXT_FS_INITIALISED)
        gfs_first.store(OXT_FS_UNINITIALISED);
}

int fsAloneBegin() {
    const timespec until = endOfWait(0);
    const Hold hold;
    // First whoever has closed the gate already, a build or another clean-up. Then it is closed here, so that no more
    // requests come in, and those inside can be waited for; both within the same 3 seconds.
    if (!awaits(until, [] { return gfs_first.load() != OXT_FS_IN_PROGRESS; }))
        return -1;
    behind = gfs_first.load();
    gfs_first.store(OXT_FS_IN_PROGRESS);
    const bool alone = awaits(until, [] { return inside == 0 && !taken[FS_LIFE]; });
    if (!alone) {
        gfs_first.store(behind);
        return -1;
    }
    taken[FS_LIFE] = true;
    return 0;
}

void fsAloneEnd() {
    const Hold hold;
    taken[FS_LIFE] = false;
    gfs_first.store(behind); // what it was, unless fsGateForget has said that the store is gone
}
