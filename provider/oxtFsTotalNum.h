// The singleton, read-only class OXT_FileSystemTotalNumber: how many file systems are listed.
#ifndef OXT_FS_TOTAL_NUM_H
#define OXT_FS_TOTAL_NUM_H

#include "oxtInstance.h"

CMPIStatus OXT_FSTotalNumGetInstance(const OxtCInfo *cInfo, const CMPIResult *rslt, const CMPIObjectPath *cop,
                                     const char **properties);

#endif
