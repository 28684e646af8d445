// One monitoring pass.
#ifndef OXT_FS_PASS_H
#define OXT_FS_PASS_H

#include "oxtService.h"

// Takes a fresh inventory, merges it with the stored records (clients' settings survive while a file system keeps its
// keys, and its thresholds while it keeps its size), evaluates free space, sends the alerts that the changes call for
// (service mode only) and publishes the result to shared memory and the save file. 0, or -1 when any step failed:
// alerts already sent stay sent, and the next pass tries again.
//
// Outside service mode the caller holds the instance lock. A setting that a client commits meanwhile is kept.
int fsCheckConfigChange(const OxtCInfo *cInfo);

#endif
