// The operating system as the provider sees it, replaced at link time by a machine (machine/): mount table, driver
// list, device nodes, free space, shared-memory calls, waits and the system log. What no fixture names goes to the real
// system.
//
// For a test program that links the rooms, and for one that loads the provider's library: link fakeSystem.cpp and
// oxt_machine_calls into the program and export its symbols (ENABLE_EXPORTS). Everything here may change while other
// threads run; nothing is replaced before the first FakeSystem lives and after it is gone.
#ifndef OXT_FAKE_SYSTEM_H
#define OXT_FAKE_SYSTEM_H

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "machine.h"

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

using FakeVolume = oxtmachine::Volume;
using FakeState = oxtmachine::Machine;
using oxtmachine::Call;

// Runs with the state locked. False, and nothing run, while no FakeSystem lives.
inline bool withFake(const std::function<void(FakeState &)> &action) {
    return oxtmachine::withMachine(action);
}

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
    // The machine of a file of tests/machines, and what was made before.
    void describe(const std::string &name);
    // "/etc/mtab" in front of the lines of addFileSystem, read as it stands; empty at first.
    void setMounts(const std::string &text) {
        withFake([&](FakeState &s) { s.mountText = text; });
    }
    // "/proc/devices"; at first it knows the block drivers 7 loop, 8 sd and 253 device-mapper.
    void setDrivers(const std::string &text) {
        withFake([&](FakeState &s) { s.drivers = text; });
    }
    void setMissing(bool mounts, bool drivers) { // the two files
        withFake([=](FakeState &s) { s.mountsError = mounts ? ENOENT : 0, s.driversError = drivers ? ENOENT : 0; });
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
