#include "oxtThread.h"

#include <csignal>
#include <unistd.h>

#include "oxtTrace.h"
#include "oxtWait.h"

namespace {

pthread_mutex_t threadMutex = PTHREAD_MUTEX_INITIALIZER; // held for a query, never while waiting

// Joins an ended thread: 0 and the identifier cleared, EBUSY while it runs. Call with threadMutex held.
int joinIfEnded(OxtThreadId *thid) {
    const pthread_t id = thid->load();
    if (id == 0)
        return 0;
    const int rc = pthread_tryjoin_np(id, nullptr);
    if (rc == 0)
        thid->store(0);
    return rc;
}

} // namespace

int getThreadSts(OxtThreadId *thid) {
    OXT_TRACE("_IN_ tid=[%d]", thid != nullptr ? static_cast<int>(thid->load()) : 0);
    OXT_REQUIRE(thid != nullptr, 0, "_OUT_ param(thid) Failure!!");
    pthread_mutex_lock(&threadMutex);
    const pthread_t id = thid->load();
    // pthread_kill answers 0 for a thread that has ended and is not joined yet (glibc 2.34), so the join decides.
    const bool ended = id != 0 && (pthread_kill(id, 0) == ESRCH || joinIfEnded(thid) == 0);
    if (ended)
        thid->store(0);
    pthread_mutex_unlock(&threadMutex);
    if (id == 0)
        OXT_TRACE("_OUT_ thread is non");
    else if (ended)
        OXT_TRACE("_OUT_ thread is NotRun");
    else
        OXT_TRACE("_OUT_ thread is Running");
    return id != 0 && !ended ? 1 : 0;
}

int oxtThreadCancel(OxtThreadId *thid) {
    // Locked: a thread that is joined meanwhile must not be cancelled, its id may be a new one's.
    pthread_mutex_lock(&threadMutex);
    const pthread_t id = thid->load();
    const int rc = id != 0 ? pthread_cancel(id) : ESRCH;
    pthread_mutex_unlock(&threadMutex);
    return rc;
}

int oxtThreadJoin(OxtThreadId *thid, int seconds) {
    const long long deadline = oxtMillis() + seconds * 1000LL;
    for (;;) { // in steps: between them, other requests may ask whether the thread runs
        pthread_mutex_lock(&threadMutex);
        const int rc = joinIfEnded(thid);
        pthread_mutex_unlock(&threadMutex);
        if (rc != EBUSY)
            return rc;
        if (oxtMillis() >= deadline)
            return ETIMEDOUT;
        usleep(OXT_WAIT_MICROS);
    }
}
