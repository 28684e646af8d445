/* CMPI 2.0 objects and their function tables, and the tables that a provider of instances and methods fills.
 *
 * Every object is a handle and a table; the host may keep more behind them, so only pointers are passed. What a factory
 * or a getter returns belongs to the host, what clone returns to the caller. The other kinds of provider (association,
 * property, indication) are not declared. */
#ifndef _CMPIFT_H_
#define _CMPIFT_H_

#include "cmpidt.h"
#include "cmpiftBroker.h"
#include "cmpios.h"

#ifdef __cplusplus
extern "C" {
#endif

struct _CMPIContext {
    void *hdl;
    CMPIContextFT *ft;
};

struct _CMPIContextFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIContext *ctx);
    CMPIContext *(*clone)(const CMPIContext *ctx, CMPIStatus *rc);
    CMPIData (*getEntry)(const CMPIContext *ctx, const char *name, CMPIStatus *rc);
    CMPIData (*getEntryAt)(const CMPIContext *ctx, CMPICount index, CMPIString **name, CMPIStatus *rc);
    CMPICount (*getEntryCount)(const CMPIContext *ctx, CMPIStatus *rc);
    CMPIStatus (*addEntry)(const CMPIContext *ctx, const char *name, const CMPIValue *value, CMPIType type);
};

struct _CMPIResult {
    void *hdl;
    CMPIResultFT *ft;
};

/* returnError may be NULL. */
struct _CMPIResultFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIResult *rslt);
    CMPIResult *(*clone)(const CMPIResult *rslt, CMPIStatus *rc);
    CMPIStatus (*returnData)(const CMPIResult *rslt, const CMPIValue *value, CMPIType type);
    CMPIStatus (*returnInstance)(const CMPIResult *rslt, const CMPIInstance *inst);
    CMPIStatus (*returnObjectPath)(const CMPIResult *rslt, const CMPIObjectPath *ref);
    CMPIStatus (*returnDone)(const CMPIResult *rslt);
    CMPIStatus (*returnError)(const CMPIResult *rslt, const CMPIError *err);
};

struct _CMPIString {
    void *hdl;
    CMPIStringFT *ft;
};

struct _CMPIStringFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIString *st);
    CMPIString *(*clone)(const CMPIString *st, CMPIStatus *rc);
    const char *(*getCharPtr)(const CMPIString *st, CMPIStatus *rc);
};

struct _CMPIArray {
    void *hdl;
    CMPIArrayFT *ft;
};

struct _CMPIArrayFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIArray *ar);
    CMPIArray *(*clone)(const CMPIArray *ar, CMPIStatus *rc);
    CMPICount (*getSize)(const CMPIArray *ar, CMPIStatus *rc);
    CMPIType (*getSimpleType)(const CMPIArray *ar, CMPIStatus *rc);
    CMPIData (*getElementAt)(const CMPIArray *ar, CMPICount index, CMPIStatus *rc);
    CMPIStatus (*setElementAt)(CMPIArray *ar, CMPICount index, const CMPIValue *value, CMPIType type);
};

struct _CMPIEnumeration {
    void *hdl;
    CMPIEnumerationFT *ft;
};

struct _CMPIEnumerationFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIEnumeration *en);
    CMPIEnumeration *(*clone)(const CMPIEnumeration *en, CMPIStatus *rc);
    CMPIData (*getNext)(const CMPIEnumeration *en, CMPIStatus *rc);
    CMPIBoolean (*hasNext)(const CMPIEnumeration *en, CMPIStatus *rc);
    CMPIArray *(*toArray)(const CMPIEnumeration *en, CMPIStatus *rc);
};

struct _CMPIInstance {
    void *hdl;
    CMPIInstanceFT *ft;
};

/* setPropertyWithOrigin may be NULL. */
struct _CMPIInstanceFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIInstance *inst);
    CMPIInstance *(*clone)(const CMPIInstance *inst, CMPIStatus *rc);
    CMPIData (*getProperty)(const CMPIInstance *inst, const char *name, CMPIStatus *rc);
    CMPIData (*getPropertyAt)(const CMPIInstance *inst, CMPICount index, CMPIString **name, CMPIStatus *rc);
    CMPICount (*getPropertyCount)(const CMPIInstance *inst, CMPIStatus *rc);
    CMPIStatus (*setProperty)(const CMPIInstance *inst, const char *name, const CMPIValue *value, CMPIType type);
    CMPIObjectPath *(*getObjectPath)(const CMPIInstance *inst, CMPIStatus *rc);
    CMPIStatus (*setPropertyFilter)(CMPIInstance *inst, const char **propertyList, const char **keys);
    CMPIStatus (*setObjectPath)(CMPIInstance *inst, const CMPIObjectPath *op);
    CMPIStatus (*setPropertyWithOrigin)(const CMPIInstance *inst, const char *name, const CMPIValue *value,
                                        CMPIType type, const char *origin);
};

struct _CMPIObjectPath {
    void *hdl;
    CMPIObjectPathFT *ft;
};

