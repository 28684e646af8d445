// The state of the monitoring core: the records as a snapshot that nobody changes, and their segments.
//
// A reader takes the snapshot and drops it; whoever changes something makes the next one and installs it. So nothing is
// freed or overwritten under a reader, and a reader waits for nobody. The segments' descriptors, and what says so, need
// the publish turn (oxtFsTurn.h).
#ifndef OXT_FS_STATE_H
#define OXT_FS_STATE_H

#include <atomic>
#include <pthread.h>

#include "oxtFsField.h"
#include "oxtShm.h"
#include "oxtThread.h"

struct FsSnapshot {
    DatInfo areas[OXT_CID_FS_COUNT]; // without records after a clean-up; blocks of the snapshot's own
    int segments[OXT_CID_FS_COUNT];  // the segment that held the same when this was installed; -1: none did
    int users;                       // who took it, the store included
    unsigned version;                // counts the snapshots that were installed
};

const FsSnapshot *fsTake();
void fsDrop(const FsSnapshot *snapshot); // null is allowed; the last one frees it

// A new one for its maker alone: a copy, with or without the file-system records. Null without memory. Dropped, or
// installed.
FsSnapshot *fsCopySnapshot(const FsSnapshot *from, bool withRecords);
// Of areas whose blocks become its own. Null without memory.
FsSnapshot *fsAdopt(DatInfo areas[]);

// The instance lock: orders the requests outside service mode, passes included. Taken with nonsrvMutexLock. It is made
// once and never destroyed: the factories run again while requests hold it.
extern pthread_mutex_t instMutexFs;
extern std::atomic<int> gfs_SleepSec; // seconds between two passes; follows MonitorCycle
extern OxtThreadId gfs_thid;          // the watch thread; 0 when there is none
OxtThreadId *fsGetThreadID();         // its address, traced

extern ShmInfo shmFs[OXT_CID_FS_COUNT]; // the publish turn's

// The publish turn for work on the segments: 0, or -1 with the failure traced.
int fsPublishBegin(const char *function, long long spent = 0);
void fsPublishEnd();

// With the publish turn; traced in the caller's name.

const FsSnapshot *fsCurrent(); // what fsTake gives
// Takes its place. Null for one without records: the store is taken down.
void fsInstall(FsSnapshot *next);
// What has become of a change once its snapshot was installed. None of these needs the publish turn.
enum FsFate { FS_FATE_KEPT, FS_FATE_SAVED, FS_FATE_LOST }; // the store has it; or was taken down with or without a save
FsFate fsFateOf(unsigned version);
void fsNoteSaved(const FsSnapshot *snapshot); // it is in the save file

// With the publish turn: true, and traced as a failure, when a stop has taken the store down under a request that is
// still inside. A store that a refused stop has emptied counts as there.
bool fsIsTakenDown(const char *function);
// Takes over what another process has written into a class's segment: such changes count, as they always have. While
// nobody traces, a segment that nobody else has touched is not read. 0 or -1.
int fsRefresh(const char *function, const OxtCInfo *cInfo, int cid);
// Copies every class that has records to its segment. While nobody traces, a segment that holds them is left alone. 0,
// or -1 after the first failure.
int fsPublish(const char *function, const OxtCInfo *cInfo, const FsSnapshot *next);
// Removes the segments whatever their state, without a trace line.
void fsForgetSegments();
// The last to touch a segment was this process, and nobody holds it.
bool fsIsUntouched(int shmId);

// The trace of a tear-down says that the mutexes are destroyed. They live as long as the library: a request may follow.
void fsTraceMutexesDestroyed(const char *function);

#endif
