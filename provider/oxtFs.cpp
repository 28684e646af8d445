#include "oxtFs.h"

const OxtClass OXT_FS_CLASS = OXT_CLASS("OXT_FileSystem", FS_PROV_FIELDS, true, OXT_CID_FS_PROV, OXT_FSSetPropInst,
                                        "datprov", "_OUT_ CMSetPropertyFilter() Failure!!", OXT_TRACE_FAILURE);

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
