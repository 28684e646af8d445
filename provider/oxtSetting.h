// A client's setting: the argument, its refusal, and the commit. The texts follow from the argument's name.
#ifndef OXT_SETTING_H
#define OXT_SETTING_H

#include "oxtInstance.h"

// Reads an argument as an int: true, or *status is the answer and the exit is traced. A value of -1 reads as missing.
bool oxtReadSetting(const char *function, const OxtCInfo *cInfo, const CMPIArgs *in, const char *name, int *value,
                    CMPIStatus *status);
// The answer to a value out of range.
CMPIStatus oxtRefuseSetting(const char *function, const OxtCInfo *cInfo, const char *name, int value);
// Commits a change (null for none) and answers.
CMPIStatus oxtCommitSetting(const char *function, const OxtCInfo *cInfo, const FsEdit *edit);

#endif
