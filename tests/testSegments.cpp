// Shared-memory segments: key files, stale keys, copies and resizing.
#include "keyedSegment.h"
#include "room.h"

#include <cstring>
#include <filesystem>

#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class Segments : public Room {
  protected:
    int create(int cid, int size) { return shmCreate(&cInfo, &shm, base.c_str(), cid, size); }
    // "key2 key2.bak.1", sorted.
    static std::vector<std::string> workFiles() {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(agentPath("work")))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    static bool exists(int id) {
        struct shmid_ds ds = {};
        return shmctl(id, IPC_STAT, &ds) == 0;
    }
    const std::string base = agentPath("work/key");
    ShmInfo shm = {-1, 0, nullptr, PTHREAD_MUTEX_INITIALIZER, OXT_SHM_EMPTY};
};

TEST_F(Segments, ANewOneIsTheOwnersAlone) {
    const int id = shm.shmId = create(2, 1840);
    struct shmid_ds ds = {};
    ASSERT_EQ(shmctl(id, IPC_STAT, &ds), 0);
    EXPECT_EQ(ds.shm_perm.mode & 0777, 0600U);
    EXPECT_EQ(ds.shm_segsz, 1840U);
    EXPECT_EQ(ds.shm_perm.__key, ftok((base + "2").c_str(), 69));
    EXPECT_TRUE(trace.contains("KeyFile NewCreate(" + base + "2)"));
    EXPECT_EQ(shmDestroy(&cInfo, &shm), 0);
    EXPECT_FALSE(exists(id));
    EXPECT_EQ(shm.shmId, -1);
    const std::string none = agentPath("none/key"); // a directory that is missing
    EXPECT_EQ(shmCreate(&cInfo, &shm, none.c_str(), 2, 8), -1);
    EXPECT_THAT(trace.failures(), ElementsAre("_OUT_ fopen Failure!! fnm=[" + none + "2] errno=[2]"));

    system.inject(Call::Shmget, 1, 0, 0); // an identifier of 0 is never used
    trace.clear();
    shm.shmId = create(0, 8);
    EXPECT_GT(shm.shmId, 0);
    EXPECT_THAT(trace.failures(), IsEmpty());
    EXPECT_TRUE(trace.contains("shmget[2]=OK. shmId=[" + std::to_string(shm.shmId) + "]"));
    EXPECT_THAT(workFiles(), ElementsAre("key0", "key2"));
    shmDestroy(&cInfo, &shm);
}

TEST_F(Segments, StaleKeysAreSteppedAround) {
    const int stale = makeUnderKey(base + "2", OXT_SHMKEY_PROJECT, 100, agentPath("data/taken"));
    shm.shmId = create(2, 1840);
    EXPECT_GT(shm.shmId, 0);
    EXPECT_NE(shm.shmId, stale);
    EXPECT_TRUE(exists(stale)) << "its maker lives";
    EXPECT_THAT(trace.failures(), testing::Contains(testing::StartsWith("shmget[1]=retry. shmId=[-1]")));
    EXPECT_TRUE(trace.contains("unlink[" + base + "2.bak.1]"));
    EXPECT_THAT(workFiles(), ElementsAre("key2"));
    shmDestroy(&cInfo, &shm);
    shmctl(stale, IPC_RMID, nullptr);

    // A dead provider's segment is cleared away.
    const pid_t child = fork();
    if (child == 0)
        _exit(makeUnderKey(base + "1", OXT_SHMKEY_PROJECT, 100, agentPath("data/taken")) > 0 ? 0 : 1);
    int status = 1;
    waitpid(child, &status, 0);
    ASSERT_EQ(status, 0);
    const int orphan = shmget(ftok((base + "1").c_str(), OXT_SHMKEY_PROJECT), 0, 0);
    ASSERT_TRUE(exists(orphan));
    shm.shmId = create(1, 4);
    EXPECT_FALSE(exists(orphan));
    shmDestroy(&cInfo, &shm);
}

