#include "oxtFsPass.h"

#include "oxtFsSave.h"
#include "oxtFsSnapshot.h"
#include "oxtFsStatus.h"
#include "oxtIndex.h"
#include "oxtPaths.h"

namespace {

// What the pass compares with and builds on.
struct PassBase {
    const FsSnapshot *snapshot;
    OxtIndex byKeys; // of the file-system records
};

// Of the name alone: the other three keys are always empty.
unsigned hashOfKeys(const FsProv *prov) {
    return oxtHash(prov->Name);
}

// The records of an area by their keys. A trace shows each record that the search visits, so it gets the walk.
void indexKeys(OxtIndex *index, const DatInfo *area) {
    if (oxtTraceOn())
        *index = {area->datNum, 0, nullptr, nullptr};
    else
        oxtIndexMake(index, area->datNum, [&](int i) { return hashOfKeys(&fsProv(area)[i]); });
}

// The records as the last pass left them. The segments are read back although this process fills them, since what
// another process has written into one counts. 0, or -1 with the failure traced.
int takeBase(const char *function, const OxtCInfo *cInfo, PassBase *base) {
    if (fsPublishBegin(function) != 0)
        return -1;
    int ret = fsIsTakenDown(function) ? -1 : 0;
    for (int cid = 0; cid < OXT_CID_FS_COUNT && ret == 0; ++cid) {
        const ShmInfo &shm = shmFs[cid];
        OXT_TRACE_AS(function, "shmFs[%d].shmNum=[%d]", cid, shm.shmNum);
        // Without a segment, and where the last copy into it failed, the snapshot is what there is.
        if (shm.shmNum > 0 && shm.content == OXT_SHM_CURRENT)
            ret = fsRefresh(function, cInfo, cid);
    }
    base->snapshot = fsTake();
    fsPublishEnd();
    indexKeys(&base->byKeys, &base->snapshot->areas[OXT_CID_FS_PROV]);
    return ret;
}

void traceKeys(const char *function, const char *side, int position, const FsProv *prov) {
    OXT_TRACE_AS(function, "%s[%d] CSCreCNm=[%s] CSName=[%s] CreCNm=[%s] Name=[%s]", side, position,
                 prov->CSCreationClassName, prov->CSName, prov->CreationClassName, prov->Name);
}

void traceComparison(const char *function, const FsProv *cur, const FsProv *ins) {
    FsShown curNumber, insNumber;
    for (const FsField &field : FS_PROV_FIELDS)
        if (field.compared != nullptr)
            OXT_TRACE_AS(function, "    %-17s=cur[%s] ins[%s]", field.compared, fsShow(field, cur, curNumber),
                         fsShow(field, ins, insNumber));
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

void alert(const OxtCInfo *cInfo, unsigned evId, const FsProv *prov) {
    if (getServiceMode(cInfo) == 1 && evId != OXT_ALERTID_NONE)
        fsPutAlert(evId, prov);
}

// The alert goes out before the records are installed. If they cannot be, the next pass finds the old status again and
// sends the alert once more; in the other order a failure in between would lose it.
void mergeKnown(const OxtCInfo *cInfo, FsProv *cur, const FsProv *ins) {
    keepSettings(cur, ins);
    // A switch that is neither 0 nor 1, from a damaged file, counts as off here, though the status function on its own
    // calls it unknown.
    const int status = cur->MonitorThreshold == 1 ? fsGetFreeSpaceStatus(cur) : OXT_FREESPC_OFF;
    if (cur->MonitorThreshold == 1)
        alert(cInfo, fsAlertOfChange(ins->FreeSpaceStatus, status), cur);
    cur->FreeSpaceStatus = static_cast<int16_t>(status);
}

void mergeAll(const char *function, const OxtCInfo *cInfo, const DatInfo *current, const PassBase *base) {
    const DatInfo *stored = &base->snapshot->areas[OXT_CID_FS_PROV];
    for (int i = 0; i < current->datNum; ++i) {
        FsProv *cur = &fsProv(current)[i];
        traceKeys(function, "Cur", i, cur);
        const FsProv *ins = findStored(function, stored, &base->byKeys, cur);
        if (ins == nullptr) {
            alert(cInfo, fsAlertOfNew(cur->FreeSpaceStatus), cur);
            continue;
        }
        OXT_TRACE_AS(function, "Find! (%d)", static_cast<int>(ins - fsProv(stored)));
        traceComparison(function, cur, ins);
        mergeKnown(cInfo, cur, ins);
    }
}

// Settings that clients committed since the pass began replace those that it merged. The status stays as it was
// evaluated: the next pass sees the difference and sends the alert.
void keepLateSettings(const DatInfo *current, const DatInfo *stored) {
    OxtIndex byKeys = {};
    oxtIndexMake(&byKeys, stored->datNum, [&](int i) { return hashOfKeys(&fsProv(stored)[i]); });
    for (int i = 0; i < current->datNum; ++i) {
        FsProv *cur = &fsProv(current)[i];
        if (const FsProv *ins = findStored(nullptr, stored, &byKeys, cur))
            keepSettings(cur, ins);
    }
    oxtIndexFree(&byKeys);
}

// A segment for so many records, with a block of zeros of that size. 0 or -1.
int resize(const char *function, const OxtCInfo *cInfo, int count, DatInfo *zeros) {
    *zeros = {sizeof(FsProv), count, nullptr};
    OXT_TRACE_AS(function, "reallocDatArea(%s,%d,instFs,shmFs)", OXT_PATH_SHMKEY, OXT_CID_FS_PROV);
    if (reallocDatArea(cInfo, OXT_PATH_SHMKEY, OXT_CID_FS_PROV, zeros, &shmFs[OXT_CID_FS_PROV]) == 0)
        return 0;
    free(zeros->datAdr);
    OXT_TRACE_FAIL_AS(function, "reallocDatArea() Failure!!");
    return -1;
}

// With the publish turn: the next snapshot, the segments, then its installation. Takes the current block on every path.
int publishLocked(const char *function, const OxtCInfo *cInfo, DatInfo *current, const FsSnapshot *before) {
    const FsSnapshot *now = fsCurrent();
    const DatInfo *stored = &now->areas[OXT_CID_FS_PROV];
    if (now != before) // somebody has installed another since the pass began
        keepLateSettings(current, stored);
    FsSnapshot *next = fsCopySnapshot(now, false); // before the segment is touched: without memory all stays as it is
    if (next == nullptr)
        OXT_TRACE_FAIL_AS(function, "insDat alloc Failure!!");
    DatInfo zeros = *stored;
    const bool fits = current->datNum == stored->datNum && current->datNum == shmFs[OXT_CID_FS_PROV].shmNum;
    if (next == nullptr || (!fits && resize(function, cInfo, current->datNum, &zeros) != 0)) {
        fsDrop(next);
        OXT_MEMFREE_IN(function, current->datAdr);
        OXT_TRACE_AS(function, "_OUT_");
        return -1;
    }
    const char *missing = fsTnum(next->areas) == nullptr ? "_OUT_ param(instFs[OXT_CID_FS_TNUM].datAdr) Failure!!"
                          : zeros.datAdr == nullptr      ? "_OUT_ param(instFs[OXT_CID_FS_PROV].datAdr) Failure!!"
                                                         : nullptr;
    if (missing == nullptr) {
        fsTnum(next->areas)->FileSystemTotalNumber = static_cast<uint16_t>(current->datNum);
        OXT_TRACE_AS(function, "memfree(%p)", current->datAdr); // which the snapshot does when it is dropped
        if (!fits)
            free(zeros.datAdr);
        next->areas[OXT_CID_FS_PROV] = *current;
        OXT_TRACE_AS(function, "fsCheckConfigChange - after -");
        fsLogDumpInstanceDat(OXT_DUMP_ALL, next->areas);
        const int ret = fsPublish(function, cInfo, next);
        fsInstall(next);
        return ret;
    }
    OXT_TRACE_FAIL_AS(function, "%s", missing);
    OXT_MEMFREE_IN(function, current->datAdr);
    if (!fits) { // after a refused stop: how many there are is known from now on, and that is all
        next->areas[OXT_CID_FS_PROV] = zeros;
        fsInstall(next);
    } else {
        fsDrop(next);
    }
    return -1;
}

int publish(const char *function, const OxtCInfo *cInfo, DatInfo *current, const FsSnapshot *before,
            unsigned *version) {
    const int stored = before->areas[OXT_CID_FS_PROV].datNum;
    OXT_TRACE_AS(function, "curNum[%d] instNum[%d]", current->datNum, stored);
    if (current->datNum != stored && getServiceMode(cInfo) == 1)
        fsPutAlert(OXT_ALERTID_CONFIG_CHANGE, nullptr);
    if (fsPublishBegin(function) != 0) {
        OXT_MEMFREE_IN(function, current->datAdr);
        return -1;
    }
    const bool isGone = fsIsTakenDown(function);
    if (isGone)
        OXT_MEMFREE_IN(function, current->datAdr);
    const int ret = isGone ? -1 : publishLocked(function, cInfo, current, before);
    *version = fsCurrent()->version;
    fsPublishEnd();
    return ret;
}

// The fresh inventory, merged. 0, or -1 with the failure traced.
int takeCurrent(const char *function, const OxtCInfo *cInfo, DatInfo *current, const PassBase *base) {
    const DatInfo *stored = &base->snapshot->areas[OXT_CID_FS_PROV];
    OXT_TRACE_AS(function, "fsCheckConfigChange - before -");
    fsLogDumpInstanceDat(OXT_DUMP_ALL, base->snapshot->areas);
    OXT_TRACE_AS(function, "fsGetCurrentInfo()");
    if (fsGetCurrentInfo(cInfo, current) != 0) {
        OXT_TRACE_FAIL_AS(function, "fsGetCurrentInfo Failure!!");
        OXT_MEMFREE_IN(function, current->datAdr);
        OXT_TRACE_AS(function, "_OUT_");
        return -1;
    }
    OXT_TRACE_AS(function, "curDat.datNum=[%d] instFs.datNum=[%d]", current->datNum, stored->datNum);
    mergeAll(function, cInfo, current, base);
    return 0;
}

} // namespace

int fsCheckConfigChange(const OxtCInfo *cInfo) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ param(cInfo) Failure!!");
    PassBase base = {};
    unsigned version = 0;
    DatInfo current = {sizeof(FsProv), 0, nullptr};
    int ret = takeBase(__func__, cInfo, &base);
    if (ret == 0)
        ret = takeCurrent(__func__, cInfo, &current, &base);
    if (ret == 0)
        ret = publish(__func__, cInfo, &current, base.snapshot, &version);
    oxtIndexFree(&base.byKeys);
    fsDrop(base.snapshot);
    if (ret != 0)
        return -1;
    const FsSaved saved = fsSaveStore(__func__, version);
    if (saved == FS_SAVE_NOT_OPENED)
        return -1;
    OXT_REQUIRE(saved == FS_SAVED, -1, "_OUT_ fsPutBinFile() Failure!!");
    OXT_TRACE("_OUT_");
    return 0;
}
