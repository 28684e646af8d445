// The runtime support: binding of the agent's libraries, memory, service mode, locks and CMPI access.
#include "room.h"

#include <atomic>
#include <climits>

#include <unistd.h>

#include "oxtHostData.h"

using oxthost::Value;
using Texts = std::vector<std::string>;

namespace {

// The agent's own libraries, as the build has them.
TEST(Binding, EachMissingPartIsToldToTheSystemLog) {
    const struct {
        OxtFuncSlot name;
        const char *message;
        std::vector<OxtFuncSlot> bound;
    } rows[] = {
        {OXT_FUNC_TRACE_LIBRARY, "dlopen(libsvtrace.so) Failure!!", {}},
        {OXT_FUNC_SETFILEPATH_NAME, "dlsym(libsvtrace.so SetFilePath()) Failure!!", {OXT_FUNC_TRACE_HANDLE}},
        {OXT_FUNC_TRACELOG_NAME,
         "dlsym(libsvtrace.so TraceLog()) Failure!!",
         {OXT_FUNC_TRACE_HANDLE, OXT_FUNC_SETFILEPATH}},
        {OXT_FUNC_ALERT_LIBRARY,
         "dlopen(libsvalert.so) Failure!!",
         {OXT_FUNC_TRACE_HANDLE, OXT_FUNC_SETFILEPATH, OXT_FUNC_TRACELOG}},
        {OXT_FUNC_SENDINDICATION_NAME,
         "dlsym(libsvalert.so SendIndication()) Failure!!",
         {OXT_FUNC_TRACE_HANDLE, OXT_FUNC_SETFILEPATH, OXT_FUNC_TRACELOG, OXT_FUNC_ALERT_HANDLE}},
    };
    ASSERT_TRUE(emptyAgentDirectory());
    for (const auto &row : rows) {
        FakeSystem system;
        const void *right = g_Func[row.name].exchange("libNothing");
        EXPECT_EQ(InitProcess("oxtfs.log"), -1);
        EXPECT_THAT(system.systemLog(), ElementsAre(row.message));
        std::vector<OxtFuncSlot> bound;
        for (const OxtFuncSlot slot : {OXT_FUNC_TRACE_HANDLE, OXT_FUNC_SETFILEPATH, OXT_FUNC_TRACELOG,
                                       OXT_FUNC_ALERT_HANDLE, OXT_FUNC_SENDINDICATION})
            if (g_Func[slot].load() != nullptr)
                bound.push_back(slot);
        EXPECT_EQ(bound, row.bound);
        char *strings[] = {nullptr};
        EXPECT_EQ(OXTSendIndication("source", 1, 4, 3, 0, strings), -1) << "traced or not, it is no crash";
        g_Func[row.name].store(right);
        EXPECT_EQ(InitProcess("oxtfs.log"), 0) << "the whole chain is tried again";
        FinishProcess();
        FinishProcess();
        EXPECT_EQ(g_Func[OXT_FUNC_TRACELOG].load(), nullptr);
        EXPECT_EQ(g_Func[OXT_FUNC_TRACE_HANDLE].load(), nullptr);
        EXPECT_EQ(g_Func[OXT_FUNC_SENDINDICATION].load(), nullptr);
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

TEST_F(Common, LibrariesAreNotClosedUnderTheirCallers) {
    std::atomic<bool> end{false};
    std::thread caller([&] {
        while (!end)
            memalloc(0);
    });
    for (int i = 0; i < 50; ++i)
        TraceLog bindsAndCloses;
    end = true;
    caller.join();
    EXPECT_EQ(g_Func[OXT_FUNC_TRACELOG].load(), nullptr);
}

TEST_F(Common, AlertsAreCheckedBeforeTheyAreSent) {
    char first[] = "one", second[] = "two";
    char *strings[] = {first, second, nullptr};
    const struct {
        const char *source;
        int type;
        unsigned method;
        int count;
        char **texts;
        int result;
        const char *failure;
    } rows[] = {
        {"s", 4, 1, 2, strings, 0, nullptr},
        {"s", 0, 3, 0, nullptr, 0, nullptr},
        {nullptr, 4, 3, 2, strings, -1, "_OUT_ Param(svnm) Failure!!"},
        {"s", -1, 3, 2, strings, -1, "_OUT_ Param(evType) Failure!!"},
        {"s", 4, 0, 2, strings, -1, "_OUT_ Param(method) Failure!!"},
        {"s", 4, 4, 2, strings, -1, "_OUT_ Param(method) Failure!!"},
        {"s", 4, 3, -1, strings, -1, "_OUT_ Param(paramCnt) Failure!!"},
    };
    for (const auto &row : rows) {
        trace.clear();
        EXPECT_EQ(OXTSendIndication(row.source, 0xC0000001, row.type, row.method, row.count, row.texts), row.result);
        EXPECT_EQ(trace.alerts().size(), row.failure == nullptr ? 1U : 0U);
        EXPECT_EQ(trace.failures(), row.failure != nullptr ? Texts{row.failure} : Texts{});
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
    const OxtCInfo noContext = {&broker->face, nullptr};
    EXPECT_EQ(getServiceMode(&noContext), 0);
    EXPECT_EQ(getServiceMode(nullptr), 0);
}

TEST_F(Common, LocksAreTriedThirtyTimes) {
    const struct {
        int freedAfter, result, tries; // waits after which the holder lets go
    } rows[] = {{0, 0, 0}, {5, 0, 5}, {1000, -1, 30}};
    system.speedUpWaits(10);
    for (const auto &row : rows) {
        pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
        std::atomic<bool> locked{false}, end{false};
        const int before = system.calls(Call::Usleep);
        std::thread holder([&] {
            pthread_mutex_lock(&mutex);
            locked = row.freedAfter > 0;
            while (!end && system.calls(Call::Usleep) - before < row.freedAfter)
                std::this_thread::yield();
            pthread_mutex_unlock(&mutex);
            locked = true;
        });
        while (!locked)
            std::this_thread::yield();
        trace.clear();
        EXPECT_EQ(nonsrvMutexLock(&cInfo, &mutex), row.result) << row.freedAfter;
        EXPECT_EQ(system.calls(Call::Usleep) - before, trace.countOf("pthread_mutex_trylock() EBUSY..."));
        EXPECT_GE(trace.countOf("pthread_mutex_trylock() EBUSY..."), row.tries);
        EXPECT_EQ(trace.failures(), row.result != 0 ? Texts{"pthread_mutex_trylock() retry(30) Failre!!"} : Texts{});
        if (row.result == 0)
            mutexUnlock(&mutex);
        end = true;
        holder.join();
        EXPECT_EQ(trace.countOf("_OUT_"), row.result == 0 ? 2 : 1);
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
    pthread_t made = 0;
    ASSERT_EQ(pthread_create(
                  &made, nullptr,
                  [](void *) -> void * {
                      while (!end)
                          usleep(1000);
                      return nullptr;
                  },
                  nullptr),
              0);
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

struct Item {
    std::optional<Value> value; // none: the item is missing
    int key, argument;
};

TEST_F(Common, NumbersOfKeysAndArguments) {
    const auto number = [](CMPIType type, long long n) { return Value::signedNumber(type, n); };
    const Item rows[] = {
        {number(CMPI_uint16, 7), 7, 7},
        {number(CMPI_uint16, 65535), 65535, -1},
        {number(CMPI_uint16, 0), -1, -1}, // a number 0 counts as missing
        {number(CMPI_sint16, -5), 65531, -5},
        {number(CMPI_sint16, 0), -1, -1},
        {number(CMPI_uint32, 0x10005), 5, 5},
        {Value::string("0"), 0, 0},
        {Value::string("3"), 3, 3},
        {Value::string("-5"), 65531, -5},
        {Value::string("70000"), 4464, 70000},
        {Value::string(" 12abc"), 12, 12},
        {Value::string("abc"), 0, 0},
        {Value::string(""), 0, 0},
        {Value::string("99999999999"), 65535, INT_MAX},
        {Value::nullOf(CMPI_string), -1, -1},
        {Value::nullOf(CMPI_uint16), -1, -1},
        {std::nullopt, -1, -1},
    };
    for (const Item &row : rows) {
        const std::string shown = row.value ? row.value->text + "/" + std::to_string(row.value->number) : "missing";
        auto path = std::make_shared<oxthost::PathBody>();
        auto arguments = std::make_shared<oxthost::ArgsBody>();
        if (row.value) {
            put(path->keys, "Index", toDatum(*row.value));
            put(arguments->items, "Value", toDatum(*row.value));
        }
        EXPECT_EQ(getKeyIndex(broker->make(path)), row.key) << shown;
        EXPECT_EQ(getArgToInt(broker->make(arguments), "Value"), row.argument) << shown;
        newRequest();
    }
    trace.clear();
    EXPECT_EQ(getKeyIndex(nullptr), -1);
    EXPECT_EQ(getArgToInt(nullptr, "Value"), -1);
    EXPECT_THAT(trace.failures(), ElementsAre("_OUT_ Param(cop) Failure!!", "_OUT_ Param(cin) Failure!!"));
}

TEST_F(Common, NamesOfAPathAreCopies) {
    CMPIObjectPath *path = CMNewObjectPath(&broker->face, "root/x", "OXT_Y", nullptr);
    char *copies[] = {getNameSpace(path), getClassName(path)};
    EXPECT_STREQ(copies[0], "root/x");
    EXPECT_STREQ(copies[1], "OXT_Y");
    free(copies[0]);
    free(copies[1]);
    for (const char *service : {"getNameSpace", "getCharPtr"}) {
        broker->plan.set(service, 1);
        EXPECT_EQ(getNameSpace(path), nullptr) << service;
    }
    EXPECT_EQ(getClassName(nullptr), nullptr);
    EXPECT_THAT(trace.failures(), ElementsAre("_OUT_ CMGetNameSpace() Failure!!",
                                              testing::StartsWith("_OUT_ CMGetCharsPtr() Failure!! errno=["),
                                              "_OUT_ Param(cop) Failure!!"));
    CMRelease(path);
}

TEST_F(Common, InstancesOfAClassAsAnArray) {
    const struct {
        const char *cls, *broken;
        oxthost::ServiceMode::Kind kind;
        int count;
    } rows[] = {
        {"OXT_GeneralInformation", "", oxthost::ServiceMode::Byte, 1},
        {"OXT_GeneralInformation", "", oxthost::ServiceMode::NoSuchInstance, 0},
        {"OXT_Nothing", "", oxthost::ServiceMode::Byte, -1},
        {"OXT_GeneralInformation", "newObjectPath", oxthost::ServiceMode::Byte, -1},
        {"OXT_GeneralInformation", "enumerateInstances", oxthost::ServiceMode::Byte, -1},
        {"OXT_GeneralInformation", "toArray", oxthost::ServiceMode::Byte, -1},
        {"OXT_GeneralInformation", "getSize", oxthost::ServiceMode::Byte, -1},
        {"OXT_GeneralInformation", "clone", oxthost::ServiceMode::Byte, -1},
    };
    for (const auto &row : rows) {
        broker->setServiceMode({row.kind, 0});
        broker->plan.set(row.broken, *row.broken != '\0' ? 1 : 0);
        CMPIArray *array = nullptr;
        trace.clear();
        EXPECT_EQ(getEnumArray(&cInfo, "root/TAVRIN/AS", row.cls, &array), row.count) << row.cls << row.broken;
        EXPECT_EQ(trace.failures().size(), row.count < 0 ? 1U : 0U);
        if (row.count >= 0)
            CMRelease(array);
        EXPECT_EQ(broker->registry.live().total(), liveAtStart) << row.broken;
    }
}

} // namespace
