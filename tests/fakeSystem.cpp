#include "fakeSystem.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>

#include <dlfcn.h>
#include <mntent.h>
#include <sched.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

constexpr unsigned long BLOCKS_PER_MIB = 1024; // of FakeVolume's default block size
constexpr char DRIVERS[] = "Character devices:\n  1 mem\n  5 /dev/tty\n\nBlock devices:\n"
                           "  7 loop\n  8 sd\n253 device-mapper\n\n";

struct Mounted {
    std::string dir, line;
};
struct Device {
    mode_t format;
    dev_t number;
};
struct Injection {
    Call call;
    int nth; // counts down to the call it strikes; 0 strikes every call
    int error;
    int result;
};

struct State {
    std::string mountText;
    std::string drivers = DRIVERS;
    bool mountsMissing = false;
    bool driversMissing = false;
    std::vector<Mounted> mounted;
    std::map<std::string, Device> devices;
    std::map<std::string, FakeVolume> volumes;
    std::vector<Injection> injections;
    std::map<std::string, std::string> redirections;
    unsigned speed = 1;
    int calls[static_cast<size_t>(Call::Count)] = {};
    std::vector<unsigned> sleeps;
    std::vector<int> segments;
    std::vector<std::string> log;
};

std::mutex stateMutex;
std::unique_ptr<State> state; // guarded by stateMutex; null: the real system

