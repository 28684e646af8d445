#include "oxtFsStore.h"

#include <cstring>

#include "oxtFile.h"
#include "oxtFsPass.h"
#include "oxtFsSave.h"
#include "oxtFsSnapshot.h"
#include "oxtFsStatus.h"
#include "oxtFsTurn.h"
#include "oxtPaths.h"
#include "oxtWait.h"

namespace {

constexpr FsConf DEFAULT_CONF = {OXT_CYCLE_DEFAULT, OXT_CYCLE_MIN, OXT_CYCLE_MAX, OXT_CYCLE_DEFAULT};

int allocateSmallRecords(const char *function, DatInfo areas[]) {
    areas[OXT_CID_FS_CONF].datAdr = memalloc(sizeof(FsConf));
    OXT_REQUIRE_AS(function, areas[OXT_CID_FS_CONF].datAdr != nullptr, -1, "_OUT_ FsConf alloc Failure!!");
    areas[OXT_CID_FS_TNUM].datAdr = memalloc(sizeof(FsTnum));
    OXT_REQUIRE_AS(function, areas[OXT_CID_FS_TNUM].datAdr != nullptr, -1, "_OUT_ FsTnum alloc Failure!!");
    return 0;
}

// True when the save file filled all classes.
bool loadSaved(const char *function, DatInfo areas[]) {
    OXT_TRACE_AS(function, "fopen-check[%s]", OXT_PATH_SAVE);
    // "r+": a file that could not be written back is treated as absent.
    OxtFile fp = oxtOpenFile(OXT_PATH_SAVE, "r+");
    OXT_TRACE_AS(function, "fp=[%p]", static_cast<void *>(fp.get()));
    if (fp == nullptr)
        return false;
    OXT_TRACE_AS(function, "fsGetBinFile()");
    const bool loaded = fsGetBinFile(fp.get(), areas) == 0;
    fp.reset();
    OXT_TRACE_AS(function, "fclose");
    if (!loaded)
        OXT_TRACE_AS(function, "fsGetBinFile() Not read");
    return loaded;
}

// The machine as it is now, with the default configuration. 0, or -1 with the failure traced.
int takeDefaults(const char *function, const OxtCInfo *cInfo, DatInfo areas[]) {
    DatInfo *area = &areas[OXT_CID_FS_PROV];
    free(area->datAdr); // a rejected save file may have filled it
    area->datAdr = nullptr;
    OXT_TRACE_AS(function, "fsGetCurrentInfo()");
    OXT_REQUIRE_AS(function, fsGetCurrentInfo(cInfo, area) == 0, -1, "_OUT_ fsGetCurrentInfo() Failure!!");
    *fsConf(areas) = DEFAULT_CONF;
    fsTnum(areas)->FileSystemTotalNumber = static_cast<uint16_t>(area->datNum);
    // Every file system starts as normal, so that a fresh start announces none that is.
    for (int i = 0; i < area->datNum; ++i)
        fsProv(area)[i].FreeSpaceStatus = OXT_FREESPC_NORMAL;
    return 0;
}

// The segments of a new store, then its records, which become the snapshot's. 0, or -1 with the failure traced.
int publishNew(const char *function, const OxtCInfo *cInfo, DatInfo areas[]) {
    OXT_TRACE_AS(function, "- to shm -");
    fsLogDumpInstanceDat(OXT_DUMP_ALL, areas);
    if (fsPublishBegin(function) != 0)
        return -1;
    fsForgetSegments(); // of a request that went on beside the end of an earlier life
    OXT_TRACE_AS(function, "shmNew(%d,%s)", OXT_CID_FS_PROV, OXT_PATH_SHMKEY);
    FsSnapshot *made = fsAdopt(areas);
    int ret = -1;
    if (made == nullptr)
        OXT_TRACE_FAIL_AS(function, "_OUT_ insDat alloc Failure!!");
    else if (shmNew(cInfo, OXT_CID_FS_PROV, OXT_PATH_SHMKEY, areas, shmFs) != 0)
        OXT_TRACE_FAIL_AS(function, "_OUT_ shmNew() Failure!!");
    else
        ret = fsPublish(function, cInfo, made);
    if (ret == 0) {
        fsInstall(made);
    } else {
        free(made); // without its blocks, which the caller frees
        fsForgetSegments();
    }
    fsPublishEnd();
    return ret;
}

// The steps of fsInitInstance on areas of its own. 0, or -1 with the failure traced and the areas left to the caller.
int build(const char *function, const OxtCInfo *cInfo, DatInfo areas[]) {
    fsInitDatInfo(areas);
    if (allocateSmallRecords(function, areas) != 0)
        return -1;
    for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid) // made with the library: the lines are for log filters
        OXT_TRACE_AS(function, "pthread_mutex_init(%d)", cid);
    if (!loadSaved(function, areas) && takeDefaults(function, cInfo, areas) != 0)
        return -1;
    gfs_SleepSec.store(fsConf(areas)->MonitorCycle);
    return publishNew(function, cInfo, areas);
}

bool watchKeepsCurrent(const OxtCInfo *cInfo) {
    return getServiceMode(cInfo) == 1 && getThreadSts(&gfs_thid) == 1;
}

