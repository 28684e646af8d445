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

} // namespace

const OxtClass OXT_FS_CLASS = OXT_CLASS("OXT_FileSystem", true, OXT_CID_FS_PROV, OXT_FSSetPropInst, "datprov",
                                        "_OUT_ CMSetPropertyFilter() Failure!!", OXT_TRACE_FAILURE);

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
    OXT_ENTER_HANDLER();
    const char *function = __func__;
    return oxtWithRecords(function, OXT_FS_CLASS, cInfo, [&](const DatInfo *records) {
        CMPIStatus status = {CMPI_RC_OK, nullptr};
        for (int i = 0; i < records->datNum && status.rc == CMPI_RC_OK; ++i) {
            const FsProv *prov = &fsProv(records)[i];
            OXT_TRACE_AS(function, "datProv[%d]->Index=[%d]", i, prov->Index);
            status = oxtReturnInstance(function, OXT_FS_CLASS, cInfo, result, cop, properties, prov);
        }
        return oxtFinish(function, result, status);
    });
}

CMPIStatus OXT_FSGetInstance(const OxtCInfo *cInfo, const CMPIResult *result, const CMPIObjectPath *cop,
                             const char **properties) {
    OXT_ENTER_HANDLER();
    const char *function = __func__;
    const int index = getKeyIndex(cop);
    if (index <= 0)
        return oxtFailed(function, cInfo, "getKeyIndex() Failure!!", CMPI_RC_ERR_FAILED, "getKeyIndex() FAILED");
    return oxtWithRecords(function, OXT_FS_CLASS, cInfo, [&](const DatInfo *records) {
        CMPIStatus status = {CMPI_RC_OK, nullptr};
        const int position = oxtFindIndex(function, cInfo, records, index, &status);
        if (position >= 0)
            status =
                oxtReturnInstance(function, OXT_FS_CLASS, cInfo, result, cop, properties, &fsProv(records)[position]);
        return oxtFinish(function, result, status);
    });
}
