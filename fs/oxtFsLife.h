// The provider's life: built by the first request, taken down when the object manager unloads it.
#ifndef OXT_FS_LIFE_H
#define OXT_FS_LIFE_H

#include <atomic>

#include "cmpidt.h"
#include "oxtService.h"

// Makes sure that the store is built, by this request or by one that is at it (waiting up to 3 seconds). 0: the request
// is inside and ends with fsLeaveProvider; -1: it is not.
int fsInitProvider(const OxtCInfo *cInfo);
void fsLeaveProvider();

// Decides whether the provider may be unloaded and takes it down. CMPI_RC_OK, CMPI_RC_DO_NOT_UNLOAD while the watch
// thread runs and the object manager does not end, or CMPI_RC_ERR_FAILED, with a message.
CMPIStatus fsCleanUpProvider(const OxtCInfo *cInfo, bool terminating);

// Frees the store and leaves the initialisation state as it is: what a refused stop does. 0, or -1 when that failed, or
// a watch thread was started meanwhile.
int fsDropStore(const OxtCInfo *cInfo);

std::atomic<int> *fsGetFirstProc(); // the initialisation state's address, traced

#endif
