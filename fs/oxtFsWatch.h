// The watch thread: one monitoring pass per cycle, as long as the provider stays loaded.
//
// It is started and stopped by clients in service mode. Cancellation is off but for the sleep, so a stop never strikes
// inside a pass: it waits for the pass, and ends the sleep at once.
#ifndef OXT_FS_WATCH_H
#define OXT_FS_WATCH_H

#include "oxtFsGate.h"
#include "oxtService.h"
#include "oxtThread.h"

extern OxtThreadId gfs_thid;  // 0 when there is no thread
OxtThreadId *fsGetThreadID(); // its address, traced

// Held from the question whether the thread runs to its creation, so that two starts make one thread.
void fsThreadStartLock();
void fsThreadStartUnlock();

// Creates the thread, attached to the object manager of the request. 0 or -1. The caller has seen that none runs.
int fsCreateThread(const OxtCInfo *cInfo);
void *fsWatchThread(void *cInfo);

// Stops the thread when it runs, saves and frees the store and leaves the provider uninitialised. Failures are traced
// and passed over. A pass that hangs for 30 seconds, or a request that stays inside for 3, is left alone with the
// store: both would use what is freed.
void fsExitThread(const OxtCInfo *cInfo, FsCaller caller);

#endif
