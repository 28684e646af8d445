// Which mount points are candidates, what they are, how full they are, and the records made of them.
#include "room.h"

#include <cstring>

#include <sys/stat.h>

namespace {

constexpr long EXT = 0xEF53, XFS = 0x58465342, FAT = 0x4d44;
constexpr size_t GUARD = 64;

class Mount : public Room {
  protected:
    struct List {
        std::vector<std::string> dirs;
        long long count;
        bool inside; // nothing was written behind the buffer
    };
    List listOf(int size) {
        std::vector<char> buffer(static_cast<size_t>(size) + GUARD, '\0');
        std::fill(buffer.end() - GUARD, buffer.end(), '#');
        List list = {{}, GetMountPointStrings(size, buffer.data()), true};
        for (const char *dir = buffer.data(); *dir != '\0' && *dir != '#'; dir += strlen(dir) + 1)
            list.dirs.emplace_back(dir);
        list.inside = std::count(buffer.end() - GUARD, buffer.end(), '#') == GUARD;
        return list;
    }
    // The snapshot's records, or nothing when it failed; the same with and without a trace.
    std::vector<FsProv> snapshot(int result = 0) {
        const auto take = [&] {
            DatInfo area = {sizeof(FsProv), 0, nullptr};
            EXPECT_EQ(fsGetCurrentInfo(&cInfo, &area), result);
            const FsProv *first = fsProv(&area);
            std::vector<FsProv> records(first, first + area.datNum);
            fsReleaseInstance(&area);
            return records;
        };
        std::vector<FsProv> records = take();
        const std::vector<FsProv> silent = silently(take);
        EXPECT_EQ(records.size(), silent.size());
        for (size_t i = 0; i < std::min(records.size(), silent.size()); ++i)
            EXPECT_EQ(memcmp(&records[i], &silent[i], sizeof(FsProv)), 0) << i;
        return records;
    }
};

TEST_F(Mount, AListWithoutRoomCountsOnAndStaysInside) {
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

TEST_F(Mount, LongTablesAndLongFields) {
    std::string mounts;
    for (int i = 0; i < 3000; ++i)
        mounts += "/dev/sd" + std::to_string(i) + " /mnt/" + std::to_string(i) + " ext4 rw 0 0\n";
    system.setMounts(mounts + "/dev/again /mnt/1500 ext4 rw 0 0\n");
    EXPECT_EQ(listOf(100'000).dirs.size(), 2999U);

    const std::string dir = "/" + std::string(5000, 'd');
    system.addFileSystem("/dev/" + std::string(4000, 'x'), 8, dir, "ext4", 1000, 500);
    system.addFileSystem("/dev/sdb1", 8, "/b", "xfs", 1000, 500);
    system.setMounts("overlay /o overlay lowerdir=" + std::string(60'000, 'l') + " 0 0\n");
    const std::vector<FsProv> records = snapshot();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0]._root, dir.substr(0, 254)) << "cut, and so not measured";
    EXPECT_EQ(records[0]._FileSystemSize, 0);
    EXPECT_STREQ(records[0].Name, "Unknown");
    EXPECT_STREQ(records[1].Name, "/dev/sdb1");
}

TEST_F(Mount, InformationAndFreeSpaceOfAMountPoint) {
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

TEST_F(Mount, RecordsOfASnapshot) {
    system.setDrivers("Block devices:\n  1 ramdisk\n  2 fd\n  8 sd\n 99 mystery\n\n");
    const struct {
        const char *type;
        long magic;
        unsigned major;
        long blockSize;
        unsigned long blocks, available;
        int drive, size, space; // as recorded
        const char *shown;
        int monitored;
        unsigned warning, fatal;
        int status;
    } rows[] = {
        {"ext4", EXT, 8, 1024, 102'400, 11'264, 0, 100, 11, "ext4", 1, 10, 1, 1},
        {"ext4", EXT, 8, 1024, 102'399, 102'399, 0, 99, 99, "ext4", 0, 1, 1, 0},
        {"ext3", EXT, 8, 4096, 51'200, 2560, 0, 200, 10, "ext3", 1, 20, 2, 2},
        {"ext2", EXT, 8, 512, 819'199, 4096, 0, 399, 2, "ext2", 1, 39, 3, 3},
        {"xfs", XFS, 8, 4096, 256'000'000, 256'000'000, 0, 1'000'000, 1'000'000, "xfs", 1, 100'000, 10'000, 1},
        {"ext4", EXT, 8, 511, 102'400'000, 1000, 0, 0, 0, "ext4", 0, 1, 1, -1},
        {"vfat", FAT, 8, 1024, 1'024'000, 1024, 0, 1000, 1, "others", 0, 1, 1, -1},
        {"ext", EXT, 8, 1024, 1'024'000, 1024, 0, 1000, 1, "others", 0, 1, 1, -1},
        {"ext4", EXT, 1, 1024, 1'024'000, 5120, 3, 1000, 5, "ext4", 0, 1, 1, -1}, // RAM disk: measured
        {"ext4", EXT, 2, 1024, 1'024'000, 5120, 1, 0, 0, "ext4", 0, 1, 1, -1},    // removable: not measured
        {"iso9660", 0x9660, 8, 2048, 350'000, 0, 2, 0, 0, "others", 0, 1, 1, -1},
        {"ext4", EXT, 99, 1024, 1'024'000, 5120, -1, 0, 0, "ext4", 0, 1, 1, -1},
    };
    unsigned index = 0;
    for (const auto &row : rows) {
        const std::string name = std::to_string(++index);
        system.addFileSystem("/dev/d" + name, row.major, "/m" + name, row.type, 0, 0);
        FakeVolume volume;
        volume.type = row.magic;
        volume.blockSize = row.blockSize;
        volume.blocks = row.blocks;
        volume.available = row.available;
        system.setVolume("/m" + name, volume);
    }
    const std::vector<FsProv> records = snapshot();
    ASSERT_EQ(records.size(), index);
    for (size_t i = 0; i < records.size(); ++i) {
        const FsProv &record = records[i];
        const auto &row = rows[i];
        SCOPED_TRACE(record._root);
        EXPECT_THAT(
            (std::vector<int64_t>{record.Index, record.DriveType, record._FileSystemSize, record._AvailableSpace,
                                  record.MonitorThreshold, record.WarningThreshold, record.WarningThresholdDefault,
                                  record.FatalThreshold, record.FatalThresholdDefault, record.FreeSpaceStatus}),
            ElementsAre(i + 1, row.drive, row.size, row.space, row.monitored, row.warning, row.warning, row.fatal,
                        row.fatal, row.status));
        EXPECT_EQ(record.Name, "/dev/d" + std::to_string(i + 1));
        EXPECT_STREQ(record._FileSystemType, row.shown);
    }
    system.removeFileSystem("/m1");
    EXPECT_EQ(snapshot().at(0).Index, 1) << "positions move up";
}

TEST_F(Mount, SnapshotsThatFindLittle) {
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
