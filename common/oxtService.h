// The agent's service mode and the bounded locks.
//
// Outside service mode requests are ordered by the instance lock; in service mode it is not taken at all. It and the
// segments' mutexes are waited for 30 tries 100 ms apart, then the caller fails.
#ifndef OXT_SERVICE_H
#define OXT_SERVICE_H

#include <atomic>
#include <pthread.h>

#include "cmpidt.h"

// The broker and the context of the request in progress, for whatever may call the object manager. Lives for one
// request; the watch thread has one of its own.
struct OxtCInfo {
    const CMPIBroker *broker;
    const CMPIContext *context; // null where no upcall may be made (the clean-up calls)
};

extern std::atomic<int> g_srvmod; // -1 not yet known, else 0 or 1 for the life of the process

// 1 in service mode; 0 otherwise and while the mode cannot be read, which the next call tries again.
int getServiceMode(const OxtCInfo *cInfo);

// Locks the mutex, except in service mode, where it does nothing. 0, or -1 when the mutex stays busy. *held (may be
// null) tells whether it was locked, and goes to mutexUnlock: the mode can become known in between.
int nonsrvMutexLock(const OxtCInfo *cInfo, pthread_mutex_t *mutex, bool *held = nullptr);
// Unlocks what it is given. With held false the mutex was never locked: the lines are traced, nothing is unlocked.
void mutexUnlock(pthread_mutex_t *mutex, bool held = true);

// Lock and unlock in every mode, with the same 30 tries: 0 or -1. Traced in the caller's name.
int oxtMutexTryLock(const char *function, pthread_mutex_t *mutex);
int oxtMutexUnlock(const char *function, pthread_mutex_t *mutex, bool held);

#endif
