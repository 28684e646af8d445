#include "oxtFsState.h"

#include <cstring>
#include <unistd.h>

#include "oxtFile.h"
#include "oxtFsSave.h"
#include "oxtPaths.h"

DatInfo instFs[OXT_CID_FS_COUNT];
ShmInfo shmFs[OXT_CID_FS_COUNT] = {
    {-1, 0, nullptr, PTHREAD_MUTEX_INITIALIZER, OXT_SHM_EMPTY},
    {-1, 0, nullptr, PTHREAD_MUTEX_INITIALIZER, OXT_SHM_EMPTY},
    {-1, 0, nullptr, PTHREAD_MUTEX_INITIALIZER, OXT_SHM_EMPTY},
};
pthread_mutex_t instMutexFs = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t fsStoreMutex = PTHREAD_MUTEX_INITIALIZER;
std::atomic<int> gfs_SleepSec{60};

namespace {

constexpr int LOCK_TRIES = 30000;     // of fsStoreLock
constexpr unsigned LOCK_MICROS = 100; // between two

unsigned edits; // guarded by the store lock

// The watch thread and a client's change may write the save file at the same time, and no lock is held across a write
// that could stall. Whoever overlapped another writes once more, so that the last to end has written alone; after the
// last round it is the next pass that does.
constexpr int SAVE_ROUNDS = 3;
std::atomic<unsigned> savesBegun{0};
std::atomic<unsigned> savesEnded{0};

constexpr FsGuard STORE_GUARD = {fsStoreLock, fsStoreUnlock};

FsSaved writeSaveFile(const char *function) {
    OXT_TRACE_AS(function, "fopen[%s]", OXT_PATH_SAVE);
    const OxtFile fp = oxtOpenFile(OXT_PATH_SAVE, "wb");
    OXT_REQUIRE_AS(function, fp != nullptr, FS_SAVE_NOT_OPENED, "_OUT_ fopen Failure!! err=[%d]", errno);
    setvbuf(fp.get(), nullptr, _IONBF, 0); // it is written in one piece
    OXT_TRACE_AS(function, "fsPutBinFile()");
    const int ret = fsPutBinFile(fp.get(), instFs, &STORE_GUARD);
    OXT_TRACE_AS(function, "fclose");
    return ret == 0 ? FS_SAVED : FS_SAVE_NOT_WRITTEN;
}

bool isSameFileSystem(const FsProv *a, const FsProv *b) {
    return fsSameKeys(a, b) && strcmp(a->_root, b->_root) == 0 && a->_FileSystemSize == b->_FileSystemSize;
}

// The store's own record that a copy was made of: at the same position, or wherever mounts have moved it; else null.
void *findOriginal(const FsEdit *edit) {
    const DatInfo *area = &instFs[edit->cid];
    if (edit->cid != OXT_CID_FS_PROV || area->datAdr == nullptr)
        return area->datAdr;
    const FsProv *copy = static_cast<const FsProv *>(edit->record);
    if (edit->position < area->datNum && isSameFileSystem(&fsProv(area)[edit->position], copy))
        return &fsProv(area)[edit->position];
    for (int i = 0; i < area->datNum; ++i)
        if (isSameFileSystem(&fsProv(area)[i], copy))
            return &fsProv(area)[i];
    return nullptr;
}

} // namespace

int fsStoreLock() {
    for (int tries = 0; tries < LOCK_TRIES; ++tries) {
        if (pthread_mutex_trylock(&fsStoreMutex) == 0)
            return 0;
        usleep(LOCK_MICROS);
    }
    return -1;
}

void fsStoreUnlock() {
    pthread_mutex_unlock(&fsStoreMutex);
}

void fsTraceMutexesDestroyed(const char *function) {
    for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid)
        OXT_TRACE_AS(function, "pthread_mutex_destroy(%d)", cid);
    OXT_TRACE_AS(function, "pthread_mutex_destroy(instMutexFs)");
}

int fsApplyEdit(const FsEdit *edit) {
    char *record = static_cast<char *>(findOriginal(edit));
    if (record == nullptr)
        return -1;
    memcpy(record + edit->offset, &edit->value, edit->width); // little-endian: the low bytes come first
    ++edits;
    return 0;
}

unsigned fsEditCount() {
    return edits;
}

int fsRefreshClass(const char *function, const OxtCInfo *cInfo, int cid) {
    OXT_TRACE_AS(function, "setShmToInst(%d)", cid);
    const int ret = setShmToInst(cInfo, &shmFs[cid], &instFs[cid]);
    if (cid == OXT_CID_FS_PROV)
        fsEndTexts(&instFs[cid]);
    OXT_REQUIRE_AS(function, ret == 0, -1, "_OUT_ setShmToInst(%d) Failure!!", cid);
    return 0;
}

int fsRefreshFromShm(const char *function, const OxtCInfo *cInfo) {
    for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid) {
        OXT_TRACE_AS(function, "shmFs[%d].shmNum=[%d]", cid, shmFs[cid].shmNum);
        if (shmFs[cid].content == OXT_SHM_MISSING)
            continue;
        if (shmFs[cid].shmNum <= 0)
            fsReleaseInstance(&instFs[cid]);
        else if (shmFs[cid].content == OXT_SHM_CURRENT &&
                 fsRefreshClass(function, cInfo, cid) != 0) // else the private copy is the newer
            return -1;
    }
    return 0;
}

int fsPublishToShm(const char *function, const OxtCInfo *cInfo) {
    for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid) {
        if (instFs[cid].datNum <= 0)
            continue;
        OXT_TRACE_AS(function, "setInstToShm(%d)", cid);
        OXT_REQUIRE_AS(function, setInstToShm(cInfo, &instFs[cid], &shmFs[cid]) == 0, -1,
                       "_OUT_ setInstToShm(%d) Failure!!", cid);
    }
    return 0;
}

FsSaved fsSaveStore(const char *function) {
    FsSaved saved = FS_SAVED;
    for (int round = 0; round < SAVE_ROUNDS; ++round) {
        const unsigned begun = savesBegun.fetch_add(1) + 1;
        const bool alone = savesEnded.load() == begun - 1;
        saved = writeSaveFile(function);
        savesEnded.fetch_add(1);
        if (alone && savesBegun.load() == begun)
            break;
    }
    return saved;
}

int fsCopyArea(const DatInfo *from, DatInfo *to) {
    *to = {from->datSize, 0, nullptr};
    const int size = from->datAdr != nullptr ? oxtAreaSize(from) : 0;
    if (size == 0)
        return 0;
    to->datAdr = malloc(static_cast<size_t>(size));
    if (to->datAdr == nullptr)
        return -1;
    memcpy(to->datAdr, from->datAdr, static_cast<size_t>(size));
    to->datNum = from->datNum;
    return 0;
}

void fsReleaseInstance(DatInfo *area) {
    free(area->datAdr);
    area->datAdr = nullptr;
    area->datNum = 0;
}
