// Discovery: what file systems the machine has now.
//
// The module owns no state. Each function reads the mount table and the kernel's driver list itself, or works on an
// FsSystem that was read once for a whole snapshot.
#ifndef OXT_FS_GET_INFO_H
#define OXT_FS_GET_INFO_H

#include "oxtFsDevice.h"
#include "oxtFsMount.h"
#include "oxtFsSnapshot.h"
#include "oxtFsSystem.h"

#endif
