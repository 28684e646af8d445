/* Function tables of a CMPI broker: thread registration and up-calls (bft), factories and services (eft),
 * operating-system services (xft), memory services (mft). Included by cmpift.h. */
#ifndef _CMPIFTBROKER_H_
#define _CMPIFTBROKER_H_

#include "cmpidt.h"
#include "cmpios.h"

#ifdef __cplusplus
extern "C" {
#endif

struct _CMPIBroker {
    void *hdl;
    CMPIBrokerFT *bft;
    CMPIBrokerEncFT *eft;
    CMPIBrokerExtFT *xft;
    CMPIBrokerMemFT *mft;
};

/* Thread registration and up-calls. */
struct _CMPIBrokerFT {
    unsigned int brokerCapabilities;
    unsigned int brokerVersion;
    const char *brokerName;
    CMPIContext *(*prepareAttachThread)(const CMPIBroker *mb, const CMPIContext *ctx);
    CMPIStatus (*attachThread)(const CMPIBroker *mb, const CMPIContext *ctx);
    CMPIStatus (*detachThread)(const CMPIBroker *mb, const CMPIContext *ctx);
    CMPIStatus (*deliverIndication)(const CMPIBroker *mb, const CMPIContext *ctx, const char *ns,
                                    const CMPIInstance *ind);
    CMPIEnumeration *(*enumerateInstanceNames)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                               CMPIStatus *rc);
    CMPIInstance *(*getInstance)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                 const char **properties, CMPIStatus *rc);
    CMPIObjectPath *(*createInstance)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                      const CMPIInstance *inst, CMPIStatus *rc);
    CMPIStatus (*modifyInstance)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                 const CMPIInstance *inst, const char **properties);
    CMPIStatus (*deleteInstance)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op);
    CMPIEnumeration *(*execQuery)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                  const char *query, const char *lang, CMPIStatus *rc);
    CMPIEnumeration *(*enumerateInstances)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                           const char **properties, CMPIStatus *rc);
    CMPIEnumeration *(*associators)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                    const char *assocClass, const char *resultClass, const char *role,
                                    const char *resultRole, const char **properties, CMPIStatus *rc);
    CMPIEnumeration *(*associatorNames)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                        const char *assocClass, const char *resultClass, const char *role,
                                        const char *resultRole, CMPIStatus *rc);
    CMPIEnumeration *(*references)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                   const char *resultClass, const char *role, const char **properties, CMPIStatus *rc);
    CMPIEnumeration *(*referenceNames)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                       const char *resultClass, const char *role, CMPIStatus *rc);
    CMPIData (*invokeMethod)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op, const char *method,
                             const CMPIArgs *in, CMPIArgs *out, CMPIStatus *rc);
    CMPIStatus (*setProperty)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op, const char *name,
                              const CMPIValue *value, CMPIType type);
    CMPIData (*getProperty)(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op, const char *name,
                            CMPIStatus *rc);
};

/* Factories and services. The last four may be NULL. */
struct _CMPIBrokerEncFT {
    int ftVersion;
    CMPIInstance *(*newInstance)(const CMPIBroker *mb, const CMPIObjectPath *op, CMPIStatus *rc);
    CMPIObjectPath *(*newObjectPath)(const CMPIBroker *mb, const char *ns, const char *cn, CMPIStatus *rc);
    CMPIArgs *(*newArgs)(const CMPIBroker *mb, CMPIStatus *rc);
    CMPIString *(*newString)(const CMPIBroker *mb, const char *data, CMPIStatus *rc);
    CMPIArray *(*newArray)(const CMPIBroker *mb, CMPICount max, CMPIType type, CMPIStatus *rc);
    CMPIDateTime *(*newDateTime)(const CMPIBroker *mb, CMPIStatus *rc);
    CMPIDateTime *(*newDateTimeFromBinary)(const CMPIBroker *mb, CMPIUint64 binTime, CMPIBoolean interval,
                                           CMPIStatus *rc);
    CMPIDateTime *(*newDateTimeFromChars)(const CMPIBroker *mb, const char *utcTime, CMPIStatus *rc);
    CMPISelectExp *(*newSelectExp)(const CMPIBroker *mb, const char *query, const char *lang, CMPIArray **projection,
                                   CMPIStatus *rc);
    CMPIBoolean (*classPathIsA)(const CMPIBroker *mb, const CMPIObjectPath *op, const char *type, CMPIStatus *rc);
    CMPIString *(*toString)(const CMPIBroker *mb, const void *object, CMPIStatus *rc);
    CMPIBoolean (*isOfType)(const CMPIBroker *mb, const void *object, const char *type, CMPIStatus *rc);
    CMPIString *(*getType)(const CMPIBroker *mb, const void *object, CMPIStatus *rc);
    CMPIString *(*getMessage)(const CMPIBroker *mb, const char *msgId, const char *defMsg, CMPIStatus *rc,
                              CMPICount count, ...);
    CMPIStatus (*logMessage)(const CMPIBroker *mb, int severity, const char *id, const char *text,
                             const CMPIString *string);
    CMPIStatus (*trace)(const CMPIBroker *mb, int level, const char *component, const char *text,
                        const CMPIString *string);
    CMPIError *(*newCMPIError)(const CMPIBroker *mb, const char *owner, const char *msgID, const char *msg,
                               CMPIErrorSeverity severity, CMPIErrorProbableCause probableCause, CMPIrc cimStatus,
                               CMPIStatus *rc);
    CMPIStatus (*openMessageFile)(const CMPIBroker *mb, const char *msgFile, CMPIMsgFileHandle *msgFileHandle);
    CMPIStatus (*closeMessageFile)(const CMPIBroker *mb, CMPIMsgFileHandle msgFileHandle);
    CMPIString *(*getMessage2)(const CMPIBroker *mb, const char *msgId, CMPIMsgFileHandle msgFileHandle,
                               const char *defMsg, CMPIStatus *rc, CMPICount count, ...);
};

