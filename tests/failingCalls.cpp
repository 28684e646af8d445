#include "failingCalls.h"

#include "svalert.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include <dlfcn.h>
#include <fcntl.h>
#include <mntent.h>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace failing {
namespace {

std::mutex lock; // guards all of the following
long left;       // calls until one fails; 0: none does, below: so many of the next ones do
Mode manner;
bool looking; // the provider is at its inventory
Struck struck;
std::multimap<const void *, const char *> taken;
std::map<FILE *, char **> texts; // of the memory streams
std::set<FILE *> broken;         // streams whose error indicator is set
std::set<std::string> alerts;
bool agentOffered;

enum Stand { GONE, STANDING, GOING };
std::atomic<Stand> stand{GONE}; // of the watch thread

bool isOneOf(const char *call, std::initializer_list<const char *> names) {
    for (const char *name : names)
        if (strcmp(call, name) == 0)
            return true;
    return false;
}

// Counts a call. True when it is to fail: errno is set then.
bool strikes(const char *call, int error) {
    const std::lock_guard<std::mutex> guard(lock);
    if (isOneOf(call, {"setmntent", "pthread_mutex_trylock", "open", "shmat", "shmget"}))
        looking = strcmp(call, "setmntent") == 0;
    const bool again = manner == FOREVER && struck.calls.count(call) != 0;
    if (left > 0 ? --left > 0 : left == 0 && (!again || isOneOf(call, {"pthread_mutex_trylock"})))
        return false;
    left = left < 0 ? left + 1 : manner == THRICE ? -2 : 0;
    ++struck.calls[call];
    struck.discovery = struck.discovery || looking;
    errno = error;
    return true;
}

template <class T> T *keep(const char *call, T *made) {
    const std::lock_guard<std::mutex> guard(lock);
    if (made != nullptr)
        taken.emplace(made, call);
    return made;
}

const char *drop(const void *made) { // the call that took it
    const std::lock_guard<std::mutex> guard(lock);
    const auto found = taken.find(made);
    const char *call = found != taken.end() ? found->second : "";
    if (found != taken.end())
        taken.erase(found);
    return call;
}

const void *descriptor(int fd) {
    return reinterpret_cast<const void *>(static_cast<intptr_t>(fd) + 1);
}

bool strikes(const char *call, int error, FILE *stream) {
    const bool is = strikes(call, error);
    const std::lock_guard<std::mutex> guard(lock);
    if (is)
        broken.insert(stream);
    return is;
}

// As fakeSystem waits: a cancellation point between naps that ThreadSanitizer does not look into.
void standStill() {
    for (stand = STANDING; stand == STANDING;) {
        const timespec nap = {0, 50'000};
        int before = 0;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
        nanosleep(&nap, nullptr);
        pthread_setcancelstate(before, nullptr);
        pthread_testcancel();
    }
}

void *(*threadBody)(void *);
void *fromTheStart(void *argument) {
    standStill();
    return threadBody(argument);
}

// The agent's libraries.
int sendIndication(Info alert) {
    std::string text = std::to_string(alert.eventID);
    for (int i = 0; i < alert.numOfStrings; ++i)
        text += std::string(" ") + alert.strings[i];
    const std::lock_guard<std::mutex> guard(lock);
    alerts.insert(text);
    return 0;
}
void setFilePath(const char *) {}
__attribute__((format(printf, 5, 6))) void traceLog(int, const char *, const char *, int, const char *format, ...) {
    char line[8192];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
}

} // namespace

void arm(long nth, Mode how) {
    const std::lock_guard<std::mutex> guard(lock);
    left = nth;
    manner = how;
    looking = false;
    struck = {};
}

Struck disarm() {
    const std::lock_guard<std::mutex> guard(lock);
    left = 0;
    manner = ONCE;
    return struck;
}

void begin(bool offered) {
    const std::lock_guard<std::mutex> guard(lock);
    agentOffered = offered;
    taken.clear();
    texts.clear();
    broken.clear();
    alerts.clear();
}

std::multiset<std::string> held() {
    const std::lock_guard<std::mutex> guard(lock);
    std::multiset<std::string> names;
    for (const auto &[made, call] : taken)
        names.insert(call);
    return names;
}

bool pass() {
    const auto stands = [] {
        for (int i = 0; i < 200'000 && stand != STANDING; ++i)
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        return stand == STANDING;
    };
    if (!stands())
        return false;
    stand = GOING;
    return stands();
}

std::set<std::string> takeAlerts() {
    const std::lock_guard<std::mutex> guard(lock);
    return std::move(alerts);
}

} // namespace failing

using namespace failing;

// Calls that fail without having done anything; of the second kind, the provider owns the result.
#define FAILS(result, name, parameters, arguments, error, failure)                                                     \
    extern "C" result __wrap_##name parameters {                                                                       \
        return strikes(#name, error) ? failure : name arguments;                                                       \
    }
#define MAKES(result, name, parameters, arguments, error)                                                              \
    extern "C" result *__wrap_##name parameters {                                                                      \
        return strikes(#name, error) ? nullptr : keep(#name, name arguments);                                          \
    }
MAKES(void, malloc, (size_t size), (size), ENOMEM)
MAKES(void, calloc, (size_t count, size_t size), (count, size), ENOMEM)
MAKES(char, strdup, (const char *text), (text), ENOMEM)
MAKES(FILE, fopen, (const char *path, const char *mode), (path, mode), EMFILE)
MAKES(FILE, fmemopen, (void *text, size_t size, const char *mode), (text, size, mode), ENOMEM)
MAKES(FILE, setmntent, (const char *path, const char *mode), (path, mode), EMFILE)
FAILS(int, fflush, (FILE * stream), (stream), ENOSPC, EOF)
FAILS(int, ftruncate, (int fd, off_t size), (fd, size), EIO, -1)
FAILS(int, stat, (const char *path, struct stat *st), (path, st), EACCES, -1)
FAILS(int, statfs, (const char *path, struct statfs *st), (path, st), EIO, -1)
FAILS(int, shmget, (key_t key, size_t size, int flags), (key, size, flags), ENOSPC, -1)
FAILS(int, shmctl, (int id, int command, shmid_ds *data), (id, command, data), EPERM, -1)
FAILS(key_t, ftok, (const char *path, int project), (path, project), ENOENT, -1)
FAILS(int, rename, (const char *from, const char *to), (from, to), EACCES, -1)

extern "C" {

size_t __wrap_fread(void *to, size_t size, size_t count, FILE *stream) {
    return strikes("fread", EIO, stream) ? 0 : fread(to, size, count, stream);
}

size_t __wrap_fwrite(const void *from, size_t size, size_t count, FILE *stream) {
    return strikes("fwrite", ENOSPC, stream) ? 0 : fwrite(from, size, count, stream);
}

int __wrap_ferror(FILE *stream) {
    const std::lock_guard<std::mutex> guard(lock);
    return broken.count(stream) != 0 ? 1 : ferror(stream);
}

void *__wrap_realloc(void *block, size_t size) {
    if (strikes("realloc", ENOMEM))
        return nullptr;
    drop(block);
    return keep("realloc", realloc(block, size));
}

void __wrap_free(void *block) {
    drop(block);
    free(block);
}

int __wrap_open(const char *path, int flags, mode_t mode) {
    const int fd = strikes("open", EMFILE) ? -1 : open(path, flags, mode);
    if (fd >= 0)
        keep("open", descriptor(fd));
    return fd;
}

int __wrap_close(int fd) {
    drop(descriptor(fd));
    return close(fd);
}

FILE *__wrap_fdopen(int fd, const char *mode) {
    FILE *stream = strikes("fdopen", ENOMEM) ? nullptr : keep("fdopen", fdopen(fd, mode));
    if (stream != nullptr)
        drop(descriptor(fd));
    return stream;
}

FILE *__wrap_open_memstream(char **text, size_t *size) {
    FILE *stream = strikes("open_memstream", ENOMEM) ? nullptr : keep("open_memstream", open_memstream(text, size));
    const std::lock_guard<std::mutex> guard(lock);
    texts[stream] = text;
    return stream;
}

// Closed, whatever it answers; a memory stream's text is then the provider's.
int __wrap_fclose(FILE *stream) {
    char **text = nullptr;
    {
        const std::lock_guard<std::mutex> guard(lock);
        const auto found = texts.find(stream);
        if (found != texts.end()) {
            text = found->second;
            texts.erase(found);
        }
        broken.erase(stream);
    }
    drop(stream);
    const int ret = fclose(stream);
    if (text != nullptr)
        keep("open_memstream", *text);
    return strikes("fclose", ENOSPC) ? EOF : ret;
}

int __wrap_endmntent(FILE *stream) {
    drop(stream);
    return endmntent(stream);
}

void *__wrap_shmat(int id, const void *where, int flags) {
    void *none = reinterpret_cast<void *>(-1);
    void *address = strikes("shmat", ENOMEM) ? none : shmat(id, where, flags);
    return address != none ? keep("shmat", address) : none;
}

int __wrap_shmdt(const void *address) {
    drop(address);
    const int ret = shmdt(address);
    return strikes("shmdt", EINVAL) ? -1 : ret;
}

int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex) {
    const int ret = pthread_mutex_lock(mutex);
    keep("lock", mutex);
    return ret;
}

int __wrap_pthread_mutex_trylock(pthread_mutex_t *mutex) {
    const int ret = strikes("pthread_mutex_trylock", EINVAL) ? EINVAL : pthread_mutex_trylock(mutex);
    if (ret == 0)
        keep("trylock", mutex);
    return ret;
}

// Unlocked, whatever it answers. Who waits for a lock without end does not ask.
int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex) {
    const bool asks = strcmp(drop(mutex), "trylock") == 0;
    const int ret = pthread_mutex_unlock(mutex);
    return asks && strikes("pthread_mutex_unlock", EPERM) ? EPERM : ret;
}

