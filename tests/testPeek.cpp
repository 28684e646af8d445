// What oxtfsctl reads of a provider from outside: the records in shared memory, the save file. The provider's own code
// makes them, and judges what it would load.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "agentDir.h"
#include "failure.h"
#include "keyedSegment.h"
#include "oxtFile.h"
#include "oxtFsSave.h"
#include "oxtPaths.h"
#include "oxtShm.h"
#include "passSigns.h"
#include "recordSession.h"
#include "saveFile.h"
#include "segments.h"
#include "shownText.h"
#include "values.h"

namespace {

using namespace oxttool;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

constexpr FsConf kConf = {60, 10, 3600, 60};

FsProv record(int position, char mark = 'a') {
    FsProv prov = {};
    prov.Index = static_cast<uint16_t>(position + 1);
    memset(prov.Name, mark, 200);
    memset(prov._root, mark, 250);
    prov._root[0] = '/';
    prov.MonitorThreshold = 1;
    prov.WarningThreshold = prov.WarningThresholdDefault = 100;
    prov.FatalThreshold = prov.FatalThresholdDefault = 10;
    prov.FreeSpaceStatus = 1;
    prov._FileSystemSize = 1000;
    prov._AvailableSpace = 500 + mark;
    strcpy(prov._FileSystemType, "ext4");
    return prov;
}

template <class Record> std::string bytesOf(const Record &record) {
    return {reinterpret_cast<const char *>(&record), sizeof record};
}

// The bytes of all three classes.
struct Image {
    explicit Image(int count, char mark = 'a') : conf(bytesOf(kConf)) {
        total = bytesOf(FsTnum{static_cast<uint16_t>(count), 0});
        for (int i = 0; i < count; ++i)
            provs += bytesOf(record(i, mark));
    }
    void setConf(uint16_t cycle, uint16_t least) {
        const FsConf changed = {cycle, least, 3600, 60};
        conf = bytesOf(changed);
    }
    FsProv &prov(std::size_t i) { return reinterpret_cast<FsProv *>(provs.data())[i]; }
    Segments parse() const { return parseSegments(conf, total, provs); }
    std::string file() const { return OXT_DAT_FS_VERNAME + conf + total + provs; }
    std::string conf, total, provs;
};

class Peek : public ::testing::Test {
  protected:
    void SetUp() override {
        char name[] = "/tmp/oxtpeekXXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        root_ = std::string(name) + "/";
        std::filesystem::create_directory(root_ + "work");
    }
    void TearDown() override {
        removeSegments();
        std::filesystem::remove_all(root_);
    }
    void removeSegments() const {
        for (int digit = 0; digit < 3; ++digit)
            if (const int id = shmget(ftok(keyFileOf(root_, digit).c_str(), OXT_SHMKEY_PROJECT), 0, 0); id > 0)
                shmctl(id, IPC_RMID, nullptr);
    }
    int makeSegment(int digit, const std::string &bytes) const {
        const int id = makeUnderKey(keyFileOf(root_, digit), OXT_SHMKEY_PROJECT, bytes.size(), root_ + "taken");
        void *at = shmat(id, nullptr, 0);
        memcpy(at, bytes.data(), bytes.size());
        shmdt(at);
        return id;
    }
    // What the reading fails with; empty when it does not.
    std::string failure(milliseconds patience = milliseconds(20)) const {
        try {
            readSegments(root_, patience);
        } catch (const Failure &problem) {
            EXPECT_EQ(problem.exitCode, Exit::Environment);
            return problem.what();
        }
        return "";
    }
    std::string root_;
};

TEST_F(Peek, SegmentsAreJudgedTogether) {
    const struct {
        const char *what;
        std::function<void(Image &)> damage;
        Segments::State state;
    } rows[] = {
        {"sound", [](Image &) {}, Segments::Complete},
        {"no file system", [](Image &i) { i = Image(0); }, Segments::Complete},
        {"empty", [](Image &i) { i.conf = i.total = i.provs = ""; }, Segments::WrongSize},
        {"short configuration", [](Image &i) { i.conf.pop_back(); }, Segments::WrongSize},
        {"two configurations", [](Image &i) { i.conf += i.conf; }, Segments::WrongSize},
        {"a page of total number", [](Image &i) { i.total.resize(4096); }, Segments::WrongSize},
        {"half a record", [](Image &i) { i.provs.resize(1840 + 920); }, Segments::WrongSize},
        {"new configuration", [](Image &i) { i.conf.assign(8, 0); }, Segments::NoDataYet},
        {"new records", [](Image &i) { i.provs.assign(3 * 1840, 0); }, Segments::NoDataYet},
        {"filled up to the last", [](Image &i) { i.prov(2) = {}; }, Segments::NoDataYet},
        {"counts more", [](Image &i) { i.total = Image(4).total; }, Segments::Disagreeing},
        {"counts fewer", [](Image &i) { i.total = Image(2).total; }, Segments::Disagreeing},
        {"counts and keeps none", [](Image &i) { i.provs = ""; }, Segments::Disagreeing},
    };
    for (const auto &row : rows) {
        Image image(3);
        row.damage(image);
        const Segments parsed = image.parse();
        EXPECT_EQ(parsed.state, row.state) << row.what << ": " << parsed.problem;
        EXPECT_EQ(parsed.problem.empty(), row.state == Segments::Complete) << row.what;
    }
}

TEST_F(Peek, RecordsThatMakeNoSenseStayInsideTheirFields) {
    Image image(1);
    FsProv &prov = image.prov(0);
    prov.Index = 65535;
    memset(prov.Name, 'n', sizeof prov.Name);
    memset(prov._root, '\xff', sizeof prov._root);
    memset(prov._FileSystemType, 't', sizeof prov._FileSystemType); // the record's last bytes
    prov.DriveType = prov.FreeSpaceStatus = -32768;
    prov.MonitorThreshold = 65535;
    prov.WarningThreshold = prov.FatalThreshold = 4294967295;
    prov._FileSystemSize = -1;
    prov._AvailableSpace = INT64_MAX;
    const Segments parsed = image.parse();
    ASSERT_EQ(parsed.state, Segments::Complete);
    const FileSystem &fs = parsed.fileSystems.at(0);
    EXPECT_EQ(fs.index + fs.device + fs.mountPoint + fs.type,
              "65535" + std::string(255, 'n') + std::string(255, '\xff') + std::string(255, 't'));
    EXPECT_EQ(driveName(fs.driveType) + std::string(statusName(fs.status)), "unknownunknown");
    EXPECT_THAT((std::vector{fs.sizeMiB, fs.freeMiB, fs.warningMiB}), ElementsAre(0, 0, 4294967295));
}

bool providerLoads(std::string bytes) {
    const OxtFile file(fmemopen(bytes.data(), bytes.size(), "r"));
    DatInfo areas[OXT_CID_FS_COUNT];
    fsInitDatInfo(areas);
    areas[0].datAdr = memalloc(sizeof(FsConf));
    areas[1].datAdr = memalloc(sizeof(FsTnum));
    const bool loads = fsGetBinFile(file.get(), areas) == 0;
    for (DatInfo &area : areas)
        free(area.datAdr);
    return loads;
}

TEST_F(Peek, SaveFilesAreToldAsTheProviderTakesThem) {
    const struct {
        std::function<void(Image &)> damage;
        std::string finding; // the one there is; empty for none
    } rows[] = {
        {[](Image &) {}, ""},
        {[](Image &i) { i.prov(1)._FileSystemSize = 0; }, ""},
        {[](Image &i) { i.total = Image(3).total; }, "counts 3 file systems and ends after 2 whole records"},
        {[](Image &i) { i.provs.pop_back(); }, "counts 2 file systems and ends after 1 whole records"},
        {[](Image &i) { i.total = Image(1).total; }, "bytes follow the last record, from 1870 on"},
        {[](Image &i) { i.total[2] = 1; }, "reserved is 1, not 0"},
        {[](Image &i) { i.setConf(9, 10); }, "MonitorCycle is 9, which is none of 10 to 3600"},
        {[](Image &i) { i.setConf(3601, 10); }, "MonitorCycle is 3601"},
        {[](Image &i) { i.setConf(60, 0); }, "MonitorCycleMin is 0, not 10"},
        {[](Image &i) { i.prov(1).Index = 0; }, "record 2: Index is 0, which is none of 1 to 65535"},
        {[](Image &i) { i.prov(1).Index = 1; }, "record 2: Index is 1, not the position"},
        {[](Image &i) { i.prov(0).DriveType = 4; }, "record 1: DriveType is 4, which is none of -1 to 3"},
        {[](Image &i) { i.prov(0).MonitorThreshold = 2; }, "MonitorThreshold is 2"},
        {[](Image &i) { i.prov(0).WarningThreshold = 1001; },
         "WarningThreshold is 1001 MiB, above the size of 1000 MiB"},
        {[](Image &i) { i.prov(0).FatalThreshold = 0; }, "FatalThreshold is 0"},
        {[](Image &i) { i.prov(0)._AvailableSpace = 1001; }, "_AvailableSpace is 1001 MiB of 1000"},
        {[](Image &i) { memset(i.prov(0).Name, 'x', 256); }, "record 1: Name has no end"},
        {[](Image &i) { i.prov(0)._root[0] = '\0'; }, "_root is empty"},
        {[](Image &i) { strcpy(i.prov(0).CSName, "a\033b"); }, "CSName is \"a\\x1bb\", not empty"},
        {[](Image &i) { strcpy(i.prov(0)._FileSystemType, "btrfs"); }, "_FileSystemType is \"btrfs\""},
    };
    for (const auto &row : rows) {
        Image image(2);
        row.damage(image);
        const SaveFile file = parseSaveFile(image.file());
        EXPECT_EQ(file.loads(), providerLoads(image.file())) << row.finding;
        ASSERT_EQ(file.findings.size(), row.finding.empty() ? 0U : 1U) << row.finding;
        EXPECT_THAT(file.findings.empty() ? "" : file.findings[0].text, HasSubstr(row.finding));
    }
    std::string older = Image(2).file();
    older[10] = '2';
    EXPECT_THAT(parseSaveFile(older).findings.at(0).text, HasSubstr("version line"));
    EXPECT_TRUE(parseSaveFile(older).loads());
}

TEST_F(Peek, SaveFilesOnTheDisk) {
    const std::string path = root_ + "save";
    EXPECT_THROW(readSaveFile(path), Failure);
    std::ofstream(path) << Image(3).file();
    EXPECT_TRUE(readSaveFile(path).loads());
    std::filesystem::create_symlink(path, root_ + "link");
    EXPECT_FALSE(readSaveFile(root_ + "link").loads());
    EXPECT_EQ(readSaveFile(root_ + "link").fileSystems.size(), 3U);
    ASSERT_EQ(mkfifo((root_ + "pipe").c_str(), 0600), 0);
    EXPECT_FALSE(readSaveFile(root_ + "pipe").loads());
    EXPECT_FALSE(readSaveFile(root_).loads());
    // Found in the middle of being written: it is read again.
    std::filesystem::resize_file(path, 40);
    std::thread writer([&path] {
        std::this_thread::sleep_for(milliseconds(25));
        std::ofstream(path) << Image(3).file();
    });
    EXPECT_TRUE(readSaveFile(path).loads());
    writer.join();
    // As a monitor judges it after a pass.
    std::filesystem::create_directory(root_ + "data");
    std::filesystem::rename(path, root_ + "data/" + kSaveFileName);
    EXPECT_TRUE(isSaveWhole(root_));
    for (const std::uintmax_t less : {30 + 3 * sizeof(FsProv) - 1, std::size_t{30}, std::size_t{29}, std::size_t{0}}) {
        std::filesystem::resize_file(root_ + "data/" + kSaveFileName, less);
        EXPECT_FALSE(isSaveWhole(root_)) << less;
    }
    EXPECT_THAT(withDirectoryProblem("why", root_),
                HasSubstr("why; the agent's directory " + root_ + "log is missing"));
}

TEST_F(Peek, SegmentsThatAreNotThereOrNotReady) {
    EXPECT_THAT(failure(), HasSubstr("no provider is running"));
    const Image image(2);
    makeSegment(0, image.conf);
    EXPECT_THAT(failure(), HasSubstr("total number is missing"));
    makeSegment(1, image.total);
    EXPECT_THAT(failure(), HasSubstr("counts 2 file systems and keeps 0"));
    for (const auto &[bytes, problem] :
         {std::pair(std::string(image.provs.size(), '\0'), "not filled"), std::pair(image.provs + "x", "3681 bytes")}) {
        const int wrong = makeSegment(2, bytes);
        EXPECT_THAT(failure(), HasSubstr(problem));
        shmctl(wrong, IPC_RMID, nullptr);
    }
    const int id = makeSegment(2, image.provs);
    const LiveRecords live = readSegments(root_);
    EXPECT_EQ(live.fileSystems.size(), 2U);
    EXPECT_EQ(live.pid, getpid());
    // Somebody keeps it attached: perhaps in the middle of a copy, whose half stays the same for as long.
    void *at = shmat(id, nullptr, 0);
    EXPECT_THAT(failure(milliseconds(1000)), HasSubstr("could not be copied whole"));
    shmdt(at);
    EXPECT_EQ(failure(), "");
    shmid_ds about = {};
    shmctl(id, IPC_STAT, &about);
    EXPECT_EQ(about.shm_nattch, 0U);
    EXPECT_EQ(about.shm_perm.mode, 0600U);
}

TEST_F(Peek, RecordsThatNobodyRefreshesAreNotTakenForAWatch) {
    const Image image(1);
    const std::string *bytes[] = {&image.conf, &image.total, &image.provs};
    for (int digit = 0; digit < 3; ++digit)
        makeSegment(digit, *bytes[digit]);
    const LiveRecords live = readSegments(root_);
    EXPECT_FALSE(isOverdue(live, live.measured - 1000)) << "a clock that was set back";
    EXPECT_FALSE(isOverdue(live, live.measured + 150));
    EXPECT_TRUE(isOverdue(live, live.measured + 151));
    EXPECT_EQ(doubtOf(live), "");
    EXPECT_THAT(sourceOf(live), EndsWith("cycle 60 s."));
    EXPECT_THAT(metricsOf(live), ::testing::AllOf(HasSubstr("\noxtfs_monitor_up 1\n"), HasSubstr("last_success"),
                                                  ::testing::Not(HasSubstr("passes"))));
    LiveRecords old = live;
    old.measured -= 400;
    EXPECT_THAT(doubtOf(old), HasSubstr("Nothing monitors there: the last look was 40"));
    EXPECT_THAT(sourceOf(old), EndsWith(" s ago, at a cycle of 60 s."));
    EXPECT_THAT(metricsOf(old), HasSubstr("\noxtfs_monitor_up 0\n"));
}

// A provider's segments, rewritten by its own functions in turn as two images: at full speed, with a breath now and
// then, for readers find hardly a gap at all otherwise. The breaths grow, so that a reader on a slow or busy machine
// or under a sanitizer finds its gap, too.
[[noreturn]] void rewriteForEver(const std::string &root, Image *images) {
    const OxtCInfo cInfo = {};
    g_srvmod.store(0);
    DatInfo areas[OXT_CID_FS_COUNT];
    fsInitDatInfo(areas);
    constexpr ShmInfo none = {-1, 0, nullptr, PTHREAD_MUTEX_INITIALIZER, false};
    ShmInfo shm[] = {none, none, none};
    const std::string base = root + "work/oxtfsshm.key";
    for (std::size_t round = 0;; ++round) {
        Image &image = images[round % 2];
        const int count = static_cast<int>(image.provs.size() / sizeof(FsProv));
        areas[0].datAdr = image.conf.data();
        areas[1].datAdr = image.total.data();
        areas[2].datAdr = nullptr; // the resize's own block
        areas[2].datNum = count;
        if (round == 0 && shmNew(&cInfo, 2, base.c_str(), areas, shm) != 0)
            _exit(1);
        if (shm[2].shmNum != count && reallocDatArea(&cInfo, base.c_str(), 2, &areas[2], &shm[2]) != 0)
            _exit(1);
        free(areas[2].datAdr);
        areas[2].datAdr = image.provs.data();
        for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid)
            setInstToShm(&cInfo, &areas[cid], &shm[cid]);
        if (round % 7 == 0)
            std::this_thread::sleep_for(std::chrono::microseconds(100 + round));
    }
}

