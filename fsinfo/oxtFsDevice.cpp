#include "oxtFsDevice.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/stat.h>
#include <sys/vfs.h>

#include "oxtFile.h"
#include "oxtFsMount.h"
#include "oxtFsRecord.h"
#include "oxtPaths.h"

namespace {

constexpr size_t LINE_SIZE = 128;
constexpr size_t TYPE_SIZE = 10;
constexpr const char *SECTIONS[] = {"Character devices:", "Block devices:"};
constexpr std::string_view ROOT_DEVICE = "/dev/root";
constexpr std::string_view NVME_DEVICE = "/dev/nvme";

constexpr unsigned MAGIC_ISO9660 = 0x9660; // statfs(2)
constexpr unsigned MAGIC_UDF = 0x15013346; // statfs(2)

// How a driver's name decides, tested in this order on its first characters.
enum Decision { BY_FILE_SYSTEM, FIXED, REMOVABLE, RAMDISK };
struct DriverRule {
    std::string_view prefix;
    Decision decision;
    std::string_view device; // first characters that the device name must have as well
};
constexpr DriverRule RULES[] = {
    {"sd", BY_FILE_SYSTEM, ""},
    {"sr", BY_FILE_SYSTEM, ""},
    {"blkext", BY_FILE_SYSTEM, NVME_DEVICE},
    {"ide", BY_FILE_SYSTEM, ""},
    {"rd", FIXED, ""},
    {"md", FIXED, ""},
    {"dd", FIXED, ""},
    {"dac960", FIXED, ""},
    {"DAC960", FIXED, ""},
    {"virtblk", FIXED, ""},
    {"device-mapper", FIXED, ""},
    {"fd", REMOVABLE, ""},
    {"ramdisk", RAMDISK, ""},
};

bool startsWith(const char *text, std::string_view prefix) {
    return strncmp(text, prefix.data(), prefix.size()) == 0;
}

// Here and below, a last line that lacks its line feed counts as the end of the text, as it always has.
bool skipToSection(FILE *text, const char *heading) {
    char line[LINE_SIZE];
    while (fgets(line, sizeof line, text) != nullptr && feof(text) == 0)
        if (strstr(line, heading) != nullptr)
            return true;
    return false;
}

// A number and a word, whatever space lies around them.
bool parseDriver(const char *line, DeviceInfo *entry) {
    char *end = nullptr;
    const long major = strtol(line, &end, 10);
    const char *name = end + strspn(end, " \t\n\v\f\r");
    const size_t length = strcspn(name, " \t\n\v\f\r");
    if (end == line || length == 0 || major < INT_MIN || major > INT_MAX)
        return false;
    entry->major = static_cast<int>(major);
    snprintf(entry->name, sizeof entry->name, "%.*s", static_cast<int>(length), name);
    return true;
}

// Appends the entry of one line; what is no entry is passed over. False without memory.
bool appendDriver(const char *function, const char *line, DeviceInfo ***tail, int *count) {
    DeviceInfo *entry = static_cast<DeviceInfo *>(memalloc(sizeof(DeviceInfo)));
    OXT_REQUIRE_AS(function, entry != nullptr, false, "memalloc() Failure!!");
    if (parseDriver(line, entry)) {
        OXT_TRACE_AS(function, "Major=[%d] Name=[%s]", entry->major, entry->name);
        **tail = entry;
        *tail = &entry->next;
        ++*count;
    } else {
        OXT_MEMFREE_IN(function, entry);
    }
    return true;
}

bool readSection(const char *function, FILE *text, DeviceInfo **list, int *count) {
    DeviceInfo **tail = list;
    char line[LINE_SIZE];
    // Less than three bytes are no entry: the empty line behind the section ends it.
    while (fgets(line, sizeof line, text) != nullptr && feof(text) == 0 && strlen(line) >= 3) {
        char *feed = line + strlen(line) - 1;
        if (*feed == '\n')
            *feed = '\0';
        OXT_TRACE_AS(function, "fgets() line=[%s]", line);
        if (!appendDriver(function, line, &tail, count))
            return false;
    }
    return true;
}

// The drivers of a kind. A trace shows each look at the text; while nobody traces, a snapshot parses it once.
int driversOf(const FsSystem *system, int kind, DeviceInfo **list) {
    int count = 0;
    if (oxtTraceOn() || kind < 0 || kind > 1)
        return getDeviceInfo(kind, list, &count, system);
    if (!system->driversParsed[kind] && getDeviceInfo(kind, &system->driverLists[kind], &count, system) != 0)
        return -1;
    system->driversParsed[kind] = true;
    *list = system->driverLists[kind];
    return 0;
}

const DeviceInfo *findDriver(const char *function, const DeviceInfo *list, int major) {
    for (; list != nullptr; list = list->next) {
        OXT_TRACE_AS(function, "Curr->Major=[%d] Name=[%s]", list->major, list->name);
        if (list->major == major)
            return list;
    }
    return nullptr;
}

// One driver serves disks and optical drives: the file system tells them apart. When statfs fails the type stays 0,
// which is no optical one.
int typeByFileSystem(const char *function, const char *RootPNm, const FsSystem *system) {
    struct statfs st = {};
    if (fsStatfs(system, RootPNm, &st) != 0)
        st = {};
    const unsigned type = static_cast<unsigned>(st.f_type);
    OXT_TRACE_AS(function, "statfs.type=[0x%08x]", type);
    return type == MAGIC_ISO9660 || type == MAGIC_UDF ? OXT_DRIVE_OPTICAL : OXT_DRIVE_FIXED;
}

int typeOfDriver(const char *function, const char *driver, const char *RootPNm, const char *devName,
                 const FsSystem *system) {
    for (const DriverRule &rule : RULES) {
        if (!startsWith(driver, rule.prefix) || !startsWith(devName, rule.device))
            continue;
        switch (rule.decision) {
        case BY_FILE_SYSTEM:
            return typeByFileSystem(function, RootPNm, system);
        case FIXED:
            return OXT_DRIVE_FIXED;
        case REMOVABLE:
            return OXT_DRIVE_REMOVABLE;
        case RAMDISK:
            return OXT_DRIVE_RAMDISK;
        }
    }
    return OXT_DRIVE_UNKNOWN;
}

} // namespace

