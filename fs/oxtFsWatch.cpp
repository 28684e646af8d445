#include "oxtFsWatch.h"

#include <algorithm>
#include <csignal>
#include <unistd.h>

#include "cmpift.h"
#include "cmpimacs.h"
#include "oxtFsPass.h"
#include "oxtFsStore.h"
#include "oxtFsTurn.h"
#include "oxtPaths.h"

namespace {

constexpr int JOIN_SECONDS = 30;

OxtCInfo *gfs_thcInfo; // the thread's own; changed with the life turn

// Of a thread that is gone. The object manager made the context for the thread, which never detaches.
void dropThreadInfo(const char *function) {
    const CMPIContext *context = gfs_thcInfo != nullptr ? gfs_thcInfo->context : nullptr;
    if (context != nullptr && context->ft != nullptr && context->ft->release != nullptr)
        context->ft->release(const_cast<CMPIContext *>(context));
    OXT_MEMFREE_IN(function, gfs_thcInfo);
}

// Cancels and joins. False when the thread is still busy after all the waiting.
bool stopThread(const char *function) {
    // Cancelled first: a thread in its pass ends at the sleep behind it, also when the join below gives up.
    OXT_TRACE_AS(function, "pthread_cancel(%d)", static_cast<int>(gfs_thid.load()));
    oxtThreadCancel(&gfs_thid);
    OXT_TRACE_AS(function, "pthread_join()");
    errno = oxtThreadJoin(&gfs_thid, JOIN_SECONDS);
    if (errno == 0)
        return true;
    OXT_TRACE_FAIL_AS(function, "pthread_join Failure!! errno=[%d]", errno);
    return false;
}

// With the life turn: false when the thread stays busy.
bool exitThread(const char *function, const OxtCInfo *cInfo) {
    if (getThreadSts(&gfs_thid) == 1 && !stopThread(function))
        return false;
    dropThreadInfo(function);
    const bool isBuilt = fsGateState() == OXT_FS_INITIALISED;
    fsGateForget(); // from now on no change is accepted, and whoever builds the store anew waits for the life turn
    OXT_TRACE_AS(function, "fsSetInstance()");
    // Of a store that was never built nothing may replace the save file.
    if (isBuilt && fsSetInstance(cInfo) != 0)
        OXT_TRACE_FAIL_AS(function, "fsSetInstance() Failure!!");
    OXT_TRACE_AS(function, "fsFreeInstance()");
    if (fsFreeInstance(cInfo) != 0)
        OXT_TRACE_FAIL_AS(function, "fsFreeInstance() Failure!!");
    fsTraceMutexesDestroyed(function);
    return true;
}

} // namespace

int fsCreateThread(const OxtCInfo *cInfo) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ Param Failure!!");
    if (gfs_thcInfo != nullptr) // of a thread that ended by itself
        dropThreadInfo(__func__);
    gfs_thcInfo = static_cast<OxtCInfo *>(memalloc(sizeof(OxtCInfo)));
    OXT_REQUIRE(gfs_thcInfo != nullptr, -1, "_OUT_ th_cInfo alloc Failure!!");
    gfs_thcInfo->broker = cInfo->broker;
    gfs_thcInfo->context = CBPrepareAttachThread(cInfo->broker, cInfo->context);
    OXT_TRACE("CBPrepareAttachThread() brk=[%p],ctx=[%p] -> th_brk=[%p],th_ctx=[%p]",
              static_cast<const void *>(cInfo->broker), static_cast<const void *>(cInfo->context),
              static_cast<const void *>(gfs_thcInfo->broker), static_cast<const void *>(gfs_thcInfo->context));
    if (gfs_thcInfo->context == nullptr) { // nothing to attach with: the object manager would crash on it
        OXT_TRACE_FAIL("_OUT_ CBPrepareAttachThread() Failure!!");
        dropThreadInfo(__func__);
        return -1;
    }
    OXT_TRACE("pthread_create()");
    pthread_t id = 0;
    errno = pthread_create(&id, nullptr, fsWatchThread, gfs_thcInfo);
    if (errno != 0) {
        OXT_TRACE_FAIL("_OUT_ pthread_create() Failure!! err=[%d]", errno);
        dropThreadInfo(__func__);
        return -1;
    }
    gfs_thid.store(id);
    OXT_TRACE("_OUT_ tid=[%d]", static_cast<int>(id));
    return 0;
}

void *fsWatchThread(void *start) {
    const OxtCInfo *cInfo = static_cast<const OxtCInfo *>(start);
    // But for its sleep it cannot be cancelled: struck inside a pass it would never end its turns, and free nothing.
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr); // the object manager's signals are for its own threads
    InitProcess(OXT_LOG_FILE);                 // bound already, unless a library was missing: then this is another try
    OXT_TRACE("_IN_");
    OXT_TRACE("CBAttachThread(brk=[%p],ctx=[%p])", static_cast<const void *>(cInfo->broker),
              static_cast<const void *>(cInfo->context));
    CBAttachThread(cInfo->broker, cInfo->context);
    OXT_TRACE("Thread_Loop start.");
    for (;;) {
        OXT_TRACE("fsCheckConfigChange()");
        if (fsCheckConfigChange(cInfo) != 0)
            OXT_TRACE_FAIL("fsCheckConfigChange() Failure!!");
        const int seconds = std::max(gfs_SleepSec.load(), 1); // a damaged save file may hold a cycle of 0
        OXT_TRACE("- sleep[%d]sec -", seconds);
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
        sleep(static_cast<unsigned>(seconds));
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        OXT_TRACE("- wakeUp -");
    }
}

void fsExitThread(const OxtCInfo *cInfo) {
    OXT_TRACE("_IN_");
    const bool begun = fsTurnBegin(FS_LIFE) == 0;
    const bool ended = begun && exitThread(__func__, cInfo);
    if (begun)
        fsTurnEnd(FS_LIFE);
    OXT_REQUIRE(ended, , "_OUT_ store in use Failure!!");
    OXT_TRACE("_OUT_");
}
