#include "oxtClasses.h"

namespace {

constexpr OxtClass TOTAL_NUMBER =
    OXT_CLASS("OXT_FileSystemTotalNumber", FS_TNUM_FIELDS, false, OXT_CID_FS_TNUM, OXT_FSTotalNumSetPropInst,
              "dattotal", "CMSetPropertyFilter() Failure!!", OXT_TRACE_FAILURE);

} // namespace

CMPIStatus OXT_FSTotalNumGetInstance(const OxtCInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                     const char **properties) {
    return oxtGetSingleton(__func__, TOTAL_NUMBER, cInfo, rslt, cop, properties);
}
