#include "oxtFsState.h"

#include <algorithm>
#include <cstring>
#include <sys/shm.h>
#include <unistd.h>

#include "oxtFsTurn.h"

pthread_mutex_t instMutexFs = PTHREAD_MUTEX_INITIALIZER;
std::atomic<int> gfs_SleepSec{OXT_CYCLE_DEFAULT};
OxtThreadId gfs_thid{0};
ShmInfo shmFs[OXT_CID_FS_COUNT] = {
    {-1, 0, nullptr, PTHREAD_MUTEX_INITIALIZER, OXT_SHM_EMPTY},
    {-1, 0, nullptr, PTHREAD_MUTEX_INITIALIZER, OXT_SHM_EMPTY},
    {-1, 0, nullptr, PTHREAD_MUTEX_INITIALIZER, OXT_SHM_EMPTY},
};

namespace {

FsSnapshot none = {{{sizeof(FsConf), 0, nullptr}, {sizeof(FsTnum), 0, nullptr}, {sizeof(FsProv), 0, nullptr}},
                   {-1, -1, -1},
                   2, // one more than it has: nobody drops the last, so it is never freed
                   0};
FsSnapshot *current = &none;
pthread_mutex_t snapshotMutex = PTHREAD_MUTEX_INITIALIZER; // held for moments; guards the following, current, and users
unsigned installed, saved;                                 // newest versions
unsigned takenDown, savedBefore;                           // the same when the store was last taken down

// A private copy of a class's records. False without memory.
bool copyArea(const DatInfo *from, DatInfo *to) {
    *to = {from->datSize, 0, nullptr};
    const int size = from->datAdr != nullptr ? oxtAreaSize(from) : 0;
    if (size == 0)
        return true;
    to->datAdr = malloc(static_cast<size_t>(size));
    if (to->datAdr == nullptr)
        return false;
    memcpy(to->datAdr, from->datAdr, static_cast<size_t>(size));
    to->datNum = from->datNum;
    return true;
}

bool isSame(const DatInfo *a, const DatInfo *b) {
    const size_t size = static_cast<size_t>(oxtAreaSize(a));
    return a->datNum == b->datNum && (size == 0 || memcmp(a->datAdr, b->datAdr, size) == 0);
}

// The snapshot with another area for a class, whose block becomes its own. 0, or -1 without memory.
int installWith(int cid, DatInfo *area) {
    FsSnapshot *next = fsCopySnapshot(current, cid != OXT_CID_FS_PROV);
    if (next == nullptr)
        return -1;
    free(next->areas[cid].datAdr);
    next->areas[cid] = *area;
    *area = {};
    fsInstall(next);
    return 0;
}

} // namespace

const FsSnapshot *fsTake() {
    pthread_mutex_lock(&snapshotMutex);
    FsSnapshot *taken = current;
    ++taken->users;
    pthread_mutex_unlock(&snapshotMutex);
    return taken;
}

void fsDrop(const FsSnapshot *snapshot) {
    FsSnapshot *dropped = const_cast<FsSnapshot *>(snapshot); // its count is nobody's secret
    if (dropped == nullptr)
        return;
    pthread_mutex_lock(&snapshotMutex);
    const bool isLast = --dropped->users == 0;
    pthread_mutex_unlock(&snapshotMutex);
    if (!isLast)
        return;
    for (const DatInfo &area : dropped->areas)
        free(area.datAdr);
    free(dropped);
}

FsSnapshot *fsAdopt(DatInfo areas[]) {
    FsSnapshot *made = static_cast<FsSnapshot *>(malloc(sizeof(FsSnapshot)));
    if (made == nullptr)
        return nullptr;
    *made = {{areas[OXT_CID_FS_CONF], areas[OXT_CID_FS_TNUM], areas[OXT_CID_FS_PROV]}, {-1, -1, -1}, 1, 0};
    return made;
}

FsSnapshot *fsCopySnapshot(const FsSnapshot *from, bool withRecords) {
    DatInfo areas[OXT_CID_FS_COUNT] = {};
    bool copied = true;
    for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid) {
        areas[cid].datSize = from->areas[cid].datSize;
        if (withRecords || cid != OXT_CID_FS_PROV)
            copied = copyArea(&from->areas[cid], &areas[cid]) && copied;
    }
    FsSnapshot *made = copied ? fsAdopt(areas) : nullptr;
    for (const DatInfo &area : areas)
        if (made == nullptr)
            free(area.datAdr);
    return made;
}

OxtThreadId *fsGetThreadID() {
    OXT_TRACE("=== gfs_thid=[%d] ===", static_cast<int>(gfs_thid.load()));
    return &gfs_thid;
}

int fsPublishBegin(const char *function, long long spent) {
    OXT_REQUIRE_AS(function, fsTurnBegin(FS_PUBLISH, spent) == 0, -1, "_OUT_ fsPublishBegin() Failure!!");
    return 0;
}

