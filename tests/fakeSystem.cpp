#include "fakeSystem.h"

#include <algorithm>
#include <memory>

#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "agentDirectory.h"
#include "description.h"

namespace {

constexpr char kDrivers[] = "Character devices:\n  1 mem\n  5 /dev/tty\n\nBlock devices:\n"
                            "  7 loop\n  8 sd\n253 device-mapper\n\n";

} // namespace

FakeSystem::FakeSystem() {
    auto state = std::make_unique<FakeState>();
    state->drivers = kDrivers;
    oxtmachine::use(std::move(state));
}

FakeSystem::~FakeSystem() {
    stopInjecting();
    for (const int id : segments())
        shmctl(id, IPC_RMID, nullptr);
    oxtmachine::use(nullptr);
}

void FakeSystem::describe(const std::string &name) {
    const std::string text = fileContent(OXT_TEST_SOURCE_DIR "machines/" + name);
    FakeState described = oxtmachine::readMachine(text);
    withFake([&](FakeState &s) {
        s.drivers = described.drivers;
        s.mounts.insert(s.mounts.end(), described.mounts.begin(), described.mounts.end());
        s.nodes.merge(described.nodes);
        s.volumes.merge(described.volumes);
    });
}

void FakeSystem::addFileSystem(const std::string &device, unsigned major, const std::string &dir,
                               const std::string &type, unsigned long sizeMiB, unsigned long freeMiB) {
    FakeVolume volume;
    volume.type = type.compare(0, 3, "ext") == 0 ? 0xEF53 : type == "xfs" ? 0x58465342 : 0x4d44;
    volume.blocks = sizeMiB * 1024;
    volume.available = freeMiB * 1024;
    setVolume(dir, volume);
    addDevice(device, S_IFBLK, major, 1);
    withFake([&](FakeState &s) { s.mounts.push_back({device, dir, type}); });
}

void FakeSystem::removeFileSystem(const std::string &dir) {
    withFake([&](FakeState &s) {
        const auto gone = [&](const oxtmachine::Mount &mount) { return mount.dir == dir; };
        s.mounts.erase(std::remove_if(s.mounts.begin(), s.mounts.end(), gone), s.mounts.end());
        s.volumes.erase(dir);
    });
}

void FakeSystem::addDevice(const std::string &path, mode_t format, unsigned major, unsigned minor) {
    withFake([&](FakeState &s) { s.nodes[path] = {format, makedev(major, minor)}; });
}

void FakeSystem::setFree(const std::string &dir, unsigned long freeMiB) {
    withFake([&](FakeState &s) {
        FakeVolume &volume = s.volumes[dir];
        volume.available = freeMiB * 1024 * 1024 / static_cast<unsigned long>(volume.blockSize);
    });
}
