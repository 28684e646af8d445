// The records of the three classes. Their bytes are a storage format: save file and shared memory hold them as they
// are (docs/formats.md shows them), so every offset is asserted and none may move.
#ifndef OXT_FS_RECORD_H
#define OXT_FS_RECORD_H

#include <cstddef>
#include <cstdint>

#include "oxtMemory.h"

constexpr int OXT_FS_TEXT = 256; // bytes of every text field, its zero included

// OXT_CID_FS_CONF: one record.
struct FsConf {
    uint16_t MonitorCycle;        // seconds between two passes
    uint16_t MonitorCycleMin;     // seconds
    uint16_t MonitorCycleMax;     // seconds
    uint16_t MonitorCycleDefault; // seconds
};

// OXT_CID_FS_TNUM: one record.
struct FsTnum {
    uint16_t FileSystemTotalNumber; // records of OXT_CID_FS_PROV
    uint16_t reserved;
};

// OXT_CID_FS_PROV: one record per file system. The four texts from CSCreationClassName to Name are the key by which a
// file system keeps its settings from pass to pass.
struct FsProv {
    uint16_t Index; // position in the mount table's candidates, from 1
    uint8_t pad0[2];
    char CSCreationClassName[OXT_FS_TEXT]; // empty
    char CSName[OXT_FS_TEXT];              // empty
    char CreationClassName[OXT_FS_TEXT];   // empty
    char Name[OXT_FS_TEXT];                // device; mnt_fsname, "Unknown" when it could not be read
    int16_t DriveType;                     // OXT_DRIVE_...
    uint8_t pad1[2];
    char DeviceID[OXT_FS_TEXT];       // empty
    uint16_t MonitorThreshold;        // 1 monitored, 0 not; a client's setting
    uint8_t pad2[2];                  // up to the 32-bit fields
    uint32_t WarningThreshold;        // MiB of free space; a client's setting
    uint32_t WarningThresholdDefault; // MiB; OXT_FS_WARNING_SHARE
    uint32_t FatalThreshold;          // MiB of free space; a client's setting
    uint32_t FatalThresholdDefault;   // MiB; OXT_FS_FATAL_SHARE
    int16_t FreeSpaceStatus;          // OXT_FREESPC_...
    uint8_t pad3[2];
    char _root[OXT_FS_TEXT];           // mount point; mnt_dir
    int64_t _FileSystemSize;           // MiB; statfs f_blocks; 0 when it was not measured
    int64_t _AvailableSpace;           // MiB; statfs f_bavail; 0 when it was not measured
    char _FileSystemType[OXT_FS_TEXT]; // "ext4", "xfs", "ext3", "ext2" or "others"
};

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "storage format");
static_assert(sizeof(FsConf) == OXT_CID_FS_SIZES[OXT_CID_FS_CONF] &&
                  sizeof(FsTnum) == OXT_CID_FS_SIZES[OXT_CID_FS_TNUM] &&
                  sizeof(FsProv) == OXT_CID_FS_SIZES[OXT_CID_FS_PROV],
              "storage format");
static_assert(offsetof(FsConf, MonitorCycle) == 0 && offsetof(FsConf, MonitorCycleMin) == 2, "storage format");
static_assert(offsetof(FsConf, MonitorCycleMax) == 4 && offsetof(FsConf, MonitorCycleDefault) == 6, "storage format");
static_assert(offsetof(FsTnum, FileSystemTotalNumber) == 0 && offsetof(FsTnum, reserved) == 2, "storage format");
static_assert(offsetof(FsProv, Index) == 0 && offsetof(FsProv, CSCreationClassName) == 4, "storage format");
static_assert(offsetof(FsProv, CSName) == 260 && offsetof(FsProv, CreationClassName) == 516, "storage format");
static_assert(offsetof(FsProv, Name) == 772 && offsetof(FsProv, DriveType) == 1028, "storage format");
static_assert(offsetof(FsProv, DeviceID) == 1032 && offsetof(FsProv, MonitorThreshold) == 1288, "storage format");
static_assert(offsetof(FsProv, WarningThreshold) == 1292, "storage format");
static_assert(offsetof(FsProv, WarningThresholdDefault) == 1296, "storage format");
static_assert(offsetof(FsProv, FatalThreshold) == 1300 && offsetof(FsProv, FatalThresholdDefault) == 1304, "format");
static_assert(offsetof(FsProv, FreeSpaceStatus) == 1308 && offsetof(FsProv, _root) == 1312, "storage format");
static_assert(offsetof(FsProv, _FileSystemSize) == 1568 && offsetof(FsProv, _AvailableSpace) == 1576, "format");
static_assert(offsetof(FsProv, _FileSystemType) == 1584, "storage format");

// What holds a file system (FsProv::DriveType).
enum FsDriveType : int {
    OXT_DRIVE_UNKNOWN = -1,
    OXT_DRIVE_FIXED = 0,
    OXT_DRIVE_REMOVABLE = 1,
    OXT_DRIVE_OPTICAL = 2,
    OXT_DRIVE_RAMDISK = 3,
};

constexpr int64_t OXT_FS_MIN_SIZE = 100; // MiB; smaller file systems have no default thresholds and take no settings

// What a fresh start has, and what clients may set. tests/testPages.cpp looks for these in the pages that tell them.
constexpr double OXT_FS_WARNING_SHARE = 0.1; // of the size
constexpr double OXT_FS_FATAL_SHARE = 0.01;  // of the size
constexpr int OXT_CYCLE_MIN = 10;            // seconds
constexpr int OXT_CYCLE_MAX = 3600;          // seconds
constexpr int OXT_CYCLE_DEFAULT = 60;        // seconds

// Record sizes, start counts and null addresses of the three descriptors.
void fsInitDatInfo(DatInfo *datInfo);

inline FsConf *fsConf(const DatInfo *areas) {
    return static_cast<FsConf *>(areas[OXT_CID_FS_CONF].datAdr);
}
inline FsTnum *fsTnum(const DatInfo *areas) {
    return static_cast<FsTnum *>(areas[OXT_CID_FS_TNUM].datAdr);
}
inline FsProv *fsProv(const DatInfo *area) {
    return static_cast<FsProv *>(area->datAdr);
}

// The four keys of both are equal, byte for byte.
bool fsSameKeys(const FsProv *a, const FsProv *b);

#endif
