// What holds a mount point: the driver list, the device node and the driver's name.
#include "room.h"

#include <sys/stat.h>

namespace {

constexpr long EXT = 0xEF53, ISO9660 = 0x9660, UDF = 0x15013346;

class Device : public Room {
  protected:
    // "8=sd 9=md", or "failed".
    std::string drivers(int kind, const std::string &text) {
        system.setDrivers(text);
        DeviceInfo *list = nullptr;
        int count = -1;
        if (getDeviceInfo(kind, &list, &count) != 0)
            return "failed";
        std::string all;
        for (const DeviceInfo *entry = list; entry != nullptr; entry = entry->next, --count)
            all += (all.empty() ? "" : " ") + std::to_string(entry->major) + "=" + entry->name;
        EXPECT_EQ(count, 0) << all;
        freeDeviceInfo(&list);
        EXPECT_EQ(list, nullptr);
        return all;
    }
};

TEST_F(Device, DriverListsAreReadLineByLine) {
    const std::string head = "Block devices:\n", longName(124, 'a'), piece = "  8 " + std::string(123, 'a');
    const struct {
        std::string text, drivers;
    } rows[] = {
        {head + "  8 sd\n253 device-mapper\n\n  9 md\n", "8=sd 253=device-mapper"},
        {"Character devices:\n  1 mem\n\nxx Block devices: yy\n  8 sd\n", "8=sd"},
        {"Character devices:\n  8 sd\n", ""},
        {"block devices:\n  8 sd\n", ""},
        {head + "  8 sd", ""},            // a last line without its line feed is not used
        {head + "8\n  9 md\n", ""},       // shorter than 3 characters: the end of the section
        {head + "  8\n  9 md\n", "9=md"}, // no name
        {head + "8sd\n-9 md extra\n  7\tloop\r\n", "8=sd -9=md 7=loop"},
        {head + "99999999999 sd\n  9 md\n", "9=md"},
        {head + "  8 " + std::string(200, 'a') + "\n  9 md\n", "8=" + std::string(123, 'a') + " 9=md"},
        {head + piece + "7 zz\n", "8=" + std::string(123, 'a') + " 7=zz"}, // lines are cut at 127 characters
        {head + piece + "\n  9 md\n", "8=" + std::string(123, 'a')},       // the rest is an empty line
        {head + piece, "8=" + std::string(123, 'a')},                      // full before the end was seen
    };
    for (const auto &row : rows)
        EXPECT_EQ(drivers(OXT_DRIVER_BLOCK, row.text), row.drivers) << row.text;
    EXPECT_EQ(drivers(OXT_DRIVER_CHARACTER, "Character devices:\n  1 mem\n\nBlock devices:\n  8 sd\n"), "1=mem");
    EXPECT_EQ(drivers(2, head + "  8 sd\n"), "failed");
    system.setMissing(false, true);
    trace.clear();
    EXPECT_EQ(drivers(OXT_DRIVER_BLOCK, ""), "failed");
    EXPECT_THAT(trace.failures(), ElementsAre("_OUT_ fopen(/proc/devices) Failure!!(-1)"));
}

TEST_F(Device, TheDriversNameDecides) {
    const struct {
        const char *driver, *device;
        long fileSystem;
        int type;
    } rows[] = {
        {"sd", "/dev/sda", EXT, 0},       {"sd", "/dev/sda", ISO9660, 2},         {"sd", "/dev/sda", UDF, 2},
        {"sr", "/dev/sr0", UDF, 2},       {"ide0", "/dev/hda", EXT, 0},           {"s", "/dev/sda", EXT, -1},
        {"SD", "/dev/sda", EXT, -1},      {"blkext", "/dev/nvme0", EXT, 0},       {"blkext", "/dev/nvme0", ISO9660, 2},
        {"blkext", "/dev/xvda", EXT, -1}, {"blkext", "/nvme/dev", EXT, -1},       {"nvme", "/dev/nvme0", EXT, -1},
        {"rd", "/dev/rd0", ISO9660, 0},   {"md", "/dev/md0", ISO9660, 0},         {"dd", "/dev/dd", EXT, 0},
        {"dac960", "/dev/rd/c0", EXT, 0}, {"DAC960", "/dev/rd/c0", EXT, 0},       {"Dac960", "/dev/rd/c0", EXT, -1},
        {"virtblk", "/dev/vda", UDF, 0},  {"device-mapper", "/dev/dm-0", UDF, 0}, {"fd", "/dev/fd0", ISO9660, 1},
        {"ramdisk", "/dev/ram0", EXT, 3}, {"loop", "/dev/loop0", EXT, -1},
    };
    for (const auto &row : rows) {
        FakeVolume volume;
        volume.type = row.fileSystem;
        system.setVolume("/m", volume);
        system.setDrivers("Block devices:\n  7 sd\n  8 " + std::string(row.driver) + "\n  8 fd\n\n");
        EXPECT_EQ(getDevType(8, "/m", OXT_DRIVER_BLOCK, row.device), row.type) << row.driver << " " << row.device;
        EXPECT_EQ(getDevType(9, "/m", OXT_DRIVER_BLOCK, row.device), -1);
        EXPECT_EQ(getDevType(8, "/m", OXT_DRIVER_CHARACTER, row.device), -1);
    }
    FakeVolume broken;
    broken.type = ISO9660;
    broken.error = EIO;
    system.setVolume("/m", broken);
    EXPECT_EQ(getDevType(7, "/m", OXT_DRIVER_BLOCK, "/dev/sda"), 0) << "an unreadable file system is no optical one";
}

TEST_F(Device, DriveTypeOfAMountPoint) {
    const std::string longDevice = "/dev/" + std::string(300, 'x');
    system.setDrivers("Character devices:\n  8 fd\n 11 sr\n\nBlock devices:\n  2 fd\n  8 sd\n  9 md\n\n");
    system.addDevice("/dev/sda1", S_IFBLK, 8, 1);
    system.addDevice("/dev/fd0", S_IFBLK, 2, 0);
    system.addDevice("/dev/chr", S_IFCHR, 11, 0);
    system.addDevice("/dev/wide", S_IFBLK, 0x1000 + 9, 0x12345);
    system.addDevice(longDevice, S_IFBLK, 9, 0);
    system.setVolume("/m", {});
    const struct {
        std::string mounts;
        int type;
    } rows[] = {
        {"/dev/sda1 /m ext4 rw 0 0\n", 0},
        {"/dev/sda1 /M ext4 rw 0 0\n/dev/sda1 /m/ ext4 rw 0 0\n", -1},
        {"/dev/fd0 /m vfat\n/dev/sda1 /m ext4\n", 1}, // the first entry decides
        {"/dev/fd0 /m ecryptfs\n/dev/fd0 /m rootfs\n/dev/fd0 /m Root\n/dev/fd0 /m e\n/dev/sda1 /m ext4\n", 0},
        {"/dev/fd0 /m\n", -1}, // an empty type is a layered one too
        {"/dev/rootvg /m ext4\n", 0},
        {"/dev/chr /m ext4\n", 0},  // a character device is looked up among its kind
        {"/dev/wide /m ext4\n", 0}, // twelve bits of the major number
        {"/dev/gone /m ext4\n", -1},
        {"tmpfs /m tmpfs\n", -1},
        {"/ /m ext4\n", -1}, // no device node: major number 0
        {longDevice + " /m ext4\n", -1},
        {"", -1},
    };
    for (const auto &row : rows) {
        system.setMounts(row.mounts);
        EXPECT_EQ(getDriveType("/m"), row.type) << row.mounts;
        EXPECT_EQ(silently([] { return getDriveType("/m"); }), row.type) << row.mounts;
    }
    system.setMounts("/dev/root /m ext4\n");
    system.setMissing(false, true);
    EXPECT_EQ(getDriveType("/m"), 0) << "needs no driver list";
    system.setMissing(true, false);
    EXPECT_EQ(getDriveType("/m"), -1);
    EXPECT_EQ(getDriveType(nullptr), -1);
}

TEST_F(Device, NamesFitTheirBuffers) {
    system.setMounts(std::string(400, 'd') + " /m " + std::string(40, 't') + "\n");
    char device[256], type[11];
    memset(device, '#', sizeof device);
    memset(type, '#', sizeof type);
    EXPECT_EQ(getDevName(device, type, "/m"), 0);
    EXPECT_EQ(std::string(device, sizeof device), std::string(254, 'd') + '\0' + "#");
    EXPECT_EQ(std::string(type, sizeof type), std::string(9, 't') + '\0' + "#");
}

// Tracing may begin in the middle of a snapshot: the watch thread binds the trace library at its start.
TEST_F(Device, TracingThatBeginsInASnapshotLosesNothing) {
    system.addFileSystem("/dev/sda1", 8, "/m", "ext4", 100, 50);
    FsSystem reading;
    fsSystemRead(&reading);
    EXPECT_EQ(silently([&] { return getDriveType("/m", &reading); }), 0);
    trace.clear();
    EXPECT_EQ(getDriveType("/m", &reading), 0);
    // Each driver that was read for this look is freed by it.
    int read = 0, freed = 0;
    for (const TraceLine &line : trace.lines()) {
        read += line.function == "getDeviceInfo" && line.text.rfind("Major=", 0) == 0 ? 1 : 0;
        freed += line.function == "freeDeviceInfo" && line.text.rfind("memfree", 0) == 0 ? 1 : 0;
    }
    EXPECT_EQ(read, freed);
    fsSystemFree(&reading);
}

} // namespace
