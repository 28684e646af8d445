// The entry points: what the object manager finds by name or through the function tables.
#ifndef OXT_FS_PROVIDER_H
#define OXT_FS_PROVIDER_H

#include "cmpidt.h"
#include "cmpift.h"

#define OXT_EXPORT extern "C" __attribute__((visibility("default")))

// The factories: they keep the broker, bind the agent's libraries and return a static record. A host calls them again
// for each class, while requests may be running.
OXT_EXPORT CMPIInstanceMI *OXTFileSystemProvider_Create_InstanceMI(const CMPIBroker *broker, const CMPIContext *ctx,
                                                                   CMPIStatus *rc);
OXT_EXPORT CMPIMethodMI *OXTFileSystemProvider_Create_MethodMI(const CMPIBroker *broker, const CMPIContext *ctx,
                                                               CMPIStatus *rc);
// Binds the agent's libraries and prepares the instance lock: 0, or pthread_mutex_init(3)'s code.
OXT_EXPORT int OXT_FileSystemProviderInitProcess(void);
// Refused like the other changing operations; part of the interface though no table names it.
OXT_EXPORT CMPIStatus OXT_FileSystemProviderSetInstance(CMPIInstanceMI *mi, const CMPIContext *ctx,
                                                        const CMPIResult *rslt, const CMPIObjectPath *cop,
                                                        const CMPIInstance *inst, const char **properties);

#endif
