#include "oxtShm.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <sys/mman.h>
#include <sys/shm.h>

#include "oxtShmKey.h"
#include "oxtTrace.h"

namespace {

// Locks the segment's mutex in service mode, and does nothing otherwise. 0, or -1 when the mutex stays busy.
int guardLock(const OxtCInfo *cInfo, ShmInfo *shm, bool *guarded) {
    *guarded = getServiceMode(cInfo) == 1;
    return *guarded ? shmMutexLock(&shm->mutex) : 0;
}

int guardUnlock(ShmInfo *shm, bool guarded) {
    return guarded ? shmMutexUnlock(&shm->mutex) : 0;
}

struct Detach {
    const char *function;
    void operator()(void *address) const {
        if (shmdt(address) == -1)
            OXT_TRACE_FAIL_AS(function, "_OUT_ shmdt Failure!! errno=[%d]", errno);
    }
};
typedef std::unique_ptr<void, Detach> Attachment;

// Attaches the segment and keeps its address in the descriptor; null with the failure traced.
Attachment attach(const char *function, ShmInfo *shm) {
    void *address = shmat(shm->shmId, nullptr, 0);
    OXT_REQUIRE_AS(function, address != reinterpret_cast<void *>(-1), Attachment(nullptr, Detach{function}),
                   "_OUT_ shmat Failure!! errno=[%d]", errno);
    shm->shmAdr = address;
    return Attachment(address, Detach{function});
}

// Bytes that both sides of a copy hold. The sides normally agree; after a failed resize they may not.
size_t commonBytes(const DatInfo *ins, const ShmInfo *shm) {
    const int records = ins->datAdr != nullptr ? std::min(ins->datNum, shm->shmNum) : 0;
    return records > 0 ? static_cast<size_t>(records) * static_cast<size_t>(ins->datSize) : 0;
}

enum Direction { TO_SHM, FROM_SHM };

// Gets the pages of a larger copy with one call instead of a page fault each. A kernel before 5.14 refuses, and headers
// that old do not have the advice: the copy works all the same.
void populate([[maybe_unused]] void *address, [[maybe_unused]] size_t bytes, [[maybe_unused]] Direction direction) {
#if defined(MADV_POPULATE_READ) && defined(MADV_POPULATE_WRITE)
    constexpr size_t POPULATE_FROM = 8 * 1024; // bytes
    const int error = errno;
    if (bytes >= POPULATE_FROM)
        madvise(address, bytes, direction == TO_SHM ? MADV_POPULATE_WRITE : MADV_POPULATE_READ);
    errno = error;
#endif
}

} // namespace

void shmForget(ShmInfo *shm) {
    shm->shmId = -1;
    shm->shmNum = 0;
    shm->shmAdr = nullptr;
    shm->content = OXT_SHM_EMPTY;
}

int shmMutexLock(pthread_mutex_t *mutex) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(mutex != nullptr, -1, "_OUT_ param(mutex) Failure!!");
    return oxtMutexTryLock(__func__, mutex);
}

int shmMutexUnlock(pthread_mutex_t *mutex) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(mutex != nullptr, -1, "_OUT_ param(mutex) Failure!!");
    return oxtMutexUnlock(__func__, mutex, true);
}

int shmCreate(const OxtCInfo *cInfo, ShmInfo *shm, const char *fnm, int cid, int size) {
    OXT_TRACE("_IN_[%s, %d, %d]", fnm != nullptr ? fnm : "NULL", cid, size);
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ param(cInfo) Failure!!");
    OXT_REQUIRE(shm != nullptr, -1, "_OUT_ param(shmInfo) Failure!!");
    OXT_REQUIRE(fnm != nullptr, -1, "_OUT_ param(fnm) Failure!!");
    OXT_REQUIRE(cid >= 0, -1, "_OUT_ param(cid) Failure!!");
    OXT_REQUIRE(size >= 0, -1, "_OUT_ param(size) Failure!!");
    bool guarded = false;
    OXT_REQUIRE(guardLock(cInfo, shm, &guarded) == 0, -1, "_OUT_ thmutex_lock Failure!!");

    const int id = oxtNewSegment(__func__, fnm, cid, size);
    if (guardUnlock(shm, guarded) != 0) {
        if (id != -1)
            shmctl(id, IPC_RMID, nullptr); // its id would be lost
        OXT_FAIL(-1, "_OUT_ thmutex_unlock Failure!!");
    }
    OXT_TRACE("_OUT_ ret=[%d]", id);
    return id;
}

