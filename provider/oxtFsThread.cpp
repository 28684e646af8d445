#include "oxtFsThread.h"

namespace {

// The record of this class is the running flag itself; the store keeps none.
constexpr OxtProperty PROPERTIES[] = {
    {"ThreadRunning", "ThreadRunning", CMPI_uint16, OXT_FIELD_UINT16, 0},
};

// The record's word in the trace is that of the total number's class; log filters know it.
constexpr OxtClass THREAD = OXT_CLASS("OXT_FileSystemThread", false, -1, OXT_FSThreadSetPropInst, "dattotal",
                                      "CMSetPropertyFilter() Failure!!", OXT_TRACE_FAILURE);

constexpr char NOT_SERVICE_TRACE[] = "ServiceMode is non-Service Failure!!";
constexpr char NOT_SERVICE_FAILED[] = "ServiceMode is non-Service FAILED";

// The service mode and the thread's state agreed: starts it.
CMPIStatus start(const char *function, const OxtCInfo *cInfo) {
    if (getThreadSts(fsGetThreadID()) != 0)
        return oxtFailed(function, cInfo, "Thread is Already WakeUp Failure!!", CMPI_RC_ERR_FAILED,
                         "Thread is Already WakeUp FAILED");
    if (fsCreateThread(cInfo) != 0) // the trace names another call, as it always has; log filters know it
        return oxtFailed(function, cInfo, "getClassName() Failure!!", CMPI_RC_ERR_FAILED, "fsCreateThread() FAILED");
    OXT_TRACE_AS(function, "_OUT_");
    return {CMPI_RC_OK, nullptr};
}

CMPIStatus refuseStop(const char *function, const OxtCInfo *cInfo, const char *trace, const char *message) {
    OXT_TRACE_FAIL_AS(function, "%s", trace);
    if (fsDropStore(cInfo, FS_FROM_REQUEST) != FS_DROPPED)
        OXT_TRACE_FAIL_AS(function, "fsFreeInstance() Failure!!");
    OXT_TRACE_AS(function, "_OUT_");
    return oxtStatus(cInfo, CMPI_RC_ERR_FAILED, message);
}

} // namespace

CMPIInstance *OXT_FSThreadSetPropInst(const OxtCInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                      const uint16_t *running) {
    return oxtBuildInstance(THREAD, cInfo, cop, properties, running);
}

CMPIStatus OXT_FSThreadGetInstance(const OxtCInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                   const char **properties) {
    OXT_ENTER_HANDLER();
    const uint16_t running = static_cast<uint16_t>(getThreadSts(fsGetThreadID()));
    return oxtFinish(__func__, rslt, oxtReturnInstance(__func__, THREAD, cInfo, rslt, cop, properties, &running));
}

CMPIStatus OXT_FSThreadStartInvokeMethod(const OxtCInfo *cInfo, const CMPIResult *, const CMPIObjectPath *,
                                         const char *, const CMPIArgs *, CMPIArgs *) {
    OXT_ENTER_HANDLER();
    if (getServiceMode(cInfo) != 1)
        return oxtFailed(__func__, cInfo, NOT_SERVICE_TRACE, CMPI_RC_ERR_FAILED, NOT_SERVICE_FAILED);
    fsThreadStartLock();
    const CMPIStatus status = start(__func__, cInfo);
    fsThreadStartUnlock();
    return status;
}

CMPIStatus OXT_FSThreadStopInvokeMethod(const OxtCInfo *cInfo, const CMPIResult *, const CMPIObjectPath *, const char *,
                                        const CMPIArgs *, CMPIArgs *) {
    OXT_ENTER_HANDLER();
    if (getServiceMode(cInfo) != 1)
        return refuseStop(__func__, cInfo, NOT_SERVICE_TRACE, NOT_SERVICE_FAILED);
    if (getThreadSts(fsGetThreadID()) != 1)
        return refuseStop(__func__, cInfo, "Thread is Already Pause Failure!!", "Thread is Already Pause FAILED");
    fsExitThread(cInfo, FS_FROM_REQUEST);
    OXT_TRACE("_OUT_");
    return {CMPI_RC_OK, nullptr};
}
