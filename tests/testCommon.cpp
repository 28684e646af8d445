// The runtime support: binding of the agent's libraries, memory, service mode, locks and CMPI access.
#include "room.h"

#include <atomic>
#include <climits>
#include <fstream>

#include <unistd.h>

using Texts = std::vector<std::string>;

namespace {

// The agent's own libraries, as the build has them.
TEST(Binding, EachMissingPartIsToldToTheSystemLog) {
    const OxtFuncSlot inOrder[] = {OXT_FUNC_TRACE_HANDLE, OXT_FUNC_SETFILEPATH, OXT_FUNC_TRACELOG,
                                   OXT_FUNC_ALERT_HANDLE, OXT_FUNC_SENDINDICATION};
    const struct {
        OxtFuncSlot name;
        const char *message;
        int bound; // so many of inOrder: those before the missing one
    } rows[] = {
        {OXT_FUNC_TRACE_LIBRARY, "dlopen(libsvtrace.so) Failure!!", 0},
        {OXT_FUNC_SETFILEPATH_NAME, "dlsym(libsvtrace.so SetFilePath()) Failure!!", 1},
        {OXT_FUNC_TRACELOG_NAME, "dlsym(libsvtrace.so TraceLog()) Failure!!", 2},
        {OXT_FUNC_ALERT_LIBRARY, "dlopen(libsvalert.so) Failure!!", 3},
        {OXT_FUNC_SENDINDICATION_NAME, "dlsym(libsvalert.so SendIndication()) Failure!!", 4},
    };
    ASSERT_TRUE(emptyAgentDirectory());
    for (const auto &row : rows) {
        FakeSystem system;
        const void *right = g_Func[row.name].exchange("libNothing");
        EXPECT_EQ(InitProcess("oxtfs.log"), -1);
        EXPECT_THAT(system.systemLog(), ElementsAre("3 " + std::string(row.message)));
        for (int i = 0; i < 5; ++i)
            EXPECT_EQ(g_Func[inOrder[i]].load() != nullptr, i < row.bound) << row.message << i;
        char *strings[] = {nullptr};
        EXPECT_EQ(OXTSendIndication("source", 1, 4, 3, 0, strings), -1) << "traced or not, it is no crash";
        g_Func[row.name].store(right);
        EXPECT_EQ(InitProcess("oxtfs.log"), 0) << "the whole chain is tried again";
        FinishProcess();
        FinishProcess();
        for (const OxtFuncSlot slot : inOrder)
            EXPECT_EQ(g_Func[slot].load(), nullptr);
    }
}

TEST(Binding, TheLogsNameFollowsTheLastCallAndFits) {
    FakeSystem system;
    for (const char *name : {"oxtfs.log", "other.log", "fifteen-letters", "sixteen-letters."}) {
        EXPECT_EQ(InitProcess(name), 0);
        EXPECT_EQ(g_logfnm, std::string(name).substr(0, 15));
    }
    EXPECT_EQ(LoadLibrary(nullptr), nullptr);
    EXPECT_EQ(LoadLibrary(std::string(600, 'x').c_str()), nullptr);
    EXPECT_EQ(GetProcAddress(nullptr, "TraceLog"), nullptr);
    system.speedUpWaits(100);
    oxtTraceBegin(); // a thread that does not leave
    FinishProcess();
    oxtTraceEnd();
    EXPECT_TRUE(oxtTraceBound());
    FinishProcess();
    EXPECT_FALSE(oxtTraceBound());
}

// Our own trace library tells that its settings switch normal lines off: then they are not even handed over, but for a
// look now and then that finds them switched on again.
TEST(Binding, NormalLinesAreLeftOutWhileTheLibraryDropsThem) {
    static int handed;
    struct Count {
        static void line(int, const char *, const char *, int, const char *, ...) { ++handed; }
    };
    const auto handedBy = [](int size) {
        handed = 0;
        for (int i = 0; i < 200; ++i)
            free(memalloc(size));
        return handed;
    };
    const auto becomes = [&](const char *settings, int size, int lines) {
        std::ofstream(agentPath("log/svtrace.conf")) << settings;
        for (int i = 0; i < 300 && handedBy(size) != lines; ++i)
            usleep(10'000);
        return handedBy(size);
    };
    ASSERT_TRUE(emptyAgentDirectory());
    ASSERT_EQ(InitProcess("oxtfs.log"), 0);
    const void *real = g_Func[OXT_FUNC_TRACELOG].exchange(reinterpret_cast<const void *>(&Count::line));
    EXPECT_EQ(becomes("normal = off", 8, 0), 0);
    EXPECT_EQ(handedBy(0), 200) << "failures are always written";
    EXPECT_EQ(becomes("normal = on", 8, 400), 400);
    g_Func[OXT_FUNC_TRACELOG].store(real);
    FinishProcess();
}

class Common : public Room {
  protected:
    void TearDown() override {
        EXPECT_EQ(broker->registry.live().total(), liveAtStart) << "objects of the broker were kept";
        Room::TearDown();
    }
    void SetUp() override {
        Room::SetUp();
        liveAtStart = broker->registry.live().total();
    }
    long liveAtStart = 0;
};

TEST_F(Common, AlertsAreCheckedBeforeTheyAreSent) {
    char first[] = "one", second[] = "two";
    char *strings[] = {first, second, nullptr};
    const struct {
        const char *source;
        int type;
        unsigned method;
        int count;
        const char *failure; // the parameter; null for none
    } rows[] = {
        {"s", 4, 1, 2, nullptr},  {"s", 0, 3, 0, nullptr},  {nullptr, 4, 3, 2, "svnm"},  {"s", -1, 3, 2, "evType"},
        {"s", 4, 0, 2, "method"}, {"s", 4, 4, 2, "method"}, {"s", 4, 3, -1, "paramCnt"},
    };
    for (const auto &row : rows) {
        const bool refused = row.failure != nullptr;
        trace.clear();
        EXPECT_EQ(OXTSendIndication(row.source, 0xC0000001, row.type, row.method, row.count, strings),
                  refused ? -1 : 0);
        EXPECT_EQ(trace.alerts().size(), refused ? 0U : 1U);
        EXPECT_EQ(trace.failures(),
                  refused ? Texts{"_OUT_ Param(" + std::string(row.failure) + ") Failure!!"} : Texts{});
    }
    trace.answerAlerts(7);
    EXPECT_EQ(OXTSendIndication("s", 1, 4, 3, 2, strings), -1);
    EXPECT_THAT(trace.alerts().back().strings, ElementsAre("one", "two"));
    g_Func[OXT_FUNC_SENDINDICATION].store(nullptr);
    EXPECT_EQ(OXTSendIndication("s", 1, 4, 3, 2, strings), -1) << "a missing library is a failed send";
}

TEST_F(Common, MemoryCallsRefuseSizesBelowOne) {
    for (const int size : {0, -1, INT_MIN}) {
        trace.clear();
        EXPECT_EQ(memalloc(size), nullptr);
        EXPECT_THAT(trace.failures(), ElementsAre("_OUT_ param(size=" + std::to_string(size) + ") Failure!!"));
    }
    char *block = static_cast<char *>(memalloc(1000));
    EXPECT_EQ(std::string(block, 1000), std::string(1000, '\0'));
    block[999] = 'x';
    EXPECT_EQ(memrealloc(block, 0), nullptr);
    EXPECT_EQ(block[999], 'x') << "a refused call keeps the block";
    block = static_cast<char *>(memrealloc(block, 100'000));
    EXPECT_EQ(block[999], 'x');
    OXT_MEMFREE(block);
    OXT_MEMFREE(block);
    EXPECT_TRUE(trace.contains("memfree already NULL"));
    const DatInfo areas[] = {{1840, 5, nullptr}, {1840, 1'167'133, nullptr}, {1840, -1, nullptr}, {0, 5, nullptr}};
    EXPECT_EQ(oxtAreaSize(&areas[0]), 9200);
    for (int i = 1; i < 4; ++i)
        EXPECT_EQ(oxtAreaSize(&areas[i]), 0);
}

TEST_F(Common, TheServiceModeIsReadUntilItIsKnown) {
    using oxthost::ServiceMode;
    const struct {
        ServiceMode mode;
        const char *broken; // service
        int result, known;
        const char *failure;
    } rows[] = {
        {{ServiceMode::Byte, 2}, "", 0, -1, "_OUT_ getValue() Failure!! boolean=[2]"},
        {{ServiceMode::Byte, 255}, "", 0, -1, "_OUT_ getValue() Failure!! boolean=[255]"},
        {{ServiceMode::NoSuchInstance, 1}, "", 0, -1, "_OUT_ CBGetInstance() Failure!!"},
        {{ServiceMode::NoSuchProperty, 1}, "", 0, -1, "_OUT_ CMGetProperty() Failure!!"},
        {{ServiceMode::Byte, 1}, "newObjectPath", 0, -1, "_OUT_ CMNewObjectPath() Failure!!"},
        {{ServiceMode::Byte, 1}, "getInstance", 0, -1, "_OUT_ CBGetInstance() Failure!!"},
        {{ServiceMode::Byte, 1}, "getProperty", 0, -1, "_OUT_ CMGetProperty() Failure!!"},
        {{ServiceMode::Byte, 1}, "", 1, 1, nullptr},
        {{ServiceMode::Byte, 0}, "", 1, 1, nullptr}, // known for the life of the process
    };
    g_srvmod.store(-1);
    for (const auto &row : rows) {
        broker->setServiceMode(row.mode);
        broker->plan.set(row.broken, *row.broken != '\0' ? 1 : 0);
        trace.clear();
        EXPECT_EQ(getServiceMode(&cInfo), row.result);
        EXPECT_EQ(g_srvmod.load(), row.known);
        EXPECT_EQ(trace.failures(), row.failure != nullptr ? Texts{row.failure} : Texts{});
    }
    g_srvmod.store(-1);
    broker->tables.instance.getProperty = [](const CMPIInstance *, const char *, CMPIStatus *rc) {
        CMSetStatus(rc, CMPI_RC_OK);
        return CMPIData{CMPI_boolean, CMPI_nullValue, {}}; // as an object manager gives what its class alone knows
    };
    EXPECT_EQ(getServiceMode(&cInfo), 0);
    EXPECT_EQ(g_srvmod.load(), -1);
    const OxtCInfo noContext = {&broker->face, nullptr};
    EXPECT_EQ(getServiceMode(&noContext), 0);
    EXPECT_EQ(getServiceMode(nullptr), 0);
}

TEST_F(Common, LocksAreTriedThirtyTimes) {
    system.speedUpWaits(10);
    for (const int freedAfter : {0, 5, 1000}) { // waits after which the holder lets go; 0: before the first try
        const bool taken = freedAfter < 30;
        pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
        std::atomic<bool> locked{false}, end{false};
        const int before = system.calls(Call::Usleep);
        std::thread holder([&] {
            pthread_mutex_lock(&mutex);
            locked = freedAfter > 0;
            while (!end && system.calls(Call::Usleep) - before < freedAfter)
                std::this_thread::yield();
            pthread_mutex_unlock(&mutex);
            locked = true;
        });
        while (!locked)
            std::this_thread::yield();
        trace.clear();
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(nonsrvMutexLock(&cInfo, &mutex), taken ? 0 : -1) << freedAfter;
        EXPECT_TRUE(taken || std::chrono::steady_clock::now() - begin >= std::chrono::milliseconds(300));
        const int tries = trace.countOf("pthread_mutex_trylock() EBUSY...");
        EXPECT_EQ(system.calls(Call::Usleep) - before, tries);
        EXPECT_GE(tries, std::min(freedAfter, 30));
        EXPECT_EQ(trace.failures(), taken ? Texts{} : Texts{"pthread_mutex_trylock() retry(30) Failre!!"});
        if (taken)
            mutexUnlock(&mutex);
        end = true;
        holder.join();
        EXPECT_EQ(trace.countOf("_OUT_"), taken ? 2 : 1);
    }
}

TEST_F(Common, LocksInServiceModeAndWithoutArguments) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    g_srvmod.store(1);
    bool held = true;
    EXPECT_EQ(nonsrvMutexLock(&cInfo, &mutex, &held), 0);
    EXPECT_FALSE(held);
    mutexUnlock(&mutex, held);
    EXPECT_EQ(pthread_mutex_trylock(&mutex), 0) << "it was not taken";
    pthread_mutex_unlock(&mutex);
    EXPECT_EQ(nonsrvMutexLock(nullptr, &mutex), -1);
    EXPECT_EQ(nonsrvMutexLock(&cInfo, nullptr), -1);
    mutexUnlock(nullptr);
    EXPECT_THAT(trace.failures(), ElementsAre("_OUT_ param(cInfo) Failure!!", "_OUT_ param(mutex) Failure!!",
                                              "_OUT_ param(mutex) Failure!!"));
    pthread_mutex_t checked = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;
    trace.clear();
#ifndef OXT_UNDER_TSAN
    mutexUnlock(&checked);
    EXPECT_EQ(trace.failures().size(), 1U) << "not held";
#endif
    EXPECT_EQ(shmMutexLock(&checked), 0);
    EXPECT_EQ(shmMutexUnlock(&checked), 0);
}

TEST_F(Common, AThreadRunsUntilItHasEnded) {
    OxtThreadId id{0};
    EXPECT_EQ(getThreadSts(&id), 0);
    EXPECT_EQ(getThreadSts(nullptr), 0);
    static std::atomic<bool> end;
    end = false;
    const auto body = [](void *) -> void * {
        while (!end)
            usleep(1000);
        return nullptr;
    };
    pthread_t made = 0;
    ASSERT_EQ(pthread_create(&made, nullptr, body, nullptr), 0);
    id.store(made);
    EXPECT_EQ(getThreadSts(&id), 1);
    EXPECT_EQ(oxtThreadJoin(&id, 0), ETIMEDOUT);
    EXPECT_NE(id.load(), 0U);
    end = true;
    for (int i = 0; i < 5000 && getThreadSts(&id) == 1; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_TRUE(trace.contains("_OUT_ thread is NotRun"));
    EXPECT_EQ(id.load(), 0U) << "joined and forgotten";
    EXPECT_EQ(oxtThreadJoin(&id, 1), 0);
}

// Results and all other failures of these are told by the answers to clients.
TEST_F(Common, WhatAPathOrArgumentsLackIsTraced) {
    CMPIObjectPath *path = CMNewObjectPath(&broker->face, "root/x", "OXT_Y", nullptr);
    for (const char *service : {"getNameSpace", "getCharPtr"}) {
        broker->plan.set(service, 1);
        EXPECT_EQ(getNameSpace(path), nullptr) << service;
    }
    CMRelease(path);
    EXPECT_EQ(getClassName(nullptr), nullptr);
    EXPECT_EQ(getKeyIndex(nullptr), -1);
    EXPECT_EQ(getArgToInt(nullptr, "Value"), -1);
    EXPECT_THAT(trace.failures(),
                ElementsAre("_OUT_ CMGetNameSpace() Failure!!",
                            testing::StartsWith("_OUT_ CMGetCharsPtr() Failure!! errno=["),
                            "_OUT_ Param(cop) Failure!!", "_OUT_ Param(cop) Failure!!", "_OUT_ Param(cin) Failure!!"));
}

TEST_F(Common, InstancesOfAClassAsAnArray) {
    using oxthost::ServiceMode;
    const auto countOf = [&](const char *cls, const char *broken = "") {
        broker->plan.set(broken, *broken != '\0' ? 1 : 0);
        CMPIArray *array = nullptr;
        trace.clear();
        const int count = getEnumArray(&cInfo, "root/TAVRIN/AS", cls, &array);
        EXPECT_EQ(trace.failures().size(), count < 0 ? 1U : 0U);
        if (count >= 0)
            CMRelease(array);
        EXPECT_EQ(broker->registry.live().total(), liveAtStart) << broken;
        return count;
    };
    EXPECT_EQ(countOf("OXT_GeneralInformation"), 1);
    EXPECT_EQ(countOf("OXT_Nothing"), -1);
    for (const char *service : {"newObjectPath", "enumerateInstances", "toArray", "getSize", "clone"})
        EXPECT_EQ(countOf("OXT_GeneralInformation", service), -1) << service;
    broker->setServiceMode({ServiceMode::NoSuchInstance, 0});
    EXPECT_EQ(countOf("OXT_GeneralInformation"), 0);
}

} // namespace