/* Operating-system services, with POSIX meaning. Some hosts leave joinThread, exitThread, cancelThread, threadSleep and
 * signalCondition NULL. */
struct _CMPIBrokerExtFT {
    int ftVersion;
    char *(*resolveFileName)(const char *filename);
    CMPI_THREAD_TYPE (*newThread)(CMPI_THREAD_RETURN(CMPI_THREAD_CDECL *start)(void *), void *parm, int detached);
    int (*joinThread)(CMPI_THREAD_TYPE thread, CMPI_THREAD_RETURN *retval);
    int (*exitThread)(CMPI_THREAD_RETURN return_code);
    int (*cancelThread)(CMPI_THREAD_TYPE thread);
    int (*threadSleep)(CMPIUint32 msec);
    int (*threadOnce)(int *once, void (*init)(void));
    int (*createThreadKey)(CMPI_THREAD_KEY_TYPE *key, void (*cleanup)(void *));
    int (*destroyThreadKey)(CMPI_THREAD_KEY_TYPE key);
    void *(*getThreadSpecific)(CMPI_THREAD_KEY_TYPE key);
    int (*setThreadSpecific)(CMPI_THREAD_KEY_TYPE key, void *value);
    CMPI_MUTEX_TYPE (*newMutex)(int opt);
    void (*destroyMutex)(CMPI_MUTEX_TYPE mutex);
    void (*lockMutex)(CMPI_MUTEX_TYPE mutex);
    void (*unlockMutex)(CMPI_MUTEX_TYPE mutex);
    CMPI_COND_TYPE (*newCondition)(int opt);
    void (*destroyCondition)(CMPI_COND_TYPE cond);
    int (*condWait)(CMPI_COND_TYPE cond, CMPI_MUTEX_TYPE mutex);
    int (*timedCondWait)(CMPI_COND_TYPE cond, CMPI_MUTEX_TYPE mutex, struct timespec *wait);
    int (*signalCondition)(CMPI_COND_TYPE cond);
};

/* Memory services; hosts without them leave CMPIBroker.mft NULL. */
struct _CMPIBrokerMemFT {
    const int ftVersion;
    CMPIGcStat *(*mark)(const CMPIBroker *mb, CMPIStatus *rc);
    CMPIStatus (*release)(const CMPIBroker *mb, const CMPIGcStat *gc);
    void *(*cmpiMalloc)(const CMPIBroker *mb, size_t size);
    void *(*cmpiCalloc)(const CMPIBroker *mb, size_t count, size_t size);
    void *(*cmpiRealloc)(const CMPIBroker *mb, void *ptr, size_t size);
    char *(*cmpiStrDup)(const CMPIBroker *mb, const char *src);
    void (*cmpiFree)(const CMPIBroker *mb, void *ptr);
    void (*freeInstance)(const CMPIBroker *mb, CMPIInstance *inst);
    void (*freeObjectPath)(const CMPIBroker *mb, CMPIObjectPath *obj);
    void (*freeArgs)(const CMPIBroker *mb, CMPIArgs *args);
    void (*freeString)(const CMPIBroker *mb, CMPIString *str);
    void (*freeArray)(const CMPIBroker *mb, CMPIArray *array);
    void (*freeDateTime)(const CMPIBroker *mb, CMPIDateTime *date);
    void (*freeSelectExp)(const CMPIBroker *mb, CMPISelectExp *se);
};

#ifdef __cplusplus
}
#endif

#endif
