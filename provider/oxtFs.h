// The class OXT_FileSystem: one instance per file system, and the methods that change how it is watched.
#ifndef OXT_FS_H
#define OXT_FS_H

#include "oxtInstance.h"

extern const OxtClass OXT_FS_CLASS;

CMPIStatus OXT_FSEnumInstances(const OxtCInfo *cInfo, const CMPIResult *result, const CMPIObjectPath *cop,
                               const char **properties);
CMPIStatus OXT_FSGetInstance(const OxtCInfo *cInfo, const CMPIResult *result, const CMPIObjectPath *cop,
                             const char **properties);
// "SetMonitorThreshold", "SetWarningThreshold" and "SetFatalThreshold"; any other name commits without a change.
CMPIStatus OXT_FSInvokeMethod(const OxtCInfo *cInfo, const CMPIResult *result, const CMPIObjectPath *cop,
                              const char *methodName, const CMPIArgs *in, CMPIArgs *out);

// The position of the first record with this Index; -1 with *status the answer and the exit traced.
int oxtFindIndex(const char *function, const OxtCInfo *cInfo, const DatInfo *records, int index, CMPIStatus *status);

#endif
