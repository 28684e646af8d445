// The provider's life: first requests, clean-up in every state, and the watch thread.
#include "room.h"

#include <chrono>
#include <filesystem>
#include <utility>

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr unsigned kWarn = 0x800403E9;

class Life : public Room {
  protected:
    void SetUp() override {
        Room::SetUp();
        mountTwo();
    }
    template <class Condition> static bool becomes(Condition condition) {
        for (int i = 0; i < 10'000 && !condition(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return condition();
    }
    void startThread() {
        g_srvmod.store(1);
        ASSERT_EQ(fsCreateThread(&cInfo), 0);
    }
    // Passes end with a sleep; each of them sees what was mounted before the call.
    bool passes(size_t count) {
        const size_t wanted = system.sleeps().size() + count + 1;
        return becomes([&] { return system.sleeps().size() >= wanted; });
    }
    std::string message(const CMPIStatus &status) {
        return status.msg != nullptr ? CMGetCharsPtr(status.msg, nullptr) : "";
    }
};

TEST_F(Life, RequestsGiveUpOnAnInitialisationThatDoesNotEnd) {
    system.speedUpWaits(100);
    gfs_first.store(OXT_FS_IN_PROGRESS);
    EXPECT_EQ(fsInitProvider(&cInfo), -1);
    EXPECT_EQ(system.calls(Call::Usleep), 30);
    EXPECT_THAT(trace.failures(), ElementsAre("_OUT_ gfs_first Failure!!"));
    EXPECT_EQ(gfs_first.load(), OXT_FS_IN_PROGRESS);
}

TEST_F(Life, CleanUpInEachState) {
    enum { BUILT = 1, THREAD = 2, NO_DATA = 4, TERMINATING = 8, INSIDE = 16 };
    const struct {
        int mode, given;
        CMPIrc rc;
        const char *message;
        int state;
        const char *line;
    } rows[] = {
        {0, 0, CMPI_RC_OK, "", 0, "_OUT_ rc=[CMPI_RC_OK] Already CleanUp."},
        {0, BUILT, CMPI_RC_OK, "", 0, "pthread_mutex_destroy(instMutexFs)"},
        {0, BUILT | TERMINATING, CMPI_RC_OK, "", 0, "fsFreeInstance()"},
        {0, BUILT | NO_DATA, CMPI_RC_ERR_FAILED, "fsSetInstance() Failure!!", 2, "fsSetInstance Failure!!"},
        {0, BUILT | INSIDE, CMPI_RC_ERR_FAILED, "fsSetInstance() Failure!!", 2, "fsSetInstance Failure!!"},
        {1, 0, CMPI_RC_OK, "", 0, "ServiceMode but Non-Thread."},
        {1, BUILT, CMPI_RC_OK, "", 2, "ServiceMode but Non-Thread."},
        {1, BUILT | TERMINATING, CMPI_RC_OK, "", 2, "_OUT_ rc=[CMPI_RC_OK]"},
        {1, BUILT | INSIDE, CMPI_RC_DO_NOT_UNLOAD, "", 2, "fsFreeInstance() Failure!!"},
        {1, BUILT | THREAD, CMPI_RC_DO_NOT_UNLOAD, "MonitorThread is Running!!", 2, "CleanUp TimeOut."},
        {1, BUILT | THREAD | TERMINATING, CMPI_RC_OK, "", 0, "CleanUp Exit SFCB."},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << row.mode << "/" << row.given);
        g_srvmod.store(row.mode);
        gfs_first.store(OXT_FS_UNINITIALISED);
        system.speedUpWaits(1000);
        emptyAgentDirectory();
        if ((row.given & BUILT) != 0)
            initialise();
        if ((row.given & THREAD) != 0) {
            startThread();
            ASSERT_TRUE(passes(1));
        }
        if ((row.given & NO_DATA) != 0)
            std::filesystem::remove_all(agentPath("data"));
        if ((row.given & INSIDE) != 0) {
            EXPECT_EQ(fsInitProvider(&cInfo), 0); // a request that does not end
        }
        const CMPIStatus status = fsCleanUpProvider(&cInfo, (row.given & TERMINATING) != 0);
        EXPECT_EQ(status.rc, row.rc);
        EXPECT_EQ(message(status), row.message);
        EXPECT_EQ(gfs_first.load(), row.state);
        const bool kept = row.rc != CMPI_RC_OK;
        EXPECT_EQ(system.segments().size(), kept ? 3U : 0U);
        // Saved outside service mode, and by the thread.
        const bool saves = row.rc == CMPI_RC_OK && row.mode == 0 && row.given != 0;
        EXPECT_EQ(std::filesystem::exists(savePath()), saves || (row.given & THREAD) != 0);
        EXPECT_TRUE(trace.contains(row.line));
        if ((row.given & INSIDE) != 0)
            fsLeaveProvider();
        if (gfs_thid.load() != 0)
            fsExitThread(&cInfo);
        std::filesystem::create_directories(agentPath("data"));
        g_srvmod.store(0);
        if (kept) {
            EXPECT_EQ(fsCleanUpProvider(&cInfo, false).rc, CMPI_RC_OK) << "a later clean-up tries again";
            EXPECT_THAT(system.segments(), IsEmpty());
        }
    }
    EXPECT_EQ(fsCleanUpProvider(nullptr, false).rc, CMPI_RC_ERR_FAILED);
}

