// What kind of device holds a mount point, decided by the name of its driver.
//
// The functions that look at a system file take a reading of the system, or read it themselves.
#ifndef OXT_FS_DEVICE_H
#define OXT_FS_DEVICE_H

#include "oxtFsSystem.h"

enum FsDriverKind : int { OXT_DRIVER_CHARACTER = 0, OXT_DRIVER_BLOCK = 1 };

// The drivers of a kind in file order: 0 with the list (null when the section is empty or missing) and its length, or
// -1. The caller frees it with freeDeviceInfo.
int getDeviceInfo(int kind, DeviceInfo **list, int *count, const FsSystem *system = nullptr);
void freeDeviceInfo(DeviceInfo **list);

// Device (255 bytes) and type (10 bytes) of the first entry mounted on RootPNm that is not layered; longer texts are
// cut. 0, or -1 when there is none or the table could not be read.
int getDevName(char *devName, char *fsType, const char *RootPNm, const FsSystem *system = nullptr);

// The traditional 12-bit major number of a device node, and whether it is a block device. -1 when stat(2) fails,
// *isBlock untouched; 0 for what is no device node.
int getMajorNumber(const char *devName, int *isBlock, const FsSystem *system = nullptr);

// The drive type (OXT_DRIVE_...) of a device by its major number, and of what is mounted on RootPNm.
int getDevType(int major, const char *RootPNm, int isBlock, const char *devName, const FsSystem *system = nullptr);
int getDriveType(const char *RootPNm, const FsSystem *system = nullptr);

#endif
