#include "fakeSystem.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>

#include <dlfcn.h>
#include <fcntl.h>
#include <mntent.h>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

constexpr char DRIVERS[] = "Character devices:\n  1 mem\n  5 /dev/tty\n\nBlock devices:\n"
                           "  7 loop\n  8 sd\n253 device-mapper\n\n";

std::mutex stateMutex;
std::unique_ptr<FakeState> state; // guarded by stateMutex; null: the real system

// A field of the mount table, as the kernel escapes it.
std::string escaped(const std::string &field) {
    std::string text;
    for (const char c : field) {
        char octal[8];
        snprintf(octal, sizeof octal, "\\%03o", static_cast<unsigned>(static_cast<unsigned char>(c)));
        text += strchr(" \t\n\\", c) != nullptr ? std::string(octal) : std::string(1, c);
    }
    return text;
}

} // namespace

bool withFake(const std::function<void(FakeState &)> &action) {
    const std::lock_guard<std::mutex> lock(stateMutex);
    if (state == nullptr)
        return false;
    action(*state);
    return true;
}

FakeSystem::FakeSystem() {
    const std::lock_guard<std::mutex> lock(stateMutex);
    state = std::make_unique<FakeState>();
    state->drivers = DRIVERS;
}

FakeSystem::~FakeSystem() {
    stopInjecting();
    for (const int id : segments())
        shmctl(id, IPC_RMID, nullptr);
    const std::lock_guard<std::mutex> lock(stateMutex);
    state.reset();
}

void FakeSystem::addFileSystem(const std::string &device, unsigned major, const std::string &dir,
                               const std::string &type, unsigned long sizeMiB, unsigned long freeMiB) {
    FakeVolume volume;
    volume.type = type.compare(0, 3, "ext") == 0 ? 0xEF53 : type == "xfs" ? 0x58465342 : 0x4d44;
    volume.blocks = sizeMiB * 1024;
    volume.available = freeMiB * 1024;
    setVolume(dir, volume);
    addDevice(device, S_IFBLK, major, 1);
    const std::string line = escaped(device) + " " + escaped(dir) + " " + type + " rw,relatime 0 0\n";
    withFake([&](FakeState &s) { s.mounted.emplace_back(dir, line); });
}

void FakeSystem::removeFileSystem(const std::string &dir) {
    withFake([&](FakeState &s) {
        const auto gone = [&](const auto &mounted) { return mounted.first == dir; };
        s.mounted.erase(std::remove_if(s.mounted.begin(), s.mounted.end(), gone), s.mounted.end());
        s.volumes.erase(dir);
    });
}

void FakeSystem::addDevice(const std::string &path, mode_t format, unsigned major, unsigned minor) {
    withFake([&](FakeState &s) { s.devices[path] = {format, makedev(major, minor)}; });
}

void FakeSystem::setFree(const std::string &dir, unsigned long freeMiB) {
    withFake([&](FakeState &s) {
        FakeVolume &volume = s.volumes[dir];
        volume.available = freeMiB * 1024 * 1024 / static_cast<unsigned long>(volume.blockSize);
    });
}