// The mark of the image that the records are from, all of them and wholly; 0 for a mixture.
char markOf(const std::vector<FileSystem> &all) {
    const char mark = all.empty() ? '\0' : all[0].device[0];
    for (std::size_t i = 0; i < all.size(); ++i) {
        const bool same = all[i].index == std::to_string(i + 1) && all[i].device == std::string(200, mark) &&
                          all[i].mountPoint == "/" + std::string(249, mark) && all[i].sizeMiB == 1000 &&
                          all[i].freeMiB == 500U + static_cast<unsigned>(mark);
        if (!same)
            return '\0';
    }
    return mark;
}

struct Writer {
    Writer(const std::string &root, Image *images) : pid(fork()) {
        if (pid == 0)
            rewriteForEver(root, images);
    }
    ~Writer() {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    bool ended() const { return waitpid(pid, nullptr, WNOHANG) != 0; }
    const pid_t pid;
};

TEST_F(Peek, NothingTornIsReadFromAProviderThatWritesAllTheTime) {
    constexpr int kEnough = 50;
    Image images[] = {Image(40, 'a'), Image(25, 'b')};
    int seen[2] = {};
    std::string problem;
    {
        const Writer writer(root_, images);
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (std::min(seen[0], seen[1]) < kEnough && std::chrono::steady_clock::now() < end) {
            try {
                const LiveRecords live = readSegments(root_);
                const char mark = markOf(live.fileSystems);
                ASSERT_TRUE(mark == 'a' || mark == 'b') << "torn";
                ASSERT_EQ(live.fileSystems.size(), mark == 'a' ? 40U : 25U);
                ASSERT_EQ(live.cycle.seconds, 60U);
                ASSERT_EQ(live.pid, writer.pid);
                ++seen[mark - 'a'];
            } catch (const Failure &failure) { // before the first round, or never a gap between two writes
                problem = failure.what();
            }
        }
        EXPECT_FALSE(writer.ended());
    }
    EXPECT_GE(std::min(seen[0], seen[1]), 1) << problem; // how many a slow machine gets is not the question
    EXPECT_THAT(failure(), HasSubstr("no provider is running")) << "its maker is dead";
}

TEST(KnownRecords, AnswerAsAProviderWould) {
    std::vector<FileSystem> all(2);
    all[0].index = "1";
    all[1].index = "2";
    const Cycle cycle;
    const KnownRecords known = {all, cycle, std::nullopt};
    const oxthost::Reply second = instanceFrom(known, kFileSystemClass, {{"Index", oxthost::Value::string("2")}});
    ASSERT_EQ(second.instances.size(), 1u);
    EXPECT_EQ(fileSystemOf(second.instances[0]).index, "2");
    for (const std::string index : {"3", ""})
        EXPECT_EQ(instanceFrom(known, kFileSystemClass, {{"Index", oxthost::Value::string(index)}}).message,
                  "NotFound Index");
    EXPECT_EQ(instanceFrom(known, kFileSystemClass, {}).message, "NotFound Index");
    EXPECT_EQ(totalOf(instanceFrom(known, kTotalClass, {}).instances.at(0)), 2u);
    EXPECT_FALSE(threadRunsOf(instancesFrom(known, kThreadClass).instances.at(0)));
    EXPECT_EQ(instancesFrom(known, "OXT_Other").message, "Generic Failure!!");
}

} // namespace
