#include "oxtInstance.h"

#include <cstdio>
#include <cstring>

#include "oxtText.h"

namespace {

// One body serves all classes, and the trace names each one's own builder.

// A property's type by the kind of its field.
constexpr CMPIType TYPES[] = {CMPI_chars, CMPI_chars, CMPI_uint16, CMPI_sint16, CMPI_uint32, CMPI_uint32};

// The status of CMSetProperty is passed over on purpose: for a property that the client's filter excludes it is an
// error, and the instance is to have the others all the same.
void setProperty(const OxtClass &cls, CMPIInstance *instance, const FsField &field, const void *record) {
    FsShown number;
    const CMPIType type = TYPES[field.kind];
    if (type != CMPI_chars) {
        OXT_TRACE_AS(cls.builder, "CMSetProperty() %s=[%s]", field.label, fsShow(field, record, number));
        CMPIValue value = {};
        value.sint64 = fsNumberIn(field, record); // little-endian: the low bytes come first
        CMSetProperty(instance, field.property, &value, type);
        return;
    }
    const char *text = fsShow(field, record, number);
    OXT_TRACE_AS(cls.builder, "CMSetProperty() %s=[%s]", field.label, text);
    char buffer[OXT_FS_TEXT * OXT_TEXT_GROWTH];
    CMSetProperty(instance, field.property, oxtClientText(text, buffer, sizeof buffer), type);
}

void addIndexKey(const OxtClass &cls, CMPIObjectPath *path, const void *record) {
    char text[16];
    snprintf(text, sizeof text, "%d", static_cast<const FsProv *>(record)->Index);
    OXT_TRACE_AS(cls.builder, "CMAddKey() Index_str=[%s]", text);
    CMAddKey(path, "Index", text, CMPI_chars);
}

CMPIObjectPath *newPath(const OxtClass &cls, const OxtCInfo *cInfo, const CMPIObjectPath *cop) {
    char *nameSpace = getNameSpace(cop);
    if (nameSpace == nullptr) {
        OXT_TRACE_FAIL_AS(cls.builder, "_OUT_ CMGetCharPtr() Failure!!");
        return nullptr;
    }
    OXT_TRACE_AS(cls.builder, "CMNewObjectPath() NameSpace=[%s]", nameSpace);
    CMPIStatus rc = {CMPI_RC_OK, nullptr};
    CMPIObjectPath *path = CMNewObjectPath(cInfo->broker, nameSpace, cls.name, &rc);
    OXT_MEMFREE_IN(cls.builder, nameSpace);
    if (rc.rc == CMPI_RC_OK && !CMIsNullObject(path))
        return path;
    OXT_TRACE_FAIL_AS(cls.builder, "_OUT_ CMNewObjectPath() Failure!!");
    return nullptr;
}

// An instance of the path with the client's filter, still without properties.
CMPIInstance *newFiltered(const OxtClass &cls, const OxtCInfo *cInfo, CMPIObjectPath *path, const char **properties) {
    OXT_TRACE_AS(cls.builder, "CMNewInstance()");
    CMPIStatus rc = {CMPI_RC_OK, nullptr};
    CMPIInstance *instance = CMNewInstance(cInfo->broker, path, &rc);
    if (rc.rc != CMPI_RC_OK || CMIsNullObject(instance)) {
        OXT_TRACE_FAIL_AS(cls.builder, "_OUT_ CMNewInstance() Failure!!");
        return nullptr;
    }
    OXT_TRACE_AS(cls.builder, "CMSetPropertyFilter()");
    if (CMSetPropertyFilter(instance, properties, nullptr).rc == CMPI_RC_OK)
        return instance;
    OXT_TRACE_FAIL_AS(cls.builder, "%s", cls.filterFailure);
    if (strncmp(cls.filterFailure, "_OUT_", 5) != 0)
        OXT_TRACE_AS(cls.builder, "_OUT_");
    CMRelease(instance);
    return nullptr;
}

} // namespace

CMPIStatus oxtFailed(const char *function, const OxtCInfo *cInfo, const char *trace, CMPIrc rc, const char *message) {
    OXT_TRACE_FAIL_AS(function, "%s", trace);
    OXT_TRACE_AS(function, "_OUT_");
    return oxtStatus(cInfo, rc, message);
}

