#include "oxtFs.h"

namespace {

#define TEXT_PROPERTY(name, label, field)                                                                              \
    { name, label, CMPI_chars, OXT_FIELD_TEXT, offsetof(FsProv, field) }
#define NUMBER_PROPERTY(name, type, kind, field)                                                                       \
    { name, name, type, kind, offsetof(FsProv, field) }
constexpr OxtProperty PROPERTIES[] = {
    {"Index", "Index_str", CMPI_chars, OXT_FIELD_INDEX_TEXT, offsetof(FsProv, Index)},
    TEXT_PROPERTY("CSCreationClassName", "CSCreationClassName", CSCreationClassName),
    TEXT_PROPERTY("CSName", "CSName", CSName),
    TEXT_PROPERTY("CreationClassName", "CreationClassName", CreationClassName),
    TEXT_PROPERTY("Name", "Name", Name),
    NUMBER_PROPERTY("DriveType", CMPI_sint16, OXT_FIELD_SINT16, DriveType),
    TEXT_PROPERTY("DeviceID", "DeviceId", DeviceID),
    NUMBER_PROPERTY("MonitorThreshold", CMPI_uint16, OXT_FIELD_UINT16, MonitorThreshold),
    NUMBER_PROPERTY("WarningThreshold", CMPI_uint32, OXT_FIELD_UINT32, WarningThreshold),
    NUMBER_PROPERTY("WarningThresholdDefault", CMPI_uint32, OXT_FIELD_UINT32, WarningThresholdDefault),
    NUMBER_PROPERTY("FatalThreshold", CMPI_uint32, OXT_FIELD_UINT32, FatalThreshold),
    NUMBER_PROPERTY("FatalThresholdDefault", CMPI_uint32, OXT_FIELD_UINT32, FatalThresholdDefault),
    NUMBER_PROPERTY("FreeSpaceStatus", CMPI_sint16, OXT_FIELD_SINT16, FreeSpaceStatus),
    TEXT_PROPERTY("Root", "Root", _root),
    NUMBER_PROPERTY("FileSystemSize", CMPI_uint32, OXT_FIELD_LOW32, _FileSystemSize),
    NUMBER_PROPERTY("AvailableSpace", CMPI_uint32, OXT_FIELD_LOW32, _AvailableSpace),
    TEXT_PROPERTY("FileSystemType", "FileSystemType", _FileSystemType),
};
#undef TEXT_PROPERTY
#undef NUMBER_PROPERTY
static_assert(sizeof PROPERTIES / sizeof *PROPERTIES == 17, "the properties of OXT_FileSystem");

// All instances, one after the other. True when each was taken.
bool returnAll(const char *function, const OxtCInfo *cInfo, const CMPIResult *result, const CMPIObjectPath *cop,
               const char **properties, const DatInfo *records, CMPIStatus *status) {
    for (int i = 0; i < records->datNum; ++i) {
        const FsProv *prov = &fsProv(records)[i];
        OXT_TRACE_AS(function, "datProv[%d]->Index=[%d]", i, prov->Index);
        if (!oxtReturnInstance(function, OXT_FS_CLASS, cInfo, result, cop, properties, prov, status))
            return false;
    }
    return true;
}

void finish(const char *function, const CMPIResult *result) {
    OXT_TRACE_AS(function, "CMReturnDone()");
    CMReturnDone(result);
    OXT_TRACE_AS(function, "_OUT_");
}

} // namespace

const OxtClass OXT_FS_CLASS = {
    "OXT_FileSystem",
    PROPERTIES,
    sizeof PROPERTIES / sizeof *PROPERTIES,
    true,
    OXT_CID_FS_PROV,
    "fsGetInstance(OXT_CID_FS_PROV)",
    "OXT_FSSetPropInst",
    "_OUT_ Param(datprov) Failure!!",
    "_OUT_ CMSetPropertyFilter() Failure!!",
    OXT_TRACE_FAILURE,
    "OXT_FSSetPropInst() Failure!!",
    "OXT_FSSetPropInst() FAILED",
};

CMPIInstance *OXT_FSSetPropInst(const OxtCInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                const FsProv *datprov) {
    return oxtBuildInstance(OXT_FS_CLASS, cInfo, cop, properties, datprov);
}

int oxtFindIndex(const char *function, const OxtCInfo *cInfo, const DatInfo *records, int index, CMPIStatus *status) {
    for (int i = 0; i < records->datNum; ++i) {
        const FsProv *prov = &fsProv(records)[i];
        OXT_TRACE_AS(function, "datProv[%d]->Index=[%d]", i, prov->Index);
        if (prov->Index == index)
            return i;
    }
    *status = oxtFailed(function, cInfo, "CMSetStatusWithChars() - CMPI_RC_ERR_INVALID_PARAMETER Index",
                        CMPI_RC_ERR_INVALID_PARAMETER, "NotFound Index");
    return -1;
}

CMPIStatus OXT_FSEnumInstances(const OxtCInfo *cInfo, const CMPIResult *result, const CMPIObjectPath *cop,
                               const char **properties) {
    OXT_TRACE("_IN_");
    if (cInfo == nullptr)
        return oxtRefused(__func__);
    CMPIStatus status = {CMPI_RC_OK, nullptr};
    DatInfo records = {};
    if (!oxtReadClass(__func__, OXT_FS_CLASS, cInfo, &records, &status))
        return status;
    if (returnAll(__func__, cInfo, result, cop, properties, &records, &status))
        finish(__func__, result);
    fsReleaseInstance(&records);
    return status;
}

CMPIStatus OXT_FSGetInstance(const OxtCInfo *cInfo, const CMPIResult *result, const CMPIObjectPath *cop,
                             const char **properties) {
    OXT_TRACE("_IN_");
    if (cInfo == nullptr)
        return oxtRefused(__func__);
    const int index = getKeyIndex(cop);
    if (index <= 0)
        return oxtFailed(__func__, cInfo, "getKeyIndex() Failure!!", CMPI_RC_ERR_FAILED, "getKeyIndex() FAILED");
    CMPIStatus status = {CMPI_RC_OK, nullptr};
    DatInfo records = {};
    if (!oxtReadClass(__func__, OXT_FS_CLASS, cInfo, &records, &status))
        return status;
    const int position = oxtFindIndex(__func__, cInfo, &records, index, &status);
    if (position >= 0 &&
        oxtReturnInstance(__func__, OXT_FS_CLASS, cInfo, result, cop, properties, &fsProv(&records)[position], &status))
        finish(__func__, result);
    fsReleaseInstance(&records);
    return status;
}