/* The qualifier getters may be NULL. */
struct _CMPIObjectPathFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIObjectPath *op);
    CMPIObjectPath *(*clone)(const CMPIObjectPath *op, CMPIStatus *rc);
    CMPIStatus (*setNameSpace)(CMPIObjectPath *op, const char *ns);
    CMPIString *(*getNameSpace)(const CMPIObjectPath *op, CMPIStatus *rc);
    CMPIStatus (*setHostname)(CMPIObjectPath *op, const char *hn);
    CMPIString *(*getHostname)(const CMPIObjectPath *op, CMPIStatus *rc);
    CMPIStatus (*setClassName)(CMPIObjectPath *op, const char *cn);
    CMPIString *(*getClassName)(const CMPIObjectPath *op, CMPIStatus *rc);
    CMPIStatus (*addKey)(CMPIObjectPath *op, const char *name, const CMPIValue *value, CMPIType type);
    CMPIData (*getKey)(const CMPIObjectPath *op, const char *name, CMPIStatus *rc);
    CMPIData (*getKeyAt)(const CMPIObjectPath *op, CMPICount index, CMPIString **name, CMPIStatus *rc);
    CMPICount (*getKeyCount)(const CMPIObjectPath *op, CMPIStatus *rc);
    CMPIStatus (*setNameSpaceFromObjectPath)(CMPIObjectPath *op, const CMPIObjectPath *src);
    CMPIStatus (*setHostAndNameSpaceFromObjectPath)(CMPIObjectPath *op, const CMPIObjectPath *src);
    CMPIData (*getClassQualifier)(const CMPIObjectPath *op, const char *qName, CMPIStatus *rc);
    CMPIData (*getPropertyQualifier)(const CMPIObjectPath *op, const char *pName, const char *qName, CMPIStatus *rc);
    CMPIData (*getMethodQualifier)(const CMPIObjectPath *op, const char *methodName, const char *qName, CMPIStatus *rc);
    CMPIData (*getParameterQualifier)(const CMPIObjectPath *op, const char *mName, const char *pName, const char *qName,
                                      CMPIStatus *rc);
    CMPIString *(*toString)(const CMPIObjectPath *op, CMPIStatus *rc);
};

struct _CMPIArgs {
    void *hdl;
    CMPIArgsFT *ft;
};

struct _CMPIArgsFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIArgs *as);
    CMPIArgs *(*clone)(const CMPIArgs *as, CMPIStatus *rc);
    CMPIStatus (*addArg)(const CMPIArgs *as, const char *name, const CMPIValue *value, CMPIType type);
    CMPIData (*getArg)(const CMPIArgs *as, const char *name, CMPIStatus *rc);
    CMPIData (*getArgAt)(const CMPIArgs *as, CMPICount index, CMPIString **name, CMPIStatus *rc);
    CMPICount (*getArgCount)(const CMPIArgs *as, CMPIStatus *rc);
};

struct _CMPIDateTime {
    void *hdl;
    CMPIDateTimeFT *ft;
};

struct _CMPIDateTimeFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIDateTime *dt);
    CMPIDateTime *(*clone)(const CMPIDateTime *dt, CMPIStatus *rc);
    CMPIUint64 (*getBinaryFormat)(const CMPIDateTime *dt, CMPIStatus *rc);
    CMPIString *(*getStringFormat)(const CMPIDateTime *dt, CMPIStatus *rc);
    CMPIBoolean (*isInterval)(const CMPIDateTime *dt, CMPIStatus *rc);
};

struct _CMPISelectExp {
    void *hdl;
    CMPISelectExpFT *ft;
};

struct _CMPISelectExpFT {
    int ftVersion;
    CMPIStatus (*release)(CMPISelectExp *se);
    CMPISelectExp *(*clone)(const CMPISelectExp *se, CMPIStatus *rc);
    CMPIBoolean (*evaluate)(const CMPISelectExp *se, const CMPIInstance *inst, CMPIStatus *rc);
    CMPIString *(*getString)(const CMPISelectExp *se, CMPIStatus *rc);
    CMPISelectCond *(*getDOC)(const CMPISelectExp *se, CMPIStatus *rc);
    CMPISelectCond *(*getCOD)(const CMPISelectExp *se, CMPIStatus *rc);
    CMPIBoolean (*evaluateUsingAccessor)(const CMPISelectExp *se, CMPIAccessor *accessor, void *parm, CMPIStatus *rc);
};

/* A provider's side: no slot may be NULL, what is not supported answers CMPI_RC_ERR_NOT_SUPPORTED. */
struct _CMPIInstanceMI {
    const void *hdl;
    CMPIInstanceMIFT *ft;
};

struct _CMPIInstanceMIFT {
    int ftVersion;
    int miVersion;
    const char *miName;
    CMPIStatus (*cleanup)(CMPIInstanceMI *mi, const CMPIContext *ctx, CMPIBoolean terminating);
    CMPIStatus (*enumerateInstanceNames)(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                         const CMPIObjectPath *op);
    CMPIStatus (*enumerateInstances)(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                     const CMPIObjectPath *op, const char **properties);
    CMPIStatus (*getInstance)(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                              const CMPIObjectPath *op, const char **properties);
    CMPIStatus (*createInstance)(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                 const CMPIObjectPath *op, const CMPIInstance *inst);
    CMPIStatus (*modifyInstance)(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                 const CMPIObjectPath *op, const CMPIInstance *inst, const char **properties);
    CMPIStatus (*deleteInstance)(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                 const CMPIObjectPath *op);
    CMPIStatus (*execQuery)(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                            const CMPIObjectPath *op, const char *query, const char *lang);
};

struct _CMPIMethodMI {
    void *hdl;
    CMPIMethodMIFT *ft;
};

struct _CMPIMethodMIFT {
    int ftVersion;
    int miVersion;
    const char *miName;
    CMPIStatus (*cleanup)(CMPIMethodMI *mi, const CMPIContext *ctx, CMPIBoolean terminating);
    CMPIStatus (*invokeMethod)(CMPIMethodMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                               const CMPIObjectPath *op, const char *method, const CMPIArgs *in, CMPIArgs *out);
};

#ifdef __cplusplus
}
#endif

#include "cmpimacs.h"

#endif
