#include "oxtFsStore.h"

#include <sys/shm.h>

#include "oxtFile.h"
#include "oxtFsPass.h"
#include "oxtFsSave.h"
#include "oxtFsSnapshot.h"
#include "oxtFsStatus.h"
#include "oxtFsWatch.h"
#include "oxtPaths.h"

namespace {

constexpr FsConf DEFAULT_CONF = {60, 10, 3600, 60};

// What a failed initialisation left in place would be forgotten by the next one, once for each request that tries.
void clearLeftovers() {
    for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid) {
        fsReleaseInstance(&instFs[cid]);
        ShmInfo &shm = shmFs[cid];
        if (shm.shmNum > 0 && shm.shmId > 0)
            shmctl(shm.shmId, IPC_RMID, nullptr);
        shmForget(&shm); // the mutex stays: a thread of an earlier life may just be letting go of it
    }
}

int allocateSmallRecords(const char *function) {
    instFs[OXT_CID_FS_CONF].datAdr = memalloc(sizeof(FsConf));
    OXT_REQUIRE_AS(function, instFs[OXT_CID_FS_CONF].datAdr != nullptr, -1, "_OUT_ FsConf alloc Failure!!");
    instFs[OXT_CID_FS_TNUM].datAdr = memalloc(sizeof(FsTnum));
    OXT_REQUIRE_AS(function, instFs[OXT_CID_FS_TNUM].datAdr != nullptr, -1, "_OUT_ FsTnum alloc Failure!!");
    return 0;
}

// True when the save file filled all classes.
bool loadSaved(const char *function) {
    OXT_TRACE_AS(function, "fopen-check[%s]", OXT_PATH_SAVE);
    // "r+": a file that could not be written back is treated as absent.
    OxtFile fp = oxtOpenFile(OXT_PATH_SAVE, "r+");
    OXT_TRACE_AS(function, "fp=[%p]", static_cast<void *>(fp.get()));
    if (fp == nullptr)
        return false;
    OXT_TRACE_AS(function, "fsGetBinFile()");
    const bool loaded = fsGetBinFile(fp.get(), instFs) == 0;
    fp.reset();
    OXT_TRACE_AS(function, "fclose");
    if (!loaded)
        OXT_TRACE_AS(function, "fsGetBinFile() Not read");
    return loaded;
}

// The machine as it is now, with the default configuration. 0, or -1 with the failure traced.
int takeDefaults(const char *function, const OxtCInfo *cInfo) {
    fsReleaseInstance(&instFs[OXT_CID_FS_PROV]); // a rejected save file may have filled it
    OXT_TRACE_AS(function, "fsGetCurrentInfo()");
    OXT_REQUIRE_AS(function, fsGetCurrentInfo(cInfo, &instFs[OXT_CID_FS_PROV]) == 0, -1,
                   "_OUT_ fsGetCurrentInfo() Failure!!");
    const int count = instFs[OXT_CID_FS_PROV].datNum;
    *fsConf(instFs) = DEFAULT_CONF;
    fsTnum(instFs)->FileSystemTotalNumber = static_cast<uint16_t>(count);
    // Every file system starts as normal, so that a fresh start announces none that is.
    for (int i = 0; i < count; ++i)
        fsProv(&instFs[OXT_CID_FS_PROV])[i].FreeSpaceStatus = OXT_FREESPC_NORMAL;
    return 0;
}

int publishNew(const char *function, const OxtCInfo *cInfo) {
    OXT_TRACE_AS(function, "- to shm -");
    fsLogDumpInstanceDat(OXT_DUMP_ALL, instFs);
    OXT_TRACE_AS(function, "shmNew(%d,%s)", OXT_CID_FS_PROV, OXT_PATH_SHMKEY);
    OXT_REQUIRE_AS(function, shmNew(cInfo, OXT_CID_FS_PROV, OXT_PATH_SHMKEY, instFs, shmFs) == 0, -1,
                   "_OUT_ shmNew() Failure!!");
    return fsPublishToShm(function, cInfo);
}

bool watchKeepsCurrent(const OxtCInfo *cInfo) {
    return getServiceMode(cInfo) == 1 && getThreadSts(&gfs_thid) == 1;
}

// While the watch thread runs: the class as its segment has it, or as the private copy has it when the segment is
// older. A segment that was made and could not be filled since is no data yet.
int refreshFromWatch(const char *function, const OxtCInfo *cInfo, int classId, DatInfo *shown) {
    ShmInfo *shm = &shmFs[classId];
    if (shm->shmNum > 0 && shm->content != OXT_SHM_EMPTY) {
        if (shm->content == OXT_SHM_CURRENT && fsRefreshClass(function, cInfo, classId) != 0)
            return -1;
        *shown = instFs[classId];
    } else {
        OXT_TRACE_AS(function, "shmFs[%d].shmNum=0", classId);
    }
    OXT_TRACE_AS(function, "- return TRUE classID=[%d]-", classId);
    DatInfo dump[OXT_CID_FS_COUNT] = {};
    dump[classId] = *shown;
    fsLogDumpInstanceDat(classId, dump);
    return 0;
}

// The configuration without a running thread: nothing changes it but clients, so no pass is needed.
int refreshConfig(const char *function, const OxtCInfo *cInfo) {
    const ShmInfo *shm = &shmFs[OXT_CID_FS_CONF];
    const bool isOlder = shm->shmNum > 0 && shm->content != OXT_SHM_CURRENT; // than the private copy
    if (!isOlder && fsRefreshClass(function, cInfo, OXT_CID_FS_CONF) != 0)
        return -1;
    OXT_TRACE_AS(function, "- return Config -");
    fsLogDumpInstanceDat(OXT_CID_FS_CONF, instFs);
    return 0;
}

