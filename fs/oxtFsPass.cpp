#include "oxtFsPass.h"

#include <cstring>
#include <utility>

#include "oxtFsSnapshot.h"
#include "oxtFsState.h"
#include "oxtFsStatus.h"
#include "oxtIndex.h"
#include "oxtPaths.h"

namespace {

// What a pass started from: copies of all classes, so that the merge reads records that nobody changes.
struct Before {
    DatInfo areas[OXT_CID_FS_COUNT];
    OxtIndex byKeys; // of the file-system records
    unsigned edits;
};

unsigned hashOfKeys(const FsProv *prov) {
    return oxtHash(prov->Name);
} // the other three keys are always empty

// The records of an area by their keys. A trace shows each record that the search visits, so it gets the walk.
void indexKeys(OxtIndex *index, const DatInfo *area) {
    if (oxtTraceOn())
        *index = {area->datNum, 0, nullptr, nullptr};
    else
        oxtIndexMake(index, area->datNum, [&](int i) { return hashOfKeys(&fsProv(area)[i]); });
}

void releaseBefore(Before *before) {
    oxtIndexFree(&before->byKeys);
    for (DatInfo &area : before->areas)
        fsReleaseInstance(&area);
}

// Refreshes the store and copies it. 0, or -1 with the failure traced.
int takeBefore(const char *function, const OxtCInfo *cInfo, Before *before) {
    OXT_REQUIRE_AS(function, fsStoreLock() == 0, -1, "_OUT_ fsStoreLock() Failure!!");
    int ret = fsRefreshFromShm(function, cInfo);
    if (ret == 0) {
        for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid)
            ret |= fsCopyArea(&instFs[cid], &before->areas[cid]);
        if (ret != 0)
            OXT_TRACE_FAIL_AS(function, "_OUT_ insDat alloc Failure!!");
    }
    before->edits = fsEditCount();
    fsStoreUnlock();
    indexKeys(&before->byKeys, &before->areas[OXT_CID_FS_PROV]);
    return ret;
}

void traceKeys(const char *function, const char *side, int position, const FsProv *prov) {
    OXT_TRACE_AS(function, "%s[%d] CSCreCNm=[%s] CSName=[%s] CreCNm=[%s] Name=[%s]", side, position,
                 prov->CSCreationClassName, prov->CSName, prov->CreationClassName, prov->Name);
}

void traceComparison(const char *function, const FsProv *cur, const FsProv *ins) {
#define COMPARE(label, format, type, field)                                                                            \
    OXT_TRACE_AS(function, "    " label "=cur[" format "] ins[" format "]", static_cast<type>(cur->field),             \
                 static_cast<type>(ins->field))
    COMPARE("Index            ", "%d", int, Index);
    COMPARE("DriveType        ", "%d", int, DriveType);
    COMPARE("MonThreshold     ", "%d", int, MonitorThreshold);
    COMPARE("WarnThreshold    ", "%d", int, WarningThreshold);
    COMPARE("WarnThresholdDef ", "%d", int, WarningThresholdDefault);
    COMPARE("FatThreshold     ", "%d", int, FatalThreshold);
    COMPARE("FatThresholdDef  ", "%d", int, FatalThresholdDefault);
    COMPARE("FreeSpaceStatus  ", "%d", int, FreeSpaceStatus);
    COMPARE("_root            ", "%s", const char *, _root);
    COMPARE("_FileSystemSize  ", "%lld", long long, _FileSystemSize);
    COMPARE("_AvailableSpace  ", "%lld", long long, _AvailableSpace);
    COMPARE("_FileSystemType  ", "%s", const char *, _FileSystemType);
#undef COMPARE
}

// The first stored record with the same keys, or null. Later ones with these keys are never looked at.
const FsProv *findStored(const char *function, const DatInfo *stored, const OxtIndex *byKeys, const FsProv *cur) {
    for (int j = oxtIndexFirst(byKeys, hashOfKeys(cur)); j >= 0; j = oxtIndexNext(byKeys, j)) {
        const FsProv *ins = &fsProv(stored)[j];
        if (function != nullptr)
            traceKeys(function, "ins", j, ins);
        if (fsSameKeys(ins, cur))
            return ins;
    }
    return nullptr;
}

