// The operating system as the provider sees it, replaced at link time: mount table, driver list, device nodes, free
// space, shared-memory calls, waits and the system log. What no fixture names goes to the real system.
//
// For a test program that links the rooms, and for one that loads the provider's library: link fakeSystem.cpp into the
// program and export its symbols (ENABLE_EXPORTS). Everything here may change while other threads run; nothing is
// replaced before the first FakeSystem lives and after it is gone.
#ifndef OXT_FAKE_SYSTEM_H
#define OXT_FAKE_SYSTEM_H

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

#if defined(__has_feature) // clang
#define OXT_HAS_FEATURE(feature) __has_feature(feature)
#else
#define OXT_HAS_FEATURE(feature) 0
#endif
#if defined(__SANITIZE_THREAD__) || OXT_HAS_FEATURE(thread_sanitizer)
#define OXT_UNDER_TSAN
#endif
#if defined(__SANITIZE_ADDRESS__) || OXT_HAS_FEATURE(address_sanitizer)
#define OXT_UNDER_ASAN
#endif

// What statfs(2) says of a mount point. The defaults are an empty ext file system of 1 KiB blocks.
struct FakeVolume {
    long type = 0xEF53;
    long blockSize = 1024;
    unsigned long blocks = 0;
    unsigned long available = 0; // f_bavail; f_bfree is more
    long nameLength = 255;
    int error = 0;                // not 0: statfs fails with it
    std::function<void()> during; // runs inside each statfs, without any lock held: a delay, or another client
    std::function<unsigned long()> freeMiB; // likewise: what this call answers, in place of `available`
};

enum class Call { Setmntent, Open, Shmget, Shmat, Shmdt, Shmctl, Usleep, Count };

// What the calls find; withFake() is the way to it.
struct FakeState {
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
    std::string mounts;                                       // in front of `mounted`
    std::vector<std::pair<std::string, std::string>> mounted; // directory and line
    std::string drivers;
    bool mountsMissing = false, driversMissing = false;
    std::map<std::string, Device> devices;
    std::map<std::string, FakeVolume> volumes;
    std::map<std::string, std::string> redirections;
    std::vector<Injection> injections;
    unsigned speed = 1;
    int calls[static_cast<size_t>(Call::Count)] = {};
    std::vector<unsigned> sleeps;
    std::vector<int> segments;
    std::vector<int> invented; // identifiers that shmget was made to return: nobody's segments
    std::vector<std::string> systemLog;
};

// Runs with the state locked. False, and nothing run, while no FakeSystem lives.
bool withFake(const std::function<void(FakeState &)> &action);

// One at a time. Its end removes the segments that were made in its life.
class FakeSystem {
  public:
    FakeSystem();
    ~FakeSystem();
    FakeSystem(const FakeSystem &) = delete;
    FakeSystem &operator=(const FakeSystem &) = delete;

    // A file system with its line at the end of the mount table, its block device node (major:1) and its volume.
    void addFileSystem(const std::string &device, unsigned major, const std::string &dir, const std::string &type,
                       unsigned long sizeMiB, unsigned long freeMiB);
    void removeFileSystem(const std::string &dir); // the lines that addFileSystem made, and the volume
    void addDevice(const std::string &path, mode_t format, unsigned major, unsigned minor); // S_IFBLK or S_IFCHR
    void setFree(const std::string &dir, unsigned long freeMiB);
    void setVolume(const std::string &dir, const FakeVolume &volume) {
        withFake([&](FakeState &s) { s.volumes[dir] = volume; });
    }
    FakeVolume volume(const std::string &dir) const {
        return read<FakeVolume>([&](const FakeState &s) { return s.volumes.at(dir); });
    }
    // "/etc/mtab" in front of the lines of addFileSystem, read as it stands; empty at first.
    void setMounts(const std::string &text) {
        withFake([&](FakeState &s) { s.mounts = text; });
    }
    // "/proc/devices"; at first it knows the block drivers 7 loop, 8 sd and 253 device-mapper.
    void setDrivers(const std::string &text) {
        withFake([&](FakeState &s) { s.drivers = text; });
    }
    void setMissing(bool mounts, bool drivers) { // the two files
        withFake([=](FakeState &s) { s.mountsMissing = mounts, s.driversMissing = drivers; });
    }
    // The nth call from now (1 is the next one; 0 is every call) does nothing and fails with errno; shmget then returns
    // the result.
    void inject(Call call, int nth, int error, int result = -1) {
        withFake([=](FakeState &s) { s.injections.push_back({call, nth, error, result}); });
    }
    void stopInjecting() {
        withFake([](FakeState &s) { s.injections.clear(); });
    }
    // Opening the first path opens the second in its place ("/dev/full").
    void redirectOpen(const std::string &path, const std::string &other) {
        withFake([&](FakeState &s) { s.redirections[path] = other; });
    }
    // sleep(3), usleep(3) and waits for a condition last so many times shorter.
    void speedUpWaits(unsigned factor) {
        withFake([=](FakeState &s) { s.speed = factor; });
    }

    int calls(Call call) const { // so far
        return read<int>([=](const FakeState &s) { return s.calls[static_cast<size_t>(call)]; });
    }
    std::vector<unsigned> sleeps() const { // the seconds that sleep(3) was called with
        return read<std::vector<unsigned>>([](const FakeState &s) { return s.sleeps; });
    }
    std::vector<int> segments() const { // made through shmget and not removed
        return read<std::vector<int>>([](const FakeState &s) { return s.segments; });
    }
    std::vector<std::string> systemLog() const { // of syslog(3): "<facility and priority> <text>"
        return read<std::vector<std::string>>([](const FakeState &s) { return s.systemLog; });
    }

  private:
    template <class Result> static Result read(const std::function<Result(const FakeState &)> &get) {
        Result result = {};
        withFake([&](const FakeState &s) { result = get(s); });
        return result;
    }
};

#endif