TEST_F(Life, ARefusedStopDropsTheStore) {
    initialise();
    ASSERT_EQ(fsInitProvider(&cInfo), 0);
    const FsSnapshot *read = fsTake();
    EXPECT_EQ(fsDropStore(&cInfo), 0) << "no request is waited for";
    EXPECT_STREQ(fsProv(&read->areas[OXT_CID_FS_PROV])[1]._root, "/data") << "it keeps what it reads";
    fsDrop(read);
    fsLeaveProvider();
    EXPECT_EQ(gfs_first.load(), OXT_FS_INITIALISED);
    EXPECT_THAT(system.segments(), IsEmpty());
    gfs_first.store(OXT_FS_UNINITIALISED);
    initialise();
    startThread();
    EXPECT_EQ(fsDropStore(&cInfo), -1);
    EXPECT_EQ(system.segments().size(), 3U);
}

TEST_F(Life, WithTheThreadRequestsReadSharedMemory) {
    initialise();
    startThread();
    ASSERT_TRUE(becomes([&] { return system.sleeps().size() == 1; }));
    const int before = system.calls(Call::Setmntent);
    system.setFree("/data", 1);
    EXPECT_EQ(get<FsProv>(OXT_CID_FS_PROV).at(1)._AvailableSpace, 500);
    EXPECT_EQ(get<FsTnum>(OXT_CID_FS_TNUM).at(0).FileSystemTotalNumber, 2);
    EXPECT_EQ(system.calls(Call::Setmntent), before) << "no pass of their own";
    ShmInfo &segment = shmFs[OXT_CID_FS_PROV];
    segment.content = OXT_SHM_EMPTY; // made and not filled yet: its zeros are no records
    EXPECT_THAT(get<FsProv>(OXT_CID_FS_PROV), IsEmpty());
    segment.content = OXT_SHM_CURRENT;
    system.inject(Call::Shmat, 3, EACCES);
    storeChange(1, [](FsProv &record) { record.WarningThreshold = 123; });
    EXPECT_EQ(get<FsProv>(OXT_CID_FS_PROV).at(1).WarningThreshold, 123U) << "the segment is the older of the two";
    const int records = std::exchange(segment.shmNum, 0);
    EXPECT_THAT(get<FsProv>(OXT_CID_FS_PROV), IsEmpty()) << "no segment, no records";
    segment.shmNum = records;
    // Once it has stopped, a request in service mode runs a pass, which sends alerts like the thread's.
    fsExitThread(&cInfo);
    initialise();
    system.setFree("/", 100);
    EXPECT_EQ(get<FsProv>(OXT_CID_FS_PROV).at(0).FreeSpaceStatus, 2);
    EXPECT_THAT(trace.alertIds(), testing::Contains(kWarn));
}