// A key that is taken is stepped around as often as it takes. What else the kernel refuses, no other key mends.
TEST_F(Segments, ARefusalIsTriedAgainForAWhile) {
    for (int call = 1; call <= 200; ++call) // a look at who has the key follows each try
        system.inject(Call::Shmget, call, EEXIST);
    shm.shmId = create(0, 8);
    EXPECT_TRUE(trace.contains("shmget[101]=OK. shmId=[" + std::to_string(shm.shmId) + "]"));
    shmDestroy(&cInfo, &shm);
    trace.clear();
    const auto tries = [this] { return trace.failures().size() - 1; }; // the last line tells their end
    system.inject(Call::Shmget, 0, ENOSPC);
    EXPECT_EQ(create(0, 8), -1);
    EXPECT_EQ(errno, ENOSPC) << "what the kernel refused with";
    EXPECT_EQ(tries(), 64U);
    EXPECT_EQ(trace.failures().back(), "_OUT_ shmget Failure!!*[65]");
    EXPECT_TRUE(trace.contains("unlink[" + base + "0.bak.64]"));
    EXPECT_THAT(workFiles(), IsEmpty());
    trace.clear();
    withFake([](FakeState &s) { s.shmgetMs = 900; });
    EXPECT_EQ(create(0, 8), -1);
    EXPECT_THAT(tries(), testing::AllOf(testing::Ge(2U), testing::Le(4U))) << "3 seconds";
    withFake([](FakeState &s) { s.shmgetMs = 0; });
    system.stopInjecting();
}

TEST_F(Segments, ABusyMutexStopsAllButTheRemoval) {
    g_srvmod.store(1);
    shm.shmId = create(0, 8);
    DatInfo area = {8, 1, memalloc(8)};
    const int id = shm.shmId;
    shm.shmNum = 1;
    system.speedUpWaits(100);
    std::thread([&] { pthread_mutex_lock(&shm.mutex); }).join();
    trace.clear();
    EXPECT_EQ(setInstToShm(&cInfo, &area, &shm), -1);
    EXPECT_EQ(setShmToInst(&cInfo, &shm, &area), -1);
    EXPECT_EQ(create(1, 8), -1);
    EXPECT_EQ(trace.countOf("_OUT_ thmutex_lock Failure!!"), 3);
    EXPECT_EQ(shmDestroy(&cInfo, &shm), 0);
    EXPECT_TRUE(trace.contains("thmutex_lock Failure!!"));
    EXPECT_FALSE(exists(id));
    free(area.datAdr);
}

TEST_F(Segments, RemovalForgetsWhateverTheSystemSays) {
    for (const int id : {0, -1}) {
        ShmInfo none = {id, 3, nullptr, PTHREAD_MUTEX_INITIALIZER, OXT_SHM_EMPTY};
        EXPECT_EQ(shmDestroy(&cInfo, &none), -1);
        EXPECT_EQ(none.shmNum, 3);
    }
    EXPECT_EQ(shmDestroy(&cInfo, nullptr), -1);
    EXPECT_EQ(shmDestroy(nullptr, &shm), -1);
    const int id = create(0, 8);
    ShmInfo broken = {id, 1, &shm, PTHREAD_MUTEX_INITIALIZER, OXT_SHM_CURRENT};
    system.inject(Call::Shmctl, 1, EPERM);
    trace.clear();
    EXPECT_EQ(shmDestroy(&cInfo, &broken), 0);
    EXPECT_THAT(trace.failures(), ElementsAre("shmctl Failure!! errno=[1]"));
    EXPECT_EQ(broken.shmNum, 0);
    EXPECT_EQ(broken.shmAdr, nullptr);
    shmctl(id, IPC_RMID, nullptr);
}

