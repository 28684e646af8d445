#include "oxtService.h"

#include <unistd.h>

#include "cmpift.h"
#include "cmpimacs.h"
#include "oxtTrace.h"
#include "oxtWait.h"

std::atomic<int> g_srvmod{-1};

namespace {

constexpr char AGENT_NAMESPACE[] = "root/TAVRIN/AS";
constexpr char AGENT_CLASS[] = "OXT_GeneralInformation";
constexpr char AGENT_PROPERTY[] = "InstalledServiceMode";

// The mode as the agent's instance says: 0 or 1, else -1 with the failure traced.
int readServiceMode(const char *function, const OxtCInfo *cInfo, const CMPIObjectPath *path) {
    // The context of a clean-up call cannot carry an upcall: a real object manager would crash on it.
    CMPIStatus rc = {CMPI_RC_ERR_FAILED, nullptr};
    CMPIInstance *instance =
        cInfo->context != nullptr ? CBGetInstance(cInfo->broker, cInfo->context, path, nullptr, &rc) : nullptr;
    if (rc.rc != CMPI_RC_OK || CMIsNullObject(instance)) {
        OXT_TRACE_FAIL_AS(function, "_OUT_ CBGetInstance() Failure!!");
        return -1;
    }
    const CMPIData data = CMGetProperty(instance, AGENT_PROPERTY, &rc);
    const int byte = data.value.boolean; // the low byte, whatever integer the agent's class declares
    CMRelease(instance);
    if (rc.rc != CMPI_RC_OK || (data.state & (CMPI_nullValue | CMPI_notFound | CMPI_badValue)) != 0) {
        OXT_TRACE_FAIL_AS(function, "_OUT_ CMGetProperty() Failure!!");
        return -1;
    }
    if (byte != 0 && byte != 1) {
        OXT_TRACE_FAIL_AS(function, "_OUT_ getValue() Failure!! boolean=[%d]", byte);
        return -1;
    }
    return byte;
}

} // namespace

int getServiceMode(const OxtCInfo *cInfo) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(cInfo != nullptr, 0, "_OUT_ Param(cInfo) Failure!!");
    const int known = g_srvmod.load();
    if (known != -1) {
        OXT_TRACE("_OUT_ srvmod=[%d]", known);
        return known;
    }
    OXT_TRACE("GetInstance(%s)", AGENT_CLASS);
    CMPIStatus rc = {CMPI_RC_OK, nullptr};
    CMPIObjectPath *path = CMNewObjectPath(cInfo->broker, AGENT_NAMESPACE, AGENT_CLASS, &rc);
    OXT_REQUIRE(rc.rc == CMPI_RC_OK && !CMIsNullObject(path), 0, "_OUT_ CMNewObjectPath() Failure!!");
    const int mode = readServiceMode(__func__, cInfo, path);
    CMRelease(path);
    if (mode == -1)
        return 0;
    g_srvmod.store(mode);
    OXT_TRACE("_OUT_ InstalledServiceMode=[%d]", mode);
    return mode;
}

int oxtMutexTryLock(const char *function, pthread_mutex_t *mutex) {
    for (int tries = 0; tries < OXT_WAIT_TRIES;) {
        OXT_TRACE_AS(function, "pthread_mutex_trylock()");
        const int rc = pthread_mutex_trylock(mutex);
        if (rc == 0) {
            OXT_TRACE_AS(function, "pthread_mutex_trylock() success");
            OXT_TRACE_AS(function, "_OUT_");
            return 0;
        }
        if (rc != EBUSY) {
            OXT_TRACE_FAIL_AS(function, "pthread_mutex_trylock() Failure!! errno=[%d]", errno);
            OXT_TRACE_AS(function, "_OUT_");
            return -1;
        }
        OXT_TRACE_AS(function, "pthread_mutex_trylock() EBUSY...");
        usleep(OXT_WAIT_MICROS);
        ++tries;
        OXT_TRACE_AS(function, "pthread_mutex_trylock() retry(%d)", tries);
    }
    // "Failre" is how the line has always been written; log filters look for it.
    OXT_TRACE_FAIL_AS(function, "pthread_mutex_trylock() retry(%d) Failre!!", OXT_WAIT_TRIES);
    OXT_TRACE_AS(function, "_OUT_");
    return -1;
}

int oxtMutexUnlock(const char *function, pthread_mutex_t *mutex, bool held) {
    OXT_TRACE_AS(function, "pthread_mutex_unlock()[%p]", static_cast<void *>(mutex));
    const bool unlocked = !held || pthread_mutex_unlock(mutex) == 0;
    if (unlocked)
        OXT_TRACE_AS(function, "pthread_mutex_unlock success");
    else
        OXT_TRACE_FAIL_AS(function, "pthread_mutex_unlock Failure!! errno=[%d]", errno);
    OXT_TRACE_AS(function, "_OUT_");
    return unlocked ? 0 : -1;
}

int nonsrvMutexLock(const OxtCInfo *cInfo, pthread_mutex_t *mutex, bool *held) {
    if (held != nullptr)
        *held = false;
    OXT_TRACE("_IN_");
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ param(cInfo) Failure!!");
    OXT_REQUIRE(mutex != nullptr, -1, "_OUT_ param(mutex) Failure!!");
    if (getServiceMode(cInfo) == 1) {
        OXT_TRACE("_OUT_ now is ServiceMode.");
        return 0;
    }
    const int rc = oxtMutexTryLock(__func__, mutex);
    if (held != nullptr)
        *held = rc == 0;
    return rc;
}

void mutexUnlock(pthread_mutex_t *mutex, bool held) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(mutex != nullptr, , "_OUT_ param(mutex) Failure!!");
    oxtMutexUnlock(__func__, mutex, held);
}
