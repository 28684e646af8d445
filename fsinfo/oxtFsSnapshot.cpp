#include "oxtFsSnapshot.h"

#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/stat.h>
#include <sys/vfs.h>

#include "oxtFsDevice.h"
#include "oxtFsField.h"
#include "oxtFsMount.h"
#include "oxtFsStatus.h"

namespace {

constexpr size_t PATH_SIZE = 4096; // list room for a mount directory, and the longest path that is measured
constexpr size_t FAMILY_SIZE = 10;

// File-system types by the family name's first characters, in the order in which they are tested.
struct TypeOfFamily {
    std::string_view family;
    const char *type;
};
constexpr TypeOfFamily TYPES[] = {{"EXT4", "ext4"}, {"XFS", "xfs"}, {"EXT3", "ext3"}, {"EXT2", "ext2"}};

template <size_t N> void copyText(char (&to)[N], const char *from) {
    oxtCopyText(to, N, from);
}

// Bytes that all directories of an accepted type take in the list.
size_t mostListed(const FsSystem *system) {
    size_t most = 0;
    for (size_t i = 0; i < system->mountCount; ++i)
        if (fsTypeAccepted(system->mounts[i].type))
            most += strlen(system->mounts[i].dir) + 1;
    return most;
}

// Entries that can be examined and are of an accepted type. Repeated and layered ones count too: this sizes the list.
// While nobody traces, the counting stops as soon as the list is certain to hold every directory.
int countCandidates(const char *function, const FsSystem *system) {
    const size_t most = mostListed(system);
    int count = 0;
    for (size_t i = 0; i < system->mountCount; ++i) {
        if (static_cast<size_t>(count) * PATH_SIZE > most && !oxtTraceOn())
            break;
        const FsMount &mount = system->mounts[i];
        struct stat device = {};
        struct statfs st = {};
        if (stat(mount.fsname, &device) == 0 && statfs(mount.dir, &st) == 0) {
            OXT_TRACE_AS(function, "fsname=[%s] dir=[%s] type=[%s]", mount.fsname, mount.dir, mount.type);
            count += fsTypeAccepted(mount.type) ? 1 : 0;
        } else {
            OXT_TRACE_AS(function, "jump over device[%s]", mount.fsname);
        }
    }
    return count;
}

// Texts of the list, in its own 16-bit counter.
uint16_t countTexts(const char *list) {
    uint16_t n = 0;
    for (; *list != '\0' && n < UINT16_MAX; list += strlen(list) + 1)
        ++n;
    return n;
}

// Both tables, zeroed, for n entries: null, or which could not be made.
const char *makeTables(FsTables *tables, uint16_t n) {
    tables->pwFsTbl = static_cast<FsSizeEntry *>(calloc(n, sizeof(FsSizeEntry)));
    if (tables->pwFsTbl == nullptr)
        return "pwFsTbl";
    tables->pwFsLinuxTbl = static_cast<FsMountEntry *>(calloc(n, sizeof(FsMountEntry)));
    if (tables->pwFsLinuxTbl == nullptr)
        return "pwFsLinuxTbl";
    tables->tTotalFs = n;
    return nullptr;
}

const char *typeOfFamily(const char *family) {
    for (const TypeOfFamily &row : TYPES)
        if (strncmp(family, row.family.data(), row.family.size()) == 0)
            return row.type;
    return "others";
}

// One mount point's entries. What cannot be read keeps its defaults.
void examine(const FsSystem *system, const char *mountPoint, uint16_t number, FsSizeEntry *size, FsMountEntry *mount) {
    size->number = mount->number = number;
    copyText(mount->device, "Unknown");
    copyText(mount->type, "others");
    copyText(mount->mountPoint, mountPoint);
    char path[PATH_SIZE];
    copyText(path, mountPoint);
    mount->driveType = getDriveType(path, system);
    char device[OXT_DEVICE_SIZE] = {};
    char family[FAMILY_SIZE] = {};
    int maxCompLen = 0;
    if (OXTFileSysGetMountPointInformation(path, device, &maxCompLen, family, FAMILY_SIZE, system) == OXT_FALSE)
        return;
    copyText(mount->device, device);
    copyText(mount->type, typeOfFamily(family));
    if (mount->driveType != OXT_DRIVE_FIXED && mount->driveType != OXT_DRIVE_RAMDISK)
        return;
    unsigned long bytesPerBlock = 0, freeBlocks = 0, totalBlocks = 0;
    if (GetMountPointFreeSpace(path, &bytesPerBlock, &freeBlocks, &totalBlocks, system) == -1)
        return;
    size->total = fsMiB(totalBlocks, bytesPerBlock);
    size->available = fsMiB(freeBlocks, bytesPerBlock);
}

// A zeroed record gets the facts and no judgement: not monitored, thresholds of 1 MiB, status unknown.
void fillRecord(FsProv *prov, int position, const FsSizeEntry &size, const FsMountEntry &mount) {
    prov->Index = static_cast<uint16_t>(position + 1);
    copyText(prov->Name, mount.device);
    prov->DriveType = static_cast<int16_t>(mount.driveType);
    prov->WarningThreshold = prov->WarningThresholdDefault = 1;
    prov->FatalThreshold = prov->FatalThresholdDefault = 1;
    prov->FreeSpaceStatus = OXT_FREESPC_UNKNOWN;
    copyText(prov->_root, mount.mountPoint);
    prov->_FileSystemSize = size.total;
    prov->_AvailableSpace = size.available;
    copyText(prov->_FileSystemType, mount.type);
}

bool isMonitoredType(const char *type) {
    for (const TypeOfFamily &row : TYPES)
        if (strncmp(type, row.type, row.family.size()) == 0)
            return true;
    return false;
}

// Fixed ext and xfs file systems get their default thresholds, and a status.
void setDefaults(FsProv *prov) {
    if (prov->DriveType != OXT_DRIVE_FIXED || !isMonitoredType(prov->_FileSystemType))
        return;
    if (prov->_FileSystemSize >= OXT_FS_MIN_SIZE) {
        const double size = static_cast<double>(prov->_FileSystemSize);
        prov->MonitorThreshold = 1;
        prov->WarningThreshold = prov->WarningThresholdDefault = static_cast<uint32_t>(size * OXT_FS_WARNING_SHARE);
        prov->FatalThreshold = prov->FatalThresholdDefault = static_cast<uint32_t>(size * OXT_FS_FATAL_SHARE);
    }
    prov->FreeSpaceStatus = static_cast<int16_t>(fsGetFreeSpaceStatus(prov));
}

// Root and amounts stand behind the keys, the settings last.
void traceRecord(const char *function, const FsProv *prov) {
    constexpr size_t KEYS = 5, ROOT = 13, ALL = sizeof FS_PROV_FIELDS / sizeof *FS_PROV_FIELDS;
    constexpr size_t PARTS[][2] = {{0, KEYS}, {ROOT, ALL}, {KEYS, ROOT}}; // first field, and the one behind the last
    FsShown number;
    for (const auto &[first, end] : PARTS)
        for (size_t i = first; i < end; ++i)
            if (const FsField &field = FS_PROV_FIELDS[i]; field.listed != nullptr)
                OXT_TRACE_AS(function, "  %s%-19s=[%s].", i == 0 ? "--" : "  ", field.listed,
                             fsShow(field, prov, number));
}

// The entries of a list of mount directories. 0, or -1 with the failure traced; frees the list before the exit line.
int examineList(const char *function, const FsSystem *system, char *list, FsTables *tables) {
    const uint16_t n = countTexts(list);
    if (const char *table = makeTables(tables, n)) {
        const size_t size = n * (tables->pwFsTbl == nullptr ? sizeof(FsSizeEntry) : sizeof(FsMountEntry));
        fsFreeTables(function, tables);
        OXT_MEMFREE_IN(function, list);
        OXT_FAIL_AS(function, -1, "_OUT_ %s malloc(%d) Failure!!", table, static_cast<int>(size));
    }
    const char *mountPoint = list;
    for (uint16_t i = 0; i < n; ++i, mountPoint += strlen(mountPoint) + 1)
        examine(system, mountPoint, static_cast<uint16_t>(i + 1), &tables->pwFsTbl[i], &tables->pwFsLinuxTbl[i]);
    OXT_MEMFREE_IN(function, list);
    OXT_TRACE_AS(function, "_OUT_ OXT_TRUE");
    return 0;
}

// The steps of OXTFileSysGetConfig on one reading of the system.
int gatherTables(const char *function, const FsSystem *system, FsTables *tables) {
    OXT_REQUIRE_AS(function, system->mountsRead, -1, "_OUT_ setmntent[/etc/mtab] Failure!!");
    const size_t listSize = static_cast<size_t>(countCandidates(function, system)) * PATH_SIZE + 1;
    char *list = static_cast<char *>(listSize <= INT32_MAX ? malloc(listSize) : nullptr);
    OXT_REQUIRE_AS(function, list != nullptr, -1, "_OUT_ malloc(%d) Failure!!", static_cast<int>(listSize));
    if (GetMountPointStrings(static_cast<int>(listSize), list, system) != 0)
        return examineList(function, system, list, tables);
    OXT_MEMFREE_IN(function, list);
    OXT_TRACE_AS(function, "_OUT_ GetMountPointStrings() Failure!!");
    return 0; // a machine without candidates: no file systems
}

} // namespace

