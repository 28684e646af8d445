#include "oxtFsTotalNum.h"

namespace {

constexpr OxtProperty PROPERTIES[] = {
    {"FileSystemTotalNumber", "FileSystemTotalNumber", CMPI_uint16, OXT_FIELD_UINT16,
     offsetof(FsTnum, FileSystemTotalNumber)},
};

constexpr OxtClass TOTAL_NUMBER =
    OXT_CLASS("OXT_FileSystemTotalNumber", false, OXT_CID_FS_TNUM, OXT_FSTotalNumSetPropInst, "dattotal",
              "CMSetPropertyFilter() Failure!!", OXT_TRACE_FAILURE);

} // namespace

CMPIInstance *OXT_FSTotalNumSetPropInst(const OxtCInfo *cInfo, const CMPIObjectPath *cop, const char **properties,
                                        const FsTnum *dattotal) {
    return oxtBuildInstance(TOTAL_NUMBER, cInfo, cop, properties, dattotal);
}

CMPIStatus OXT_FSTotalNumGetInstance(const OxtCInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                     const char **properties) {
    return oxtGetSingleton(__func__, TOTAL_NUMBER, cInfo, rslt, cop, properties);
}