int getDeviceInfo(int kind, DeviceInfo **list, int *count, const FsSystem *system) {
    OXT_TRACE("_IN_ kind=[%d]", kind);
    const bool known = kind == OXT_DRIVER_CHARACTER || kind == OXT_DRIVER_BLOCK;
    OXT_REQUIRE(known && list != nullptr && count != nullptr, -1, "_OUT_ Param Failure!!(-1)");
    *list = nullptr;
    *count = 0;
    OXT_READ_SYSTEM(system);
    OXT_REQUIRE(system->drivers != nullptr, -1, "_OUT_ fopen(%s) Failure!!(-1)", OXT_PATH_DEVICES);
    const OxtFile text(fmemopen(system->drivers, system->driversLength, "r"));
    OXT_REQUIRE(text != nullptr, -1, "_OUT_ fopen(%s) Failure!!(-1)", OXT_PATH_DEVICES);
    if (skipToSection(text.get(), SECTIONS[kind]) && !readSection(__func__, text.get(), list, count)) {
        freeDeviceInfo(list);
        *count = 0;
        OXT_FAIL(-1, "_OUT_(-1)");
    }
    OXT_TRACE("_OUT_(0)");
    return 0;
}

void freeDeviceInfo(DeviceInfo **list) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(list != nullptr, , "_OUT_ param Failure!!");
    while (*list != nullptr) {
        DeviceInfo *next = (*list)->next;
        OXT_MEMFREE(*list);
        *list = next;
    }
    OXT_TRACE("_OUT_");
}

int getDevName(char *devName, char *fsType, const char *RootPNm, const FsSystem *system) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(devName != nullptr, -1, "_OUT_ param(devName) Failure!!");
    OXT_REQUIRE(fsType != nullptr, -1, "_OUT_ param(fsType) Failure!!");
    OXT_REQUIRE(RootPNm != nullptr, -1, "_OUT_ param(RootPNm) Failure!!");
    OXT_READ_SYSTEM(system);
    OXT_REQUIRE(system->mountsRead, -1, "_OUT_ setmntent(/etc/mtab) Failure!!");
    int ret = -1;
    for (int i = -1; ret != 0 && (i = fsNextMountOn(system, RootPNm, i)) >= 0;) {
        const FsMount &mount = system->mounts[i];
        if (fsTypeLayered(mount.type))
            continue;
        oxtCopyText(devName, OXT_DEVICE_SIZE, mount.fsname);
        oxtCopyText(fsType, TYPE_SIZE, mount.type);
        ret = 0;
    }
    OXT_TRACE("_OUT_ ret=[%d] devName=[%s] fsType=[%s]", ret, devName, fsType);
    return ret;
}

