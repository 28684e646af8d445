#include "oxtFsGate.h"

#include <pthread.h>
#include <unistd.h>

std::atomic<int> gfs_first{OXT_FS_UNINITIALISED};

namespace {

constexpr int WAIT_TRIES = 3000;       // of closing, both its waits together
constexpr unsigned WAIT_MICROS = 1000; // between two

pthread_mutex_t gateMutex = PTHREAD_MUTEX_INITIALIZER; // guards gfs_first's changes and users; held for moments only
int users;                                             // requests inside

void setState(int state, int joining) {
    pthread_mutex_lock(&gateMutex);
    gfs_first.store(state);
    users += joining;
    pthread_mutex_unlock(&gateMutex);
}

void addUsers(int joining) {
    pthread_mutex_lock(&gateMutex);
    users += joining;
    pthread_mutex_unlock(&gateMutex);
}

int ownUsers(FsCaller caller) {
    return caller == FS_FROM_REQUEST ? 1 : 0;
}

} // namespace

int fsGateEnter() {
    pthread_mutex_lock(&gateMutex);
    const int state = gfs_first.load();
    if (state == OXT_FS_INITIALISED)
        ++users;
    else if (state == OXT_FS_UNINITIALISED)
        gfs_first.store(OXT_FS_IN_PROGRESS);
    pthread_mutex_unlock(&gateMutex);
    return state;
}

void fsGateBuilt(bool ok) {
    setState(ok ? OXT_FS_INITIALISED : OXT_FS_UNINITIALISED, ok ? 1 : 0);
}

void fsGateLeave() {
    addUsers(-1);
}

int fsGateClose(FsCaller caller, int *state) {
    // A caller from inside steps out while it waits: two of them would wait for each other.
    addUsers(-ownUsers(caller));
    bool begun = false, done = false;
    for (int tries = 0; !done && tries < WAIT_TRIES; ++tries) {
        pthread_mutex_lock(&gateMutex);
        if (!begun && (*state = gfs_first.load()) != OXT_FS_IN_PROGRESS) {
            gfs_first.store(OXT_FS_IN_PROGRESS);
            begun = true;
        }
        done = begun && users == 0;
        pthread_mutex_unlock(&gateMutex);
        if (!done)
            usleep(WAIT_MICROS);
    }
    if (done)
        return 0;
    if (begun)
        setState(*state, 0);
    addUsers(ownUsers(caller));
    return -1;
}

void fsGateOpen(FsCaller caller, int state) {
    setState(state, ownUsers(caller));
}
