// The provider's life as clients and hosts lead it: starts, stops and clean-ups in every state, alone and at once.
#include "providerTest.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <future>

using namespace oxthost;

namespace {

constexpr char kOk[] = "0 ''", kDone[] = "0 '' returned 0:u32", kNotRead[] = "1 'fsGetInstance() FAILED'",
               kNoData[] = "6 'NotFound Data'", kNotService[] = "0 'ServiceMode is non-Service FAILED' returned 1:u32",
               kNoThread[] = "1 'ServiceMode But NonThread Failure!!'",
               kPaused[] = "0 'Thread is Already Pause FAILED' returned 1:u32",
               kRunning[] = "50 'MonitorThread is Running!!'", kNotSaved[] = "1 'fsSetInstance() Failure!!'",
               kNotBuilt[] = "1 'fsInitProvider() Failure!!'";

class ProviderLife : public ProviderTest {
  protected:
    void SetUp() override {
        ProviderTest::SetUp();
        mountMachine();
    }
    Reply setCycle(int seconds) {
        return call(kConfig, "SetMonitorCycle", {{"MonitorCycle", text(std::to_string(seconds))}});
    }
    std::string running() { return show(*get(kThread).instances.at(0).find("ThreadRunning")); }
    std::string cycle() {
        const Reply reply = get(kConfig);
        return reply.ok() ? show(*reply.instances.at(0).find("MonitorCycle")) : showStatus(reply);
    }
    void runThread() {
        EXPECT_EQ(showStatus(start()), kDone);
        waitForPasses();
    }
    void expectAnswers(const char *config, const char *others, const char *set) {
        EXPECT_EQ(showStatus(get(kConfig)), config);
        EXPECT_EQ(showStatus(enumerate(kTotal)), others);
        EXPECT_EQ(showStatus(enumerate(kFs)), others);
        EXPECT_EQ(showStatus(get(kFs, {{"Index", text("1")}})), others);
        EXPECT_EQ(showStatus(call(kFs, "SetFatalThreshold", {{"Index", text("1")}, {"FatalThreshold", text("5")}})),
                  others);
        EXPECT_EQ(showStatus(setCycle(50)), set);
    }
};

TEST_F(ProviderLife, ARefusedStopOutsideServiceModeFreesTheStore) {
    load();
    EXPECT_EQ(showStatus(setCycle(33)), kOk);
    EXPECT_TRUE(enumerate(kFs).ok());
    EXPECT_EQ(showStatus(start()), kNotService);
    EXPECT_EQ(system.segments().size(), 3u) << "a refused start frees nothing";
    EXPECT_EQ(cycle(), "33:u16");
    const std::string file = fileContent(savePath());
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(showStatus(stop()), kNotService);
        EXPECT_EQ(system.segments(), std::vector<int>());
        expectAnswers(kNotRead, kNotRead, kNotRead);
        EXPECT_EQ(running(), "0:u16");
        EXPECT_EQ(showStatus(cleanUp(round == 0)), kNotSaved);
        EXPECT_EQ(showStatus(checked(host->cleanupMethod(true))), kNotSaved);
        EXPECT_EQ(fileContent(savePath()), file);
        host->callFactoriesAgain();
    }
    EXPECT_EQ(showStatus(stop()), kNotService);
    load();
    EXPECT_EQ(cycle(), "33:u16");
    EXPECT_EQ(enumerate(kFs).instances.size(), 8u);
}

TEST_F(ProviderLife, ARefusedStopInServiceModeFreesTheStore) {
    system.speedUpWaits(1000);
    load(ServiceMode::on());
    expectAnswers(kNoThread, kNoThread, kNoThread);
    EXPECT_EQ(showStatus(enumerate("OXT_Nothing")), kNoThread);
    EXPECT_EQ(running(), "0:u16");
    runThread();
    EXPECT_EQ(showStatus(setCycle(33)), kOk);
    EXPECT_EQ(showStatus(stop()), kDone);
    EXPECT_EQ(host->live().total(), 0);
    for (const char *expected : {kNoThread, kPaused}) { // after a stop, and after a refused one
        EXPECT_EQ(system.segments(), std::vector<int>());
        expectAnswers(kNoThread, kNoThread, kNoThread);
        EXPECT_EQ(showStatus(stop()), kPaused) << expected;
    }
    EXPECT_EQ(system.segments(), std::vector<int>());

    alerts();
    runThread(); // over a store that stays empty: its passes fail and nothing impossible is shown
    expectAnswers(kNotRead, kNoData, kNotRead);
    EXPECT_EQ(alerts(), std::vector<std::string>{"0x400407D0 info"});
    EXPECT_EQ(saved(18, 2), 33);
    EXPECT_EQ(showStatus(stop()), kDone);
    EXPECT_EQ(saved(18, 2), 33);
    runThread();
    EXPECT_EQ(cycle(), "33:u16");
    EXPECT_EQ(enumerate(kFs).instances.size(), 8u);
}