int getMajorNumber(const char *devName, int *isBlock, const FsSystem *system) {
    OXT_TRACE("_IN_ devName=[%s]", devName != nullptr ? devName : "NULL");
    OXT_REQUIRE(devName != nullptr, -1, "_OUT_ param(devName) Failure!!");
    OXT_REQUIRE(isBlock != nullptr, -1, "_OUT_ param(isBlock) Failure!!");
    struct stat st = {};
    OXT_REQUIRE(fsStat(system, devName, &st) == 0, -1, "_OUT_ stat() Failure!! errno=[%d]", errno);
    *isBlock = S_ISBLK(st.st_mode) ? 1 : 0;
    // The driver list is searched by the twelve bits of the traditional encoding alone.
    const int major = static_cast<int>((st.st_rdev & 0xFFF00) >> 8);
    OXT_TRACE("_OUT_ isBlock=[%d] major=[%d]", *isBlock, major);
    return major;
}

int getDevType(int major, const char *RootPNm, int isBlock, const char *devName, const FsSystem *system) {
    OXT_TRACE("_IN_ major=[%d] RootPNm=[%s] isBlock=[%d] devName=[%s]", major, RootPNm != nullptr ? RootPNm : "NULL",
              isBlock, devName != nullptr ? devName : "NULL");
    OXT_REQUIRE(RootPNm != nullptr, OXT_DRIVE_UNKNOWN, "_OUT_ param(RootPNm) Failure!!");
    OXT_REQUIRE(devName != nullptr, OXT_DRIVE_UNKNOWN, "_OUT_ param(devName) Failure!!");
    DeviceInfo *list = nullptr;
    OXT_READ_SYSTEM(system);
    const bool read = driversOf(system, isBlock, &list) == 0; // 0 and 1 are an FsDriverKind, too
    OXT_REQUIRE(read, OXT_DRIVE_UNKNOWN, "_OUT_ getDeviceInfo() Failure!!");
    const DeviceInfo *driver = findDriver(__func__, list, major);
    const int retType =
        driver != nullptr ? typeOfDriver(__func__, driver->name, RootPNm, devName, system) : OXT_DRIVE_UNKNOWN;
    if (list == nullptr || list != system->driverLists[isBlock]) // ours; the other is freed with the reading
        freeDeviceInfo(&list);
    OXT_TRACE("_OUT_ retType=[%d]", retType);
    return retType;
}

int getDriveType(const char *RootPNm, const FsSystem *system) {
    OXT_TRACE("_IN_ RootPNm=[%s]", RootPNm != nullptr ? RootPNm : "NULL");
    OXT_REQUIRE(RootPNm != nullptr, OXT_DRIVE_UNKNOWN, "_OUT_ param(RootPNm) Failure!!");
    char devName[OXT_DEVICE_SIZE] = {};
    char fsType[TYPE_SIZE] = {};
    OXT_READ_SYSTEM(system);
    const bool named = getDevName(devName, fsType, RootPNm, system) == 0;
    OXT_REQUIRE(named, OXT_DRIVE_UNKNOWN, "_OUT_ getDevName Failure!! unknown");
    if (startsWith(devName, ROOT_DEVICE)) {
        OXT_TRACE("_OUT_ devName=[%s] is FIXED", devName);
        return OXT_DRIVE_FIXED;
    }
    OXT_TRACE("getMajorNumber[%s]", devName);
    int isBlock = 0;
    const int major = getMajorNumber(devName, &isBlock, system);
    OXT_REQUIRE(major > 0, OXT_DRIVE_UNKNOWN, "_OUT_ getMajorNumber() UNKNOWN");
    const int type = getDevType(major, RootPNm, isBlock, devName, system);
    OXT_TRACE("_OUT_ getDevType(%d,%s,%s)=[%d]", major, RootPNm, devName, type);
    return type;
}
