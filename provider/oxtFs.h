// What the handlers of OXT_FileSystem share.
#ifndef OXT_FS_H
#define OXT_FS_H

#include "oxtClasses.h"

extern const OxtClass OXT_FS_CLASS;

// The position of the first record with this Index; -1 with *status the answer and the exit traced.
int oxtFindIndex(const char *function, const OxtCInfo *cInfo, const DatInfo *records, int index, CMPIStatus *status);

#endif