void fsPublishEnd() {
    fsTurnEnd(FS_PUBLISH);
}

const FsSnapshot *fsCurrent() {
    return current;
}

void fsInstall(FsSnapshot *next) {
    // Noted now, while the publish turn keeps the descriptors still: a reader without a turn may then ask the kernel
    // about the segment.
    for (int cid = 0; next != nullptr && cid < OXT_CID_FS_COUNT; ++cid)
        next->segments[cid] = shmFs[cid].content == OXT_SHM_CURRENT ? shmFs[cid].shmId : -1;
    pthread_mutex_lock(&snapshotMutex);
    FsSnapshot *last = current;
    current = next != nullptr ? next : &none;
    if (next != nullptr) {
        next->version = ++installed;
    } else {
        ++none.users; // the store's own, as every other snapshot is made with
        takenDown = installed;
        savedBefore = saved;
    }
    pthread_mutex_unlock(&snapshotMutex);
    fsDrop(last);
}

FsFate fsFateOf(unsigned version) {
    pthread_mutex_lock(&snapshotMutex);
    const FsFate fate = version > takenDown ? FS_FATE_KEPT : version <= savedBefore ? FS_FATE_SAVED : FS_FATE_LOST;
    pthread_mutex_unlock(&snapshotMutex);
    return fate;
}

void fsNoteSaved(const FsSnapshot *snapshot) {
    pthread_mutex_lock(&snapshotMutex);
    saved = std::max(saved, snapshot->version);
    pthread_mutex_unlock(&snapshotMutex);
}

bool fsIsTakenDown(const char *function) {
    const bool is = fsConf(current->areas) == nullptr && fsGateState() != OXT_FS_INITIALISED;
    if (is)
        OXT_TRACE_FAIL_AS(function, "_OUT_ store taken down Failure!!");
    return is;
}

bool fsIsUntouched(int shmId) {
    // Each of our copies attaches and detaches, so whoever has written since is the last that the kernel knows, or
    // still attached. A segment that somebody has removed does not count either: its key leads nobody to it.
    struct shmid_ds ds = {};
    return shmId > 0 && shmctl(shmId, IPC_STAT, &ds) == 0 && ds.shm_nattch == 0 && ds.shm_lpid == getpid() &&
           (ds.shm_perm.mode & SHM_DEST) == 0;
}

int fsRefresh(const char *function, const OxtCInfo *cInfo, int cid) {
    if (!oxtTraceOn() && fsIsUntouched(shmFs[cid].shmId))
        return 0;
    DatInfo area = {};
    OXT_REQUIRE_AS(function, copyArea(&current->areas[cid], &area), -1, "_OUT_ insDat alloc Failure!!");
    OXT_TRACE_AS(function, "setShmToInst(%d)", cid);
    int ret = setShmToInst(cInfo, &shmFs[cid], &area);
    if (cid == OXT_CID_FS_PROV) // another process wrote them: a text without an end would be read beyond its record
        fsEndTexts(&area);
    if (ret == 0 && !isSame(&area, &current->areas[cid]))
        ret = installWith(cid, &area);
    free(area.datAdr);
    OXT_REQUIRE_AS(function, ret == 0, -1, "_OUT_ setShmToInst(%d) Failure!!", cid);
    return 0;
}

int fsPublish(const char *function, const OxtCInfo *cInfo, const FsSnapshot *next) {
    bool holds[OXT_CID_FS_COUNT];
    // All are marked before the first is written. If that fails, the later ones are older than the snapshot that is
    // installed next, and nobody may read them back over it.
    for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid) {
        ShmInfo *shm = &shmFs[cid];
        holds[cid] = shm->content == OXT_SHM_CURRENT && isSame(&next->areas[cid], &current->areas[cid]);
        if (!holds[cid] && shm->content == OXT_SHM_CURRENT)
            shm->content = OXT_SHM_STALE;
    }
    for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid) {
        DatInfo area = next->areas[cid];
        if (area.datNum <= 0 || (holds[cid] && !oxtTraceOn() && fsIsUntouched(shmFs[cid].shmId)))
            continue;
        OXT_TRACE_AS(function, "setInstToShm(%d)", cid);
        OXT_REQUIRE_AS(function, setInstToShm(cInfo, &area, &shmFs[cid]) == 0, -1, "_OUT_ setInstToShm(%d) Failure!!",
                       cid);
    }
    return 0;
}

void fsForgetSegments() {
    for (ShmInfo &shm : shmFs) {
        if (shm.shmNum > 0 && shm.shmId > 0)
            shmctl(shm.shmId, IPC_RMID, nullptr);
        shmForget(&shm); // the mutex stays: a thread of an earlier life may just be letting go of it
    }
}

void fsTraceMutexesDestroyed(const char *function) {
    for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid)
        OXT_TRACE_AS(function, "pthread_mutex_destroy(%d)", cid);
    OXT_TRACE_AS(function, "pthread_mutex_destroy(instMutexFs)");
}
