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

// Stops the thread if it runs, saves and frees the store, and leaves the provider uninitialised. Failures are traced
// and passed over. If the pass does not end within 30 seconds, it gives up and keeps the store, which the thread still
// uses; the thread ends at its next sleep. If another start or stop does not within 3, it gives up as well, and the
// thread goes on.
void fsExitThread(const OxtCInfo *cInfo);

#endif
