// The two system files of discovery, read once: "/etc/mtab" and "/proc/devices". A snapshot hands one reading to every
// step, so that it is consistent while mounts come and go and does not read the files once per file system.
#ifndef OXT_FS_SYSTEM_H
#define OXT_FS_SYSTEM_H

#include <cstddef>
#include <memory>
#include <sys/stat.h>
#include <sys/vfs.h>

#include "oxtIndex.h"

// One entry of the mount table, escapes decoded (getmntent(3)).
struct FsMount {
    const char *fsname;
    const char *dir;
    const char *type;
};

// A line of "/proc/devices" (proc(5)).
struct DeviceInfo {
    int major;
    char name[132];
    DeviceInfo *next;
};

// What the kernel said last of a path.
template <class Status> struct FsLast {
    char path[4096]; // empty: of none
    Status st;
};

struct FsSystem {
    bool mountsRead; // false: the mount table could not be opened or kept
    FsMount *mounts; // in file order
    size_t mountCount;
    OxtIndex byDir;  // of the entries by their directory
    char *mountText; // what the entries point into
    char *drivers;   // the text of the driver list with a closing zero; null when it could not be opened
    size_t driversLength;
    mutable DeviceInfo *driverLists[2]; // by kind, parsed at the first look while nobody traces
    mutable bool driversParsed[2];
    mutable FsLast<struct statfs> lastSpace; // of mount points
    mutable FsLast<struct stat> lastDevice;
};

// The next entry mounted on a directory behind position `after` (-1 for the first), or -1: in file order.
int fsNextMountOn(const FsSystem *system, const char *dir, int after);

// statfs(2) of a mount point; system may be null. The steps that ask about the same one in a row share one answer, so
// that type and amounts belong together. -1 with errno on a failure.
int fsStatfs(const FsSystem *system, const char *path, struct statfs *st);
// stat(2) of a device, in the same way: mounts of one device mostly follow each other.
int fsStat(const FsSystem *system, const char *path, struct stat *st);

// Reads both files. What cannot be read is marked so, and whoever needs it reports it. Freed with fsSystemFree.
void fsSystemRead(FsSystem *system);
void fsSystemFree(FsSystem *system);

// What a function of discovery works on: the caller's reading, or without one a reading of its own for this call.
struct FsFreeSystem {
    void operator()(FsSystem *system) const { fsSystemFree(system); }
};
typedef std::unique_ptr<FsSystem, FsFreeSystem> FsReading;
inline const FsSystem *fsSystemFor(const FsSystem *given, FsSystem *own, FsReading *reading) {
    if (given != nullptr)
        return given;
    fsSystemRead(own);
    reading->reset(own);
    return own;
}
#define OXT_READ_SYSTEM(system)                                                                                        \
    FsSystem oxtOwnSystem_;                                                                                            \
    FsReading oxtReading_;                                                                                             \
    (system) = fsSystemFor((system), &oxtOwnSystem_, &oxtReading_)

#endif
