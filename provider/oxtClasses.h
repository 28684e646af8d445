// The handlers of the four classes: what the table of classes names (oxtFsProvider.cpp). One module each defines them.
#ifndef OXT_CLASSES_H
#define OXT_CLASSES_H

#include "oxtInstance.h"

typedef CMPIStatus OxtInstanceHandler(const OxtCInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                      const char **properties);
typedef CMPIStatus OxtMethodHandler(const OxtCInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *ref,
                                    const char *methodName, const CMPIArgs *in, CMPIArgs *out);

// OXT_FileSystem, one instance per file system. The methods change how it is watched: "SetMonitorThreshold",
// "SetWarningThreshold" and "SetFatalThreshold"; any other name commits without a change.
OxtInstanceHandler OXT_FSEnumInstances, OXT_FSGetInstance;
OxtMethodHandler OXT_FSInvokeMethod;

// OXT_FileSystemConfig, a singleton: the cycle. "SetMonitorCycle" takes OXT_CYCLE_MIN to OXT_CYCLE_MAX seconds.
OxtInstanceHandler OXT_FSConfigGetInstance;
OxtMethodHandler OXT_FSConfigInvokeMethod;

// OXT_FileSystemTotalNumber, a read-only singleton: how many file systems are listed.
OxtInstanceHandler OXT_FSTotalNumGetInstance;

// OXT_FileSystemThread, a singleton: whether the watch thread runs. Both methods work in service mode only. A refused
// stop frees the store and its segments, a refused start frees nothing: clients rely on a stop leaving no segment
// behind, whatever state it meets.
OxtInstanceHandler OXT_FSThreadGetInstance;
OxtMethodHandler OXT_FSThreadStartInvokeMethod, OXT_FSThreadStopInvokeMethod;

#endif
