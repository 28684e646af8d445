// The calls of OXT_EXPLORED_PROVIDER that the scheduler decides about, the memory that it takes, and the agent's two
// libraries.
#include "exploredCalls.h"

#include "explorer.h"
#include "svalert.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <set>

#include <fcntl.h>
#include <malloc.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <time.h>
#include <unistd.h>

namespace explored {
namespace {

// A segment of shared memory; the system's own keys depend on what else runs on the machine.
struct Segment {
    std::unique_ptr<char[]> bytes;
    std::size_t size;
    int attached = 0;
    bool removed = false;
};

std::map<int, Segment> segments;
int lastSegment;
bool offered;
std::set<const void *> blocks; // one thread runs at a time
int libraries[2];              // times opened: trace, alert
const char *hanging;
long alertsSent;
thread_local bool *insideMark = nullptr;

// The scheduler decides before a call, which may hang.
void decide(const char *call) {
    explorer::decide(call);
    if (hanging != nullptr && strcmp(call, hanging) == 0) {
        hanging = nullptr;
        explorer::rest(40'000'000'000);
    }
}

Segment *findSegment(int id) {
    const auto found = segments.find(id);
    errno = EINVAL;
    return found != segments.end() && !found->second.removed ? &found->second : nullptr;
}

template <class T> T *keep(T *block) {
    blocks.insert(block);
    return block;
}

void forget(void *block) {
    if (blocks.erase(block) != 0)
        memset(block, 0xDD, malloc_usable_size(block)); // who reads it now is noticed
}

void use(int library) {
    explorer::decide(nullptr);
    if (libraries[library] == 0)
        explorer::broken("no library is closed under its callers");
}

void setFilePath(const char *) {
    use(0);
}
void traceLog(int, const char *, const char *, int, const char *, ...) {
    use(0);
}
int traceWanted(int) {
    use(0);
    return 1;
}
int sendIndication(Info) {
    use(1);
    ++alertsSent;
    return 0;
}

} // namespace

void reset(bool librariesOffered) {
    offered = librariesOffered;
    blocks.clear();
    segments.clear();
    libraries[0] = libraries[1] = 0;
    alertsSent = 0;
    lastSegment = 0;
}

void hangAt(const char *call) {
    hanging = call;
}

std::size_t held() {
    return blocks.size();
}

std::size_t segmentsLeft() {
    return segments.size();
}

void markInside(bool *mark) {
    insideMark = mark;
}

long alerts() {
    return alertsSent;
}

} // namespace explored

using namespace explored;

extern "C" {

void exploredAtomic() {
    explorer::decide(nullptr);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex) {
    return explorer::lock(mutex, false);
}
int __wrap_pthread_mutex_trylock(pthread_mutex_t *mutex) {
    return explorer::lock(mutex, true);
}
int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex) {
    return explorer::unlock(mutex);
}
int __wrap_pthread_cond_clockwait(pthread_cond_t *condition, pthread_mutex_t *mutex, clockid_t, const timespec *until) {
    return explorer::await(condition, mutex, until->tv_sec * 1'000'000'000LL + until->tv_nsec);
}
int __wrap_pthread_cond_broadcast(pthread_cond_t *condition) {
    explorer::wakeAll(condition);
    return 0;
}
int wrappedThreadCreate(pthread_t *id, const pthread_attr_t *, void *(*body)(void *), void *argument) {
    return explorer::create(id, body, argument);
}
int __wrap_pthread_cancel(pthread_t id) {
    return explorer::cancel(id);
}
int __wrap_pthread_tryjoin_np(pthread_t id, void **) {
    return explorer::tryJoin(id);
}
int __wrap_pthread_kill(pthread_t id, int) {
    return explorer::ask(id);
}
int __wrap_pthread_setcancelstate(int state, int *before) {
    const bool was = explorer::setCancellable(state == PTHREAD_CANCEL_ENABLE);
    if (before != nullptr)
        *before = was ? PTHREAD_CANCEL_ENABLE : PTHREAD_CANCEL_DISABLE;
    return 0;
}

int __wrap_usleep(useconds_t microseconds) {
    explorer::sleepUntil(explorer::now() + microseconds * 1000LL);
    return 0;
}
unsigned __wrap_sleep(unsigned seconds) {
    explorer::sleepUntil(explorer::now() + seconds * 1'000'000'000LL);
    return 0;
}
int __wrap_clock_gettime(clockid_t, timespec *time) {
    const long long now = explorer::now();
    *time = {now / 1'000'000'000, now % 1'000'000'000};
    return 0;
}

#define DECIDED(result, name, parameters, arguments)                                                                   \
    result __wrap_##name parameters {                                                                                  \
        decide(#name);                                                                                                 \
        return name arguments;                                                                                         \
    }
DECIDED(int, statfs, (const char *path, struct statfs *st), (path, st))
DECIDED(int, open, (const char *path, int flags, mode_t mode), (path, flags, mode))
DECIDED(int, ftruncate, (int fd, off_t size), (fd, size))

size_t __wrap_fwrite(const void *from, size_t size, size_t count, FILE *stream) {
    if (fileno(stream) >= 0) // not into memory
        decide("fwrite");
    return fwrite(from, size, count, stream);
}

key_t __wrap_ftok(const char *, int) {
    return 1;
}
int __wrap_shmget(key_t, size_t size, int) {
    decide("shmget");
    segments[++lastSegment] = {std::make_unique<char[]>(size), size};
    return lastSegment;
}
void *__wrap_shmat(int id, const void *, int) {
    decide("shmat");
    Segment *segment = findSegment(id);
    if (segment == nullptr)
        return reinterpret_cast<void *>(-1);
    ++segment->attached;
    return segment->bytes.get();
}
int __wrap_shmdt(const void *address) {
    for (auto at = segments.begin(); at != segments.end(); ++at)
        if (at->second.bytes.get() == address) {
            if (--at->second.attached == 0 && at->second.removed)
                segments.erase(at);
            return 0;
        }
    explorer::broken("whoever detaches is attached");
    return -1;
}
int __wrap_shmctl(int id, int command, shmid_ds *data) {
    decide("shmctl");
    Segment *segment = findSegment(id);
    if (segment == nullptr)
        return -1;
    if (command == IPC_STAT) {
        *data = {};
        data->shm_segsz = segment->size;
        data->shm_nattch = static_cast<shmatt_t>(segment->attached);
        data->shm_cpid = data->shm_lpid = getpid();
    } else {
        segment->removed = true;
        if (segment->attached == 0)
            segments.erase(id);
    }
    return 0;
}

void *__wrap_malloc(size_t size) {
    return keep(malloc(size));
}
void *__wrap_calloc(size_t count, size_t size) {
    return keep(calloc(count, size));
}
char *__wrap_strdup(const char *text) {
    if (insideMark != nullptr)
        *insideMark = true; // the class name is what a request asks for once it is inside
    return keep(strdup(text));
}
void *__wrap_realloc(void *block, size_t size) {
    blocks.erase(block);
    return keep(realloc(block, size));
}
void __wrap_free(void *block) {
    forget(block);
    free(block);
}

void *__wrap_dlopen(const char *path, int) {
    const int library = strstr(path, "svalert") != nullptr ? 1 : 0;
    if (offered)
        ++libraries[library];
    return offered ? &libraries[library] : nullptr;
}
void *__wrap_dlsym(void *, const char *name) {
    return strcmp(name, "TraceLog") == 0         ? reinterpret_cast<void *>(traceLog)
           : strcmp(name, "SetFilePath") == 0    ? reinterpret_cast<void *>(setFilePath)
           : strcmp(name, "TraceWanted") == 0    ? reinterpret_cast<void *>(traceWanted)
           : strcmp(name, "SendIndication") == 0 ? reinterpret_cast<void *>(sendIndication)
                                                 : nullptr;
}
int __wrap_dlclose(void *library) {
    decide("dlclose");
    --*static_cast<int *>(library);
    return 0;
}

} // extern "C"