// A client's settings go over to the new record. Thresholds are amounts of a size: another size takes its own defaults.
void keepSettings(FsProv *cur, const FsProv *ins) {
    cur->MonitorThreshold = ins->MonitorThreshold;
    if (cur->_FileSystemSize != ins->_FileSystemSize)
        return;
    cur->WarningThreshold = ins->WarningThreshold;
    cur->WarningThresholdDefault = ins->WarningThresholdDefault;
    cur->FatalThreshold = ins->FatalThreshold;
    cur->FatalThresholdDefault = ins->FatalThresholdDefault;
}

void mergeKnown(const OxtCInfo *cInfo, FsProv *cur, const FsProv *ins) {
    keepSettings(cur, ins);
    const int status = cur->MonitorThreshold == 1 ? fsGetFreeSpaceStatus(cur) : OXT_FREESPC_OFF;
    if (cur->MonitorThreshold == 1 && getServiceMode(cInfo) == 1) {
        const unsigned evId = fsAlertOfChange(ins->FreeSpaceStatus, status);
        if (evId != OXT_ALERTID_NONE)
            fsPutAlert(evId, cur);
    }
    cur->FreeSpaceStatus = static_cast<int16_t>(status);
}

void mergeNew(const OxtCInfo *cInfo, const FsProv *cur) {
    if (getServiceMode(cInfo) != 1)
        return;
    const unsigned evId = fsAlertOfNew(cur->FreeSpaceStatus);
    if (evId != OXT_ALERTID_NONE)
        fsPutAlert(evId, cur);
}

void mergeAll(const char *function, const OxtCInfo *cInfo, const DatInfo *current, const Before *before) {
    const DatInfo *stored = &before->areas[OXT_CID_FS_PROV];
    for (int i = 0; i < current->datNum; ++i) {
        FsProv *cur = &fsProv(current)[i];
        traceKeys(function, "Cur", i, cur);
        const FsProv *ins = findStored(function, stored, &before->byKeys, cur);
        if (ins == nullptr) {
            mergeNew(cInfo, cur);
            continue;
        }
        OXT_TRACE_AS(function, "Find! (%d)", static_cast<int>(ins - fsProv(stored)));
        traceComparison(function, cur, ins);
        mergeKnown(cInfo, cur, ins);
    }
}

// Settings that clients committed since the pass took its copies replace those that it merged. The status stays as it
// was evaluated: the next pass sees the difference and sends the alert.
void keepLateSettings(const DatInfo *current, const Before *before) {
    if (fsEditCount() == before->edits)
        return;
    const DatInfo *live = &instFs[OXT_CID_FS_PROV];
    OxtIndex byKeys = {};
    oxtIndexMake(&byKeys, live->datAdr != nullptr ? live->datNum : 0,
                 [&](int i) { return hashOfKeys(&fsProv(live)[i]); });
    for (int i = 0; i < current->datNum; ++i) {
        FsProv *cur = &fsProv(current)[i];
        if (const FsProv *ins = findStored(nullptr, live, &byKeys, cur))
            keepSettings(cur, ins);
    }
    oxtIndexFree(&byKeys);
}

// Gives the file-system area and its segment the new count. 0, or -1 with the area left usable as it was: without
// memory its block is gone, and the pass's copy of the records, brought up to date, takes its place.
int resize(const char *function, const OxtCInfo *cInfo, int count, DatInfo *copy) {
    DatInfo *area = &instFs[OXT_CID_FS_PROV];
    const int held = area->datAdr != nullptr ? area->datNum : 0;
    const bool isCopy = held > 0 && held == copy->datNum;
    if (isCopy)
        memcpy(copy->datAdr, area->datAdr, static_cast<size_t>(oxtAreaSize(area)));
    area->datNum = count;
    OXT_TRACE_AS(function, "reallocDatArea(%s,%d,instFs,shmFs)", OXT_PATH_SHMKEY, OXT_CID_FS_PROV);
    if (reallocDatArea(cInfo, OXT_PATH_SHMKEY, OXT_CID_FS_PROV, area, &shmFs[OXT_CID_FS_PROV]) == 0)
        return 0;
    if (area->datAdr == nullptr && isCopy)
        std::swap(area->datAdr, copy->datAdr);
    area->datNum = area->datAdr != nullptr ? held : 0; // never a count that the block does not hold
    if (shmFs[OXT_CID_FS_PROV].shmNum == 0 && area->datNum > 0)
        shmFs[OXT_CID_FS_PROV].content = OXT_SHM_MISSING; // the next pass starts from these records
    OXT_TRACE_FAIL_AS(function, "reallocDatArea() Failure!!");
    return -1;
}

