// The store and its save file: how it is built, read, changed and freed.
#include "oxtFsSave.h"
#include "room.h"

#include <cstring>
#include <filesystem>

#include <sys/shm.h>
#include <sys/stat.h>

namespace {

using namespace std::string_literals;

class Store : public Room {
  protected:
    static void writeSave(const std::string &bytes) { std::ofstream(savePath(), std::ios::binary) << bytes; }
    // A save file: the version line, a cycle, the number it claims, and so many records named "/dev/1", "/dev/2"...
    static std::string image(const std::string &version, uint16_t cycle, uint16_t claimed, int records) {
        const FsConf conf = {cycle, 5, 7200, 90};
        const FsTnum tnum = {claimed, 0xABCD};
        std::string bytes = version;
        bytes.append(reinterpret_cast<const char *>(&conf), sizeof conf);
        bytes.append(reinterpret_cast<const char *>(&tnum), sizeof tnum);
        for (int i = 1; i <= records; ++i) {
            FsProv record = {};
            record.Index = static_cast<uint16_t>(i);
            snprintf(record.Name, sizeof record.Name, "/dev/%d", i);
            record.FreeSpaceStatus = 3;
            bytes.append(reinterpret_cast<const char *>(&record), sizeof record);
        }
        return bytes;
    }
    std::string segmentOf(int cid) {
        char *bytes = static_cast<char *>(shmat(shmFs[cid].shmId, nullptr, SHM_RDONLY));
        const std::string content(bytes, static_cast<size_t>(oxtAreaSize(area(cid))));
        shmdt(bytes);
        return content;
    }
};

constexpr char kVersion[] = "# Version=1.0.0.0\n";

TEST_F(Store, AFreshOneStartsWithTheDefaults) {
    mountTwo();
    system.setFree("/data", 1); // already short of space
    initialise();
    EXPECT_EQ(stored(1).FreeSpaceStatus, 1) << "every file system starts as normal";
    for (int cid = 0; cid < 3; ++cid)
        EXPECT_EQ(segmentOf(cid),
                  std::string(static_cast<char *>(area(cid)->datAdr), static_cast<size_t>(oxtAreaSize(area(cid)))));
    EXPECT_FALSE(std::filesystem::exists(savePath()));
}

TEST_F(Store, TheSaveFilesBytes) {
    mountTwo();
    for (const char *dir : {"/c", "/d"})
        system.addFileSystem("/dev/"s + (dir + 1), 8, dir, "xfs", 3000, 1000);
    initialise();
    mode_t mask = umask(0);
    ASSERT_EQ(fsSetInstance(&cInfo), 0);
    umask(mask);
    const std::string bytes = fileContent(savePath());
    ASSERT_EQ(bytes.size(), 7390U);
    EXPECT_EQ(bytes.substr(0, 34), kVersion + "\x3C\0\x0A\0\x10\x0E\x3C\0"s + "\4\0\0\0"s + "\1\0\0\0"s);
    const std::string third = bytes.substr(30 + 2 * 1840, 1840);
    EXPECT_EQ(third.substr(0, 2), "\3\0"s);
    EXPECT_STREQ(third.c_str() + 772, "/dev/c");
    const std::string one = "\1\0\0\0"s, warning = "\x2C\1\0\0"s, fatal = "\x1E\0\0\0"s;
    EXPECT_EQ(third.substr(1288, 24), one + warning + warning + fatal + fatal + one);
    EXPECT_STREQ(third.c_str() + 1312, "/c");
    EXPECT_EQ(third.substr(1568, 16), "\xB8\x0B\0\0\0\0\0\0"s
                                      "\xE8\3\0\0\0\0\0\0"s);
    EXPECT_STREQ(third.c_str() + 1584, "xfs");
    struct stat st = {};
    ASSERT_EQ(::stat(savePath().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600U);
    FILE *full = fopen("/dev/full", "wb"); // shows only when the buffer is flushed
    const DatInfo small[] = {*area(OXT_CID_FS_CONF), *area(OXT_CID_FS_TNUM), {sizeof(FsProv), 0, nullptr}};
    EXPECT_EQ(fsPutBinFile(full, small), -1);
    fclose(full);

    // A link that somebody put in its place leads nowhere.
    const std::string other = agentPath("data/other");
    std::filesystem::rename(savePath(), other);
    std::filesystem::create_symlink(other, savePath());
    EXPECT_EQ(fsSetInstance(&cInfo), -1);
    EXPECT_EQ(fileContent(other), bytes);
}

TEST_F(Store, DamagedAndForeignSaveFiles) {
    const struct {
        const char *what;
        std::string bytes;
        int error; // of opening
        int cycle, records;
        const char *failure;
    } rows[] = {
        {"whole", image(kVersion, 17, 3, 3), 0, 17, 3, nullptr},
        {"another version", image("# Version=9.9.9.9\n", 17, 2, 2), 0, 17, 2, nullptr},
        {"no version at all", image(std::string(18, '\0'), 17, 1, 1), 0, 17, 1, nullptr},
        {"more than it claims", image(kVersion, 17, 1, 4) + "rest", 0, 17, 1, nullptr},
        {"no file systems", image(kVersion, 0, 0, 0), 0, 0, 0, nullptr},
        {"empty", "", 0, 60, 2, "_OUT_ fread[OXT_DAT_FS_VERNAME] Failure!!"},
        {"10 bytes", "# Version=", 0, 60, 2, "_OUT_ fread[OXT_DAT_FS_VERNAME] Failure!!"},
        {"the version alone", kVersion, 0, 60, 2, "_OUT_ getDatFromBinFile[CONF] Failure!!"},
        {"29 bytes", image(kVersion, 17, 0, 0).substr(0, 29), 0, 60, 2, "_OUT_ getDatFromBinFile[TNUM] Failure!!"},
        {"less than it claims", image(kVersion, 17, 3, 2), 0, 60, 2, "_OUT_ getDatFromBinFile[PROV] Failure!!"},
        {"one byte short", image(kVersion, 17, 2, 2).substr(0, 30 + 3679), 0, 60, 2,
         "_OUT_ getDatFromBinFile[PROV] Failure!!"},
        {"claims the most", image(kVersion, 17, 65535, 1), 0, 60, 2, "_OUT_ getDatFromBinFile[PROV] Failure!!"},
        {"not writable", image(kVersion, 17, 3, 3), EACCES, 60, 2, nullptr},
    };
    mountTwo();
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        writeSave(row.bytes);
        if (row.error != 0)
            system.inject(Call::Open, 1, row.error);
        trace.clear();
        EXPECT_EQ(fsInitInstance(&cInfo), 0);
        EXPECT_EQ(area(OXT_CID_FS_PROV)->datNum, row.records);
        EXPECT_EQ(fsTnum(fsCurrent()->areas)->FileSystemTotalNumber, row.records);
        EXPECT_EQ(fsConf(fsCurrent()->areas)->MonitorCycle, row.cycle);
        EXPECT_EQ(gfs_SleepSec.load(), row.cycle);
        EXPECT_EQ(system.segments().size(), row.records > 0 ? 3U : 2U);
        if (row.records > 0) {
            EXPECT_EQ(stored(0).FreeSpaceStatus, row.cycle == 17 ? 3 : 1) << "a loaded file keeps its statuses";
        }
        if (row.failure != nullptr) {
            EXPECT_THAT(trace.failures(), testing::Contains(row.failure));
        }
        EXPECT_EQ(fsFreeInstance(&cInfo), 0);
    }
    EXPECT_EQ(fileContent(savePath()), image(kVersion, 17, 3, 3)) << "reading changes nothing";
    std::filesystem::remove(savePath());
    ASSERT_EQ(mkfifo(savePath().c_str(), 0600), 0); // is not waited for
    EXPECT_EQ(fsInitInstance(&cInfo), 0);
    EXPECT_EQ(fsSetInstance(&cInfo), -1);
    std::filesystem::remove(savePath());
}

TEST_F(Store, TextsWithoutEndAreEnded) {
    std::string bytes = image(kVersion, 60, 2, 2);
    for (const size_t text : {4U, 260U, 516U, 772U, 1032U, 1312U, 1584U})
        bytes.replace(30 + 1840 + text, 256, 256, 'x');
    writeSave(bytes);
    mountTwo();
    initialise();
    const auto expectEnded = [](const FsProv &record) {
        for (const char *text : {record.CSCreationClassName, record.CSName, record.CreationClassName, record.Name,
                                 record.DeviceID, record._root, record._FileSystemType})
            EXPECT_EQ(strlen(text), 255U);
    };
    expectEnded(stored(1));
    // Another process may write into the segment.
    void *segment = shmat(shmFs[OXT_CID_FS_PROV].shmId, nullptr, 0);
    memset(segment, 'y', sizeof(FsProv));
    shmdt(segment);
    EXPECT_EQ(fsRefresh("test", &cInfo, OXT_CID_FS_PROV), 0);
    expectEnded(stored(0));
    EXPECT_EQ(get<FsProv>(OXT_CID_FS_PROV).size(), 2U);
}

TEST_F(Store, InitialisationThatFailsIsTriedAgain) {
    EXPECT_EQ(fsInitProvider(&cInfo), -1) << "no file system";
    EXPECT_EQ(gfs_first.load(), OXT_FS_UNINITIALISED);
    mountTwo();
    std::filesystem::remove_all(agentPath("work"));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(fsInitProvider(&cInfo), -1) << "no room for key files";
    std::filesystem::create_directories(agentPath("work"));
    std::filesystem::create_directories(agentPath("work/oxtfsshm.key2.bak.1/full")); // class 2 cannot move its key away
    system.inject(Call::Shmget, 1, 0, 0);
    EXPECT_EQ(fsInitProvider(&cInfo), 0);
    fsLeaveProvider();
    EXPECT_EQ(system.segments().size(), 3U);
    gfs_first.store(OXT_FS_UNINITIALISED); // as a try that failed at its last step leaves it
    EXPECT_EQ(fsInitProvider(&cInfo), 0);
    fsLeaveProvider();
    EXPECT_EQ(system.segments().size(), 3U) << "what an earlier try had made is gone";
    EXPECT_EQ(fsInitProvider(&cInfo), 0);
    fsLeaveProvider();
    EXPECT_TRUE(trace.contains("_OUT_ Already Initialize."));
}

TEST_F(Store, RequestsReadAndChangeIt) {
    mountTwo();
    initialise();
    const int before = system.calls(Call::Setmntent);
    EXPECT_EQ(get<FsConf>(OXT_CID_FS_CONF).at(0).MonitorCycle, 60);
    EXPECT_EQ(system.calls(Call::Setmntent), before) << "the configuration needs no pass";
    EXPECT_EQ(gfs_SleepSec.load(), 60);
    system.setMissing(true, false); // a failing pass is told; what is known is handed out all the same
    EXPECT_EQ(get<FsProv>(OXT_CID_FS_PROV, -1).size(), 2U);
    for (const int cid : {-1, 3, 99})
        EXPECT_THAT(get<FsTnum>(cid, -1), IsEmpty());

    system.speedUpWaits(100);
    pthread_mutex_lock(&instMutexFs); // busy
    EXPECT_THAT(get<FsConf>(OXT_CID_FS_CONF, -1), IsEmpty());
    EXPECT_EQ(fsSetInstance(&cInfo), -1);
    EXPECT_EQ(trace.countOf("_OUT_ nonsrvMutexLock(instMutexFs) Failure!!"), 2);
    pthread_mutex_unlock(&instMutexFs);
}

TEST_F(Store, FreeingGoesOnAfterAFailure) {
    mountTwo();
    initialise();
    const int kept = shmFs[OXT_CID_FS_CONF].shmId;
    shmFs[OXT_CID_FS_CONF].shmId = -1;
    EXPECT_EQ(fsFreeInstance(&cInfo), -1);
    EXPECT_THAT(system.segments(), ElementsAre(kept));
    EXPECT_TRUE(trace.contains("shmDestroy(0) Failure!!"));
    for (const DatInfo &freed : fsCurrent()->areas)
        EXPECT_EQ(freed.datAdr, nullptr);
    shmFs[OXT_CID_FS_CONF] = {kept, 1, nullptr, PTHREAD_MUTEX_INITIALIZER, OXT_SHM_EMPTY};
}

} // namespace
