// The provider's life as clients and hosts lead it: starts, stops and clean-ups in every state, alone and at once.
#include "golden.h"
#include "providerTest.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <future>
#include <map>

using namespace oxthost;

namespace {

constexpr char kNotRead[] = "1 'fsGetInstance() FAILED'", kNotSaved[] = "1 'fsSetInstance() Failure!!'",
               kNotBuilt[] = "1 'fsInitProvider() Failure!!'";

class ProviderLife : public ProviderTest {
  protected:
    void SetUp() override {
        ProviderTest::SetUp();
        mountMachine();
    }
    // What the golden files call the requests.
    const std::map<std::string, std::function<Reply()>> requests = {
        {"start", [&] { return start(); }},
        {"start, attaching fails", [&] { return host->failBrokerCall("prepareAttachThread", 1), start(); }},
        {"stop", [&] { return stop(); }},
        {"clean-up", [&] { return cleanUp(false); }},
        {"clean-up, ending", [&] { return cleanUp(true); }},
        {"method clean-up", [&] { return checked(host->cleanupMethod(false)); }},
        {"method clean-up, ending", [&] { return checked(host->cleanupMethod(true)); }},
        {"config", [&] { return get(kConfig); }},
        {"total", [&] { return enumerate(kTotal); }},
        {"files", [&] { return enumerate(kFs); }},
        {"file 1",
         [&] {
             return get(kFs, {{"Index", text("1")}});
         }},
        {"thread", [&] { return get(kThread); }},
        {"unknown class", [&] { return enumerate("OXT_Nothing"); }},
        {"unknown method", [&] { return call(kThread, "startMonitoringThread"); }},
        {"no method", [&] { return call(kThread, ""); }},
        {"cycle of the thread",
         [&] {
             return call(kThread, "SetMonitorCycle", {{"MonitorCycle", text("30")}});
         }},
        {"set cycle",
         [&] {
             return call(kConfig, "SetMonitorCycle", {{"MonitorCycle", text(std::to_string(++cycle))}});
         }},
        {"set threshold",
         [&] {
             return call(kFs, "SetFatalThreshold", {{"Index", text("1")}, {"FatalThreshold", text("5")}});
         }},
    };
    // Asks in this order; tells each answer, and what there is afterwards.
    void tell(std::initializer_list<const char *> asked) {
        for (const char *request : asked) {
            const Reply reply = requests.at(request)();
            if (showStatus(reply) == kDone && startedThread && request == std::string("start"))
                waitForPasses();
            story += std::string(request) + ": " + showStatus(reply);
            for (const Instance &instance : reply.instances)
                for (const char *name : {"MonitorCycle", "ThreadRunning", "FileSystemTotalNumber", "Root"})
                    if (const Value *value = instance.find(name))
                        story += std::string(" ") + show(*value);
            story += "  [" + std::to_string(system.segments().size()) + " segments, " +
                     std::to_string(host->live().total()) + " objects, saved cycle " +
                     (fileContent(savePath()).empty() ? "none" : std::to_string(saved(18, 2))) + "]\n";
        }
    }
    std::string story;
    int cycle = 30;
};

TEST_F(ProviderLife, OutsideServiceMode) {
    // A mode that cannot be read is asked for again at each request, but never in a clean-up.
    for (const ServiceMode mode : {ServiceMode::off(), ServiceMode{ServiceMode::NoSuchInstance, 0}}) {
        std::filesystem::remove(savePath());
        cycle = 30;
        story = "Before the first request, and after one.\n";
        load(mode);
        tell({"clean-up", "method clean-up, ending", "set cycle", "files", "clean-up", "config", "set cycle",
              "method clean-up", "clean-up", "total", "method clean-up, ending", "config", "clean-up, ending"});
        story += "A refused start frees nothing, a refused stop the store.\n";
        tell({"set cycle", "start", "config", "unknown method", "stop", "thread", "config", "total", "files", "file 1",
              "set threshold", "set cycle", "clean-up, ending", "method clean-up, ending"});
        host->callFactoriesAgain();
        tell({"stop", "files", "clean-up", "thread", "stop"});
        story += "Another provider starts with what was saved.\n";
        load(mode);
        tell({"config", "total", "clean-up, ending"});
        expectGolden("lifeOutsideService.txt", story);
    }
}

TEST_F(ProviderLife, InServiceMode) {
    system.speedUpWaits(1000);
    load(ServiceMode::on());
    story = "Without a thread; nobody has asked for the mode before the first clean-up.\n";
    tell({"clean-up", "config", "total", "files", "file 1", "set threshold", "set cycle", "unknown class", "thread",
          "unknown method", "no method", "start, attaching fails", "thread", "clean-up"});
    story += "With the thread.\n";
    load(ServiceMode::on());
    tell({"start", "start", "cycle of the thread", "set cycle", "clean-up", "method clean-up", "thread", "files",
          "stop", "files", "set cycle", "stop", "files", "stop"});
    alerts();
    story += "Over a store that stays empty: passes fail, and nothing impossible is shown.\n";
    tell({"start", "config", "total", "files", "file 1", "set threshold", "set cycle"});
    EXPECT_EQ(alerts(), std::vector<std::string>{"0x400407D0 info"});
    tell({"stop", "start", "config", "files", "method clean-up, ending", "clean-up, ending", "thread"});
    story += "A clean-up of what the last request has built; freed, it counts as initialised until a stop.\n";
    tell({"clean-up", "start", "files", "stop", "start", "config", "clean-up, ending"});
    expectGolden("lifeInService.txt", story);
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

} // namespace