namespace {

template <class Function> Function *realFunction(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

// Counts a call. True when it is to fail: errno is set then, and the result told.
bool struck(Call call, int *result = nullptr) {
    bool found = false;
    withFake([&](FakeState &s) {
        ++s.calls[static_cast<size_t>(call)];
        for (FakeState::Injection &injection : s.injections) {
            if (injection.call != call || injection.nth < 0)
                continue;
            const bool counted = injection.nth > 0;
            if (counted && --injection.nth > 0)
                continue;
            if (counted)
                injection.nth = -1; // spent
            found = true;
            errno = injection.error;
            if (result != nullptr)
                *result = injection.result;
        }
    });
    return found;
}

// A stream over a fixture text; null with ENOENT when it is missing.
FILE *openText(const std::string &text, bool missing) {
    if (missing) {
        errno = ENOENT;
        return nullptr;
    }
    const int fd = memfd_create("fixture", MFD_CLOEXEC); // which takes all in one write
    if (fd < 0 || pwrite(fd, text.data(), text.size(), 0) < 0)
        return nullptr;
    return fdopen(fd, "r");
}

std::string redirected(const char *path) {
    std::string to = path;
    withFake([&](const FakeState &s) { to = s.redirections.count(to) != 0 ? s.redirections.at(to) : to; });
    return to;
}

// Lets the time pass, shortened. A cancellation point between short naps: ThreadSanitizer overlooks the locks that a
// thread takes once it was cancelled inside a call that it watches.
void wait(unsigned long long nanoseconds) {
    constexpr unsigned long long NAP = 1'000'000;
    withFake([&](const FakeState &s) { nanoseconds /= s.speed; });
    for (unsigned long long passed = 0; passed < nanoseconds; passed += NAP) {
        const timespec time = {0, static_cast<long>(std::min(nanoseconds - passed, NAP - 1))};
        int before = 0;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
        nanosleep(&time, nullptr);
        pthread_setcancelstate(before, nullptr);
        pthread_testcancel();
    }
}

} // namespace

// The functions that the provider calls, in place of the C library's.

extern "C" FILE *setmntent(const char *file, const char *mode) noexcept {
    static const auto real = realFunction<FILE *(const char *, const char *)>("setmntent");
    std::string text;
    bool missing = false;
    const bool fake = strcmp(file, "/etc/mtab") == 0 && withFake([&](const FakeState &s) {
                          missing = s.mountsMissing;
                          text = s.mounts;
                          for (const auto &[dir, line] : s.mounted)
                              text += line;
                      });
    if (!fake)
        return real(file, mode);
    return struck(Call::Setmntent) ? nullptr : openText(text, missing);
}

// ThreadSanitizer does not see the C library's own closing in it: the descriptor's next user would race with its last.
extern "C" int endmntent(FILE *stream) noexcept {
    fclose(stream);
    return 1;
}

extern "C" FILE *fopen(const char *file, const char *mode) {
    static const auto real = realFunction<FILE *(const char *, const char *)>("fopen");
    std::string text;
    bool missing = false;
    const bool fake = strcmp(file, "/proc/devices") == 0 && withFake([&](const FakeState &s) {
                          missing = s.driversMissing;
                          text = s.drivers;
                      });
    return fake ? openText(text, missing) : real(redirected(file).c_str(), mode);
}

extern "C" int open(const char *file, int flags, ...) {
    static const auto real = realFunction<int(const char *, int, ...)>("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    // Data of the agent only: a sanitizer opens programs in the midst of a report, and a second one would wait for it.
    if (strncmp(file, OXT_AGENT_DIR "data/", sizeof OXT_AGENT_DIR "data/" - 1) != 0)
        return real(file, flags, mode);
    return struck(Call::Open) ? -1 : real(redirected(file).c_str(), flags, mode);
}

extern "C" int stat(const char *path, struct stat *st) noexcept {
    static const auto real = realFunction<int(const char *, struct stat *)>("stat");
    bool found = false;
    withFake([&](FakeState &s) {
        found = s.devices.count(path) != 0;
        *st = {};
        st->st_mode = found ? s.devices[path].format | 0600 : 0;
        st->st_rdev = found ? s.devices[path].number : 0;
    });
    return found ? 0 : real(path, st);
}

extern "C" int statfs(const char *path, struct statfs *st) noexcept {
    static const auto real = realFunction<int(const char *, struct statfs *)>("statfs");
    bool found = false;
    FakeVolume volume;
    const auto look = [&](const FakeState &s) {
        const auto known = s.volumes.find(path);
        found = known != s.volumes.end();
        volume = found ? known->second : FakeVolume{};
    };
    withFake(look);
    if (volume.during) {
        volume.during();
        withFake(look); // it may have changed the volume
    }
    if (!found)
        return real(path, st);
    if (volume.error != 0) {
        errno = volume.error;
        return -1;
    }
    if (volume.freeMiB)
        volume.available = volume.freeMiB() * 1024 * 1024 / static_cast<unsigned long>(volume.blockSize);
    *st = {};
    st->f_type = volume.type;
    st->f_bsize = volume.blockSize;
    st->f_blocks = volume.blocks;
    st->f_bavail = volume.available;
    st->f_bfree = volume.available + 100'000;
    st->f_namelen = volume.nameLength;
    return 0;
}

extern "C" int shmget(key_t key, size_t size, int flags) noexcept {
    static const auto real = realFunction<int(key_t, size_t, int)>("shmget");
    int result = -1;
    if (struck(Call::Shmget, &result)) {
        withFake([&](FakeState &s) { s.invented.push_back(result); });
        return result;
    }
    result = real(key, size, flags);
    if (result >= 0 && (flags & IPC_CREAT) != 0)
        withFake([&](FakeState &s) { s.segments.push_back(result); });
    return result;
}

extern "C" void *shmat(int id, const void *address, int flags) noexcept {
    static const auto real = realFunction<void *(int, const void *, int)>("shmat");
    return struck(Call::Shmat) ? reinterpret_cast<void *>(-1) : real(id, address, flags);
}

extern "C" int shmdt(const void *address) noexcept {
    static const auto real = realFunction<int(const void *)>("shmdt");
    const int result = real(address); // also before a failure: it must not stay attached
    return struck(Call::Shmdt) ? -1 : result;
}

extern "C" int shmctl(int id, int command, struct shmid_ds *data) noexcept {
    static const auto real = realFunction<int(int, int, struct shmid_ds *)>("shmctl");
    bool invented = false;
    if (struck(Call::Shmctl))
        return -1;
    withFake([&](FakeState &s) {
        invented = std::find(s.invented.begin(), s.invented.end(), id) != s.invented.end();
        if (command == IPC_RMID && !invented)
            s.segments.erase(std::remove(s.segments.begin(), s.segments.end(), id), s.segments.end());
    });
    return invented ? 0 : real(id, command, data);
}

extern "C" int usleep(useconds_t microseconds) {
    struck(Call::Usleep);
    wait(microseconds * 1000ULL);
    return 0;
}

// Ends the wait sooner: the provider takes that for the end of its time. What it waits for still has to have a chance,
// on a busy machine too.
extern "C" int pthread_cond_clockwait(pthread_cond_t *condition, pthread_mutex_t *mutex, clockid_t clock,
                                      const timespec *until) {
    static const auto real =
        realFunction<int(pthread_cond_t *, pthread_mutex_t *, clockid_t, const timespec *)>("pthread_cond_clockwait");
    timespec now = {};
    clock_gettime(clock, &now);
    constexpr long long SECOND = 1'000'000'000;
    long long left = (until->tv_sec - now.tv_sec) * SECOND + until->tv_nsec - now.tv_nsec;
    withFake([&](const FakeState &s) { left /= std::min(s.speed, 100U); });
    const long long end = now.tv_sec * SECOND + now.tv_nsec + left;
    const timespec sooner = {end / SECOND, end % SECOND};
    return real(condition, mutex, clock, &sooner);
}

extern "C" unsigned sleep(unsigned seconds) {
    withFake([&](FakeState &s) { s.sleeps.push_back(seconds); });
    wait(seconds * 1'000'000'000ULL);
    return 0;
}

// <syslog.h> stays out: it may define these inline.
extern "C" {
__attribute__((format(printf, 2, 3))) void syslog(int priority, const char *format, ...);
__attribute__((format(printf, 3, 4))) void __syslog_chk(int priority, int flag, const char *format, ...);
}

namespace {

__attribute__((format(printf, 2, 0))) void keepLog(int priority, const char *format, va_list arguments) {
    char text[4096];
    vsnprintf(text, sizeof text, format, arguments);
    withFake([&](FakeState &s) { s.systemLog.push_back(std::to_string(priority) + " " + text); });
}

} // namespace

void syslog(int priority, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keepLog(priority, format, arguments);
    va_end(arguments);
}

void __syslog_chk(int priority, int, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keepLog(priority, format, arguments);
    va_end(arguments);
}
