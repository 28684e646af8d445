// Mount points and free space: which mount points are candidates, what holds them, how full they are.
//
// The functions that look at the mount table take a reading of the system, or read it themselves.
#ifndef OXT_FS_MOUNT_H
#define OXT_FS_MOUNT_H

#include "oxtFsSystem.h"

enum { OXT_FALSE = 0, OXT_TRUE = 1 };

constexpr int OXT_DEVICE_SIZE = 255; // bytes of a device name, its zero included; longer ones are cut

// True when `type` is a prefix of `name`, ignoring case. Not the reverse: "x" matches "XFS", "xfs2" does not, and an
// empty type matches every name.
bool fsTypeMatches(const char *type, const char *name);
// The type matches one of the accepted file-system type names.
bool fsTypeAccepted(const char *type);
// ecryptfs, stacked on a directory, or rootfs, the kernel's first root: passed over where the entry of a mount point is
// looked for, since the device is that of the entry below.
bool fsTypeLayered(const char *type);

// Writes the candidate mount directories into Buf, each with its zero, and a further zero behind the last. BufLen and
// the count returned are in bytes; the count leaves the zeros out and goes on growing when the list has run out of
// room. 0: nothing listed, or the table could not be read. A directory that occurs twice is left out.
long long GetMountPointStrings(int BufLen, char *Buf, const FsSystem *system = nullptr);

// The family name ("EXT4", "EXT3", "EXT2", "XFS", "OTHER") of a statfs(2) type. 0; -1 when the buffer is too small or
// the table could not be read. An ext file system without a table entry leaves buf as it was.
int GetFsName(unsigned type, char *buf, int size, const char *RootPNm, const FsSystem *system = nullptr);

// statfs(2): block size in bytes, f_bavail and f_blocks. -1 when it fails, the outputs untouched.
int GetMountPointFreeSpace(const char *RootPNm, unsigned long *BytesPerBlock, unsigned long *lpNumberOfFreeBlocks,
                           unsigned long *lpTotalNumberOfBlocks, const FsSystem *system = nullptr);

// Device (a buffer of OXT_DEVICE_SIZE), longest component and family name (may be null) of a mount point. OXT_TRUE, or
// OXT_FALSE on a failure.
int OXTFileSysGetMountPointInformation(const char *RootPNm, char *SpecialDevice, int *MaxCompLen, char *FileSysNm,
                                       int FileSysNmSize, const FsSystem *system = nullptr);

#endif
