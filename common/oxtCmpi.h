// Reading what the object manager hands to a handler, and the answer to it. A CMPI failure becomes one result value.
#ifndef OXT_CMPI_H
#define OXT_CMPI_H

#include "cmpidt.h"
#include "cmpift.h"
#include "cmpimacs.h"
#include "oxtService.h"

// The path's key "Index", 0 to 65535; -1 when it is missing, null or a number 0. Text is read as a decimal number; a
// number beyond an int saturates, and what is left is cut to 16 bits.
int getKeyIndex(const CMPIObjectPath *cop);
// The argument as an int: text as a decimal number (saturating), any other type as a signed 16-bit value. -1 when it
// is missing, null or a number 0, which no caller can tell from -1.
int getArgToInt(const CMPIArgs *in, const char *name);
// Copies of the path's namespace and class name that the caller frees; null on a failure.
char *getNameSpace(const CMPIObjectPath *cop);
char *getClassName(const CMPIObjectPath *cop);
// A status with a message for the client.
CMPIStatus oxtStatus(const OxtCInfo *cInfo, CMPIrc rc, const char *message);
// The number of instances of a class, all of them in a clone that the caller releases; -1 on a failure.
int getEnumArray(const OxtCInfo *cInfo, const char *nameSpace, const char *className, CMPIArray **out);

#endif
