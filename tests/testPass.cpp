// One monitoring pass: what survives, what is evaluated, which alerts go out, what is published.
#include "oxtFsPass.h"
#include "room.h"

#include <cstring>
#include <filesystem>

namespace {

constexpr unsigned kCountChanged = 0x400407D0, kNormal = 0x400403EA, kWarn = 0x800403E9, kFatal = 0xC00403E8;

class Pass : public Room {
  protected:
    void SetUp() override {
        Room::SetUp();
        mountTwo();
        initialise();
        g_srvmod.store(1);
    }
    int pass() {
        trace.clear();
        return fsCheckConfigChange(&cInfo);
    }
    int untraced() {
        return silently([this] { return pass(); });
    }
};

TEST_F(Pass, StatusAndAlertOfAKnownFileSystem) {
    const struct {
        int before, monitored;
        unsigned long sizeMiB, freeMiB;
        int after;
        Ids alerts;
    } rows[] = {
        // Once per change; switched on, normal is no news; 2 is neither on nor off.
        {1, 1, 1000, 500, 1, {}},
        {1, 1, 1000, 100, 2, {kWarn}},
        {1, 1, 1000, 10, 3, {kFatal}},
        {2, 1, 1000, 100, 2, {}},
        {2, 1, 1000, 500, 1, {kNormal}},
        {3, 1, 1000, 11, 2, {kWarn}},
        {-1, 1, 1000, 500, 1, {kNormal}},
        {0, 1, 1000, 500, 1, {}},
        {0, 1, 1000, 100, 2, {kWarn}},
        {1, 0, 1000, 5, 0, {}},
        {3, 0, 1000, 500, 0, {}},
        {2, 2, 1000, 5, 0, {}},
        // Another size, and so that size's own thresholds.
        {1, 1, 0, 0, -1, {}},
        {1, 1, 2000, 200, 2, {kWarn}},
        {1, 1, 2000, 201, 1, {}},
    };
    for (const auto &row : rows) {
        for (const int mode : {1, 0}) {
            SCOPED_TRACE(testing::Message() << row.before << " " << row.monitored << " " << row.freeMiB << " " << mode);
            g_srvmod.store(mode);
            storeChange(1, [&](FsProv &record) {
                record.FreeSpaceStatus = static_cast<int16_t>(row.before);
                record.MonitorThreshold = static_cast<uint16_t>(row.monitored);
                record.WarningThreshold = 100;
                record.FatalThreshold = 10;
                record._FileSystemSize = 1000;
            });
            FakeVolume volume = system.volume("/data");
            volume.blocks = row.sizeMiB * 1024;
            volume.available = row.freeMiB * 1024;
            system.setVolume("/data", volume);
            EXPECT_EQ(mode == 1 ? pass() : untraced(), 0);
            EXPECT_EQ(stored(1).FreeSpaceStatus, row.after);
            EXPECT_EQ(stored(1).MonitorThreshold, row.monitored);
            EXPECT_EQ(stored(0).FreeSpaceStatus, 1);
            EXPECT_EQ(trace.alertIds(), mode == 1 ? row.alerts : Ids{});
        }
    }
}

TEST_F(Pass, ThresholdsStayWhileTheSizeDoes) {
    const auto settings = [&] {
        const FsProv &record = stored(1);
        return std::vector<unsigned>{record.MonitorThreshold, record.WarningThreshold, record.WarningThresholdDefault,
                                     record.FatalThreshold, record.FatalThresholdDefault};
    };
    for (const bool traced : {true, false}) {
        storeChange(1, [](FsProv &record) {
            record.MonitorThreshold = 0;
            record.WarningThreshold = 300;
            record.WarningThresholdDefault = 301;
            record.FatalThreshold = 30;
            record.FatalThresholdDefault = 31;
            strcpy(record._root, "/elsewhere");
        });
        EXPECT_EQ(traced ? pass() : untraced(), 0);
        EXPECT_THAT(settings(), ElementsAre(0, 300, 301, 30, 31)) << "traced: " << traced;
        EXPECT_STREQ(stored(1)._root, "/data") << "facts are those of today";
    }
    FakeVolume volume = system.volume("/data");
    volume.blocks += 1024;
    system.setVolume("/data", volume);
    EXPECT_EQ(untraced(), 0);
    EXPECT_THAT(settings(), ElementsAre(0, 100, 100, 10, 10)) << "switched off still";
}

TEST_F(Pass, TheFirstOfEqualKeysIsMatched) {
    for (const bool traced : {true, false}) {
        system.removeFileSystem("/data");
        system.addFileSystem("/dev/sda1", 8, "/data", "ext4", 1000, 500); // the device of "/"
        ASSERT_EQ(pass(), 0);
        storeChange(0, [](FsProv &record) { record.WarningThreshold = 77; });
        storeChange(1, [](FsProv &record) { record.WarningThreshold = 88; });
        EXPECT_EQ(traced ? pass() : untraced(), 0);
        EXPECT_EQ(stored(0).WarningThreshold, 77U);
        EXPECT_EQ(stored(1).WarningThreshold, 77U) << "traced: " << traced;
        // Any of the four keys tells two apart.
        storeChange(0, [](FsProv &record) { strcpy(record.CSName, "x"); });
        storeChange(1, [](FsProv &record) { record.WarningThreshold = 88; });
        EXPECT_EQ(traced ? pass() : untraced(), 0);
        EXPECT_EQ(stored(0).WarningThreshold, 88U) << "traced: " << traced;
    }
}

TEST_F(Pass, FileSystemsComeAndGo) {
    // One for another: no change of the number, and the new one starts with its defaults.
    storeChange(1, [](FsProv &record) { record.WarningThreshold = 300; });
    system.removeFileSystem("/data");
    system.addFileSystem("/dev/sdb1", 8, "/new", "ext4", 1000, 500);
    EXPECT_EQ(pass(), 0);
    EXPECT_THAT(trace.alertIds(), IsEmpty());
    EXPECT_THAT(roots(), ElementsAre("/", "/new"));
    EXPECT_EQ(stored(1).WarningThreshold, 100U);

    // New ones that are already short of space say so; the number has changed.
    system.addFileSystem("/dev/sdc1", 8, "/short", "xfs", 1000, 10);
    system.addFileSystem("/dev/sdd1", 8, "/low", "ext3", 1000, 100);
    system.addFileSystem("/dev/sde1", 8, "/fat", "vfat", 1000, 0);
    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(trace.alertIds(), (Ids{kFatal, kWarn, kCountChanged}));
    EXPECT_EQ(shmFs[OXT_CID_FS_PROV].shmNum, 5);
    EXPECT_EQ(fileContent(savePath()).size(), 30U + 5 * 1840);

    for (const char *dir : {"/short", "/low", "/fat", "/"})
        system.removeFileSystem(dir);
    EXPECT_EQ(untraced(), 0);
    EXPECT_EQ(trace.alertIds(), Ids{kCountChanged});
    EXPECT_THAT(roots(), ElementsAre("/new"));
    EXPECT_EQ(stored(0).Index, 1);
    EXPECT_EQ(fileContent(savePath()).size(), 30U + 1840);
    EXPECT_EQ(system.segments().size(), 3U);

    system.removeFileSystem("/new"); // no candidate at all: discovery fails, and what was known stays
    EXPECT_EQ(pass(), -1);
    EXPECT_THAT(trace.alertIds(), IsEmpty());
    EXPECT_TRUE(trace.contains("fsGetCurrentInfo Failure!!"));
    EXPECT_THAT(roots(), ElementsAre("/new"));
}

TEST_F(Pass, WhatAnAlertSays) {
    using Strings = std::vector<std::string>;
    FsProv record = {};
    memset(record.Name, 'n', sizeof record.Name); // without a zero
    memset(record._root, 'r', sizeof record._root);
    record._FileSystemSize = 5000;
    record._AvailableSpace = -1;
    record.WarningThreshold = 4294967295U;
    record.FatalThreshold = 7;
    const std::string name(255, 'n'), root(255, 'r'), available = "18446744073709551615", size = "5000";
    const struct {
        unsigned id;
        int type;
        Strings strings;
    } rows[] = {{kNormal, 4, {name, root, available, size}},
                {kWarn, 2, {name, root, available, size, "4294967295"}},
                {kFatal, 1, {name, root, available, size, "7"}},
                {kCountChanged, 4, {}}};
    for (const auto &row : rows) {
        EXPECT_EQ(fsPutAlert(row.id, row.id == kCountChanged ? nullptr : &record), 0);
        const SentAlert alert = trace.alerts().back();
        EXPECT_EQ(alert.id, row.id);
        EXPECT_EQ(alert.type, row.type);
        EXPECT_EQ(alert.method, 3);
        EXPECT_EQ(alert.source, "OXTFSService");
        EXPECT_EQ(alert.strings, row.strings);
        EXPECT_TRUE(alert.closed);
    }
    trace.clear();
    EXPECT_EQ(fsPutAlert(0x400403EB, &record), -1);
    EXPECT_EQ(trace.lines().size(), 1U) << "an unknown event leaves its entry line alone";
    EXPECT_EQ(fsPutAlert(kWarn, nullptr), -1);
    EXPECT_THAT(trace.alertIds(), IsEmpty());
    trace.answerAlerts(1);
    EXPECT_EQ(fsPutAlert(kCountChanged, nullptr), -1);
}

TEST_F(Pass, WhatAClientCommitsMeanwhileIsKept) {
    FsConf conf = {10, 10, 3600, 60};
    FsProv copy = stored(1);
    const FsEdit edits[] = {
        {OXT_CID_FS_PROV, 1, &copy, offsetof(FsProv, WarningThreshold), 4, 600},
        {OXT_CID_FS_CONF, 0, &conf, offsetof(FsConf, MonitorCycle), 2, 10},
    };
    const FakeVolume quiet = system.volume("/data");
    FakeVolume volume = quiet;
    volume.during = [&] { // in the middle of the measuring
        for (const FsEdit &edit : edits)
            EXPECT_EQ(fsSetInstance(&cInfo, &edit), 0);
        system.setVolume("/data", quiet);
    };
    system.setVolume("/data", volume);
    system.addFileSystem("/dev/sdb1", 8, "/new", "ext4", 1000, 500); // the area is made anew as well
    EXPECT_EQ(pass(), 0);
    EXPECT_THAT(trace.alertIds(), Ids{kCountChanged});
    for (const char *where : {"at the end of the pass", "after the next one"}) {
        EXPECT_EQ(stored(1).WarningThreshold, 600U) << where;
        EXPECT_EQ(fsConf(fsCurrent()->areas)->MonitorCycle, 10) << where;
        EXPECT_EQ(gfs_SleepSec.load(), 10);
        uint32_t saved = 0;
        memcpy(&saved, fileContent(savePath()).data() + 30 + 1840 + offsetof(FsProv, WarningThreshold), 4);
        EXPECT_EQ(saved, 600U) << where;
        EXPECT_EQ(pass(), 0);
    }
    EXPECT_EQ(stored(1).FreeSpaceStatus, 2) << "evaluated against the new threshold";

    copy = stored(1);
    const FsEdit moved = {OXT_CID_FS_PROV, 2, &copy, offsetof(FsProv, WarningThreshold), 4, 700}; // it was read there
    EXPECT_EQ(fsSetInstance(&cInfo, &moved), 0);
    EXPECT_EQ(stored(1).WarningThreshold, 700U);
    EXPECT_NE(stored(2).WarningThreshold, 700U);
    copy = stored(0);
    copy._FileSystemSize = 1; // what was read is no more
    const FsEdit late = {OXT_CID_FS_PROV, 5'000'000, &copy, offsetof(FsProv, MonitorThreshold), 2, 0}; // nor so many
    EXPECT_EQ(fsSetInstance(&cInfo, &late), -1);
    EXPECT_EQ(stored(0).MonitorThreshold, 1);
}

TEST_F(Pass, StepsThatFail) {
    // A save file that cannot be opened, and one on a full disk.
    system.inject(Call::Open, 1, EROFS);
    EXPECT_EQ(pass(), -1);
    EXPECT_THAT(trace.failures(), ElementsAre("_OUT_ fopen Failure!! err=[30]"));
    system.redirectOpen(savePath(), "/dev/full");
    EXPECT_EQ(pass(), -1);
    EXPECT_THAT(trace.failures(), ElementsAre("_OUT_ fwrite Failure!! err=[28]", "_OUT_ fsPutBinFile() Failure!!"));
    EXPECT_EQ(fsSetInstance(&cInfo), -1);
    system.redirectOpen(savePath(), savePath());

    // A pass that cannot make a larger segment leaves nothing that a later one would read beyond.
    std::filesystem::rename(agentPath("work"), agentPath("work.moved"));
    for (int i = 0; i < 20; ++i)
        system.addFileSystem("/dev/sdb" + std::to_string(i), 8, "/b" + std::to_string(i), "ext4", 1000, 500);
    EXPECT_EQ(pass(), -1);
    EXPECT_TRUE(trace.contains("reallocDatArea() Failure!!"));
    EXPECT_EQ(fsSetInstance(&cInfo), 0);
    std::filesystem::rename(agentPath("work.moved"), agentPath("work"));
    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(roots().size(), 22U);
    EXPECT_EQ(system.segments().size(), 3U);

    // Segments that cannot be attached: the pass goes on with its own copy.
    system.inject(Call::Shmat, 0, EACCES);
    EXPECT_EQ(pass(), 0);
    EXPECT_EQ(roots().size(), 22U);
}

TEST_F(Pass, AnUneventfulPassWritesAKnownNumberOfLines) {
    g_srvmod.store(0);
    system.setDrivers("Character devices:\n  1 mem\n\nBlock devices:\n  8 sd\n  9 md\n\n");
    for (const char *dir : {"/", "/data"})
        system.removeFileSystem(dir);
    for (int count = 1; count <= 10; ++count) {
        const std::string number = std::to_string(count);
        system.addFileSystem("/dev/sdb" + number, 8, "/b" + number, "ext4", 1000, 500);
        EXPECT_EQ(pass(), 0);
        EXPECT_EQ(pass(), 0);
        EXPECT_EQ(trace.lines().size(), static_cast<size_t>(99 + 123 * count + count * (count + 1) / 2));
    }
    int open = 0; // every call that begins ends
    for (const TraceLine &line : trace.lines())
        open += line.text.rfind("_IN_", 0) == 0 ? 1 : line.text.rfind("_OUT_", 0) == 0 ? -1 : 0;
    EXPECT_EQ(open, 0);
}

} // namespace
