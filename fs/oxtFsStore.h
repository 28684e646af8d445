// The instance store: built at the first request, read and changed by the class handlers, freed at the clean-up.
#ifndef OXT_FS_STORE_H
#define OXT_FS_STORE_H

#include "oxtFsState.h"

// Builds the store from the save file, or else from a fresh inventory with default settings, and publishes it. 0, or -1
// with nothing left of it.
int fsInitInstance(const OxtCInfo *cInfo);

// What a reader holds: the records of one class, which nobody changes, until it lets go of them.
struct FsRecords {
    DatInfo area; // no records: there is no data
    const FsSnapshot *snapshot;
};

// Brings one class up to date (from shared memory while the watch thread keeps that current, else by a pass of its own,
// but for the configuration) and hands out its records. 0, or -1 when that failed; it gives the last known records all
// the same, or none. fsReleaseInstance ends the reading in both cases.
int fsGetInstance(const OxtCInfo *cInfo, int classId, FsRecords *out);
void fsReleaseInstance(FsRecords *reading);

// A client's change of one setting. It is applied to the records of the moment: between a read and its commit another
// pass may have replaced them.
struct FsEdit {
    int cid;            // OXT_CID_FS_CONF or OXT_CID_FS_PROV
    int position;       // of the record among those that were read
    const void *record; // as it was read
    size_t offset;      // of the field in the record
    size_t width;       // bytes of the field, 2 or 4
    uint32_t value;
};

// Applies a client's change (null for none) and publishes all classes: shared memory, then the save file. 0 or -1; a
// failure can leave the change in memory and not in the file. None is made when the file system is gone, or the store
// is being taken down.
int fsSetInstance(const OxtCInfo *cInfo, const FsEdit *edit = nullptr);

// Frees the records and removes the segments; goes on after a failure. 0 or -1.
int fsFreeInstance(const OxtCInfo *cInfo);

#endif