TEST_F(Segments, CopiesStayInsideBothSides) {
    char source[24], target[32];
    memset(source, 's', sizeof source);
    memset(target, 't', sizeof target);
    const struct {
        size_t records, segment, back; // of 8 bytes: in memory, in the segment, in the memory copied back to
    } rows[] = {{3, 3, 3}, {1, 3, 3}, {3, 1, 3}, {3, 3, 1}, {0, 3, 3}};
    for (const auto &row : rows) {
        shm.shmNum = static_cast<int>(row.segment);
        shm.shmId = create(0, 8 * shm.shmNum);
        DatInfo from = {8, static_cast<int>(row.records), source}, to = {8, static_cast<int>(row.back), target};
        memset(target, 't', sizeof target);
        EXPECT_EQ(setInstToShm(&cInfo, &from, &shm), 0);
        EXPECT_EQ(setShmToInst(&cInfo, &shm, &to), 0);
        const size_t written = std::min(row.segment, row.back) * 8, copied = std::min(written, row.records * 8);
        EXPECT_EQ(std::string(target, sizeof target),
                  std::string(copied, 's') + std::string(written - copied, '\0') + std::string(32 - written, 't'));
        EXPECT_NE(shm.shmAdr, nullptr) << "kept after the detach";
        shmDestroy(&cInfo, &shm);
    }
    // A segment that cannot be attached or detached is passed over.
    DatInfo area = {8, 1, source};
    shm.shmId = create(0, 8);
    shm.shmNum = 1;
    system.inject(Call::Shmat, 1, EACCES);
    system.inject(Call::Shmdt, 1, EINVAL);
    trace.clear();
    EXPECT_EQ(setInstToShm(&cInfo, &area, &shm), 0);
    EXPECT_EQ(shm.content, OXT_SHM_EMPTY);
    EXPECT_EQ(setInstToShm(&cInfo, &area, &shm), 0);
    EXPECT_THAT(trace.failures(), ElementsAre("_OUT_ shmat Failure!! errno=[13]", "_OUT_ shmdt Failure!! errno=[22]"));
    shmDestroy(&cInfo, &shm);
}

TEST_F(Segments, ResizingToAndFromNothing) {
    DatInfo area = {1840, 3, nullptr};
    ASSERT_EQ(reallocDatArea(&cInfo, base.c_str(), 2, &area, &shm), 0);
    strcpy(fsProv(&area)[2].Name, "third");
    void *block = area.datAdr;
    area.datNum = 0;
    EXPECT_EQ(reallocDatArea(&cInfo, base.c_str(), 2, &area, &shm), 0);
    EXPECT_THAT(system.segments(), IsEmpty());
    EXPECT_EQ(area.datAdr, block) << "the block stays";
    area.datNum = 5;
    EXPECT_EQ(reallocDatArea(&cInfo, base.c_str(), 2, &area, &shm), 0);
    struct shmid_ds ds = {};
    ASSERT_EQ(shmctl(shm.shmId, IPC_STAT, &ds), 0);
    EXPECT_EQ(ds.shm_segsz, 9200U);
    EXPECT_EQ(shm.shmNum, 5);
    for (int i = 0; i < 5; ++i)
        EXPECT_LT(strlen(fsProv(&area)[i].Name), 256U);

    std::filesystem::remove_all(agentPath("work"));
    area.datNum = 6;
    EXPECT_EQ(reallocDatArea(&cInfo, base.c_str(), 2, &area, &shm), -1);
    EXPECT_EQ(shm.shmNum, 0) << "the old segment is gone";
    EXPECT_NE(area.datAdr, nullptr);
    free(area.datAdr);
}

TEST_F(Segments, AFailureOfOneClassRemovesAll) {
    DatInfo areas[] = {{8, 1, nullptr}, {4, 1, nullptr}, {1840, 2, nullptr}};
    ShmInfo segments[3] = {};
    ASSERT_EQ(shmNew(&cInfo, 2, base.c_str(), areas, segments), 0);
    EXPECT_THAT(workFiles(), ElementsAre("key0", "key1", "key2"));
    areas[1].datNum = 0;
    ASSERT_EQ(shmNew(&cInfo, 2, base.c_str(), areas, segments), 0);
    EXPECT_EQ(segments[1].shmId, -1);
    areas[2].datNum = 3;
    std::filesystem::remove_all(agentPath("work"));
    EXPECT_EQ(shmNew(&cInfo, 2, base.c_str(), areas, segments), -1);
    EXPECT_THAT(system.segments(), IsEmpty());
    EXPECT_EQ(shmNew(&cInfo, 0, base.c_str(), areas, segments), -1);
}

} // namespace