TEST_F(ProviderLife, TheThreadClassAnswersByItsReturnValue) {
    load(ServiceMode::on());
    const std::string unknown = "0 'Generic Failure!!' returned 1:u32";
    const struct {
        const char *method;
        std::string status;
        int running; // afterwards
        bool failing;
    } rows[] = {
        {"startMonitoringThread", unknown, 0, false},
        {"StartMonitoringThread", "0 'fsCreateThread() FAILED' returned 1:u32", 0, true},
        {"StartMonitoringThread", kDone, 1, false},
        {"StartMonitoringThread", "0 'Thread is Already WakeUp FAILED' returned 1:u32", 1, false},
        {"SetMonitorCycle", unknown, 1, false},
        {"StopMonitoringThread", kDone, 0, false},
        {"StartMonitoringThread", kDone, 1, false},
        {"StopMonitoringThread", kDone, 0, false},
        {"StopMonitoringThread", kPaused, 0, false},
        {"", unknown, 0, false},
    };
    for (const auto &row : rows) {
        host->failBrokerCall("prepareAttachThread", row.failing ? 1 : 0);
        const Reply reply = call(kThread, row.method, {{"MonitorCycle", text("30")}});
        EXPECT_EQ(showStatus(reply), row.status);
        EXPECT_TRUE(reply.done);
        EXPECT_EQ(running(), std::to_string(row.running) + ":u16");
        EXPECT_EQ(host->live().total(), row.running) << "the context of the thread";
    }
}

TEST_F(ProviderLife, CleanUpOutsideServiceMode) {
    const auto instances = [&](bool terminating) { return checked(host->cleanupInstance(terminating)); };
    const auto methods = [&](bool terminating) { return checked(host->cleanupMethod(terminating)); };
    const std::vector<std::function<Reply(bool)>> orders[] = {
        {instances}, {methods}, {instances, methods}, {methods, instances}, {instances, instances, methods}};
    int seconds = 10;
    // A mode that cannot be read is asked for again at each request, but never in a clean-up.
    for (const ServiceMode mode : {ServiceMode::off(), ServiceMode{ServiceMode::NoSuchInstance, 0}}) {
        for (const auto &order : orders) {
            for (const bool terminating : {false, true}) {
                load(mode);
                for (const auto &interface : order)
                    EXPECT_EQ(showStatus(interface(terminating)), kOk) << "before the first request";
                EXPECT_EQ(showStatus(setCycle(++seconds)), kOk);
                for (const auto &interface : order)
                    EXPECT_EQ(showStatus(interface(terminating)), kOk);
                EXPECT_EQ(system.segments(), std::vector<int>());
                EXPECT_EQ(saved(18, 2), seconds);
                EXPECT_EQ(cycle(), std::to_string(seconds) + ":u16") << "the next request starts anew";
                EXPECT_EQ(enumerate(kFs).instances.size(), 8u);
                EXPECT_EQ(showStatus(cleanUp(true)), kOk);
            }
        }
    }
}

TEST_F(ProviderLife, CleanUpInServiceMode) {
    system.speedUpWaits(1000);
    load(ServiceMode::on());
    EXPECT_EQ(showStatus(cleanUp(false)), kOk); // nobody has asked for the mode yet, and it is not asked for now
    runThread();
    EXPECT_EQ(showStatus(setCycle(34)), kOk);
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(showStatus(cleanUp(false)), kRunning);
        EXPECT_EQ(showStatus(checked(host->cleanupMethod(false))), kRunning);
        EXPECT_EQ(running(), "1:u16");
    }
    waitForPasses();
    EXPECT_EQ(showStatus(checked(host->cleanupMethod(true))), kOk);
    EXPECT_EQ(host->live().total(), 0);
    EXPECT_EQ(system.segments(), std::vector<int>());
    EXPECT_EQ(showStatus(cleanUp(true)), kOk);
    EXPECT_EQ(running(), "0:u16");

    EXPECT_EQ(showStatus(cleanUp(false)), kOk); // of a store that the last request has built, without a thread
    EXPECT_EQ(system.segments(), std::vector<int>());
    runThread(); // the freed store counts as initialised until the thread is stopped
    EXPECT_EQ(showStatus(enumerate(kFs)), kNoData);
    EXPECT_EQ(showStatus(stop()), kDone);
    runThread();
    EXPECT_EQ(cycle(), "34:u16");
}

