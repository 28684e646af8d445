// What holds a mount point: the driver list, the device node and the driver's name.
#include "golden.h"
#include "room.h"

#include <functional>
#include <iomanip>
#include <map>
#include <regex>

#include <sys/stat.h>

namespace {

class Device : public Room {
  protected:
    // "8=sd 9=md", "none" or "failed".
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
        return all.empty() ? "none" : all;
    }
    // What lies on "/m".
    void setKind(long kind) {
        FakeVolume volume;
        volume.type = kind;
        system.setVolume("/m", volume);
    }
    void mountDevices(const std::string &mounts) {
        system.setDrivers("Character devices:\n  8 fd\n 11 sr\n\nBlock devices:\n  2 fd\n  8 sd\n  9 md\n\n");
        system.addDevice("/dev/sda1", S_IFBLK, 8, 1);
        system.addDevice("/dev/fd0", S_IFBLK, 2, 0);
        system.addDevice("/dev/chr", S_IFCHR, 11, 0);
        system.addDevice("/dev/wide", S_IFBLK, 0x1000 + 9, 0x12345);
        system.addDevice("/dev/" + std::string(300, 'x'), S_IFBLK, 9, 0);
        setKind(0xEF53);
        system.setMounts(mounts);
    }
    // The next word or quoted text of a golden file's line.
    static std::string textOf(std::istream &in) {
        std::string text;
        in >> std::quoted(text, '"', '\0');
        for (const auto &[written, meant] : {std::pair(R"(\\n)", "\n"), {R"(\\t)", "\t"}, {R"(\\r)", "\r"}})
            text = std::regex_replace(text, std::regex(written), meant);
        return text;
    }
};

// The steps of discovery, each with what it finds.
TEST_F(Device, StepsInARow) {
    const std::map<std::string, long> kinds = {
        {"ext", 0xEF53}, {"xfs", 0x58465342}, {"fat", 0x4d44}, {"iso9660", 0x9660}, {"udf", 0x15013346}};
    const std::map<std::string, std::function<std::string(std::istream &)>> steps = {
        {"drivers", [&](std::istream &in) { return drivers(OXT_DRIVER_BLOCK, textOf(in)); }},
        {"driver",
         [&](std::istream &in) {
             const std::string driver = textOf(in), device = textOf(in);
             setKind(kinds.at(textOf(in)));
             system.setDrivers("Block devices:\n  7 sd\n  8 " + driver + "\n  8 fd\n\n");
             EXPECT_EQ(getDevType(9, "/m", OXT_DRIVER_BLOCK, device.c_str()), -1);
             EXPECT_EQ(getDevType(8, "/m", OXT_DRIVER_CHARACTER, device.c_str()), -1);
             return std::to_string(getDevType(8, "/m", OXT_DRIVER_BLOCK, device.c_str()));
         }},
        {"drive",
         [&](std::istream &in) {
             mountDevices(textOf(in));
             const int type = getDriveType("/m");
             EXPECT_EQ(silently([] { return getDriveType("/m"); }), type);
             return std::to_string(type);
         }},
        {"type",
         [&](std::istream &in) {
             const std::string type = textOf(in);
             return std::string(fsTypeAccepted(type.c_str()) ? "accepted" : "not accepted") +
                    (fsTypeLayered(type.c_str()) ? ", layered" : "");
         }},
        {"list",
         [&](std::istream &in) {
             char buffer[4096] = "";
             system.setMounts(textOf(in));
             std::string found = std::to_string(GetMountPointStrings(sizeof buffer, buffer));
             for (const char *dir = buffer; *dir != '\0'; dir += strlen(dir) + 1)
                 found += std::string(" ") + dir;
             return found;
         }},
        {"family",
         [&](std::istream &in) {
             const auto kind = static_cast<unsigned>(kinds.at(textOf(in)));
             const int size = std::stoi(textOf(in));
             char buffer[16] = "#";
             system.setMounts(textOf(in));
             return std::to_string(GetFsName(kind, buffer, size, "/m")) + " " + buffer;
         }},
        {"mib",
         [&](std::istream &in) {
             unsigned long blocks = 0, blockSize = 0;
             in >> blocks >> blockSize;
             return std::to_string(fsMiB(blocks, blockSize));
         }},
        {"status",
         [&](std::istream &in) {
             FsProv record = {};
             in >> record._FileSystemSize >> record._AvailableSpace >> record.MonitorThreshold >>
                 record.WarningThreshold >> record.FatalThreshold;
             return std::to_string(fsGetFreeSpaceStatus(&record));
         }},
    };
    expectReplay("discovery.txt", [&](const std::string &line) {
        std::istringstream in(line);
        std::string step;
        in >> step;
        return steps.at(step)(in) + "\n";
    });
    EXPECT_EQ(drivers(OXT_DRIVER_CHARACTER, "Character devices:\n  1 mem\n\nBlock devices:\n  8 sd\n"), "1=mem");
    EXPECT_EQ(drivers(2, "Block devices:\n  8 sd\n"), "failed");
    EXPECT_EQ(fsGetFreeSpaceStatus(nullptr), -1);
}

TEST_F(Device, WhatCannotBeRead) {
    FakeVolume broken;
    broken.type = 0x9660;
    broken.error = EIO;
    system.setVolume("/m", broken);
    EXPECT_EQ(getDevType(8, "/m", OXT_DRIVER_BLOCK, "/dev/sda"), 0) << "an unreadable file system is no optical one";
    system.setMounts("/dev/root /m ext4\n");
    system.setMissing(false, true);
    EXPECT_EQ(getDriveType("/m"), 0) << "needs no driver list";
    trace.clear();
    EXPECT_EQ(drivers(OXT_DRIVER_BLOCK, ""), "failed");
    EXPECT_THAT(trace.failures(), ElementsAre("_OUT_ fopen(/proc/devices) Failure!!(-1)"));
    system.setMissing(true, false);
    EXPECT_EQ(getDriveType("/m"), -1);
    EXPECT_EQ(getDriveType(nullptr), -1);
    char buffer[16] = "#";
    EXPECT_EQ(GetFsName(0xEF53, buffer, 10, "/m"), -1);
    EXPECT_EQ(GetFsName(0x58465342, buffer, 10, "/m"), 0);
    trace.clear();
    EXPECT_EQ(GetMountPointStrings(sizeof buffer, buffer), 0);
    EXPECT_TRUE(trace.contains("_OUT_ setmntent[/etc/mtab] Failure!!"));
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
