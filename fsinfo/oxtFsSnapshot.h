// The current snapshot: one record per candidate mount point, with sizes, drive type and default thresholds.
#ifndef OXT_FS_SNAPSHOT_H
#define OXT_FS_SNAPSHOT_H

#include <cstdint>

#include "oxtFsRecord.h"
#include "oxtService.h"

struct FsSizeEntry {
    uint16_t number;    // position in the list, from 1
    uint32_t total;     // MiB
    uint32_t available; // MiB
};
static_assert(sizeof(FsSizeEntry) == 12, "12 bytes an entry");

struct FsMountEntry {
    uint16_t number; // position in the list, from 1
    char mountPoint[255];
    char device[255]; // "Unknown" while it could not be read
    char type[16];    // "ext4", "xfs", "ext3", "ext2" or "others"
    int64_t driveType;
};
static_assert(sizeof(FsMountEntry) == 536, "536 bytes an entry");

// What the machine said, before it becomes records: the number of file systems, their sizes, their mounts. The names
// are those that the trace shows. Each snapshot has tables of its own, so that two may overlap.
struct FsTables {
    uint64_t tTotalFs;
    FsSizeEntry *pwFsTbl;
    FsMountEntry *pwFsLinuxTbl;
};

// Fills the tables (freed by fsFreeTables). 0, also when nothing is a candidate (no entries); -1 on a failure.
int OXTFileSysGetConfig(FsTables *tables);
void fsFreeTables(const char *function, FsTables *tables); // traced in the caller's name

// (blocks * (block size / 512)) / 2048, each division rounded down: a block size below 512 bytes gives 0.
uint32_t fsMiB(unsigned long blocks, unsigned long bytesPerBlock);

// A new area of records for the machine as it is now, owned by the caller, who has set datSize. -1 on a failure and
// when nothing is a candidate, without an area.
int fsGetCurrentInfo(const OxtCInfo *cInfo, DatInfo *datInfo);

#endif
