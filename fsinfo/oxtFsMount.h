// Mount points and free space: which mount points are candidates, what holds them, how full they are.
//
// Each function has two forms: on an FsSystem that the caller has read, and by itself, reading the system first.
#ifndef OXT_FS_MOUNT_H
#define OXT_FS_MOUNT_H

#include "oxtFsSystem.h"

constexpr int OXT_DEVICE_SIZE = 255; // bytes of a device name, its zero included; longer ones are cut

// A mount type matches a name when it is a prefix of it, ignoring case: an empty type matches every name.
bool fsTypeMatches(const char *type, const char *name);
// The type matches one of the accepted file-system type names.
bool fsTypeAccepted(const char *type);
// An entry of another kind than the layered and initial ones that hide what they lie on.
bool fsTypeLayered(const char *type);

// Writes the candidate mount directories into Buf, each with its zero, and a further zero behind the last. BufLen and
// the count returned are in bytes; the count leaves the zeros out and goes on growing when the list has run out of
// room. 0: nothing listed, or the table could not be read. A directory that occurs twice is left out.
long long GetMountPointStrings(int BufLen, char *Buf);
long long GetMountPointStrings(const FsSystem *system, int BufLen, char *Buf);

// The family name ("EXT4", "EXT3", "EXT2", "XFS", "OTHER") of a statfs(2) type. 0; -1 when the buffer is too small or
// the table could not be read. An ext file system without a table entry leaves buf as it was.
int GetFsName(unsigned type, char *buf, int size, const char *RootPNm);
int GetFsName(const FsSystem *system, unsigned type, char *buf, int size, const char *RootPNm);

// statfs(2): block size in bytes, f_bavail and f_blocks. -1 when it fails, the outputs untouched.
int GetMountPointFreeSpace(const char *RootPNm, unsigned long *BytesPerBlock, unsigned long *lpNumberOfFreeBlocks,
                           unsigned long *lpTotalNumberOfBlocks);

// Device (a buffer of OXT_DEVICE_SIZE), longest component and family name (may be null) of a mount point. OXT_TRUE, or
// OXT_FALSE on a failure.
int OXTFileSysGetMountPointInformation(const char *RootPNm, char *SpecialDevice, int *MaxCompLen, char *FileSysNm,
                                       int FileSysNmSize);
int OXTFileSysGetMountPointInformation(const FsSystem *system, const char *RootPNm, char *SpecialDevice,
                                       int *MaxCompLen, char *FileSysNm, int FileSysNmSize);

#endif
