#include "oxtClasses.h"
#include "oxtFsLife.h"
#include "oxtFsTurn.h"
#include "oxtFsWatch.h"

namespace {

// The record of this class is the running flag itself; the store keeps none.
constexpr FsField RUNNING[] = {{nullptr, "ThreadRunning", "ThreadRunning", nullptr, nullptr, FS_FIELD_UINT16, 0}};

// The record's word in the trace is that of the total number's class; log filters know it.
constexpr OxtClass THREAD = OXT_CLASS("OXT_FileSystemThread", RUNNING, false, -1, OXT_FSThreadSetPropInst, "dattotal",
                                      "CMSetPropertyFilter() Failure!!", OXT_TRACE_FAILURE);

constexpr char NOT_SERVICE_TRACE[] = "ServiceMode is non-Service Failure!!";
constexpr char NOT_SERVICE_FAILED[] = "ServiceMode is non-Service FAILED";

// Starts the thread, unless one runs. The caller has checked the service mode; `alone` is whether it got the life turn
// within 3 seconds, while another start, a stop or a clean-up may have had it.
CMPIStatus start(const char *function, const OxtCInfo *cInfo, bool alone) {
    if (getThreadSts(fsGetThreadID()) != 0)
        return oxtFailed(function, cInfo, "Thread is Already WakeUp Failure!!", CMPI_RC_ERR_FAILED,
                         "Thread is Already WakeUp FAILED");
    // A stop that came first has taken the store down. The trace names another call, as it always has; log filters know
    // it.
    if (!alone || fsGateState() != OXT_FS_INITIALISED || fsCreateThread(cInfo) != 0)
        return oxtFailed(function, cInfo, "getClassName() Failure!!", CMPI_RC_ERR_FAILED, "fsCreateThread() FAILED");
    OXT_TRACE_AS(function, "_OUT_");
    return {CMPI_RC_OK, nullptr};
}

CMPIStatus refuseStop(const char *function, const OxtCInfo *cInfo, const char *trace, const char *message) {
    OXT_TRACE_FAIL_AS(function, "%s", trace);
    if (fsDropStore(cInfo) != 0)
        OXT_TRACE_FAIL_AS(function, "fsFreeInstance() Failure!!");
    OXT_TRACE_AS(function, "_OUT_");
    return oxtStatus(cInfo, CMPI_RC_ERR_FAILED, message);
}

} // namespace

CMPIStatus OXT_FSThreadGetInstance(const OxtCInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                   const char **properties) {
    OXT_ENTER_HANDLER();
    // In service mode without the thread, too: clients ask this to know whether the other classes will answer.
    const uint16_t running = static_cast<uint16_t>(getThreadSts(fsGetThreadID()));
    return oxtFinish(__func__, rslt, oxtReturnInstance(__func__, THREAD, cInfo, rslt, cop, properties, &running));
}

CMPIStatus OXT_FSThreadStartInvokeMethod(const OxtCInfo *cInfo, const CMPIResult *, const CMPIObjectPath *,
                                         const char *, const CMPIArgs *, CMPIArgs *) {
    OXT_ENTER_HANDLER();
    if (getServiceMode(cInfo) != 1)
        return oxtFailed(__func__, cInfo, NOT_SERVICE_TRACE, CMPI_RC_ERR_FAILED, NOT_SERVICE_FAILED);
    const bool alone = fsTurnBegin(FS_LIFE) == 0;
    const CMPIStatus status = start(__func__, cInfo, alone);
    if (alone)
        fsTurnEnd(FS_LIFE);
    return status;
}

CMPIStatus OXT_FSThreadStopInvokeMethod(const OxtCInfo *cInfo, const CMPIResult *, const CMPIObjectPath *, const char *,
                                        const CMPIArgs *, CMPIArgs *) {
    OXT_ENTER_HANDLER();
    if (getServiceMode(cInfo) != 1)
        return refuseStop(__func__, cInfo, NOT_SERVICE_TRACE, NOT_SERVICE_FAILED);
    if (getThreadSts(fsGetThreadID()) != 1)
        return refuseStop(__func__, cInfo, "Thread is Already Pause Failure!!", "Thread is Already Pause FAILED");
    fsExitThread(cInfo);
    OXT_TRACE("_OUT_");
    return {CMPI_RC_OK, nullptr};
}
