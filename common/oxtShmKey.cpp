#include "oxtShmKey.h"

#include <csignal>
#include <cstdio>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include "oxtFile.h"
#include "oxtMemory.h"
#include "oxtPaths.h"
#include "oxtWait.h"

namespace {

constexpr int TRY_LIMIT = 65536; // under new keys, while each is another's
// When the kernel refuses for another reason, as for want of segments, no key helps, and each try costs a file and
// lines of the trace. The refusals last no longer than any other wait, either.
constexpr int REFUSAL_LIMIT = 64;
constexpr size_t NAME_SIZE = 512;

bool exists(const char *name) {
    struct stat st = {};
    return stat(name, &st) == 0;
}

// The key of a key file, which is made when it is missing. False with the failure traced.
bool keyOf(const char *function, const char *keyFile, key_t *key) {
    if (!exists(keyFile)) {
        OXT_TRACE_AS(function, "KeyFile NewCreate(%s)", keyFile);
        OXT_REQUIRE_AS(function, oxtOpenFile(keyFile, "w") != nullptr, false,
                       "_OUT_ fopen Failure!! fnm=[%s] errno=[%d]", keyFile, errno);
    }
    *key = ftok(keyFile, OXT_SHMKEY_PROJECT);
    OXT_REQUIRE_AS(function, *key != -1, false, "_OUT_ ftok Failure!! fnm=[%s] errno=[%d]", keyFile, errno);
    return true;
}

// Removes the segment under a key when it is a dead provider's: of the class's shape, made and kept by this user in a
// process that is gone, and attached by nobody. Once the key file has moved on, nothing would ever find it again.
// Another program's segment may have the same key and stays, and so does one that another user has given away to this
// one.
void removeOrphan(key_t key, int cid) {
    struct shmid_ds ds = {};
    const int id = shmget(key, 0, 0);
    if (cid >= OXT_CID_FS_COUNT || id <= 0 || shmctl(id, IPC_STAT, &ds) != 0)
        return;
    const bool ours = ds.shm_perm.cuid == geteuid() && ds.shm_perm.uid == geteuid() &&
                      (ds.shm_perm.mode & 0777) == 0600 &&
                      ds.shm_segsz % static_cast<size_t>(OXT_CID_FS_SIZES[cid]) == 0;
    if (ours && ds.shm_nattch == 0 && kill(ds.shm_cpid, 0) == -1 && errno == ESRCH)
        shmctl(id, IPC_RMID, nullptr);
}

// The search for a free key: how many tries there were, and how many of them the kernel refused for another reason than
// a key that is taken.
struct Search {
    int tries;
    int refusals;
    long long refusedSince; // oxtMillis
};

void countRefusal(Search *search) {
    if (search->refusals++ == 0)
        search->refusedSince = oxtMillis();
}

bool isRefused(const Search &search) {
    return search.refusals >= REFUSAL_LIMIT ||
           (search.refusals > 0 && oxtMillis() - search.refusedSince >= OXT_WAIT_MILLIS);
}

// The tries of shmCreate: the new segment's id or -1.
int createUnderFreeKey(const char *function, const char *keyFile, int cid, int size, Search *search) {
    int &n = search->tries;
    int refusal = 0; // of the last try, for those who trace it: stepping around the key sets errno anew
    for (n = 1; n < TRY_LIMIT && !isRefused(*search); ++n) {
        key_t key = -1;
        if (!keyOf(function, keyFile, &key))
            return -1;
        OXT_TRACE_AS(function, "shmget(0x%08x , %d)", static_cast<unsigned>(key), size);
        const int id = shmget(key, static_cast<size_t>(size), IPC_CREAT | IPC_EXCL | 0600);
        if (id > 0) {
            OXT_TRACE_AS(function, "shmget[%d]=OK. shmId=[%d]", n, id);
            return id;
        }
        if (id == 0) { // an id of 0 could not be told from "none": readers and shmDestroy refuse it
            shmctl(id, IPC_RMID, nullptr);
            OXT_TRACE_AS(function, "shmget[%d]=NG. shmId=[%d] errno=[%d] shmctl-destroy.", n, id, errno);
        } else {
            refusal = errno;
            OXT_TRACE_FAIL_AS(function, "shmget[%d]=retry. shmId=[%d] errno=[%d]", n, id, refusal);
            if (refusal != EEXIST)
                countRefusal(search);
            removeOrphan(key, cid);
        }
        // A new key file has a new inode and so another key; the old one stays until the end, so that its inode is
        // not given out again.
        char backup[NAME_SIZE + 16];
        snprintf(backup, sizeof backup, "%s.bak.%d", keyFile, n);
        rename(keyFile, backup);
    }
    errno = refusal;
    return -1;
}

// From the last to the first: a process that dies in between leaves a row that the next one finds from its beginning.
void removeBackups(const char *function, const char *keyFile) {
    char backup[NAME_SIZE + 16];
    int last = 0;
    for (int n = 1; n < TRY_LIMIT; last = n++) {
        snprintf(backup, sizeof backup, "%s.bak.%d", keyFile, n);
        if (!exists(backup))
            break;
        OXT_TRACE_AS(function, "unlink[%s]", backup);
    }
    for (int n = last; n > 0; --n) {
        snprintf(backup, sizeof backup, "%s.bak.%d", keyFile, n);
        unlink(backup);
    }
}

} // namespace

int oxtNewSegment(const char *function, const char *fnm, int cid, int size) {
    char keyFile[NAME_SIZE];
    if (static_cast<size_t>(snprintf(keyFile, sizeof keyFile, "%s%d", fnm, cid)) >= sizeof keyFile)
        return -1;
    Search search = {};
    const int id = createUnderFreeKey(function, keyFile, cid, size, &search);
    const int error = errno;
    // A key file that could not be made ends the search earlier, and has written its own exit line.
    if (id == -1 && (search.tries >= TRY_LIMIT - 1 || isRefused(search)))
        OXT_TRACE_FAIL_AS(function, "_OUT_ shmget Failure!!*[%d]", search.tries);
    removeBackups(function, keyFile);
    errno = error; // callers trace it
    return id;
}
