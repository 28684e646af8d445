#include "oxtFsLife.h"

#include <unistd.h>

#include "oxtCmpi.h"
#include "oxtFsStore.h"
#include "oxtFsTurn.h"
#include "oxtFsWatch.h"
#include "oxtWait.h"

namespace {

CMPIStatus cleanUpWithThread(const char *function, const OxtCInfo *cInfo, bool terminating) {
    if (terminating) { // the process ends: the thread has to end before the library's code is gone
        OXT_TRACE_AS(function, "CleanUp Exit SFCB.");
        fsExitThread(cInfo);
        if (fsAloneBegin() == 0) // once the requests inside have left, the library may go
            fsAloneEnd();
        OXT_TRACE_AS(function, "_OUT_ rc=[CMPI_RC_OK]");
        return {CMPI_RC_OK, nullptr};
    }
    OXT_TRACE_AS(function, "CleanUp TimeOut."); // nobody has asked for a while; the thread goes on monitoring
    const CMPIStatus status = oxtStatus(cInfo, CMPI_RC_DO_NOT_UNLOAD, "MonitorThread is Running!!");
    OXT_TRACE_AS(function, "_OUT_ rc=[CMPI_RC_DO_NOT_UNLOAD]");
    return status;
}

CMPIStatus cleanUpWithoutThread(const char *function, const OxtCInfo *cInfo, bool terminating) {
    OXT_TRACE_AS(function, "ServiceMode but Non-Thread.");
    const bool alone = fsAloneBegin() == 0;
    const bool hasThread = alone && gfs_thid.load() != 0;
    const bool freed = alone && !hasThread && fsFreeInstance(cInfo) == 0;
    if (alone)
        fsAloneEnd();
    if (hasThread) // a start came in between: the library must not be unloaded while its thread runs
        return cleanUpWithThread(function, cInfo, terminating);
    if (!freed)
        OXT_TRACE_FAIL_AS(function, "fsFreeInstance() Failure!!");
    if (!alone && !terminating) { // nor while a request is inside
        OXT_TRACE_AS(function, "_OUT_ rc=[CMPI_RC_DO_NOT_UNLOAD]");
        return {CMPI_RC_DO_NOT_UNLOAD, nullptr};
    }
    OXT_TRACE_AS(function, "_OUT_ rc=[CMPI_RC_OK]");
    return {CMPI_RC_OK, nullptr};
}

// Outside service mode, alone: saves and frees.
CMPIStatus saveAndFree(const char *function, const OxtCInfo *cInfo) {
    OXT_TRACE_AS(function, "fsSetInstance()");
    OXT_REQUIRE_AS(function, fsSetInstance(cInfo) == 0,
                   oxtStatus(cInfo, CMPI_RC_ERR_FAILED, "fsSetInstance() Failure!!"), "fsSetInstance Failure!!");
    OXT_TRACE_AS(function, "fsFreeInstance()");
    OXT_REQUIRE_AS(function, fsFreeInstance(cInfo) == 0,
                   oxtStatus(cInfo, CMPI_RC_ERR_FAILED, "fsFreeInstance() Failure!!"), "fsFreeInstance Failure!!");
    fsTraceMutexesDestroyed(function);
    fsGateForget();
    return {CMPI_RC_OK, nullptr};
}

CMPIStatus cleanUpOutsideService(const char *function, const OxtCInfo *cInfo, bool terminating) {
    if (fsAloneBegin() != 0) { // a request is busy with the store: it cannot be saved now
        OXT_TRACE_FAIL_AS(function, "fsSetInstance Failure!!");
        OXT_TRACE_AS(function, "_OUT_");
        return oxtStatus(cInfo, CMPI_RC_ERR_FAILED, "fsSetInstance() Failure!!");
    }
    const bool isBuilt = fsGateState() == OXT_FS_INITIALISED;
    const bool hasThread = isBuilt && gfs_thid.load() != 0; // the mode became known meanwhile
    CMPIStatus status = {CMPI_RC_OK, nullptr};
    if (isBuilt && !hasThread)
        status = saveAndFree(function, cInfo);
    fsAloneEnd();
    if (hasThread)
        return cleanUpWithThread(function, cInfo, terminating);
    OXT_TRACE_AS(function, isBuilt ? "_OUT_" : "_OUT_ rc=[CMPI_RC_OK] Already CleanUp.");
    return status;
}

} // namespace

int fsInitProvider(const OxtCInfo *cInfo) {
    OXT_TRACE("_IN_ gfs_first=[%d]", gfs_first.load());
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ param(cInfo) Failure!!");
    int state = OXT_FS_IN_PROGRESS, waits = 0; // counted over all rounds: the gate may close again after a wait
    while (state == OXT_FS_IN_PROGRESS) {
        for (; gfs_first.load() == OXT_FS_IN_PROGRESS && waits < OXT_WAIT_TRIES; ++waits)
            usleep(OXT_WAIT_MICROS);
        OXT_REQUIRE(waits < OXT_WAIT_TRIES, -1, "_OUT_ gfs_first Failure!!");
        state = fsGateEnter();
    }
    if (state == OXT_FS_INITIALISED) {
        OXT_TRACE("_OUT_ Already Initialize.");
        return 0;
    }
    // A stop has the life turn while the gate says "uninitialised": its last save must be over before this build reads
    // it.
    const bool begun = fsTurnBegin(FS_LIFE, waits * OXT_WAIT_MILLIS / OXT_WAIT_TRIES) == 0;
    if (begun)
        OXT_TRACE("fsInitInstance()");
    const int ret = begun ? fsInitInstance(cInfo) : -1;
    fsGateBuilt(ret == 0); // before a stop or a clean-up that has waited looks at the gate
    if (begun)
        fsTurnEnd(FS_LIFE);
    OXT_TRACE("_OUT_ ret=[%d]", ret);
    return ret;
}

void fsLeaveProvider() {
    fsGateLeave();
}

CMPIStatus fsCleanUpProvider(const OxtCInfo *cInfo, bool terminating) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(cInfo != nullptr, (CMPIStatus{CMPI_RC_ERR_FAILED, nullptr}), "_OUT_ param(cInfo) Failure!!");
    if (getServiceMode(cInfo) != 1)
        return cleanUpOutsideService(__func__, cInfo, terminating);
    if (getThreadSts(&gfs_thid) != 1)
        return cleanUpWithoutThread(__func__, cInfo, terminating);
    return cleanUpWithThread(__func__, cInfo, terminating);
}

int fsDropStore(const OxtCInfo *cInfo) {
    if (fsTurnBegin(FS_LIFE) != 0)
        return -1;
    const int ret = gfs_thid.load() == 0 ? fsFreeInstance(cInfo) : -1;
    fsTurnEnd(FS_LIFE);
    return ret;
}

std::atomic<int> *fsGetFirstProc() {
    OXT_TRACE("=== gfs_first=[%d] ===", gfs_first.load());
    return &gfs_first;
}
