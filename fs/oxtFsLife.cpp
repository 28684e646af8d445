#include "oxtFsLife.h"

#include <unistd.h>

#include "cmpift.h"
#include "cmpimacs.h"
#include "oxtFsStore.h"
#include "oxtFsWatch.h"

namespace {

CMPIStatus failed(const OxtCInfo *cInfo, CMPIrc rc, const char *message) {
    return {rc, CMNewString(cInfo->broker, message, nullptr)};
}

CMPIStatus cleanUpWithThread(const char *function, const OxtCInfo *cInfo, bool terminating) {
    if (terminating) {
        OXT_TRACE_AS(function, "CleanUp Exit SFCB.");
        fsExitThread(cInfo, FS_FROM_CLEANUP);
        OXT_TRACE_AS(function, "_OUT_ rc=[CMPI_RC_OK]");
        return {CMPI_RC_OK, nullptr};
    }
    OXT_TRACE_AS(function, "CleanUp TimeOut.");
    const CMPIStatus status = failed(cInfo, CMPI_RC_DO_NOT_UNLOAD, "MonitorThread is Running!!");
    OXT_TRACE_AS(function, "_OUT_ rc=[CMPI_RC_DO_NOT_UNLOAD]");
    return status;
}

CMPIStatus cleanUpWithoutThread(const char *function, const OxtCInfo *cInfo, bool terminating) {
    OXT_TRACE_AS(function, "ServiceMode but Non-Thread.");
    const FsDropped dropped = fsDropStore(cInfo, FS_FROM_CLEANUP);
    if (dropped == FS_DROP_WATCHED) // a start came in between: the library must not go under its thread
        return cleanUpWithThread(function, cInfo, terminating);
    if (dropped != FS_DROPPED)
        OXT_TRACE_FAIL_AS(function, "fsFreeInstance() Failure!!");
    if (dropped == FS_DROP_BUSY && !terminating) { // nor under a request
        OXT_TRACE_AS(function, "_OUT_ rc=[CMPI_RC_DO_NOT_UNLOAD]");
        return {CMPI_RC_DO_NOT_UNLOAD, nullptr};
    }
    OXT_TRACE_AS(function, "_OUT_ rc=[CMPI_RC_OK]");
    return {CMPI_RC_OK, nullptr};
}

// Outside service mode, with the gate closed: saves and frees; *state becomes the provider's new state.
CMPIStatus saveAndFree(const char *function, const OxtCInfo *cInfo, int *state) {
    OXT_TRACE_AS(function, "fsSetInstance()");
    OXT_REQUIRE_AS(function, fsSetInstance(cInfo) == 0, failed(cInfo, CMPI_RC_ERR_FAILED, "fsSetInstance() Failure!!"),
                   "fsSetInstance Failure!!");
    OXT_TRACE_AS(function, "fsFreeInstance()");
    OXT_REQUIRE_AS(function, fsFreeInstance(cInfo) == 0,
                   failed(cInfo, CMPI_RC_ERR_FAILED, "fsFreeInstance() Failure!!"), "fsFreeInstance Failure!!");
    fsTraceMutexesDestroyed(function);
    *state = OXT_FS_UNINITIALISED;
    return {CMPI_RC_OK, nullptr};
}

CMPIStatus cleanUpOutsideService(const char *function, const OxtCInfo *cInfo, bool terminating) {
    int state = OXT_FS_UNINITIALISED;
    if (fsGateClose(FS_FROM_CLEANUP, &state) != 0) { // a request is busy with the store: it cannot be saved now
        OXT_TRACE_FAIL_AS(function, "fsSetInstance Failure!!");
        OXT_TRACE_AS(function, "_OUT_");
        return failed(cInfo, CMPI_RC_ERR_FAILED, "fsSetInstance() Failure!!");
    }
    if (state == OXT_FS_UNINITIALISED) {
        fsGateOpen(FS_FROM_CLEANUP, state);
        OXT_TRACE_AS(function, "_OUT_ rc=[CMPI_RC_OK] Already CleanUp.");
        return {CMPI_RC_OK, nullptr};
    }
    if (gfs_thid.load() != 0) { // the mode became known meanwhile, and a thread was started
        fsGateOpen(FS_FROM_CLEANUP, state);
        return cleanUpWithThread(function, cInfo, terminating);
    }
    const CMPIStatus status = saveAndFree(function, cInfo, &state);
    fsGateOpen(FS_FROM_CLEANUP, state);
    OXT_TRACE_AS(function, "_OUT_");
    return status;
}

} // namespace

int fsInitProvider(const OxtCInfo *cInfo) {
    OXT_TRACE("_IN_ gfs_first=[%d]", gfs_first.load());
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ param(cInfo) Failure!!");
    int state = OXT_FS_IN_PROGRESS;
    for (int waits = 0; state == OXT_FS_IN_PROGRESS;) {
        for (; gfs_first.load() == OXT_FS_IN_PROGRESS && waits < OXT_WAIT_TRIES; ++waits)
            usleep(OXT_WAIT_MICROS);
        OXT_REQUIRE(waits < OXT_WAIT_TRIES, -1, "_OUT_ gfs_first Failure!!");
        state = fsGateEnter();
    }
    if (state == OXT_FS_INITIALISED) {
        OXT_TRACE("_OUT_ Already Initialize.");
        return 0;
    }
    OXT_TRACE("fsInitInstance()");
    const int ret = fsInitInstance(cInfo);
    fsGateBuilt(ret == 0);
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

FsDropped fsDropStore(const OxtCInfo *cInfo, FsCaller caller) {
    int state = OXT_FS_UNINITIALISED;
    if (fsGateClose(caller, &state) != 0)
        return FS_DROP_BUSY;
    FsDropped dropped = FS_DROP_WATCHED;
    if (gfs_thid.load() == 0)
        dropped = fsFreeInstance(cInfo) == 0 ? FS_DROPPED : FS_DROP_FAILED;
    fsGateOpen(caller, state);
    return dropped;
}

std::atomic<int> *fsGetFirstProc() {
    OXT_TRACE("=== gfs_first=[%d] ===", gfs_first.load());
    return &gfs_first;
}
