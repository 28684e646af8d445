// What lies on this machine: drivers, devices, mount points, how full they are, and the records made of them.
#include "golden.h"
#include "oxtFsSystem.h"
#include "room.h"

#include <cstring>
#include <iomanip>
#include <map>
#include <regex>

#include <sys/stat.h>

namespace {

constexpr long kExt = 0xEF53, kXfs = 0x58465342;
constexpr size_t kGuard = 64;

// What statfs calls them.
const std::map<std::string, long> kinds = {{"ext", kExt},         {"xfs", kXfs},       {"fat", 0x4d44},
                                           {"btrfs", 0x9123683E}, {"iso9660", 0x9660}, {"udf", 0x15013346}};

class Discovery : public Room {
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
    struct List {
        std::vector<std::string> dirs;
        long long count;
        bool inside; // nothing was written behind the buffer
    };
    List listOf(int size) {
        std::vector<char> buffer(static_cast<size_t>(size) + kGuard, '\0');
        std::fill(buffer.end() - kGuard, buffer.end(), '#');
        List list = {{}, GetMountPointStrings(size, buffer.data()), true};
        for (const char *dir = buffer.data(); *dir != '\0' && *dir != '#'; dir += strlen(dir) + 1)
            list.dirs.emplace_back(dir);
        list.inside = std::count(buffer.end() - kGuard, buffer.end(), '#') == kGuard;
        return list;
    }
    // The snapshot's records, or nothing when it failed; the same with and without a trace.
    std::vector<FsProv> snapshot(int result = 0) {
        const auto take = [&] {
            DatInfo area = {sizeof(FsProv), 0, nullptr};
            EXPECT_EQ(fsGetCurrentInfo(&cInfo, &area), result);
            const FsProv *first = fsProv(&area);
            std::vector<FsProv> records(first, first + area.datNum);
            free(area.datAdr);
            return records;
        };
        std::vector<FsProv> records = take();
        const std::vector<FsProv> silent = silently(take);
        EXPECT_EQ(records.size(), silent.size());
        for (size_t i = 0; i < std::min(records.size(), silent.size()); ++i)
            EXPECT_EQ(memcmp(&records[i], &silent[i], sizeof(FsProv)), 0) << i;
        return records;
    }
    // What lies on "/m".
    void setKind(long kind) {
        FakeVolume volume;
        volume.type = kind;
        system.setVolume("/m", volume);
    }
    void mountDevices(const std::string &mounts) {
        system.setDrivers(
            "Character devices:\n  8 fd\n 11 sr\n\nBlock devices:\n  2 fd\n  8 sd\n  9 md\n259 blkext\n\n");
        system.addDevice("/dev/sda1", S_IFBLK, 8, 1);
        system.addDevice("/dev/fd0", S_IFBLK, 2, 0);
        system.addDevice("/dev/chr", S_IFCHR, 11, 0);
        system.addDevice("/dev/nvme0n1p1", S_IFBLK, 259, 1);
        system.addDevice("/dev/wide", S_IFBLK, 0x1000 + 9, 0x12345);
        system.addDevice("/dev/" + std::string(300, 'x'), S_IFBLK, 9, 0);
        setKind(kExt);
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

  public:
    // The steps of the golden file, each with what it finds.
    std::string driversStep(std::istream &in) { return drivers(OXT_DRIVER_BLOCK, textOf(in)); }
    std::string driverStep(std::istream &in) {
        const std::string driver = textOf(in), device = textOf(in);
        setKind(kinds.at(textOf(in)));
        system.setDrivers("Block devices:\n  7 sd\n  8 " + driver + "\n  8 fd\n\n");
        EXPECT_EQ(getDevType(9, "/m", OXT_DRIVER_BLOCK, device.c_str()), -1);
        EXPECT_EQ(getDevType(8, "/m", OXT_DRIVER_CHARACTER, device.c_str()), -1);
        return std::to_string(getDevType(8, "/m", OXT_DRIVER_BLOCK, device.c_str()));
    }
    std::string driveStep(std::istream &in) {
        mountDevices(textOf(in));
        const int type = getDriveType("/m");
        EXPECT_EQ(silently([] { return getDriveType("/m"); }), type);
        return std::to_string(type);
    }
    std::string typeStep(std::istream &in) {
        const std::string type = textOf(in);
        return std::string(fsTypeAccepted(type.c_str()) ? "accepted" : "not accepted") +
               (fsTypeLayered(type.c_str()) ? ", layered" : "");
    }
    std::string listStep(std::istream &in) {
        system.setMounts(textOf(in));
        const List list = listOf(4096);
        std::string found = std::to_string(list.count);
        for (const std::string &dir : list.dirs)
            found += " " + dir;
        return found;
    }
    std::string familyStep(std::istream &in) {
        const auto kind = static_cast<unsigned>(kinds.at(textOf(in)));
        const int size = std::stoi(textOf(in));
        char buffer[16] = "#";
        system.setMounts(textOf(in));
        return std::to_string(GetFsName(kind, buffer, size, "/m")) + " " + buffer;
    }
    std::string recordStep(std::istream &in) {
        FakeVolume volume;
        const std::string type = textOf(in);
        unsigned major = 0;
        volume.type = kinds.at(textOf(in));
        in >> major >> volume.blockSize >> volume.blocks >> volume.available;
        system.setDrivers("Block devices:\n  1 ramdisk\n  2 fd\n  8 sd\n 99 mystery\n\n");
        system.setMounts("");
        system.addFileSystem("/dev/d", major, "/r", type, 0, 0);
        system.setVolume("/r", volume);
        const FsProv record = snapshot().at(0);
        system.removeFileSystem("/r");
        std::ostringstream shown;
        shown << "drive " << record.DriveType << ", " << record._AvailableSpace << " of " << record._FileSystemSize
              << " MiB, " << record._FileSystemType << ", monitored " << record.MonitorThreshold << ", thresholds "
              << record.WarningThreshold << " " << record.WarningThresholdDefault << " " << record.FatalThreshold << " "
              << record.FatalThresholdDefault << ", status " << record.FreeSpaceStatus;
        EXPECT_STREQ(record.Name, "/dev/d");
        EXPECT_EQ(std::string(record.CSCreationClassName) + record.CSName + record.CreationClassName + record.DeviceID,
                  "");
        return shown.str();
    }
    std::string mibStep(std::istream &in) {
        unsigned long blocks = 0, blockSize = 0;
        in >> blocks >> blockSize;
        return std::to_string(fsMiB(blocks, blockSize));
    }
    std::string statusStep(std::istream &in) {
        FsProv record = {};
        in >> record._FileSystemSize >> record._AvailableSpace >> record.MonitorThreshold >> record.WarningThreshold >>
            record.FatalThreshold;
        return std::to_string(fsGetFreeSpaceStatus(&record));
    }
};

TEST_F(Discovery, StepsInARow) {
    const std::map<std::string, std::string (Discovery::*)(std::istream &)> steps = {
        {"drivers", &Discovery::driversStep}, {"driver", &Discovery::driverStep}, {"drive", &Discovery::driveStep},
        {"type", &Discovery::typeStep},       {"list", &Discovery::listStep},     {"family", &Discovery::familyStep},
        {"record", &Discovery::recordStep},   {"mib", &Discovery::mibStep},       {"status", &Discovery::statusStep},
    };
    expectReplay("discovery.txt", [&](const std::string &line) {
        std::istringstream in(line);
        std::string step;
        in >> step;
        return (this->*steps.at(step))(in) + "\n";
    });
    EXPECT_EQ(drivers(OXT_DRIVER_CHARACTER, "Character devices:\n  1 mem\n\nBlock devices:\n  8 sd\n"), "1=mem");
    EXPECT_EQ(drivers(2, "Block devices:\n  8 sd\n"), "failed");
    EXPECT_EQ(fsGetFreeSpaceStatus(nullptr), -1);
}

TEST_F(Discovery, WhatCannotBeRead) {
    FakeVolume broken;
    broken.type = 0x9660;
    broken.error = EIO;
    system.setVolume("/m", broken);
    EXPECT_EQ(getDevType(8, "/m", OXT_DRIVER_BLOCK, "/dev/sda"), 0) << "an unreadable file system is no optical one";
    FsSystem read;
    fsSystemRead(&read);
    for (int i = 0; i < 2; ++i) { // a failure is asked for again
        struct statfs space = {};
        struct stat device = {};
        EXPECT_EQ(fsStatfs(&read, "/m", &space), -1);
        EXPECT_EQ(fsStat(&read, "/dev/none", &device), -1);
    }
    fsSystemFree(&read);
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
    EXPECT_EQ(GetFsName(kExt, buffer, 10, "/m"), -1);
    EXPECT_EQ(GetFsName(kXfs, buffer, 10, "/m"), 0);
    trace.clear();
    EXPECT_EQ(GetMountPointStrings(sizeof buffer, buffer), 0);
    EXPECT_TRUE(trace.contains("_OUT_ setmntent[/etc/mtab] Failure!!"));
}

TEST_F(Discovery, NamesFitTheirBuffers) {
    system.setMounts(std::string(400, 'd') + " /m " + std::string(40, 't') + "\n");
    char device[256], type[11];
    memset(device, '#', sizeof device);
    memset(type, '#', sizeof type);
    EXPECT_EQ(getDevName(device, type, "/m"), 0);
    EXPECT_EQ(std::string(device, sizeof device), std::string(254, 'd') + '\0' + "#");
    EXPECT_EQ(std::string(type, sizeof type), std::string(9, 't') + '\0' + "#");
}

// Tracing may begin in the middle of a snapshot: the watch thread binds the trace library at its start.
TEST_F(Discovery, TracingThatBeginsInASnapshotLosesNothing) {
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

TEST_F(Discovery, AListWithoutRoomCountsOnAndStaysInside) {
    system.setMounts("/dev/a /aaa ext4\n/dev/b /bb ext4\n/dev/c /a/longer/one ext4\n/dev/d /d ext4\n");
    const std::vector<std::string> whole = listOf(4096).dirs;
    ASSERT_EQ(whole.size(), 4U);
    for (int size = 1; size < 40; ++size) {
        const List list = listOf(size);
        EXPECT_TRUE(list.inside) << size;
        EXPECT_EQ(list.count, 22) << size;
        EXPECT_LE(list.dirs.size(), whole.size());
        for (const std::string &dir : list.dirs)
            EXPECT_THAT(whole, testing::Contains(dir)) << size;
    }
    EXPECT_THAT(listOf(12).dirs, ElementsAre("/aaa", "/bb"));
    EXPECT_TRUE(listOf(0).inside);
}

TEST_F(Discovery, LongTablesAndLongFields) {
    std::string mounts;
    for (int i = 0; i < 3000; ++i)
        mounts += "/dev/sd" + std::to_string(i) + " /mnt/" + std::to_string(i) + " ext4 rw 0 0\n";
    system.setMounts(mounts + "/dev/again /mnt/1500 ext4 rw 0 0\n");
    EXPECT_EQ(listOf(100'000).dirs.size(), 2999U);

    const std::string dir = "/" + std::string(5000, 'd');
    system.addFileSystem("/dev/" + std::string(4000, 'x'), 8, dir, "ext4", 1000, 500);
    system.addFileSystem("/dev/sdb1", 8, "/" + std::string(300, 'b'), "xfs", 1000, 500);
    system.setMounts("overlay /o overlay lowerdir=" + std::string(60'000, 'l') + " 0 0\n");
    const std::vector<FsProv> records = snapshot();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0]._root, dir.substr(0, 254)) << "cut, and so not measured";
    EXPECT_EQ(records[0]._FileSystemSize, 0);
    EXPECT_STREQ(records[0].Name, "Unknown");
    EXPECT_STREQ(records[1].Name, "/dev/sdb1");
    EXPECT_EQ(records[1]._FileSystemSize, 1000) << "cut in the record alone";
}

TEST_F(Discovery, InformationAndFreeSpaceOfAMountPoint) {
    char device[OXT_DEVICE_SIZE], family[10] = "";
    int longest = -1;
    unsigned long values[3] = {7, 7, 7};
    FakeVolume volume;
    volume.nameLength = 143;
    volume.blocks = 5000;
    volume.available = 1200; // less than the kernel's own free count
    system.setVolume("/m", volume);
    system.setMounts("/dev/a /m ext3\n" + std::string(300, 'd') + " /m ext4\n/home/.x /m ecryptfs\n");
    EXPECT_EQ(OXTFileSysGetMountPointInformation("/m", device, &longest, family, 10), OXT_TRUE);
    EXPECT_EQ(device, std::string(254, 'd')) << "the last entry that is not layered";
    EXPECT_EQ(longest, 143);
    EXPECT_STREQ(family, "EXT4");
    EXPECT_EQ(OXTFileSysGetMountPointInformation("/m", device, &longest, family, 4), OXT_FALSE);
    EXPECT_EQ(OXTFileSysGetMountPointInformation("/m", device, &longest, nullptr, 0), OXT_TRUE);
    EXPECT_EQ(GetMountPointFreeSpace("/m", &values[0], &values[1], &values[2]), 0);
    EXPECT_THAT(values, ElementsAre(1024, 1200, 5000));

    volume.error = EACCES;
    system.setVolume("/m", volume);
    EXPECT_EQ(OXTFileSysGetMountPointInformation("/m", device, &longest, family, 10), OXT_FALSE);
    EXPECT_EQ(GetMountPointFreeSpace("/m", &values[0], &values[1], &values[2]), -1);
    EXPECT_EQ(GetMountPointFreeSpace(nullptr, &values[0], &values[1], &values[2]), -1);
    EXPECT_THAT(values, ElementsAre(1024, 1200, 5000)) << "left as they were";
}

TEST_F(Discovery, SnapshotsThatFindLittle) {
    EXPECT_THAT(snapshot(-1), IsEmpty()) << "no candidate";
    EXPECT_TRUE(trace.contains("_OUT_ FileSysDat alloc Failure!!"));
    // Listed, although nothing of it can be examined: the room of the list is the closing zero alone.
    system.setMounts("/dev/gone /gone ext4\n");
    EXPECT_THAT(snapshot(-1), IsEmpty());
    // Beside one that can be: listed with what is known.
    system.addFileSystem("/dev/sda1", 8, "/m", "ext4", 100, 50);
    FakeVolume broken;
    broken.error = EIO;
    system.setVolume("/gone", broken);
    const std::vector<FsProv> records = snapshot();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_STREQ(records[0].Name, "Unknown");
    EXPECT_STREQ(records[0]._FileSystemType, "others");
    EXPECT_EQ(static_cast<uint16_t>(records[0].DriveType), 65535);
    EXPECT_EQ(records[1]._FileSystemSize, 100);
    system.setMissing(true, false);
    EXPECT_THAT(snapshot(-1), IsEmpty());
    EXPECT_TRUE(trace.contains("_OUT_ OXTFileSysGetConfig() Failure!!"));
}

} // namespace
