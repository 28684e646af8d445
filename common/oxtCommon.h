// Agent runtime support: what every room of the provider may use.
//
// The module owns the binding of the agent's trace and alert libraries, the traced memory calls, the service mode and
// the bounded locks, the shared-memory segments with their key files, the reading of CMPI arguments, and the question
// whether a thread still runs.
#ifndef OXT_COMMON_H
#define OXT_COMMON_H

#include "oxtCmpi.h"
#include "oxtFile.h"
#include "oxtIndex.h"
#include "oxtMemory.h"
#include "oxtPaths.h"
#include "oxtService.h"
#include "oxtShm.h"
#include "oxtThread.h"
#include "oxtTrace.h"

#endif
