// The instance store: built at the first request, read and changed by the class handlers, freed at the clean-up.
//
// Call from inside the gate (oxtFsGate.h), or with the gate closed for what builds and frees.
#ifndef OXT_FS_STORE_H
#define OXT_FS_STORE_H

#include "oxtFsState.h"

// Builds the store from the save file, or else from a fresh inventory with default settings, and publishes it. 0, or -1
// with what it had made left in place; the next try clears that away.
int fsInitInstance(const OxtCInfo *cInfo);

// Brings one class up to date (from shared memory while the watch thread keeps that current, else by a pass of its own,
// but for the configuration) and hands out a copy of its records. 0, or -1 when that failed; the copy holds the last
// known records all the same, or nothing. The caller frees it with fsReleaseInstance in both cases.
int fsGetInstance(const OxtCInfo *cInfo, int classId, DatInfo *out);

// Applies a client's change (null for none) and publishes all classes: shared memory, then the save file. 0 or -1; a
// failure can leave the change in memory and not in the file.
int fsSetInstance(const OxtCInfo *cInfo, const FsEdit *edit = nullptr);

// Frees the records and removes the segments; goes on after a failure. 0 or -1.
int fsFreeInstance(const OxtCInfo *cInfo);

#endif
