// System V shared-memory segments: the twins of the class data areas, readable by other processes.
//
// A segment's key comes from a key file ("<base><class digit>") through ftok(3). A stale segment under that key is
// stepped around by moving the key file away and making a new one. In service mode each descriptor's mutex is held for
// the work on its segment; outside it the callers are ordered by the instance lock.
#ifndef OXT_SHM_H
#define OXT_SHM_H

#include <pthread.h>

#include "oxtMemory.h"
#include "oxtService.h"

enum OxtShmContent {
    OXT_SHM_EMPTY,  // zeros: not filled since it was made
    OXT_SHM_STALE,  // older than the data area: the last copy into it failed
    OXT_SHM_CURRENT // as the data area
};

struct ShmInfo {
    int shmId;    // -1 or 0 when there is none: an id of 0 is never used
    int shmNum;   // records that the segment was made for
    void *shmAdr; // address of the last attachment, kept after the detach; null for a segment never attached
    pthread_mutex_t mutex;
    int content; // OXT_SHM_...: what a reader would find
};

// Forgets a segment; its mutex stays.
void shmForget(ShmInfo *shm);

// A segment's mutex: 0, or -1 after 30 tries; 0, or -1 when it cannot be unlocked.
int shmMutexLock(pthread_mutex_t *mutex);
int shmMutexUnlock(pthread_mutex_t *mutex);

// A new segment of mode 0600 for class cid under the key file's base name; its id (above 0), or -1.
int shmCreate(const OxtCInfo *cInfo, ShmInfo *shm, const char *fnm, int cid, int size);
// Removes the segment and forgets it, whatever the system says. -1 only for refused arguments.
int shmDestroy(const OxtCInfo *cInfo, ShmInfo *shm);
// Makes the segments of classes 0 to max match the data areas' record counts. On a failure all are removed; -1.
int shmNew(const OxtCInfo *cInfo, int max, const char *fnm, DatInfo ins[], ShmInfo shm[]);

// Copy a class to its segment and back, as many records as both hold. A segment that cannot be attached is
// traced and skipped with result 0; -1 for refused arguments and lock failures.
int setInstToShm(const OxtCInfo *cInfo, DatInfo *ins, ShmInfo *shm);
int setShmToInst(const OxtCInfo *cInfo, ShmInfo *shm, DatInfo *ins);

// Makes block and segment hold ins->datNum records, which the caller has set. As many records as the old segment held
// stay in the block, the others are zero; the new segment is empty until setInstToShm. A count of 0 removes the segment
// and keeps the block. -1 on a failure: ins->datAdr is then null or still the old block, and ins->datNum no longer
// tells its size.
int reallocDatArea(const OxtCInfo *cInfo, const char *shmKeyFnm, int cid, DatInfo *ins, ShmInfo *shm);

#endif
