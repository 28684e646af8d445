// The watch thread: one monitoring pass per cycle, as long as the provider stays loaded.
//
// It is started and stopped by clients in service mode. Cancellation is off but for the sleep, so a stop never strikes
// inside a pass: it waits for the pass, and ends the sleep at once.
#ifndef OXT_FS_WATCH_H
#define OXT_FS_WATCH_H

#include "oxtService.h"

// Creates the thread, attached to the object manager of the request. 0 or -1. The caller has the life turn, and has
// seen that none runs.
int fsCreateThread(const OxtCInfo *cInfo);
void *fsWatchThread(void *cInfo);

// Stops the thread when it runs, saves and frees the store and leaves the provider uninitialised. Failures are traced
// and passed over. It gives up, and the store stays, on a pass that hangs for 30 seconds and on another start or stop
// that takes 3: the thread still needs the store, and ends at its next sleep.
void fsExitThread(const OxtCInfo *cInfo);

#endif