template <typename Function>
Function *realFunction(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

// Runs with the state locked. False, and nothing run, without a state.
template <typename Action>
bool withState(Action action) {
    const std::lock_guard<std::mutex> lock(stateMutex);
    if (state == nullptr)
        return false;
    action(*state);
    return true;
}

// Counts a call. True when it is to fail: errno is set then, and the result told.
bool struck(Call call, int *result = nullptr) {
    const Injection *found = nullptr;
    withState([&](State &s) {
        ++s.calls[static_cast<size_t>(call)];
        for (Injection &injection : s.injections) {
            if (injection.call != call || injection.nth < 0)
                continue;
            if (injection.nth > 0 && --injection.nth > 0)
                continue;
            if (injection.nth == 0 && found == nullptr)
                found = &injection;
        }
        if (found == nullptr)
            return;
        errno = found->error;
        if (result != nullptr)
            *result = found->result;
    });
    return found != nullptr;
}

// A stream over a fixture text.
FILE *openText(const std::string &text) {
    const int fd = memfd_create("fixture", MFD_CLOEXEC);
    if (fd < 0)
        return nullptr;
    for (size_t done = 0; done < text.size();) {
        const ssize_t written = write(fd, text.data() + done, text.size() - done);
        if (written <= 0) {
            close(fd);
            return nullptr;
        }
        done += static_cast<size_t>(written);
    }
    lseek(fd, 0, SEEK_SET);
    return fdopen(fd, "r");
}

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

// The functions that the provider calls, in place of the C library's.

extern "C" FILE *setmntent(const char *file, const char *mode) noexcept {
    std::string text;
    bool missing = false;
    const bool fake = strcmp(file, "/etc/mtab") == 0 && withState([&](State &s) {
                          missing = s.mountsMissing;
                          text = s.mountText;
                          for (const Mounted &mounted : s.mounted)
                              text += mounted.line;
                      });
    if (fake && struck(Call::Setmntent))
        return nullptr;
    if (fake && missing) {
        errno = ENOENT;
        return nullptr;
    }
    static const auto real = realFunction<FILE *(const char *, const char *)>("setmntent");
    return fake ? openText(text) : real(file, mode);
}

extern "C" FILE *fopen(const char *file, const char *mode) {
    std::string text, path = file;
    bool missing = false;
    const bool fake = withState([&](State &s) {
        missing = s.driversMissing;
        text = s.drivers;
        const auto redirection = s.redirections.find(path);
        if (redirection != s.redirections.end())
            path = redirection->second;
    });
    if (fake && struck(Call::Fopen))
        return nullptr;
    static const auto real = realFunction<FILE *(const char *, const char *)>("fopen");
    if (!fake || path != "/proc/devices")
        return real(path.c_str(), mode);
    if (missing) {
        errno = ENOENT;
        return nullptr;
    }
    return openText(text);
}

extern "C" int stat(const char *path, struct stat *st) noexcept {
    bool found = false;
    if (struck(Call::Stat))
        return -1;
    withState([&](State &s) {
        const auto device = s.devices.find(path);
        found = device != s.devices.end();
        if (!found)
            return;
        *st = {};
        st->st_mode = device->second.format | 0600;
        st->st_rdev = device->second.number;
    });
    static const auto real = realFunction<int(const char *, struct stat *)>("stat");
    return found ? 0 : real(path, st);
}

extern "C" int statfs(const char *path, struct statfs *st) noexcept {
    bool found = false;
    FakeVolume volume;
    if (struck(Call::Statfs))
        return -1;
    const auto look = [&](State &s) {
        const auto known = s.volumes.find(path);
        found = known != s.volumes.end();
        if (found)
            volume = known->second;
    };
    withState(look);
    if (found && volume.during) {
        volume.during();
        withState(look); // it may have changed the volume
    }
    static const auto real = realFunction<int(const char *, struct statfs *)>("statfs");
    if (!found)
        return real(path, st);
    if (volume.error != 0) {
        errno = volume.error;
        return -1;
    }
    *st = {};
    st->f_type = volume.type;
    st->f_bsize = volume.blockSize;
    st->f_blocks = volume.blocks;
    st->f_bavail = volume.available;
    st->f_bfree = volume.available + BLOCKS_PER_MIB;
    st->f_namelen = volume.nameLength;
    return 0;
}

extern "C" int shmget(key_t key, size_t size, int flags) noexcept {
    int result = -1;
    if (struck(Call::Shmget, &result))
        return result;
    static const auto real = realFunction<int(key_t, size_t, int)>("shmget");
    result = real(key, size, flags);
    if (result >= 0 && (flags & IPC_CREAT) != 0)
        withState([&](State &s) { s.segments.push_back(result); });
    return result;
}

extern "C" void *shmat(int id, const void *address, int flags) noexcept {
    static const auto real = realFunction<void *(int, const void *, int)>("shmat");
    return struck(Call::Shmat) ? reinterpret_cast<void *>(-1) : real(id, address, flags);
}

extern "C" int shmdt(const void *address) noexcept {
    static const auto real = realFunction<int(const void *)>("shmdt");
    const int result = real(address); // an injected failure must not leave it attached
    return struck(Call::Shmdt) ? -1 : result;
}

extern "C" int shmctl(int id, int command, struct shmid_ds *data) noexcept {
    static const auto real = realFunction<int(int, int, struct shmid_ds *)>("shmctl");
    bool ours = true;
    if (struck(Call::Shmctl))
        return -1;
    // Only segments made here are removed: an injected identifier may be somebody else's segment.
    const bool fake = withState([&](State &s) {
        const auto segment = std::find(s.segments.begin(), s.segments.end(), id);
        ours = segment != s.segments.end();
        if (command == IPC_RMID && ours)
            s.segments.erase(segment);
    });
    return fake && command == IPC_RMID && !ours ? 0 : real(id, command, data);
}

namespace {

// Lets the time pass, shortened. A cancellation point, so nothing is held meanwhile.
void wait(unsigned long long nanoseconds) {
    unsigned speed = 1;
    withState([&](State &s) { speed = s.speed; });
    const unsigned long long shortened = nanoseconds / speed;
    const timespec time = {static_cast<time_t>(shortened / 1'000'000'000),
                           static_cast<long>(shortened % 1'000'000'000)};
    nanosleep(&time, nullptr);
}

} // namespace

extern "C" int usleep(useconds_t microseconds) {
    struck(Call::Usleep);
    wait(microseconds * 1000ULL);
    return 0;
}

extern "C" unsigned sleep(unsigned seconds) {
    struck(Call::Sleep);
    withState([&](State &s) { s.sleeps.push_back(seconds); });
    wait(seconds * 1'000'000'000ULL);
    return 0;
}

// <syslog.h> stays out: it may define these inline.
extern "C" {
__attribute__((format(printf, 2, 3))) void syslog(int priority, const char *format, ...);
__attribute__((format(printf, 3, 4))) void __syslog_chk(int priority, int flag, const char *format, ...);
}

namespace {

__attribute__((format(printf, 1, 0))) void keepLog(const char *format, va_list arguments) {
    char text[1024];
    vsnprintf(text, sizeof text, format, arguments);
    withState([&](State &s) { s.log.emplace_back(text); });
}

} // namespace

void syslog(int, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keepLog(format, arguments);
    va_end(arguments);
}

void __syslog_chk(int, int, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keepLog(format, arguments);
    va_end(arguments);
}

FakeSystem::FakeSystem() {
    const std::lock_guard<std::mutex> lock(stateMutex);
    state = std::make_unique<State>();
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
    volume.blocks = sizeMiB * BLOCKS_PER_MIB;
    volume.available = freeMiB * BLOCKS_PER_MIB;
    setVolume(dir, volume);
    addDevice(device, S_IFBLK, major, 1);
    const std::string line = escaped(device) + " " + escaped(dir) + " " + type + " rw,relatime 0 0\n";
    withState([&](State &s) { s.mounted.push_back({dir, line}); });
}

void FakeSystem::setFree(const std::string &dir, unsigned long freeMiB) {
    withState([&](State &s) {
        FakeVolume &volume = s.volumes[dir];
        volume.available = freeMiB * 1024 * 1024 / static_cast<unsigned long>(volume.blockSize);
    });
}

void FakeSystem::setVolume(const std::string &dir, const FakeVolume &volume) {
    withState([&](State &s) { s.volumes[dir] = volume; });
}

FakeVolume FakeSystem::volume(const std::string &dir) const {
    FakeVolume volume;
    withState([&](State &s) { volume = s.volumes[dir]; });
    return volume;
}

void FakeSystem::removeFileSystem(const std::string &dir) {
    withState([&](State &s) {
        s.mounted.erase(std::remove_if(s.mounted.begin(), s.mounted.end(),
                                       [&](const Mounted &mounted) { return mounted.dir == dir; }),
                        s.mounted.end());
        s.volumes.erase(dir);
    });
}

void FakeSystem::setMounts(const std::string &text) {
    withState([&](State &s) { s.mountText = text; });
}
void FakeSystem::setDrivers(const std::string &text) {
    withState([&](State &s) { s.drivers = text; });
}
void FakeSystem::setMountsMissing(bool missing) {
    withState([&](State &s) { s.mountsMissing = missing; });
}
void FakeSystem::setDriversMissing(bool missing) {
    withState([&](State &s) { s.driversMissing = missing; });
}
void FakeSystem::addDevice(const std::string &path, mode_t format, unsigned major, unsigned minor) {
    withState([&](State &s) { s.devices[path] = {format, makedev(major, minor)}; });
}
void FakeSystem::inject(Call call, int nth, int error, int result) {
    withState([&](State &s) { s.injections.push_back({call, nth, error, result}); });
}
void FakeSystem::stopInjecting() {
    withState([&](State &s) { s.injections.clear(); });
}
void FakeSystem::redirectOpen(const std::string &path, const std::string &other) {
    withState([&](State &s) { s.redirections[path] = other; });
}
void FakeSystem::speedUpWaits(unsigned factor) {
    withState([&](State &s) { s.speed = factor; });
}

int FakeSystem::calls(Call call) const {
    int count = 0;
    withState([&](State &s) { count = s.calls[static_cast<size_t>(call)]; });
    return count;
}
std::vector<unsigned> FakeSystem::sleeps() const {
    std::vector<unsigned> seconds;
    withState([&](State &s) { seconds = s.sleeps; });
    return seconds;
}
std::vector<int> FakeSystem::segments() const {
    std::vector<int> ids;
    withState([&](State &s) { ids = s.segments; });
    return ids;
}
std::vector<std::string> FakeSystem::systemLog() const {
    std::vector<std::string> log;
    withState([&](State &s) { log = s.log; });
    return log;
}