uint32_t fsMiB(unsigned long blocks, unsigned long bytesPerBlock) {
    return static_cast<uint32_t>(static_cast<uint64_t>(blocks) * (bytesPerBlock / 512) / 2048);
}

void fsFreeTables(const char *function, FsTables *tables) {
    if (tables->pwFsTbl != nullptr)
        OXT_MEMFREE_IN(function, tables->pwFsTbl);
    if (tables->pwFsLinuxTbl != nullptr)
        OXT_MEMFREE_IN(function, tables->pwFsLinuxTbl);
    *tables = {};
}

int OXTFileSysGetConfig(FsTables *tables) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(tables != nullptr, -1, "_OUT_ param(tables) Failure!!");
    *tables = {};
    const FsSystem *system = nullptr;
    OXT_READ_SYSTEM(system);
    return gatherTables(__func__, system, tables);
}

int fsGetCurrentInfo(const OxtCInfo *, DatInfo *datInfo) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(datInfo != nullptr, -1, "_OUT_ param(datInfo) Failure!!");
    OXT_REQUIRE(datInfo->datSize == sizeof(FsProv), -1, "_OUT_ param(datSize) Failure!!");
    FsTables tables = {};
    if (OXTFileSysGetConfig(&tables) == -1) {
        OXT_TRACE_FAIL("_OUT_ OXTFileSysGetConfig() Failure!!");
        fsFreeTables(__func__, &tables);
        return -1;
    }
    datInfo->datNum = static_cast<int>(tables.tTotalFs);
    datInfo->datAdr = memalloc(oxtAreaSize(datInfo)); // refuses the size 0 of a machine without candidates
    if (datInfo->datAdr == nullptr) {
        OXT_TRACE_FAIL("_OUT_ FileSysDat alloc Failure!!");
        datInfo->datNum = 0;
        fsFreeTables(__func__, &tables);
        return -1;
    }
    OXT_TRACE("num=[%d].", datInfo->datNum);
    for (int i = 0; i < datInfo->datNum; ++i) {
        FsProv *prov = &fsProv(datInfo)[i];
        fillRecord(prov, i, tables.pwFsTbl[i], tables.pwFsLinuxTbl[i]);
        setDefaults(prov);
        traceRecord(__func__, prov);
    }
    fsFreeTables(__func__, &tables);
    OXT_TRACE("_OUT_ OXT_TRUE");
    return 0;
}