int shmDestroy(const OxtCInfo *cInfo, ShmInfo *shm) {
    OXT_TRACE("_IN_[%d]", shm != nullptr ? shm->shmId : -1);
    OXT_REQUIRE(shm != nullptr, -1, "_OUT_ param(shmInfo) Failure!!");
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ param(cInfo) Failure!!");
    OXT_REQUIRE(shm->shmId > 0, -1, "_OUT_ param(shmId) Failure!!");
    bool guarded = false;
    const bool locked = guardLock(cInfo, shm, &guarded) == 0;
    if (!locked) // the removal goes on: a stuck reader must not keep the segment for ever
        OXT_TRACE_FAIL("thmutex_lock Failure!!");
    if (shmctl(shm->shmId, IPC_RMID, nullptr) == -1)
        OXT_TRACE_FAIL("shmctl Failure!! errno=[%d]", errno);
    if (guardUnlock(shm, guarded && locked) != 0)
        OXT_TRACE_FAIL("thmutex_unlock Failure!!");
    shmForget(shm);
    OXT_TRACE("_OUT_");
    return 0;
}

namespace {

// Creates the segment of a data area's records and fills the descriptor in. False when it could not be made.
bool newSegment(const char *function, const OxtCInfo *cInfo, const char *fnm, int cid, const DatInfo *ins,
                ShmInfo *shm) {
    const int size = oxtAreaSize(ins);
    OXT_TRACE_AS(function, "shmCreate(%s,%d,%d)", fnm, cid, size);
    const int id = shmCreate(cInfo, shm, fnm, cid, size);
    if (id == -1)
        return false;
    shm->shmId = id;
    shm->shmNum = ins->datNum;
    shm->content = OXT_SHM_EMPTY;
    return true;
}

// One class of shmNew: 0, or -1 with the failure traced.
int matchSegment(const char *function, const OxtCInfo *cInfo, const char *fnm, int cid, const DatInfo *ins,
                 ShmInfo *shm) {
    if (shm->shmNum != 0 && ins->datNum != shm->shmNum) {
        OXT_TRACE_AS(function, "shmDestroy(%d)", cid);
        OXT_REQUIRE_AS(function, shmDestroy(cInfo, shm) == 0, -1, "shmDestroy(%d) Failure!! errno=[%d]", cid, errno);
    }
    if (ins->datNum != 0 && (shm->shmNum != ins->datNum || shm->shmAdr == nullptr)) {
        // A segment that was never attached was never filled, so it is made anew, and nothing else would remove it.
        if (shm->shmId > 0)
            shmctl(shm->shmId, IPC_RMID, nullptr);
        OXT_REQUIRE_AS(function, newSegment(function, cInfo, fnm, cid, ins, shm), -1,
                       "shmCreate(%d) Failure!! errno=[%d]", cid, errno);
    }
    if (ins->datNum == 0)
        shmForget(shm);
    return 0;
}

} // namespace

int shmNew(const OxtCInfo *cInfo, int max, const char *fnm, DatInfo ins[], ShmInfo shm[]) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ param(cInfo) Failure!!");
    OXT_REQUIRE(max >= 1, -1, "_OUT_ param(max) Failure!!");
    OXT_REQUIRE(fnm != nullptr, -1, "_OUT_ param(fnm) Failure!!");
    OXT_REQUIRE(ins != nullptr, -1, "_OUT_ param(ins) Failure!!");
    OXT_REQUIRE(shm != nullptr, -1, "_OUT_ param(shm) Failure!!");
    int ret = 0;
    for (int cid = 0; cid <= max && ret == 0; ++cid) {
        OXT_TRACE("%d: shmAdr=[%p] shmNum=[%d] instNum=[%d]", cid, shm[cid].shmAdr, shm[cid].shmNum, ins[cid].datNum);
        ret = matchSegment(__func__, cInfo, fnm, cid, &ins[cid], &shm[cid]);
        if (ret == 0)
            OXT_TRACE("%d: shmId=[%d],shmNum=[%d],shmAdr=[%p]", cid, shm[cid].shmId, shm[cid].shmNum, shm[cid].shmAdr);
    }
    if (ret == 0) {
        OXT_TRACE("_OUT_");
        return 0;
    }
    for (int cid = 0; cid <= max; ++cid) // also those without a segment: the trace shows that each is refused
        shmDestroy(cInfo, &shm[cid]);
    OXT_TRACE("_OUT_ [OXT_FALSE]");
    return -1;
}

