#include "snapshot.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include <mntent.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>

#include "machine.h"
#include "oxtFile.h"
#include "oxtFsDevice.h"
#include "oxtFsMount.h"
#include "oxtFsSnapshot.h"
#include "oxtFsStatus.h"
#include "promise.h"

namespace {

// What is invented from a name: neighbours differ.
unsigned lotOf(const char *name) {
    const unsigned hash = oxtHash(name), mixed = (hash ^ hash >> 16) * 0x45d9f3b;
    return mixed ^ mixed >> 16;
}

oxtmachine::Node nodeOf(const char *path) {
    constexpr unsigned MAJORS[] = {8, 8, 8, 1, 2, 7, 11, 253, 259, 0};
    const unsigned hash = lotOf(path);
    return {static_cast<mode_t>(hash % 9 == 0 ? S_IFCHR : S_IFBLK), makedev(MAJORS[hash / 9 % 10], 1),
            hash % 13 == 0 ? ENOENT : 0};
}

oxtmachine::Volume volumeOf(const char *path) {
    constexpr long TYPES[] = {0xEF53, 0xEF53, 0x58465342, 0x9660, 0x15013346, 0x4d44};
    constexpr long BLOCKS[] = {512, 1024, 4096, 0, 511, 65536, -1};
    constexpr unsigned long COUNTS[] = {0, 1000, 99 * 1024, 1 << 20, 1UL << 40, ~0UL};
    const unsigned hash = lotOf(path);
    oxtmachine::Volume volume;
    volume.type = TYPES[hash % 6];
    volume.blockSize = BLOCKS[hash / 6 % 7];
    volume.blocks = COUNTS[hash / 42 % 6];
    volume.available = volume.blocks / (1 + hash / 252 % 200);
    volume.error = hash % 17 == 0 ? EIO : 0;
    return volume;
}

bool isEmptyText(const char (&text)[OXT_FS_TEXT]) {
    return text[0] == '\0';
}

bool isOneOf(const char *text, std::initializer_list<const char *> all) {
    for (const char *one : all)
        if (strcmp(text, one) == 0)
            return true;
    return false;
}

void checkRecord(const FsProv &prov, int position) {
    PROMISE(prov.Index == position + 1);
    for (const auto *text : {&prov.Name, &prov._root, &prov._FileSystemType})
        PROMISE(!isEmptyText(*text) || text == &prov.Name);
    for (const auto *text : {&prov.Name, &prov._root, &prov._FileSystemType})
        PROMISE(memchr(*text, '\0', sizeof *text) != nullptr);
    for (const auto *text : {&prov.CSCreationClassName, &prov.CSName, &prov.CreationClassName, &prov.DeviceID})
        PROMISE(isEmptyText(*text));
    PROMISE(prov.DriveType >= OXT_DRIVE_UNKNOWN && prov.DriveType <= OXT_DRIVE_RAMDISK);
    PROMISE(isOneOf(prov._FileSystemType, {"ext4", "xfs", "ext3", "ext2", "others"}));

    const bool measured = prov.DriveType == OXT_DRIVE_FIXED || prov.DriveType == OXT_DRIVE_RAMDISK;
    const oxtmachine::Volume volume = volumeOf(prov._root);
    const uint32_t size = fsMiB(volume.blocks, static_cast<unsigned long>(volume.blockSize));
    PROMISE(prov._FileSystemSize == 0 || strlen(prov._root) == 254 || (measured && prov._FileSystemSize == size));

    const bool monitored = prov.DriveType == OXT_DRIVE_FIXED && !isOneOf(prov._FileSystemType, {"others"});
    const bool large = monitored && prov._FileSystemSize >= 100;
    const double all = static_cast<double>(prov._FileSystemSize);
    PROMISE(prov.MonitorThreshold == (large ? 1 : 0));
    PROMISE(prov.WarningThreshold == (large ? static_cast<uint32_t>(all * 0.1) : 1));
    PROMISE(prov.FatalThreshold == (large ? static_cast<uint32_t>(all * 0.01) : 1));
    PROMISE(prov.WarningThresholdDefault == prov.WarningThreshold);
    PROMISE(prov.FatalThresholdDefault == prov.FatalThreshold);
    PROMISE(prov.FreeSpaceStatus == (monitored ? fsGetFreeSpaceStatus(&prov) : OXT_FREESPC_UNKNOWN));
}

std::vector<FsProv> takeSnapshot() {
    DatInfo area = {sizeof(FsProv), 0, nullptr};
    const int ret = fsGetCurrentInfo(nullptr, &area);
    PROMISE((ret == 0) == (area.datNum > 0) && (ret == 0) == (area.datAdr != nullptr));
    std::vector<FsProv> records(fsProv(&area), fsProv(&area) + area.datNum);
    free(area.datAdr);
    return records;
}

// The roots that the records must have: of accepted types, an entry on a listed directory takes it out again.
void checkRoots(const std::vector<FsProv> &records) {
    const OxtFile table(setmntent("/etc/mtab", "r"));
    std::vector<std::string> roots;
    size_t wanted = 2, room = 0; // bytes of the list of directories
    std::vector<char> line(64 * 1024);
    struct mntent entry = {};
    while (getmntent_r(table.get(), &entry, line.data(), static_cast<int>(line.size())) != nullptr) {
        struct stat device = {};
        struct statfs volume = {};
        const bool examined = stat(entry.mnt_fsname, &device) == 0 && statfs(entry.mnt_dir, &volume) == 0;
        if (!fsTypeAccepted(entry.mnt_type))
            continue;
        room += examined ? 4096 : 0;
        wanted += strlen(entry.mnt_dir) + 1;
        const auto listed = std::find(roots.begin(), roots.end(), entry.mnt_dir);
        if (entry.mnt_type[0] == '\0' || entry.mnt_dir[0] == '\0')
            continue;
        if (listed != roots.end())
            roots.erase(listed);
        else
            roots.emplace_back(entry.mnt_dir);
    }
    PROMISE(wanted > room || roots.size() == records.size());
    for (size_t i = 0; wanted <= room && i < roots.size(); ++i)
        PROMISE(roots[i].substr(0, 254) == records[i]._root);
}

// A list that is too small for its directories is cut between them and ended twice inside it.
void checkShortLists(const FsSystem *system) {
    for (const int size : {1, 2, 3, 9, 40, 4097}) {
        const std::unique_ptr<char[]> list(new char[static_cast<size_t>(size)]);
        const long long wanted = GetMountPointStrings(size, list.get(), system);
        long long listed = 0;
        const char *text = list.get();
        for (; text < list.get() + size && *text != '\0'; text += strlen(text) + 1)
            listed += static_cast<long long>(strlen(text));
        PROMISE(text < list.get() + size && listed <= wanted);
    }
}

void checkDrivers(const FsSystem *system) {
    for (const int kind : {OXT_DRIVER_CHARACTER, OXT_DRIVER_BLOCK}) {
        DeviceInfo *list = nullptr;
        int count = -1;
        PROMISE(getDeviceInfo(kind, &list, &count, system) == 0);
        for (const DeviceInfo *entry = list; entry != nullptr; entry = entry->next, --count)
            PROMISE(entry->name[0] != '\0' && memchr(entry->name, '\0', sizeof entry->name) != nullptr);
        PROMISE(count == 0);
        freeDeviceInfo(&list);
    }
}

} // namespace

void checkSnapshot(const std::string &mounts, const std::string &drivers) {
    auto machine = std::make_unique<oxtmachine::Machine>();
    machine->mountText = mounts;
    machine->drivers = drivers;
    machine->otherNode = nodeOf;
    machine->otherVolume = volumeOf;
    oxtmachine::use(std::move(machine));
    const std::vector<FsProv> records = takeSnapshot();
    for (size_t i = 0; i < records.size(); ++i)
        checkRecord(records[i], static_cast<int>(i));
    checkRoots(records);
    {
        const Listener listener;
        const std::vector<FsProv> traced = takeSnapshot();
        PROMISE(traced.size() == records.size());
        PROMISE(records.empty() || memcmp(traced.data(), records.data(), records.size() * sizeof(FsProv)) == 0);
    }
    FsSystem system;
    fsSystemRead(&system);
    PROMISE(system.mountsRead && system.drivers != nullptr);
    checkShortLists(&system);
    checkDrivers(&system);
    fsSystemFree(&system);
    oxtmachine::use(nullptr);
}
