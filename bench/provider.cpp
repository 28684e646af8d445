#include "provider.h"

#include <unistd.h>

#include "oxtFsStore.h"
#include "oxtPaths.h"

namespace bench {

OxtCInfo outsideServiceMode() {
    g_srvmod.store(0);
    return {nullptr, nullptr};
}

bool buildStore(const OxtCInfo *cInfo) {
    (void)unlink(OXT_PATH_SAVE);
    return fsInitInstance(cInfo) == 0;
}

void dropStore(const OxtCInfo *cInfo) {
    fsFreeInstance(cInfo);
    (void)unlink(OXT_PATH_SAVE);
}

} // namespace bench
