#include "oxtFsState.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

#include "oxtFsSave.h"
#include "oxtPaths.h"

DatInfo instFs[OXT_CID_FS_COUNT];
ShmInfo shmFs[OXT_CID_FS_COUNT] = {
    {-1, 0, nullptr, PTHREAD_MUTEX_INITIALIZER, false},
    {-1, 0, nullptr, PTHREAD_MUTEX_INITIALIZER, false},
    {-1, 0, nullptr, PTHREAD_MUTEX_INITIALIZER, false},
};
pthread_mutex_t instMutexFs = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t fsStoreMutex = PTHREAD_MUTEX_INITIALIZER;
std::atomic<int> gfs_SleepSec{60};

namespace {

unsigned edits; // guarded by the store lock

struct CloseFile {
    void operator()(FILE *fp) const { fclose(fp); }
};

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
    timespec until = {};
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += 3;
    return pthread_mutex_clocklock(&fsStoreMutex, CLOCK_MONOTONIC, &until) == 0 ? 0 : -1;
}

void fsStoreUnlock() {
    pthread_mutex_unlock(&fsStoreMutex);
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

int fsRefreshFromShm(const char *function, const OxtCInfo *cInfo) {
    for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid) {
        OXT_TRACE_LINE(OXT_TRACE_NORMAL, function, "shmFs[%d].shmNum=[%d]", cid, shmFs[cid].shmNum);
        if (shmFs[cid].shmNum <= 0) {
            fsReleaseInstance(&instFs[cid]);
            continue;
        }
        OXT_TRACE_LINE(OXT_TRACE_NORMAL, function, "setShmToInst(%d)", cid);
        if (setShmToInst(cInfo, &shmFs[cid], &instFs[cid]) != 0) {
            OXT_TRACE_LINE(OXT_TRACE_FAILURE, function, "_OUT_ setShmToInst(%d) Failure!!", cid);
            return -1;
        }
    }
    fsEndTexts(&instFs[OXT_CID_FS_PROV]);
    return 0;
}

int fsPublishToShm(const char *function, const OxtCInfo *cInfo) {
    for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid) {
        if (instFs[cid].datNum <= 0)
            continue;
        OXT_TRACE_LINE(OXT_TRACE_NORMAL, function, "setInstToShm(%d)", cid);
        if (setInstToShm(cInfo, &instFs[cid], &shmFs[cid]) != 0) {
            OXT_TRACE_LINE(OXT_TRACE_FAILURE, function, "_OUT_ setInstToShm(%d) Failure!!", cid);
            return -1;
        }
    }
    return 0;
}

FsSaved fsSaveStore(const char *function) {
    OXT_TRACE_LINE(OXT_TRACE_NORMAL, function, "fopen[%s]", OXT_PATH_SAVE);
    std::unique_ptr<FILE, CloseFile> fp(fopen(OXT_PATH_SAVE, "wb"));
    if (fp == nullptr) {
        OXT_TRACE_LINE(OXT_TRACE_FAILURE, function, "_OUT_ fopen Failure!! err=[%d]", errno);
        return FS_SAVE_NOT_OPENED;
    }
    OXT_TRACE_LINE(OXT_TRACE_NORMAL, function, "fsPutBinFile()");
    const int ret = fsPutBinFile(fp.get(), instFs, &fsStoreMutex);
    OXT_TRACE_LINE(OXT_TRACE_NORMAL, function, "fclose");
    return ret == 0 ? FS_SAVED : FS_SAVE_NOT_WRITTEN;
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