int wrappedThreadCreate(pthread_t *id, const pthread_attr_t *attributes, void *(*body)(void *), void *argument) {
    if (strikes("pthread_create", EAGAIN))
        return EAGAIN;
    stand = GONE;
    threadBody = body;
    const int ret = pthread_create(id, attributes, fromTheStart, argument);
    if (ret == 0)
        keep("thread", reinterpret_cast<void *>(*id));
    return ret;
}

int __wrap_pthread_tryjoin_np(pthread_t id, void **value) {
    const int ret = pthread_tryjoin_np(id, value);
    if (ret == 0)
        drop(reinterpret_cast<void *>(id));
    return ret;
}

unsigned __wrap_sleep(unsigned) {
    standStill();
    return 0;
}

void *__wrap_dlopen(const char *path, int) {
    return strikes("dlopen", 0) || !agentOffered ? nullptr : const_cast<char *>(strstr(path, "svalert") ? "a" : "t");
}

void *__wrap_dlsym(void *, const char *name) {
    if (strikes("dlsym", 0))
        return nullptr;
    return strcmp(name, "TraceLog") == 0         ? reinterpret_cast<void *>(traceLog)
           : strcmp(name, "SetFilePath") == 0    ? reinterpret_cast<void *>(setFilePath)
           : strcmp(name, "SendIndication") == 0 ? reinterpret_cast<void *>(sendIndication)
                                                 : nullptr;
}

int __wrap_dlclose(void *) {
    return strikes("dlclose", 0) ? -1 : 0;
}

} // extern "C"