// While the watch thread runs: the class as its segment has it, or as the snapshot has it when the segment is older. A
// segment that was made and could not be filled since is no data yet.
int readFromWatch(const char *function, const OxtCInfo *cInfo, int classId, DatInfo *shown) {
    const ShmInfo *shm = &shmFs[classId];
    if (shm->shmNum > 0 && shm->content != OXT_SHM_EMPTY) {
        if (shm->content == OXT_SHM_CURRENT && fsRefresh(function, cInfo, classId) != 0)
            return -1;
        *shown = fsCurrent()->areas[classId];
    } else { // nothing to show: the client gets "NotFound Data"
        OXT_TRACE_AS(function, "shmFs[%d].shmNum=0", classId);
    }
    OXT_TRACE_AS(function, "- return TRUE classID=[%d]-", classId);
    DatInfo dump[OXT_CID_FS_COUNT] = {};
    dump[classId] = *shown;
    fsLogDumpInstanceDat(classId, dump);
    return 0;
}

// The configuration without a running thread: nothing changes it but clients, so no pass is needed.
int readConfig(const char *function, const OxtCInfo *cInfo, DatInfo *shown) {
    const ShmInfo *shm = &shmFs[OXT_CID_FS_CONF];
    const bool isOlder = shm->shmNum > 0 && shm->content != OXT_SHM_CURRENT; // than the snapshot
    if (!isOlder && fsRefresh(function, cInfo, OXT_CID_FS_CONF) != 0)
        return -1;
    OXT_TRACE_AS(function, "- return Config -");
    fsLogDumpInstanceDat(OXT_CID_FS_CONF, fsCurrent()->areas);
    *shown = fsCurrent()->areas[OXT_CID_FS_CONF];
    return 0;
}

// While the watch thread runs and nobody traces, and the class's segment has what the snapshot has.
bool takeAtOnce(int classId, FsRecords *out) {
    if (oxtTraceOn())
        return false;
    out->snapshot = fsTake();
    if (fsIsUntouched(out->snapshot->segments[classId])) {
        out->area = out->snapshot->areas[classId];
        return true;
    }
    fsReleaseInstance(out);
    return false;
}

// The records of a class that is up to date, or is brought up to date from its segment. 0, or -1 with the failure
// traced.
int handOut(const char *function, const OxtCInfo *cInfo, int classId, bool fromWatch, bool passed, FsRecords *out) {
    if (!fromWatch && classId != OXT_CID_FS_CONF) { // after a pass, also after one that failed
        out->snapshot = fsTake();
        out->area = out->snapshot->areas[classId];
        const bool isGone = passed && fsConf(out->snapshot->areas) == nullptr; // a stop came in between
        OXT_REQUIRE_AS(function, !isGone, -1, "_OUT_ store taken down Failure!!");
        return 0;
    }
    if (!fromWatch || !takeAtOnce(classId, out)) {
        if (fsPublishBegin(function) != 0)
            return -1;
        const int ret = fsIsTakenDown(function) ? -1
                        : fromWatch             ? readFromWatch(function, cInfo, classId, &out->area)
                                                : readConfig(function, cInfo, &out->area);
        out->snapshot = fsTake();
        fsPublishEnd();
        if (ret != 0)
            return -1;
    }
    if (classId == OXT_CID_FS_CONF) {
        const FsConf *conf = static_cast<FsConf *>(out->area.datAdr);
        OXT_REQUIRE_AS(function, conf != nullptr, -1, "_OUT_ param(instFs[OXT_CID_FS_CONF].datAdr) Failure!!");
        gfs_SleepSec.store(conf->MonitorCycle);
    }
    return 0;
}

bool isSameFileSystem(const FsProv *a, const FsProv *b) {
    return fsSameKeys(a, b) && strcmp(a->_root, b->_root) == 0 && a->_FileSystemSize == b->_FileSystemSize;
}

// The record that was read: at the same position, or wherever mounts have moved it; else null.
void *findOriginal(const FsEdit *edit, const DatInfo *area) {
    if (edit->cid != OXT_CID_FS_PROV)
        return area->datAdr;
    const FsProv *read = static_cast<const FsProv *>(edit->record);
    if (edit->position < area->datNum && isSameFileSystem(&fsProv(area)[edit->position], read))
        return &fsProv(area)[edit->position];
    for (int i = 0; i < area->datNum; ++i)
        if (isSameFileSystem(&fsProv(area)[i], read))
            return &fsProv(area)[i];
    return nullptr;
}

// The snapshot with a client's change; null when there is nothing to change, or without memory.
FsSnapshot *change(const FsEdit *edit) {
    // Once a stop has begun to take the store down, its last save must miss nothing that was accepted.
    FsSnapshot *next = fsGateState() == OXT_FS_INITIALISED ? fsCopySnapshot(fsCurrent(), true) : nullptr;
    char *record = next != nullptr ? static_cast<char *>(findOriginal(edit, &next->areas[edit->cid])) : nullptr;
    if (record != nullptr) {
        memcpy(record + edit->offset, &edit->value, edit->width); // little-endian: the low bytes come first
        return next;
    }
    fsDrop(next);
    return nullptr;
}

