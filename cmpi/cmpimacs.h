/* CMPI 2.0 convenience operations: each passes its arguments on to the like-named slot of the object's or the broker's
 * table and answers what the slot answers. They neither check pointers nor own anything. Where the standard has macros
 * that cast, these are functions whose value argument takes any data pointer: the address of a number, of a CMPIValue
 * or of an object pointer; for CMPI_chars the text itself; NULL for a NULL value.
 *
 * Operations on slots that a host may leave NULL are missing on purpose: whoever wants one tests the slot first. */
#ifndef _CMPIMACS_H_
#define _CMPIMACS_H_

#include "cmpidt.h"
#include "cmpift.h"

#ifdef __cplusplus
#define CMPI_VALUE_POINTER(value) static_cast<const CMPIValue *>(value)
#define CMPI_FIRST_WORD(object) static_cast<void *const *>(object)
extern "C" {
#else
#define CMPI_VALUE_POINTER(value) ((const CMPIValue *)(value))
#define CMPI_FIRST_WORD(object) ((void *const *)(object))
#endif

/* Any object. */
#define CMClone(object, rc) ((object)->ft->clone((object), (rc)))
#define CMRelease(object) ((object)->ft->release((object)))
static inline CMPIBoolean CMIsNullObject(const void *object) {
    return object == NULL || *CMPI_FIRST_WORD(object) == NULL;
}

/* Data. The masks lie above the 8 bits of a CMPIBoolean, hence the comparisons. */
static inline CMPIBoolean CMIsNullValue(CMPIData data) {
    return (data.state & CMPI_nullValue) != 0;
}
static inline CMPIBoolean CMIsKeyValue(CMPIData data) {
    return (data.state & CMPI_keyValue) != 0;
}
static inline CMPIBoolean CMIsArray(CMPIData data) {
    return (data.type & CMPI_ARRAY) != 0;
}

/* Factories and services. */
static inline CMPIInstance *CMNewInstance(const CMPIBroker *mb, const CMPIObjectPath *op, CMPIStatus *rc) {
    return mb->eft->newInstance(mb, op, rc);
}
static inline CMPIObjectPath *CMNewObjectPath(const CMPIBroker *mb, const char *ns, const char *cn, CMPIStatus *rc) {
    return mb->eft->newObjectPath(mb, ns, cn, rc);
}
static inline CMPIArgs *CMNewArgs(const CMPIBroker *mb, CMPIStatus *rc) {
    return mb->eft->newArgs(mb, rc);
}
static inline CMPIString *CMNewString(const CMPIBroker *mb, const char *data, CMPIStatus *rc) {
    return mb->eft->newString(mb, data, rc);
}
static inline CMPIArray *CMNewArray(const CMPIBroker *mb, CMPICount max, CMPIType type, CMPIStatus *rc) {
    return mb->eft->newArray(mb, max, type, rc);
}
static inline CMPIDateTime *CMNewDateTime(const CMPIBroker *mb, CMPIStatus *rc) {
    return mb->eft->newDateTime(mb, rc);
}
static inline CMPIDateTime *CMNewDateTimeFromBinary(const CMPIBroker *mb, CMPIUint64 binTime, CMPIBoolean interval,
                                                    CMPIStatus *rc) {
    return mb->eft->newDateTimeFromBinary(mb, binTime, interval, rc);
}
static inline CMPIDateTime *CMNewDateTimeFromChars(const CMPIBroker *mb, const char *utcTime, CMPIStatus *rc) {
    return mb->eft->newDateTimeFromChars(mb, utcTime, rc);
}
static inline CMPIBoolean CMClassPathIsA(const CMPIBroker *mb, const CMPIObjectPath *op, const char *type,
                                         CMPIStatus *rc) {
    return mb->eft->classPathIsA(mb, op, type, rc);
}
static inline CMPIStatus CMLogMessage(const CMPIBroker *mb, int severity, const char *id, const char *text,
                                      const CMPIString *string) {
    return mb->eft->logMessage(mb, severity, id, text, string);
}
static inline CMPIStatus CMTraceMessage(const CMPIBroker *mb, int level, const char *component, const char *text,
                                        const CMPIString *string) {
    return mb->eft->trace(mb, level, component, text, string);
}
static inline CMPIString *CDToString(const CMPIBroker *mb, const void *object, CMPIStatus *rc) {
    return mb->eft->toString(mb, object, rc);
}
static inline CMPIBoolean CDIsOfType(const CMPIBroker *mb, const void *object, const char *type, CMPIStatus *rc) {
    return mb->eft->isOfType(mb, object, type, rc);
}
static inline CMPIString *CDGetType(const CMPIBroker *mb, const void *object, CMPIStatus *rc) {
    return mb->eft->getType(mb, object, rc);
}

/* Threads and up-calls. */
static inline CMPIContext *CBPrepareAttachThread(const CMPIBroker *mb, const CMPIContext *ctx) {
    return mb->bft->prepareAttachThread(mb, ctx);
}
static inline CMPIStatus CBAttachThread(const CMPIBroker *mb, const CMPIContext *ctx) {
    return mb->bft->attachThread(mb, ctx);
}
static inline CMPIStatus CBDetachThread(const CMPIBroker *mb, const CMPIContext *ctx) {
    return mb->bft->detachThread(mb, ctx);
}
static inline CMPIStatus CBDeliverIndication(const CMPIBroker *mb, const CMPIContext *ctx, const char *ns,
                                             const CMPIInstance *ind) {
    return mb->bft->deliverIndication(mb, ctx, ns, ind);
}
static inline CMPIEnumeration *CBEnumInstanceNames(const CMPIBroker *mb, const CMPIContext *ctx,
                                                   const CMPIObjectPath *op, CMPIStatus *rc) {
    return mb->bft->enumerateInstanceNames(mb, ctx, op, rc);
}
static inline CMPIEnumeration *CBEnumInstances(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                               const char **properties, CMPIStatus *rc) {
    return mb->bft->enumerateInstances(mb, ctx, op, properties, rc);
}
static inline CMPIInstance *CBGetInstance(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                          const char **properties, CMPIStatus *rc) {
    return mb->bft->getInstance(mb, ctx, op, properties, rc);
}
static inline CMPIObjectPath *CBCreateInstance(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                               const CMPIInstance *inst, CMPIStatus *rc) {
    return mb->bft->createInstance(mb, ctx, op, inst, rc);
}
static inline CMPIStatus CBModifyInstance(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                          const CMPIInstance *inst, const char **properties) {
    return mb->bft->modifyInstance(mb, ctx, op, inst, properties);
}
static inline CMPIStatus CBDeleteInstance(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op) {
    return mb->bft->deleteInstance(mb, ctx, op);
}
static inline CMPIEnumeration *CBExecQuery(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                           const char *query, const char *lang, CMPIStatus *rc) {
    return mb->bft->execQuery(mb, ctx, op, query, lang, rc);
}
static inline CMPIData CBInvokeMethod(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                      const char *method, const CMPIArgs *in, CMPIArgs *out, CMPIStatus *rc) {
    return mb->bft->invokeMethod(mb, ctx, op, method, in, out, rc);
}
static inline CMPIStatus CBSetProperty(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                       const char *name, const void *value, CMPIType type) {
    return mb->bft->setProperty(mb, ctx, op, name, CMPI_VALUE_POINTER(value), type);
}
static inline CMPIData CBGetProperty(const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                                     const char *name, CMPIStatus *rc) {
    return mb->bft->getProperty(mb, ctx, op, name, rc);
}

/* Instances. */
static inline CMPIData CMGetProperty(const CMPIInstance *inst, const char *name, CMPIStatus *rc) {
    return inst->ft->getProperty(inst, name, rc);
}
static inline CMPIData CMGetPropertyAt(const CMPIInstance *inst, CMPICount index, CMPIString **name, CMPIStatus *rc) {
    return inst->ft->getPropertyAt(inst, index, name, rc);
}
static inline CMPICount CMGetPropertyCount(const CMPIInstance *inst, CMPIStatus *rc) {
    return inst->ft->getPropertyCount(inst, rc);
}
static inline CMPIStatus CMSetProperty(const CMPIInstance *inst, const char *name, const void *value, CMPIType type) {
    return inst->ft->setProperty(inst, name, CMPI_VALUE_POINTER(value), type);
}
static inline CMPIObjectPath *CMGetObjectPath(const CMPIInstance *inst, CMPIStatus *rc) {
    return inst->ft->getObjectPath(inst, rc);
}
static inline CMPIStatus CMSetObjectPath(CMPIInstance *inst, const CMPIObjectPath *op) {
    return inst->ft->setObjectPath(inst, op);
}
static inline CMPIStatus CMSetPropertyFilter(CMPIInstance *inst, const char **propertyList, const char **keys) {
    return inst->ft->setPropertyFilter(inst, propertyList, keys);
}

/* Object paths. */
static inline CMPIStatus CMSetNameSpace(CMPIObjectPath *op, const char *ns) {
    return op->ft->setNameSpace(op, ns);
}
static inline CMPIString *CMGetNameSpace(const CMPIObjectPath *op, CMPIStatus *rc) {
    return op->ft->getNameSpace(op, rc);
}
static inline CMPIStatus CMSetHostname(CMPIObjectPath *op, const char *hn) {
    return op->ft->setHostname(op, hn);
}
static inline CMPIString *CMGetHostname(const CMPIObjectPath *op, CMPIStatus *rc) {
    return op->ft->getHostname(op, rc);
}
static inline CMPIStatus CMSetClassName(CMPIObjectPath *op, const char *cn) {
    return op->ft->setClassName(op, cn);
}
static inline CMPIString *CMGetClassName(const CMPIObjectPath *op, CMPIStatus *rc) {
    return op->ft->getClassName(op, rc);
}
static inline CMPIStatus CMAddKey(CMPIObjectPath *op, const char *name, const void *value, CMPIType type) {
    return op->ft->addKey(op, name, CMPI_VALUE_POINTER(value), type);
}
static inline CMPIData CMGetKey(const CMPIObjectPath *op, const char *name, CMPIStatus *rc) {
    return op->ft->getKey(op, name, rc);
}
static inline CMPIData CMGetKeyAt(const CMPIObjectPath *op, CMPICount index, CMPIString **name, CMPIStatus *rc) {
    return op->ft->getKeyAt(op, index, name, rc);
}
static inline CMPICount CMGetKeyCount(const CMPIObjectPath *op, CMPIStatus *rc) {
    return op->ft->getKeyCount(op, rc);
}
static inline CMPIStatus CMSetNameSpaceFromObjectPath(CMPIObjectPath *op, const CMPIObjectPath *src) {
    return op->ft->setNameSpaceFromObjectPath(op, src);
}
static inline CMPIStatus CMSetHostAndNameSpaceFromObjectPath(CMPIObjectPath *op, const CMPIObjectPath *src) {
    return op->ft->setHostAndNameSpaceFromObjectPath(op, src);
}
static inline CMPIString *CMObjectPathToString(const CMPIObjectPath *op, CMPIStatus *rc) {
    return op->ft->toString(op, rc);
}

/* Arguments. */
static inline CMPIStatus CMAddArg(const CMPIArgs *as, const char *name, const void *value, CMPIType type) {
    return as->ft->addArg(as, name, CMPI_VALUE_POINTER(value), type);
}
static inline CMPIData CMGetArg(const CMPIArgs *as, const char *name, CMPIStatus *rc) {
    return as->ft->getArg(as, name, rc);
}
static inline CMPIData CMGetArgAt(const CMPIArgs *as, CMPICount index, CMPIString **name, CMPIStatus *rc) {
    return as->ft->getArgAt(as, index, name, rc);
}
static inline CMPICount CMGetArgCount(const CMPIArgs *as, CMPIStatus *rc) {
    return as->ft->getArgCount(as, rc);
}

/* Arrays, strings, enumerations, dates. */
static inline CMPICount CMGetArrayCount(const CMPIArray *ar, CMPIStatus *rc) {
    return ar->ft->getSize(ar, rc);
}
static inline CMPIType CMGetArrayType(const CMPIArray *ar, CMPIStatus *rc) {
    return ar->ft->getSimpleType(ar, rc);
}
static inline CMPIData CMGetArrayElementAt(const CMPIArray *ar, CMPICount index, CMPIStatus *rc) {
    return ar->ft->getElementAt(ar, index, rc);
}
static inline CMPIStatus CMSetArrayElementAt(CMPIArray *ar, CMPICount index, const void *value, CMPIType type) {
    return ar->ft->setElementAt(ar, index, CMPI_VALUE_POINTER(value), type);
}
static inline const char *CMGetCharsPtr(const CMPIString *st, CMPIStatus *rc) {
    return st->ft->getCharPtr(st, rc);
}
static inline CMPIData CMGetNext(const CMPIEnumeration *en, CMPIStatus *rc) {
    return en->ft->getNext(en, rc);
}
static inline CMPIBoolean CMHasNext(const CMPIEnumeration *en, CMPIStatus *rc) {
    return en->ft->hasNext(en, rc);
}
static inline CMPIArray *CMToArray(const CMPIEnumeration *en, CMPIStatus *rc) {
    return en->ft->toArray(en, rc);
}
static inline CMPIString *CMGetStringFormat(const CMPIDateTime *dt, CMPIStatus *rc) {
    return dt->ft->getStringFormat(dt, rc);
}
static inline CMPIUint64 CMGetBinaryFormat(const CMPIDateTime *dt, CMPIStatus *rc) {
    return dt->ft->getBinaryFormat(dt, rc);
}
static inline CMPIBoolean CMIsInterval(const CMPIDateTime *dt, CMPIStatus *rc) {
    return dt->ft->isInterval(dt, rc);
}

/* Contexts and results. */
static inline CMPIData CMGetContextEntry(const CMPIContext *ctx, const char *name, CMPIStatus *rc) {
    return ctx->ft->getEntry(ctx, name, rc);
}
static inline CMPIData CMGetContextEntryAt(const CMPIContext *ctx, CMPICount index, CMPIString **name, CMPIStatus *rc) {
    return ctx->ft->getEntryAt(ctx, index, name, rc);
}
static inline CMPICount CMGetContextEntryCount(const CMPIContext *ctx, CMPIStatus *rc) {
    return ctx->ft->getEntryCount(ctx, rc);
}
static inline CMPIStatus CMAddContextEntry(const CMPIContext *ctx, const char *name, const void *value, CMPIType type) {
    return ctx->ft->addEntry(ctx, name, CMPI_VALUE_POINTER(value), type);
}
static inline CMPIStatus CMReturnData(const CMPIResult *rslt, const void *value, CMPIType type) {
    return rslt->ft->returnData(rslt, CMPI_VALUE_POINTER(value), type);
}
static inline CMPIStatus CMReturnInstance(const CMPIResult *rslt, const CMPIInstance *inst) {
    return rslt->ft->returnInstance(rslt, inst);
}
static inline CMPIStatus CMReturnObjectPath(const CMPIResult *rslt, const CMPIObjectPath *ref) {
    return rslt->ft->returnObjectPath(rslt, ref);
}
static inline CMPIStatus CMReturnDone(const CMPIResult *rslt) {
    return rslt->ft->returnDone(rslt);
}

/* Statuses. CMReturn and its variants return from the function that uses them. */
static inline void CMSetStatusWithString(CMPIStatus *st, CMPIrc code, CMPIString *string) {
    st->rc = code;
    st->msg = string;
}
static inline void CMSetStatus(CMPIStatus *st, CMPIrc code) {
    CMSetStatusWithString(st, code, NULL);
}
static inline void CMSetStatusWithChars(const CMPIBroker *mb, CMPIStatus *st, CMPIrc code, const char *chars) {
    CMSetStatusWithString(st, code, CMNewString(mb, chars, NULL));
}
#define CMReturnWithString(code, string)                                                                               \
    do {                                                                                                               \
        CMPIStatus cmpiReturned;                                                                                       \
        cmpiReturned.rc = (code);                                                                                      \
        cmpiReturned.msg = (string);                                                                                   \
        return cmpiReturned;                                                                                           \
    } while (0)
#define CMReturn(code) CMReturnWithString(code, NULL)
#define CMReturnWithChars(mb, code, chars) CMReturnWithString(code, CMNewString((mb), (chars), NULL))

#ifdef __cplusplus
}
#endif

#endif