TEST_F(ProviderLife, CleanUpsAtOnce) {
    for (const ServiceMode mode : {ServiceMode::off(), ServiceMode::on()}) {
        load(mode);
        for (int round = 0; round < 5; ++round) {
            if (mode.byte != 0) {
                EXPECT_EQ(showStatus(start()), kDone);
            }
            EXPECT_TRUE(enumerate(kFs).ok());
            std::vector<std::future<Reply>> all;
            for (int i = 0; i < 4; ++i)
                all.push_back(std::async(std::launch::async, [&, i] {
                    return i % 2 == 0 ? host->cleanupInstance(true) : host->cleanupMethod(true);
                }));
            for (auto &one : all)
                EXPECT_EQ(showStatus(one.get()), kOk);
            EXPECT_EQ(system.segments(), std::vector<int>());
        }
        EXPECT_EQ(running(), "0:u16");
        cleanUp(true);
    }
}

// What one client meets while another one is inside a pass.
TEST_F(ProviderLife, AnotherClientDuringAPass) {
    const std::function<Reply()> config = [&] { return host->getInstance(kConfig); },
                                 files = [&] { return host->enumInstances(kFs); },
                                 thread = [&] { return host->getInstance(kThread); },
                                 refused = [&] { return host->enumInstanceNames(kFs); },
                                 setting = [&] { return host->invokeMethod(kConfig, "SetMonitorCycle", {}); },
                                 end = [&] { return host->cleanupMethod(true); };
    const struct {
        const std::function<Reply()> &ask;
        const char *status, *ofFirst; // while the pass runs, and while the first request builds the store
    } rows[] = {{config, kNotRead, kNotBuilt}, {setting, kNotRead, kNotBuilt}, {files, kNotRead, kNotBuilt},
                {thread, kOk, kNotBuilt},      {end, kNotSaved, kNotSaved},    {refused, "7 'NOT_SUPPORTED'", nullptr}};
    system.speedUpWaits(50); // of bounded waits of 3 seconds
    for (const auto &row : rows) {
        for (const char *status : {row.status, row.ofFirst != nullptr ? row.ofFirst : row.status}) {
            load();
            std::filesystem::remove(savePath());
            if (status == row.status) {
                EXPECT_TRUE(get(kConfig).ok());
            }
            std::atomic<int> times{0};
            FakeVolume root = system.volume("/");
            root.during = [&] {
                if (times++ > 0)
                    return;
                const auto ask = [&] { return host->callFactoriesAgain(), row.ask(); };
                EXPECT_EQ(showStatus(std::async(std::launch::async, ask).get()), status) << "row " << &row - rows;
            };
            system.setVolume("/", root);
            const Reply reply = enumerate(kFs);
            EXPECT_EQ(showStatus(reply), kOk) << "row " << &row - rows;
            EXPECT_EQ(reply.instances.size(), 8u);
            EXPECT_GT(times, 0);
            root.during = nullptr;
            system.setVolume("/", root);
            EXPECT_EQ(showStatus(get(kConfig)), kOk);
            EXPECT_EQ(showStatus(cleanUp(true)), kOk);
        }
    }
}

TEST_F(ProviderLife, FirstRequestsAtOnce) {
    for (int round = 0; round < 5; ++round) {
        load();
        std::vector<std::future<Reply>> all;
        for (int i = 0; i < 4; ++i)
            all.push_back(std::async(std::launch::async, [&, i] {
                host->callFactoriesAgain();
                return i % 2 == 0 ? host->enumInstances(kFs) : host->getInstance(kConfig);
            }));
        for (auto &one : all)
            EXPECT_EQ(showStatus(one.get()), kOk);
        EXPECT_EQ(system.segments().size(), 3u);
        EXPECT_EQ(showStatus(cleanUp(true)), kOk);
    }
}

} // namespace
