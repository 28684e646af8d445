// The singleton class OXT_FileSystemThread: whether the watch thread runs, and the methods that start and stop it.
#ifndef OXT_FS_THREAD_H
#define OXT_FS_THREAD_H

#include "oxtInstance.h"

CMPIStatus OXT_FSThreadGetInstance(const OxtCInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                   const char **properties);

// Both work in service mode only. A refused stop frees the store and its segments, a refused start frees nothing:
// clients rely on a stop leaving no segment behind, whatever state it meets.
CMPIStatus OXT_FSThreadStartInvokeMethod(const OxtCInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *ref,
                                         const char *methodName, const CMPIArgs *in, CMPIArgs *out);
CMPIStatus OXT_FSThreadStopInvokeMethod(const OxtCInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *ref,
                                        const char *methodName, const CMPIArgs *in, CMPIArgs *out);

#endif