// Brings the class up to date as far as that needs the store lock, which is held, and copies it out. 0, or -1 with the
// failure's exit line traced.
int handOut(const char *function, const OxtCInfo *cInfo, int classId, bool fromWatch, DatInfo *out) {
    DatInfo shown = {instFs[classId].datSize, 0, nullptr};
    int ret = 0;
    if (fromWatch)
        ret = refreshFromWatch(function, cInfo, classId, &shown);
    else if (classId == OXT_CID_FS_CONF)
        ret = refreshConfig(function, cInfo);
    if (ret != 0)
        return -1;
    if (!fromWatch) // after a pass that failed, what is known
        shown = instFs[classId];
    OXT_REQUIRE_AS(function, fsCopyArea(&shown, out) == 0, -1, "_OUT_ outDat alloc Failure!!");
    if (classId != OXT_CID_FS_CONF)
        return 0;
    const FsConf *conf = static_cast<FsConf *>(out->datAdr);
    OXT_REQUIRE_AS(function, conf != nullptr, -1, "_OUT_ param(instFs[OXT_CID_FS_CONF].datAdr) Failure!!");
    gfs_SleepSec.store(conf->MonitorCycle);
    return 0;
}

// The steps of fsSetInstance that need the store lock. 0, or -1 with the failure traced.
int commit(const char *function, const OxtCInfo *cInfo, const FsEdit *edit) {
    const FsConf *conf = fsConf(instFs);
    OXT_REQUIRE_AS(function, conf != nullptr, -1, "_OUT_ param(instFs[OXT_CID_FS_CONF].datAdr) Failure!!");
    if (edit != nullptr && fsApplyEdit(edit) != 0) {
        OXT_TRACE_FAIL_AS(function, "_OUT_ fsApplyEdit() Failure!!");
        return -1;
    }
    gfs_SleepSec.store(conf->MonitorCycle);
    return fsPublishToShm(function, cInfo);
}

} // namespace

int fsInitInstance(const OxtCInfo *cInfo) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ param(cInfo) Failure!!");
    clearLeftovers();
    fsInitDatInfo(instFs);
    if (allocateSmallRecords(__func__) != 0)
        return -1;
    for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid)
        OXT_TRACE("pthread_mutex_init(%d)", cid);
    if (!loadSaved(__func__) && takeDefaults(__func__, cInfo) != 0)
        return -1;
    gfs_SleepSec.store(fsConf(instFs)->MonitorCycle);
    if (publishNew(__func__, cInfo) != 0)
        return -1;
    OXT_TRACE("_OUT_");
    return 0;
}

int fsGetInstance(const OxtCInfo *cInfo, int classId, DatInfo *out) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ param(cInfo) Failure!!");
    OXT_REQUIRE(out != nullptr, -1, "_OUT_ param(out) Failure!!");
    *out = {};
    OXT_REQUIRE(classId >= 0 && classId < OXT_CID_FS_COUNT, -1, "_OUT_ param(classID) Failure!!");
    bool held = false;
    const bool locked = nonsrvMutexLock(cInfo, &instMutexFs, &held) == 0;
    OXT_REQUIRE(locked, -1, "_OUT_ nonsrvMutexLock(instMutexFs) Failure!!");
    const bool fromWatch = watchKeepsCurrent(cInfo);
    const int ret = !fromWatch && classId != OXT_CID_FS_CONF ? fsCheckConfigChange(cInfo) : 0;
    int handed = -1;
    if (fsStoreLock() == 0) {
        handed = handOut(__func__, cInfo, classId, fromWatch, out);
        fsStoreUnlock();
    } else {
        OXT_TRACE_FAIL("_OUT_ fsStoreLock() Failure!!");
    }
    mutexUnlock(&instMutexFs, held);
    if (handed != 0)
        return -1;
    OXT_TRACE("_OUT_ ret=[%d]", ret);
    return ret;
}

int fsSetInstance(const OxtCInfo *cInfo, const FsEdit *edit) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ param(cInfo) Failure!!");
    bool held = false;
    const bool locked = nonsrvMutexLock(cInfo, &instMutexFs, &held) == 0;
    OXT_REQUIRE(locked, -1, "_OUT_ nonsrvMutexLock(instMutexFs) Failure!!");
    int ret = fsStoreLock();
    if (ret == 0) {
        ret = commit(__func__, cInfo, edit);
        fsStoreUnlock();
    } else {
        OXT_TRACE_FAIL("_OUT_ fsStoreLock() Failure!!");
    }
    const FsSaved saved = ret == 0 ? fsSaveStore(__func__) : FS_SAVE_NOT_OPENED; // traced like one, so far
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
    int ret = 0;
    OXT_REQUIRE(fsStoreLock() == 0, -1, "_OUT_ fsStoreLock() Failure!!");
    for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid) {
        OXT_MEMFREE(instFs[cid].datAdr);
        instFs[cid].datNum = 0;
        OXT_TRACE("shmFs(%d).shmNum=[%d]", cid, shmFs[cid].shmNum);
        if (shmFs[cid].shmNum <= 0)
            continue;
        OXT_TRACE("shmDestroy(%d)", cid);
        if (shmDestroy(cInfo, &shmFs[cid]) != 0) {
            OXT_TRACE_FAIL("shmDestroy(%d) Failure!!", cid);
            ret = -1;
        }
    }
    fsStoreUnlock();
    OXT_TRACE("_OUT_ ret=[%d]", ret);
    return ret;
}
