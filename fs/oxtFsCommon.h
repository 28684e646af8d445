// The monitoring core: the store of file-system records, the pass that keeps it true, the watch thread that runs the
// pass, and the provider's life around them.
#ifndef OXT_FS_COMMON_H
#define OXT_FS_COMMON_H

#include "oxtFsField.h"
#include "oxtFsLife.h"
#include "oxtFsStatus.h"
#include "oxtFsStore.h"
#include "oxtFsTurn.h"
#include "oxtFsWatch.h"

#endif
