#include "oxtFsProvider.h"

#include <cstring>

#include "oxtClasses.h"
#include "oxtFsLife.h"
#include "oxtPaths.h"

// Start and end of a request, and the handler in between, are traced at the failure level: so they show where normal
// lines are switched off.
//
// No C++ exception can leave these functions: the provider is built without them and calls nothing that throws.

namespace {

// Written by the factories, which a host calls again while requests read it.
std::atomic<const CMPIBroker *> _broker{nullptr};

struct MethodRow {
    const char *name;
    const char *trace;
    OxtMethodHandler *handler;
};

// A class's handlers. An unknown method is traced as a wrong class name where the class has no methods, and as a wrong
// method name elsewhere.
struct ClassRow {
    const char *name;
    bool isThread; // served in every state; its methods' outcome is their return value
    const char *getTrace;
    OxtInstanceHandler *get;
    const char *enumTrace;
    OxtInstanceHandler *enumerate;
    const MethodRow *methods;
    size_t methodCount;
};

#define HANDLER(function) "->" #function "()", function // with its trace
constexpr MethodRow THREAD_METHODS[] = {
    {"StartMonitoringThread", HANDLER(OXT_FSThreadStartInvokeMethod)},
    {"StopMonitoringThread", HANDLER(OXT_FSThreadStopInvokeMethod)},
};
constexpr MethodRow CONFIG_METHODS[] = {{"SetMonitorCycle", HANDLER(OXT_FSConfigInvokeMethod)}};
constexpr MethodRow FS_METHODS[] = {
    {"SetMonitorThreshold", HANDLER(OXT_FSInvokeMethod)},
    {"SetWarningThreshold", HANDLER(OXT_FSInvokeMethod)},
    {"SetFatalThreshold", HANDLER(OXT_FSInvokeMethod)},
};

#define METHODS(rows) rows, sizeof(rows) / sizeof *(rows)
#define BOTH(function) HANDLER(function), HANDLER(function) // GetInstance and EnumInstances
// The classes in the order in which a name is compared, exactly.
constexpr ClassRow CLASSES[] = {
    {"OXT_FileSystemThread", true, BOTH(OXT_FSThreadGetInstance), METHODS(THREAD_METHODS)},
    {"OXT_FileSystemConfig", false, BOTH(OXT_FSConfigGetInstance), METHODS(CONFIG_METHODS)},
    {"OXT_FileSystemTotalNumber", false, BOTH(OXT_FSTotalNumGetInstance), nullptr, 0},
    {"OXT_FileSystem", false, HANDLER(OXT_FSGetInstance), HANDLER(OXT_FSEnumInstances), METHODS(FS_METHODS)},
};
#undef METHODS
#undef BOTH
#undef HANDLER

enum InstanceOperation { GET_INSTANCE, ENUM_INSTANCES };

const ClassRow *findClass(const char *name) {
    for (const ClassRow &row : CLASSES)
        if (strcmp(row.name, name) == 0)
            return &row;
    return nullptr;
}

const MethodRow *findMethod(const ClassRow &row, const char *name) {
    for (size_t i = 0; i < row.methodCount; ++i)
        if (name != nullptr && strcmp(row.methods[i].name, name) == 0)
            return &row.methods[i];
    return nullptr;
}

// What InvokeMethod, GetInstance and EnumInstances do first: the provider is initialised and the class name known. The
// name is null when *status is the answer already; *entered tells whether the request has to leave the provider.
char *enterRequest(const char *function, const OxtCInfo *cInfo, const CMPIObjectPath *cop, bool *entered,
                   CMPIStatus *status) {
    *entered = fsInitProvider(cInfo) == 0;
    char *className = *entered ? getClassName(cop) : nullptr;
    if (className != nullptr)
        return className;
    const char *failure = *entered ? "getClassName() Failure!!" : "fsInitProvider() Failure!!";
    OXT_TRACE_FAIL_AS(function, "%s", failure);
    *status = oxtStatus(cInfo, CMPI_RC_ERR_FAILED, failure);
    return nullptr;
}

void leaveRequest(const char *function, char *className, bool entered) {
    OXT_MEMFREE_IN(function, className);
    if (entered)
        fsLeaveProvider();
}

// In service mode everything but the thread class needs the watch thread, unknown classes too. True when it is there.
bool isServed(const char *function, const OxtCInfo *cInfo, CMPIStatus *status) {
    if (getServiceMode(cInfo) != 1 || getThreadSts(fsGetThreadID()) == 1)
        return true;
    OXT_TRACE_FAIL_AS(
        function, "ServiceMode And NonThread Failure!!"); // the client's text says "But"; both are known as they stand
    *status = oxtStatus(cInfo, CMPI_RC_ERR_FAILED, "ServiceMode But NonThread Failure!!");
    return false;
}

CMPIStatus refuseName(const char *function, const OxtCInfo *cInfo, const char *what, const char *name) {
    OXT_TRACE_FAIL_AS(function, "%s Failure!![%s]", what, name != nullptr ? name : "NULL");
    return oxtStatus(cInfo, CMPI_RC_ERR_FAILED, "Generic Failure!!");
}

CMPIStatus serveInstances(const char *function, InstanceOperation operation, const CMPIContext *ctx,
                          const CMPIResult *rslt, const CMPIObjectPath *cop, const char **properties) {
    OXT_TRACE_FAIL_AS(function, "##start##");
    const OxtCInfo cInfo = {_broker.load(), ctx};
    CMPIStatus status = {CMPI_RC_OK, nullptr};
    bool entered = false;
    char *className = enterRequest(function, &cInfo, cop, &entered, &status);
    const ClassRow *row = className != nullptr ? findClass(className) : nullptr;
    const bool isThread = row != nullptr && row->isThread;
    if (className != nullptr && (isThread || isServed(function, &cInfo, &status))) {
        if (row == nullptr) {
            status = refuseName(function, &cInfo, "ClassName", className);
        } else {
            OXT_TRACE_FAIL_AS(function, "%s", operation == GET_INSTANCE ? row->getTrace : row->enumTrace);
            OxtInstanceHandler *const handler = operation == GET_INSTANCE ? row->get : row->enumerate;
            status = handler(&cInfo, rslt, cop, properties);
        }
    }
    leaveRequest(function, className, entered);
    OXT_TRACE_FAIL_AS(function, "## end ##");
    return status;
}

// The thread class reports every outcome as its methods' return value, of a call that always succeeds.
void returnOutcome(const char *function, const CMPIResult *rslt, CMPIStatus *status) {
    OXT_TRACE_AS(function, "CMReturnData()");
    CMPIValue value = {};
    value.uint32 = static_cast<CMPIUint32>(status->rc);
    CMReturnData(rslt, &value, CMPI_uint32);
    status->rc = CMPI_RC_OK;
}

CMPIStatus callMethod(const char *function, const OxtCInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *ref,
                      const char *className, const char *methodName, const CMPIArgs *in, CMPIArgs *out) {
    const ClassRow *row = findClass(className);
    const bool isThread = row != nullptr && row->isThread;
    CMPIStatus status = {CMPI_RC_OK, nullptr};
    if (!isThread && !isServed(function, cInfo, &status))
        return status;
    // After the service mode: in service mode without its thread even an unknown class is refused for that.
    if (row == nullptr || row->methodCount == 0)
        return refuseName(function, cInfo, "ClassName", className);
    const MethodRow *method = findMethod(*row, methodName);
    if (method != nullptr) {
        OXT_TRACE_FAIL_AS(function, "%s", method->trace);
        status = method->handler(cInfo, rslt, ref, methodName, in, out);
    } else {
        status = refuseName(function, cInfo, "MethodName", methodName);
    }
    if (isThread)
        returnOutcome(function, rslt, &status);
    return status;
}

CMPIStatus cleanUp(const char *function, CMPIBoolean terminating) {
    InitProcess(OXT_LOG_FILE);
    OXT_TRACE_FAIL_AS(function, "##start## cterm=[%s]", terminating != 0 ? "ExitSFCB" : "TimeOut");
    // A clean-up call's own context has no entries, and an upcall with it brings the object manager's process down.
    const OxtCInfo cInfo = {_broker.load(), nullptr};
    OXT_TRACE_AS(function, "fsCleanUpProvider()");
    const CMPIStatus status = fsCleanUpProvider(&cInfo, terminating != 0);
    OXT_TRACE_FAIL_AS(function, "## end ## ret=[%d]", static_cast<int>(status.rc));
    if (status.rc == CMPI_RC_OK) // last: every line above needs the trace library
        FinishProcess();
    return status;
}

CMPIStatus refuse(const char *function) {
    OXT_TRACE_FAIL_AS(function, "##start##");
    OXT_TRACE_AS(function, "CMSetStatusWithChars() - NOT_SUPPORTED");
    const OxtCInfo cInfo = {_broker.load(), nullptr};
    const CMPIStatus status = oxtStatus(&cInfo, CMPI_RC_ERR_NOT_SUPPORTED, "NOT_SUPPORTED");
    OXT_TRACE_FAIL_AS(function, "## end ##");
    return status;
}

CMPIStatus OXT_FileSystemProviderCleanup(CMPIInstanceMI *, const CMPIContext *, CMPIBoolean terminating) {
    return cleanUp(__func__, terminating);
}

CMPIStatus OXT_FileSystemProviderMethodCleanup(CMPIMethodMI *, const CMPIContext *, CMPIBoolean terminating) {
    return cleanUp(__func__, terminating);
}

CMPIStatus OXT_FileSystemProviderGetInstance(CMPIInstanceMI *, const CMPIContext *ctx, const CMPIResult *rslt,
                                             const CMPIObjectPath *cop, const char **properties) {
    return serveInstances(__func__, GET_INSTANCE, ctx, rslt, cop, properties);
}

CMPIStatus OXT_FileSystemProviderEnumInstances(CMPIInstanceMI *, const CMPIContext *ctx, const CMPIResult *rslt,
                                               const CMPIObjectPath *ref, const char **properties) {
    return serveInstances(__func__, ENUM_INSTANCES, ctx, rslt, ref, properties);
}

CMPIStatus OXT_FileSystemProviderEnumInstanceNames(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *,
                                                   const CMPIObjectPath *) {
    return refuse(__func__);
}

CMPIStatus OXT_FileSystemProviderCreateInstance(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *,
                                                const CMPIObjectPath *, const CMPIInstance *) {
    return refuse(__func__);
}

CMPIStatus OXT_FileSystemProviderModifyInstance(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *,
                                                const CMPIObjectPath *, const CMPIInstance *, const char **) {
    return refuse(__func__);
}

CMPIStatus OXT_FileSystemProviderDeleteInstance(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *,
                                                const CMPIObjectPath *) {
    return refuse(__func__);
}

CMPIStatus OXT_FileSystemProviderExecQuery(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *,
                                           const CMPIObjectPath *, const char *, const char *) {
    return refuse(__func__);
}

CMPIStatus OXT_FileSystemProviderInvokeMethod(CMPIMethodMI *, const CMPIContext *ctx, const CMPIResult *rslt,
                                              const CMPIObjectPath *ref, const char *methodName, const CMPIArgs *in,
                                              CMPIArgs *out) {
    const char *function = __func__;
    OXT_TRACE_FAIL_AS(function, "##start##");
    const OxtCInfo cInfo = {_broker.load(), ctx};
    CMPIStatus status = {CMPI_RC_OK, nullptr};
    bool entered = false;
    char *className = enterRequest(function, &cInfo, ref, &entered, &status);
    if (className != nullptr)
        status = callMethod(function, &cInfo, rslt, ref, className, methodName, in, out);
    leaveRequest(function, className, entered);
    OXT_TRACE_AS(function, "CMReturnDone()");
    CMReturnDone(rslt);
    OXT_TRACE_FAIL_AS(function, "## end ##");
    return status;
}

constexpr int CMPI_VERSION_200 = 200;

CMPIInstanceMIFT instMIFT__ = {
    CMPI_VERSION_200,
    CMPI_VERSION_200,
    "instanceOXTFileSystemProvider",
    OXT_FileSystemProviderCleanup,
    OXT_FileSystemProviderEnumInstanceNames,
    OXT_FileSystemProviderEnumInstances,
    OXT_FileSystemProviderGetInstance,
    OXT_FileSystemProviderCreateInstance,
    OXT_FileSystemProviderModifyInstance,
    OXT_FileSystemProviderDeleteInstance,
    OXT_FileSystemProviderExecQuery,
};

CMPIMethodMIFT methMIFT__ = {
    CMPI_VERSION_200,
    CMPI_VERSION_200,
    "methodOXTFileSystemProvider",
    OXT_FileSystemProviderMethodCleanup,
    OXT_FileSystemProviderInvokeMethod,
};

CMPIInstanceMI instMI = {nullptr, &instMIFT__};
CMPIMethodMI methMI = {nullptr, &methMIFT__};

} // namespace

CMPIStatus OXT_FileSystemProviderSetInstance(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *,
                                             const CMPIObjectPath *, const CMPIInstance *, const char **) {
    return refuse(__func__);
}

int OXT_FileSystemProviderInitProcess(void) {
    InitProcess(OXT_LOG_FILE);
    // The lock is made with the library; made anew here it would break under a request that holds it.
    OXT_TRACE("pthread_mutex_init(instMutexFs)");
    return 0;
}

CMPIInstanceMI *OXTFileSystemProvider_Create_InstanceMI(const CMPIBroker *broker, const CMPIContext *, CMPIStatus *) {
    _broker.store(broker);
    OXT_FileSystemProviderInitProcess();
    return &instMI;
}

CMPIMethodMI *OXTFileSystemProvider_Create_MethodMI(const CMPIBroker *broker, const CMPIContext *, CMPIStatus *) {
    _broker.store(broker);
    OXT_FileSystemProviderInitProcess();
    return &methMI;
}
