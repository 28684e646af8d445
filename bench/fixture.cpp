#include "fixture.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "machine.h"

namespace {

constexpr char kDrivers[] = "drivers"; // the disk driver is the first of two
std::string g_mounts = "/etc/mtab";
std::string g_devices = "/proc/devices";

std::string numbered(const char *prefix, int i) {
    char name[32];
    std::snprintf(name, sizeof name, "%s%04d", prefix, i);
    return name;
}

bool failed(const std::string &what) {
    std::fprintf(stderr, "%s: %s\n", what.c_str(), std::strerror(errno));
    return false;
}

bool makeOne(int i) {
    const std::string mount = numbered("mount-", i), device = numbered("device-", i);
    if (mkdir(mount.c_str(), 0755) != 0 && errno != EEXIST)
        return failed(mount);
    if (symlink("/dev/null", device.c_str()) != 0 && errno != EEXIST)
        return failed(device);
    return true;
}

} // namespace

namespace bench {

bool makeFixture(const std::string &directory, int most) {
    if (mkdir(directory.c_str(), 0755) != 0 && errno != EEXIST)
        return failed(directory);
    if (chdir(directory.c_str()) != 0)
        return failed(directory);
    for (int i = 1; i <= most; ++i)
        if (!makeOne(i))
            return false;
    std::ofstream(kDrivers) << "Character devices:\n  1 sd\n  5 tty\n\nBlock devices:\n  7 loop\n253 virtblk\n\n";
    return true;
}

void useFileSystems(int n) {
    g_mounts = n > 0 ? numbered("table-", n) : "/etc/mtab";
    g_devices = n > 0 ? kDrivers : "/proc/devices";
    auto machine = std::make_unique<oxtmachine::Machine>();
    machine->redirections = {{"/etc/mtab", g_mounts}, {"/proc/devices", g_devices}};
    oxtmachine::use(n > 0 ? std::move(machine) : nullptr);
    std::ofstream table;
    if (n > 0)
        table.open(g_mounts);
    for (int i = 1; i <= n; ++i)
        table << numbered("device-", i) << ' ' << numbered("mount-", i) << " ext4 rw,relatime 0 0\n";
}

const std::string &mountTablePath() {
    return g_mounts;
}
const std::string &driverListPath() {
    return g_devices;
}

} // namespace bench
