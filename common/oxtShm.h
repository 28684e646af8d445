// System V shared-memory segments: each holds a copy of one class's records, so that other processes can read them.
//
// A segment's key comes from a key file ("<base><class digit>") through ftok(3). If another segment has that key, the
// key file is renamed and a new one made: its inode gives another key. In service mode each descriptor's mutex is held
// for the work on its segment; outside it the callers are ordered by the instance lock.
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

// Makes block and segment hold ins->datNum records, a number that the caller has set before.
// 0: the block has them (the old segment's are kept, the others are zero), and the new segment is empty until
// setInstToShm. For the number 0 the segment is removed and the block kept.
// -1: ins->datAdr is null or the old block, of which ins->datNum no longer tells the size.
int reallocDatArea(const OxtCInfo *cInfo, const char *shmKeyFnm, int cid, DatInfo *ins, ShmInfo *shm);

#endif