CMPIStatus oxtRefused(const char *function) {
    OXT_TRACE_FAIL_AS(function, "param(cInfo) Failure!!");
    OXT_TRACE_AS(function, "_OUT_");
    return {CMPI_RC_ERR_FAILED, nullptr};
}

CMPIInstance *oxtBuildInstance(const OxtClass &cls, const OxtCInfo *cInfo, const CMPIObjectPath *cop,
                               const char **properties, const void *record) {
    OXT_TRACE_AS(cls.builder, "_IN_");
    const char *refusal = cInfo == nullptr    ? "_OUT_ param(cInfo) Failure!!"
                          : cop == nullptr    ? "_OUT_ Param(cop) Failure!!"
                          : record == nullptr ? cls.refusedRecord
                                              : nullptr;
    if (refusal != nullptr) {
        OXT_TRACE_FAIL_AS(cls.builder, "%s", refusal);
        return nullptr;
    }
    // The instance has a path of its own with its own key: an enumeration's path has none.
    CMPIObjectPath *path = newPath(cls, cInfo, cop);
    if (path == nullptr)
        return nullptr;
    CMPIInstance *instance = newFiltered(cls, cInfo, path, properties);
    if (instance != nullptr) {
        if (cls.indexKey)
            addIndexKey(cls, path, record);
        for (size_t i = 0; i < cls.fieldCount; ++i)
            setProperty(cls, instance, cls.fields[i], record);
        OXT_TRACE_AS(cls.builder, "_OUT_");
    }
    CMRelease(path);
    return instance;
}

CMPIStatus oxtReturnInstance(const char *function, const OxtClass &cls, const OxtCInfo *cInfo, const CMPIResult *rslt,
                             const CMPIObjectPath *cop, const char **properties, const void *record) {
    CMPIInstance *instance = oxtBuildInstance(cls, cInfo, cop, properties, record);
    if (instance == nullptr) {
        OXT_TRACE_LINE(cls.buildFailureLevel, function, "%s", cls.buildFailure);
        OXT_TRACE_AS(function, "_OUT_");
        return oxtStatus(cInfo, CMPI_RC_ERR_FAILED, cls.buildFailed);
    }
    OXT_TRACE_AS(function, "CMReturnInstance()");
    const bool taken = CMReturnInstance(rslt, instance).rc == CMPI_RC_OK;
    CMRelease(instance);
    if (!taken)
        return oxtFailed(function, cInfo, "CMReturnInstance() Failure!!", CMPI_RC_ERR_FAILED,
                         "CMReturnInstance() FAILED");
    return {CMPI_RC_OK, nullptr};
}

CMPIStatus oxtFinish(const char *function, const CMPIResult *rslt, CMPIStatus status) {
    if (status.rc == CMPI_RC_OK) {
        OXT_TRACE_AS(function, "CMReturnDone()");
        CMReturnDone(rslt);
        OXT_TRACE_AS(function, "_OUT_");
    }
    return status;
}

bool oxtReadClass(const char *function, const OxtClass &cls, const OxtCInfo *cInfo, FsRecords *reading,
                  CMPIStatus *status) {
    OXT_TRACE_AS(function, "%s", cls.readText);
    const bool read = fsGetInstance(cInfo, cls.cid, reading) == 0;
    const DatInfo &area = reading->area;
    if (read && area.datNum > 0 && area.datAdr != nullptr)
        return true;
    *status =
        read && area.datNum <= 0
            ? oxtFailed(function, cInfo, "fsGetInstance() NoData Failure!!", CMPI_RC_ERR_NOT_FOUND, "NotFound Data")
            : oxtFailed(function, cInfo, "fsGetInstance() Failure!!", CMPI_RC_ERR_FAILED, "fsGetInstance() FAILED");
    fsReleaseInstance(reading);
    return false;
}

CMPIStatus oxtGetSingleton(const char *function, const OxtClass &cls, const OxtCInfo *cInfo, const CMPIResult *rslt,
                           const CMPIObjectPath *cop, const char **properties) {
    OXT_TRACE_AS(function, "_IN_");
    if (cInfo == nullptr)
        return oxtRefused(function);
    return oxtWithRecords(function, cls, cInfo, [&](const DatInfo *records) {
        return oxtFinish(function, rslt,
                         oxtReturnInstance(function, cls, cInfo, rslt, cop, properties, records->datAdr));
    });
}
