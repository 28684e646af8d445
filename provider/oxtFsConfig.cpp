#include "oxtClasses.h"
#include "oxtSetting.h"

namespace {

constexpr OxtClass CONFIG =
    OXT_CLASS("OXT_FileSystemConfig", FS_CONF_FIELDS, false, OXT_CID_FS_CONF, OXT_FSConfigSetPropInst, "datconf",
              "CMSetPropertyFilter() Failure!!", OXT_TRACE_NORMAL);

CMPIStatus setCycle(const char *function, const OxtCInfo *cInfo, const CMPIArgs *in, const FsConf *datconf) {
    CMPIStatus status = {CMPI_RC_OK, nullptr};
    int value = -1;
    OXT_TRACE_AS(function, "CMGetArg(MonitorCycle)");
    if (!oxtReadSetting(function, cInfo, in, "MonitorCycle", &value, &status))
        return status;
    if (value < OXT_CYCLE_MIN || value > OXT_CYCLE_MAX) // whatever the record's MonitorCycleMin and MonitorCycleMax say
        return oxtRefuseSetting(function, cInfo, "MonitorCycle", value);
    OXT_TRACE_AS(function, "datconf->MonitorCycle=[%d] dt.value.uint16=[%d]", datconf->MonitorCycle, value);
    OXT_TRACE_AS(function, "datconf->MonitorCycle=[%d]", value); // as the commit stores it
    const FsEdit edit = {OXT_CID_FS_CONF,
                         0,
                         datconf,
                         offsetof(FsConf, MonitorCycle),
                         sizeof(datconf->MonitorCycle),
                         static_cast<uint32_t>(value)};
    return oxtCommitSetting(function, cInfo, &edit);
}

} // namespace

CMPIStatus OXT_FSConfigGetInstance(const OxtCInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                   const char **properties) {
    return oxtGetSingleton(__func__, CONFIG, cInfo, rslt, cop, properties);
}

CMPIStatus OXT_FSConfigInvokeMethod(const OxtCInfo *cInfo, const CMPIResult *, const CMPIObjectPath *, const char *,
                                    const CMPIArgs *in, CMPIArgs *) {
    OXT_ENTER_HANDLER();
    const char *function = __func__;
    return oxtWithRecords(function, CONFIG, cInfo, [&](const DatInfo *records) {
        return setCycle(function, cInfo, in, static_cast<const FsConf *>(records->datAdr));
    });
}