// Puts the merged records in the place of the stored ones, which the caller gets. 0, or -1 with the failure traced.
int install(const char *function, DatInfo *current) {
    FsTnum *tnum = fsTnum(instFs);
    OXT_REQUIRE_AS(function, tnum != nullptr, -1, "_OUT_ param(instFs[OXT_CID_FS_TNUM].datAdr) Failure!!");
    tnum->FileSystemTotalNumber = static_cast<uint16_t>(current->datNum);
    if (current->datNum < 1)
        return 0;
    void *&stored = instFs[OXT_CID_FS_PROV].datAdr;
    OXT_REQUIRE_AS(function, stored != nullptr, -1, "_OUT_ param(instFs[OXT_CID_FS_PROV].datAdr) Failure!!");
    std::swap(stored, current->datAdr); // blocks of equal size
    return 0;
}

// From the new count to the segments, with the store lock held: a reader sees the old records or the new ones, never a
// segment that was resized and not yet filled. Frees the current block on every path.
int publishLocked(const char *function, const OxtCInfo *cInfo, DatInfo *current, Before *before) {
    keepLateSettings(current, before);
    const bool fits = current->datNum == instFs[OXT_CID_FS_PROV].datNum &&
                      current->datNum == shmFs[OXT_CID_FS_PROV].shmNum; // not after a resize that failed
    if (!fits && resize(function, cInfo, current->datNum, &before->areas[OXT_CID_FS_PROV]) != 0) {
        OXT_MEMFREE_IN(function, current->datAdr);
        OXT_TRACE_AS(function, "_OUT_");
        return -1;
    }
    const int installed = install(function, current);
    OXT_MEMFREE_IN(function, current->datAdr);
    if (installed != 0)
        return -1;
    OXT_TRACE_AS(function, "fsCheckConfigChange - after -");
    fsLogDumpInstanceDat(OXT_DUMP_ALL, instFs);
    return fsPublishToShm(function, cInfo);
}

int publish(const char *function, const OxtCInfo *cInfo, DatInfo *current, Before *before) {
    const int stored = before->areas[OXT_CID_FS_PROV].datNum;
    OXT_TRACE_AS(function, "curNum[%d] instNum[%d]", current->datNum, stored);
    if (current->datNum != stored && getServiceMode(cInfo) == 1)
        fsPutAlert(OXT_ALERTID_CONFIG_CHANGE, nullptr);
    if (fsStoreLock() != 0) {
        OXT_TRACE_FAIL_AS(function, "_OUT_ fsStoreLock() Failure!!");
        OXT_MEMFREE_IN(function, current->datAdr);
        return -1;
    }
    const int ret = publishLocked(function, cInfo, current, before);
    fsStoreUnlock();
    return ret;
}

// The fresh inventory, merged. 0, or -1 with the failure traced.
int takeCurrent(const char *function, const OxtCInfo *cInfo, DatInfo *current, const Before *before) {
    const DatInfo *stored = &before->areas[OXT_CID_FS_PROV];
    OXT_TRACE_AS(function, "fsCheckConfigChange - before -");
    fsLogDumpInstanceDat(OXT_DUMP_ALL, before->areas);
    OXT_TRACE_AS(function, "fsGetCurrentInfo()");
    if (fsGetCurrentInfo(cInfo, current) != 0) {
        OXT_TRACE_FAIL_AS(function, "fsGetCurrentInfo Failure!!");
        OXT_MEMFREE_IN(function, current->datAdr);
        OXT_TRACE_AS(function, "_OUT_");
        return -1;
    }
    OXT_TRACE_AS(function, "curDat.datNum=[%d] instFs.datNum=[%d]", current->datNum, stored->datNum);
    mergeAll(function, cInfo, current, before);
    return 0;
}

} // namespace

int fsCheckConfigChange(const OxtCInfo *cInfo) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ param(cInfo) Failure!!");
    Before before = {};
    DatInfo current = {sizeof(FsProv), 0, nullptr};
    int ret = takeBefore(__func__, cInfo, &before);
    if (ret == 0)
        ret = takeCurrent(__func__, cInfo, &current, &before);
    if (ret == 0)
        ret = publish(__func__, cInfo, &current, &before);
    releaseBefore(&before);
    if (ret != 0)
        return -1;
    switch (fsSaveStore(__func__)) {
    case FS_SAVE_NOT_OPENED:
        return -1;
    case FS_SAVE_NOT_WRITTEN:
        OXT_FAIL(-1, "_OUT_ fsPutBinFile() Failure!!");
    case FS_SAVED:
        break;
    }
    OXT_TRACE("_OUT_");
    return 0;
}