// The steps of fsSetInstance that need the publish turn. 0 with the version to save, or -1 with the failure traced.
int commit(const char *function, const OxtCInfo *cInfo, const FsEdit *edit, unsigned *version) {
    const FsSnapshot *now = fsCurrent();
    OXT_REQUIRE_AS(function, fsConf(now->areas) != nullptr, -1,
                   "_OUT_ param(instFs[OXT_CID_FS_CONF].datAdr) Failure!!");
    FsSnapshot *next = edit != nullptr ? change(edit) : nullptr;
    OXT_REQUIRE_AS(function, edit == nullptr || next != nullptr, -1, "_OUT_ fsApplyEdit() Failure!!");
    gfs_SleepSec.store(fsConf(next != nullptr ? next->areas : now->areas)->MonitorCycle); // for the next sleep
    const int ret = fsPublish(function, cInfo, next != nullptr ? next : now);
    if (next != nullptr)
        fsInstall(next); // also after a failure: the change stays, and is saved with the next one
    *version = fsCurrent()->version;
    return ret;
}

} // namespace

int fsInitInstance(const OxtCInfo *cInfo) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ param(cInfo) Failure!!");
    DatInfo areas[OXT_CID_FS_COUNT] = {};
    if (build(__func__, cInfo, areas) != 0) {
        for (const DatInfo &area : areas)
            free(area.datAdr);
        return -1;
    }
    OXT_TRACE("_OUT_");
    return 0;
}

int fsGetInstance(const OxtCInfo *cInfo, int classId, FsRecords *out) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ param(cInfo) Failure!!");
    OXT_REQUIRE(out != nullptr, -1, "_OUT_ param(out) Failure!!");
    *out = {};
    OXT_REQUIRE(classId >= 0 && classId < OXT_CID_FS_COUNT, -1, "_OUT_ param(classID) Failure!!");
    bool held = false; // outside service mode, across the pass: requests then make one pass after the other
    const bool locked = nonsrvMutexLock(cInfo, &instMutexFs, &held) == 0;
    OXT_REQUIRE(locked, -1, "_OUT_ nonsrvMutexLock(instMutexFs) Failure!!");
    const bool fromWatch = watchKeepsCurrent(cInfo);
    const int ret = !fromWatch && classId != OXT_CID_FS_CONF ? fsCheckConfigChange(cInfo) : 0;
    const int handed = handOut(__func__, cInfo, classId, fromWatch, ret == 0, out);
    mutexUnlock(&instMutexFs, held);
    if (handed != 0)
        return -1;
    OXT_TRACE("_OUT_ ret=[%d]", ret);
    return ret;
}

void fsReleaseInstance(FsRecords *reading) {
    fsDrop(reading->snapshot);
    *reading = {};
}

int fsSetInstance(const OxtCInfo *cInfo, const FsEdit *edit) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ param(cInfo) Failure!!");
    const long long begun = oxtMillis(); // its three waits together are no longer than one
    bool held = false;
    const bool locked = nonsrvMutexLock(cInfo, &instMutexFs, &held) == 0;
    OXT_REQUIRE(locked, -1, "_OUT_ nonsrvMutexLock(instMutexFs) Failure!!");
    unsigned version = 0;
    int ret = fsPublishBegin(__func__, oxtMillis() - begun);
    if (ret == 0) {
        ret = commit(__func__, cInfo, edit, &version);
        fsPublishEnd();
    }
    // After a commit that failed nothing is saved, and its failure is traced: -1 without another line, as for a file
    // that could not be opened.
    const FsSaved saved = ret == 0 ? fsSaveStore(__func__, version, oxtMillis() - begun) : FS_SAVE_NOT_OPENED;
    mutexUnlock(&instMutexFs, held);
    if (saved == FS_SAVE_NOT_OPENED)
        return -1;
    OXT_REQUIRE(saved == FS_SAVED, -1, "_OUT_ fsPutBinFile() Failure!!");
    OXT_TRACE("_OUT_");
    return 0;
}

int fsFreeInstance(const OxtCInfo *cInfo) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ param(cInfo) Failure!!");
    if (fsPublishBegin(__func__) != 0)
        return -1;
    int ret = 0;
    for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid) {
        const void *datAdr = fsCurrent()->areas[cid].datAdr;
        if (datAdr != nullptr) // and whoever still reads them keeps them
            OXT_TRACE("memfree(%p)", datAdr);
        else
            OXT_TRACE("memfree already NULL");
        OXT_TRACE("shmFs(%d).shmNum=[%d]", cid, shmFs[cid].shmNum);
        if (shmFs[cid].shmNum <= 0)
            continue;
        OXT_TRACE("shmDestroy(%d)", cid);
        if (shmDestroy(cInfo, &shmFs[cid]) != 0) {
            OXT_TRACE_FAIL("shmDestroy(%d) Failure!!", cid);
            ret = -1;
        }
    }
    fsInstall(nullptr);
    fsPublishEnd();
    OXT_TRACE("_OUT_ ret=[%d]", ret);
    return ret;
}
