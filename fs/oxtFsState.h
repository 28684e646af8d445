// The store's state: all of the monitoring core's data, and who may touch it.
//
// instFs and shmFs are changed and read with the store lock held, or with the gate closed (oxtFsGate.h). It is held for
// memory copies and the segments' own calls with their key files, never across statfs, a send or a write of the save
// file; the wait for it is bounded by 3 seconds. Order of locks: instance lock, store lock, segment mutexes.
#ifndef OXT_FS_STATE_H
#define OXT_FS_STATE_H

#include <atomic>
#include <pthread.h>

#include "oxtFsRecord.h"
#include "oxtShm.h"

extern DatInfo instFs[OXT_CID_FS_COUNT];
extern ShmInfo shmFs[OXT_CID_FS_COUNT];
// The instance lock: orders the requests outside service mode, passes included. Taken with nonsrvMutexLock. It is made
// once and never destroyed: the factories run again while requests hold it, and a request may follow a clean-up.
extern pthread_mutex_t instMutexFs;
extern std::atomic<int> gfs_SleepSec; // seconds between two passes; follows MonitorCycle

extern pthread_mutex_t fsStoreMutex; // the store lock
int fsStoreLock();                   // 0, or -1 after 3 seconds
void fsStoreUnlock();

// A client's change of one setting. It is applied to the store's own record at the commit: between a read and its
// commit another pass may have replaced the records.
struct FsEdit {
    int cid;            // OXT_CID_FS_CONF or OXT_CID_FS_PROV
    int position;       // of the record among those that were read
    const void *record; // the caller's copy of it
    size_t offset;      // of the field in the record
    size_t width;       // bytes of the field, 2 or 4
    uint32_t value;
};

// The trace of a tear-down says that the mutexes are destroyed. They live as long as the library: a request may follow.
void fsTraceMutexesDestroyed(const char *function);

// All of the following: call with the store lock held, but for fsSaveStore and fsReleaseInstance. The lines are traced
// in the caller's name.

// Applies a change: 0, or -1 when the file system it is about is gone.
int fsApplyEdit(const FsEdit *edit);
// Changes applied so far: a pass sees by it that one came in while it measured.
unsigned fsEditCount();

// Refreshes one class from its segment. 0 or -1.
int fsRefreshClass(const char *function, const OxtCInfo *cInfo, int cid);
// Refreshes the classes from their segments; a class without one becomes empty, but for one whose segment could not be
// made. 0 or -1.
int fsRefreshFromShm(const char *function, const OxtCInfo *cInfo);
// Copies every class that has records to its segment. 0 or -1.
int fsPublishToShm(const char *function, const OxtCInfo *cInfo);

// Rewrites the save file. A failed open is traced here, a failed write is left to the caller's line.
enum FsSaved { FS_SAVED, FS_SAVE_NOT_OPENED, FS_SAVE_NOT_WRITTEN };
FsSaved fsSaveStore(const char *function);

// A private copy of a class's records: 0, or -1 without memory. Freed with fsReleaseInstance.
int fsCopyArea(const DatInfo *from, DatInfo *to);
void fsReleaseInstance(DatInfo *area);

#endif