// While nobody traces, a segment is read back only when another process may have changed it.
TEST_F(Life, WhatAnotherProcessWritesIsRead) {
    initialise();
    startThread();
    ASSERT_TRUE(becomes([&] { return system.sleeps().size() == 1; }));
    const auto threshold = [&] {
        return silently([&] { return get<FsProv>(OXT_CID_FS_PROV).at(1).WarningThreshold; });
    };
    threshold();
    const int before = system.calls(Call::Shmat);
    EXPECT_EQ(threshold(), 100U);
    EXPECT_EQ(system.calls(Call::Shmat), before) << "nobody has touched it";
    int go[2], done[2];
    ASSERT_TRUE(pipe(go) == 0 && pipe(done) == 0);
    const auto wait = [](int fd) {
        char byte;
        return read(fd, &byte, 1) == 1;
    };
    const int segment = shmFs[OXT_CID_FS_PROV].shmId;
    const pid_t child = fork();
    if (child == 0) { // holds it, writes into what it holds, and lets go of it
        wait(go[0]);
        FsProv *records = reinterpret_cast<FsProv *>(syscall(SYS_shmat, segment, nullptr, 0));
        for (const uint32_t value : {77U, 78U, 79U}) {
            records[1].WarningThreshold = value;
            if (value == 79)
                syscall(SYS_shmdt, records);
            if (write(done[1], "", 1) != 1 || !wait(go[0]))
                break;
        }
        _exit(0);
    }
    for (const uint32_t value : {77U, 78U, 79U}) {
        ASSERT_TRUE(write(go[1], "", 1) == 1 && wait(done[0]));
        EXPECT_EQ(threshold(), value);
    }
    EXPECT_EQ(write(go[1], "", 1), 1);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    for (const int fd : {go[0], go[1], done[0], done[1]})
        close(fd);
}

TEST_F(Life, TheThreadRestsByTheCycleAndSurvivesAFailedPass) {
    initialise();
    system.speedUpWaits(1000);
    startThread();
    EXPECT_EQ(getThreadSts(fsGetThreadID()), 1);
    system.setMissing(true, false);
    ASSERT_TRUE(passes(2));
    EXPECT_TRUE(trace.contains("fsCheckConfigChange() Failure!!"));
    system.setMissing(false, false);
    const FsConf conf = get<FsConf>(OXT_CID_FS_CONF).at(0);
    for (const unsigned cycle : {7U, 0U}) { // a cycle of 0 still rests
        const FsEdit edit = {OXT_CID_FS_CONF, 0, &conf, offsetof(FsConf, MonitorCycle), 2, cycle};
        EXPECT_EQ(fsSetInstance(&cInfo, &edit), 0);
        ASSERT_TRUE(passes(2));
        EXPECT_EQ(system.sleeps().back(), cycle == 0 ? 1U : cycle);
    }
    fsExitThread(&cInfo);
    EXPECT_EQ(gfs_first.load(), OXT_FS_UNINITIALISED);
    EXPECT_EQ(fileContent(savePath()).size(), 30U + 2 * 1840);
    EXPECT_EQ(fileContent(savePath()).substr(18, 2), std::string(2, '\0'));
    // Without a thread a stop saves and frees all the same.
    initialise();
    std::filesystem::remove(savePath());
    fsExitThread(&cInfo);
    EXPECT_FALSE(trace.contains("pthread_join()"));
    EXPECT_EQ(gfs_first.load(), OXT_FS_UNINITIALISED);
    EXPECT_THAT(system.segments(), IsEmpty());
    EXPECT_EQ(fileContent(savePath()).size(), 30U + 2 * 1840);
}

TEST_F(Life, AThreadThatEndedLeavesNothing) {
    initialise();
    const long contexts = broker->registry.live().contexts;
    EXPECT_EQ(fsCreateThread(nullptr), -1);
    broker->plan.set("prepareAttachThread", 1);
    EXPECT_EQ(fsCreateThread(&cInfo), -1);
    EXPECT_EQ(broker->registry.live().contexts, contexts);
    for (int i = 0; i < 3; ++i) {
        startThread();
        ASSERT_TRUE(becomes([&] { return system.sleeps().size() == static_cast<size_t>(i + 1); }));
        EXPECT_EQ(oxtThreadCancel(fsGetThreadID()), 0);
        EXPECT_TRUE(becomes([&] { return getThreadSts(&gfs_thid) == 0; }));
        EXPECT_EQ(gfs_thid.load(), 0U);
        EXPECT_EQ(broker->registry.live().contexts, contexts + 1) << "the next start releases it";
    }
    fsExitThread(&cInfo);
    EXPECT_EQ(broker->registry.live().contexts, contexts);
}

} // namespace
