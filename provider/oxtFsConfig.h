// The singleton class OXT_FileSystemConfig: the monitoring cycle, and the method that sets it.
#ifndef OXT_FS_CONFIG_H
#define OXT_FS_CONFIG_H

#include "oxtInstance.h"

CMPIStatus OXT_FSConfigGetInstance(const OxtCInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                   const char **properties);
// "SetMonitorCycle": OXT_CYCLE_MIN to OXT_CYCLE_MAX seconds.
CMPIStatus OXT_FSConfigInvokeMethod(const OxtCInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *ref,
                                    const char *methodName, const CMPIArgs *in, CMPIArgs *out);

#endif