namespace {

// Both copies, once the arguments are checked.
int copySegment(const char *function, const OxtCInfo *cInfo, DatInfo *ins, ShmInfo *shm, Direction direction) {
    bool guarded = false;
    OXT_REQUIRE_AS(function, guardLock(cInfo, shm, &guarded) == 0, -1, "_OUT_ thmutex_lock Failure!!");
    if (direction == TO_SHM && shm->content == OXT_SHM_CURRENT)
        shm->content = OXT_SHM_STALE; // until it is written
    // A segment that cannot be attached is no failure: it stays STALE or EMPTY, and whoever reads a STALE one gets the
    // records in process memory. The failed attach has written an exit line; the one at the end follows all the same.
    if (const Attachment segment = attach(function, shm)) {
        const size_t bytes = commonBytes(ins, shm);
        if (direction == TO_SHM) {
            OXT_TRACE_AS(function, "memcpy(ins.Adr=[%p]=>shm.Adr=[%p],ins.Size=[%d]*ins.Num=[%d])", ins->datAdr,
                         shm->shmAdr, ins->datSize, ins->datNum);
            populate(segment.get(), bytes, direction);
            if (bytes > 0)
                memcpy(segment.get(), ins->datAdr, bytes);
            if (bytes > 0)
                shm->content = OXT_SHM_CURRENT;
        } else {
            OXT_TRACE_AS(function, "memcpy(shm.Adr=[%p]=>ins.Adr=[%p],ins.Size=[%d]*shm.Num=[%d])", shm->shmAdr,
                         ins->datAdr, ins->datSize, shm->shmNum);
            populate(segment.get(), bytes, direction);
            if (bytes > 0)
                memcpy(ins->datAdr, segment.get(), bytes);
        }
    }
    OXT_REQUIRE_AS(function, guardUnlock(shm, guarded) == 0, -1, "_OUT_ thmutex_unlock Failure!!");
    OXT_TRACE_AS(function, "_OUT_");
    return 0;
}

} // namespace

int setInstToShm(const OxtCInfo *cInfo, DatInfo *ins, ShmInfo *shm) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ param(cInfo) Failure!!");
    OXT_REQUIRE(ins != nullptr, -1, "_OUT_ param(ins) Failure!!");
    OXT_REQUIRE(shm != nullptr, -1, "_OUT_ param(shm) Failure!!");
    return copySegment(__func__, cInfo, ins, shm, TO_SHM);
}

int setShmToInst(const OxtCInfo *cInfo, ShmInfo *shm, DatInfo *ins) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ param(cInfo) Failure!!");
    OXT_REQUIRE(shm != nullptr, -1, "_OUT_ param(shm) Failure!!");
    OXT_REQUIRE(ins != nullptr, -1, "_OUT_ param(ins) Failure!!");
    return copySegment(__func__, cInfo, ins, shm, FROM_SHM);
}

int reallocDatArea(const OxtCInfo *cInfo, const char *shmKeyFnm, int cid, DatInfo *ins, ShmInfo *shm) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ param(cInfo) Failure!!");
    OXT_REQUIRE(shmKeyFnm != nullptr, -1, "_OUT_ param(shmKeyFnm) Failure!!");
    OXT_REQUIRE(cid >= 0, -1, "_OUT_ param(cid) Failure!!");
    OXT_REQUIRE(ins != nullptr, -1, "_OUT_ param(ins) Failure!!");
    OXT_REQUIRE(shm != nullptr, -1, "_OUT_ param(shm) Failure!!");
    OXT_TRACE("cid=[%d] insNum=[%d] shmNum=[%d]", cid, ins->datNum, shm->shmNum);
    const int kept = ins->datAdr != nullptr ? std::min(shm->shmNum, ins->datNum) : 0;
    if (shm->shmNum > 0) { // before the new one is made, which would find its key taken
        OXT_TRACE("shmDestroy()");
        OXT_REQUIRE(shmDestroy(cInfo, shm) == 0, -1, "_OUT_ shmDestroy() Failure!! errno=[%d]", errno);
    }
    if (ins->datNum > 0) {
        OXT_REQUIRE(newSegment(__func__, cInfo, shmKeyFnm, cid, ins, shm), -1, "_OUT_ shmCreate() Failure!! errno=[%d]",
                    errno);
        const int size = oxtAreaSize(ins);
        OXT_TRACE("memrealloc(%d)", size);
        ins->datAdr = memrealloc(ins->datAdr, size);
        OXT_REQUIRE(ins->datAdr != nullptr, -1, "_OUT_ memrealloc() Failure!!");
        // The caller overwrites what it counts; until then nothing in the block may be read as a string without end.
        const size_t used = static_cast<size_t>(kept) * static_cast<size_t>(ins->datSize);
        memset(static_cast<char *>(ins->datAdr) + used, 0, static_cast<size_t>(size) - used);
    }
    OXT_TRACE("_OUT_");
    return 0;
}
