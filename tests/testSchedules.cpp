// Requests, the watch thread and clean-ups that meet, in every order: what docs/trust.md promises holds in each.
//
// OXT_LONG=1 takes the whole search of every meeting and many random schedules; else the larger searches are cut.
#include "exploredCalls.h"
#include "explorer.h"
#include "providerTest.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>

using namespace oxthost;

namespace {

using Texts = std::vector<std::string>;
using Names = std::vector<const char *>;

constexpr long long kSecond = 1'000'000'000; // nanoseconds
constexpr char kNotRead[] = "1 'fsGetInstance() FAILED'", kNotBuilt[] = "1 'fsInitProvider() Failure!!'",
               kNotSaved[] = "1 'fsSetInstance() Failure!!'", kNotSet[] = "1 'FileSystem-Update FAILED'",
               kNoThread[] = "1 'ServiceMode But NonThread Failure!!'", kNoData[] = "6 'NotFound Data'",
               kRuns[] = "50 'MonitorThread is Running!!'", kInUse[] = "50 ''",
               kStarted[] = "0 'Thread is Already WakeUp FAILED' returned 1:u32",
               kNotStarted[] = "0 'fsCreateThread() FAILED' returned 1:u32",
               kStopped[] = "0 'Thread is Already Pause FAILED' returned 1:u32";

// A request, what it may be answered, and how long it may wait.
struct Request {
    std::function<Reply()> ask;
    Texts answers;
    long long patience = 32 * kSecond / 10;
};

// What meets what. Before it, these are asked alone.
struct Meeting {
    const char *name;
    bool service;
    Names before;
    std::vector<Names> actors;
    const char *hangs = nullptr; // this call, once, for 40 seconds
    bool agent = false;          // its libraries are there
    bool atomics = false;
    int preemptions = 1; // of the short form
};

class Schedules : public testing::Test {
  protected:
    void meet(const Meeting &meeting);

  private:
    void begin(const Meeting &meeting);
    void end(const Meeting &meeting);
    void mount();
    void ask(const std::string &name);
    void askFor(const std::string &name, const std::string &answer);
    void expectPasses();
    void expectAlerts();
    void expectSaved();
    void lookAt(const Reply &reply);
    void promise(bool kept, const std::string &what) {
        if (!kept)
            explorer::broken(what);
    }
    Reply call(const char *cls, const char *method, const std::vector<NamedValue> &args = {}) {
        return host->invokeMethod(cls, method, args);
    }
    Reply cleanUp(const std::function<Reply()> &ask, bool ending = false);
    Reply set(const char *cls, const char *name, int value) {
        const long long before = explorer::now();
        const Reply reply =
            call(cls, (std::string("Set") + name).c_str(), {{"Index", text("2")}, {name, text(std::to_string(value))}});
        if (reply.ok())
            accepted[name] = value;
        else if (explorer::now() - before < 3 * kSecond)
            refused.emplace(name, value);
        return reply;
    }

    const Texts read = {kOk, kNotRead, kNotBuilt, kNoThread, kNoData};
    const Texts change = {kOk, kNotRead, kNotBuilt, kNoThread, kNoData, kNotSet};
    const Texts left = {kOk, kNotSaved, kRuns, kInUse};
    const std::map<std::string, Request> requests = {
        {"files", {[&] { return host->enumInstances(kFs); }, read}},
        {"thread", {[&] { return host->getInstance(kThread); }, {kOk, kNotBuilt}}},
        {"set cycle", {[&] { return set(kConfig, "MonitorCycle", ++cycle); }, change}},
        {"set threshold", {[&] { return set(kFs, "WarningThreshold", ++cycle); }, change}},
        {"start", {[&] { return call(kThread, "StartMonitoringThread"); }, {kDone, kStarted, kNotStarted, kNotBuilt}}},
        {"stop", {[&] { return call(kThread, "StopMonitoringThread"); }, {kDone, kStopped, kNotBuilt}, 34 * kSecond}},
        {"clean-up", {[&] { return cleanUp([&] { return host->cleanupInstance(false); }); }, left}},
        {"method clean-up", {[&] { return cleanUp([&] { return host->cleanupMethod(false); }); }, left}},
        {"ending", {[&] { return cleanUp([&] { return host->cleanupMethod(true); }, true); }, left, 37 * kSecond}},
        {"refused", {[&] { return host->enumInstanceNames(kFs); }, {"7 'NOT_SUPPORTED'"}}},
        {"factories", {[&] { return host->callFactoriesAgain(), Reply(); }, {kOk}}},
        {"a second", {[&] { return explorer::rest(kSecond), Reply(); }, {kOk}}},
    };
    std::optional<FakeSystem> system;
    std::unique_ptr<Host> host;
    std::map<std::string, int> accepted;
    std::multimap<std::string, int> refused;
    // A refused stop, and a clean-up in service mode, drop the records and leave the store marked as built.
    bool emptied = false;
    std::map<int, const bool *> inside; // requests that have begun and not ended: past their initialisation?
    int asked = 0;                      // numbers them: another's flag may get the place of one that has ended
    int cycle = 0;
    unsigned long space = 0; // free on "/data"
};

void Schedules::mount() {
    for (const char *dir : {"/", "/data"}) {
        system->addFileSystem(std::string("/dev") + dir, 8, dir, "ext4", 1000000, 500000);
        FakeVolume volume = system->volume(dir);
        volume.freeMiB = [this, dir] { // the number of the thread's pass: in both or in none
            thread_local unsigned long pass;
            static unsigned long passes;
            pass = dir[1] == '\0' ? ++passes : pass;
            return space + pass % 1000;
        };
        system->setVolume(dir, volume);
    }
}

void Schedules::begin(const Meeting &meeting) {
    host.reset();
    system.emplace();
    std::filesystem::remove(savePath());
    space = 500000;
    cycle = 30;
    accepted.clear();
    refused.clear();
    emptied = false;
    inside.clear();
    mount();
    explored::reset(meeting.agent);
    Options options;
    options.library = OXT_EXPLORED_PROVIDER;
    options.serviceMode = meeting.service ? ServiceMode::on() : ServiceMode::off();
    host = std::make_unique<Host>(options);
    host->failBrokerCall("attachThread", 0);
    for (const char *name : meeting.before)
        ask(name);
    explored::hangAt(meeting.hangs);
}

// A clean-up that agrees leaves no request in the library that was in it when the clean-up began; but an object manager
// that ends is not held up by one for longer than 3 seconds.
Reply Schedules::cleanUp(const std::function<Reply()> &ask, bool ending) {
    const long long begin = explorer::now();
    std::set<int> before;
    for (const auto &[number, isInside] : inside)
        if (*isInside)
            before.insert(number);
    const Reply reply = ask();
    if (reply.ok() && !(ending && explorer::now() - begin >= 3 * kSecond))
        for (const int one : before)
            promise(inside.count(one) == 0, "a clean-up that agrees leaves no request inside");
    return reply;
}

void Schedules::ask(const std::string &name) {
    const Request &request = requests.at(name);
    const long long before = explorer::waited();
    bool isInside = false;
    const int number = ++asked;
    inside[number] = &isInside;
    explored::markInside(&isInside);
    const Reply reply = request.ask();
    explored::markInside(nullptr);
    inside.erase(number);
    const std::string answer = showStatus(reply);
    emptied = emptied || answer == kStopped || (name == "clean-up" && reply.ok());
    promise(std::count(request.answers.begin(), request.answers.end(), answer) != 0,
            name + " is answered as documented, not " + answer);
    promise(explorer::waited() - before <= request.patience || name == "a second",
            name + " is answered in time, not after " + std::to_string((explorer::waited() - before) / 1'000'000) +
                " ms");
    promise(explorer::watchers() <= 1, "there is one watch thread at most");
    if (name == "files" && reply.ok())
        lookAt(reply);
}

void Schedules::lookAt(const Reply &reply) {
    promise(reply.instances.size() == 2, "all file systems are listed");
    std::set<long long> passes;
    for (const Instance &fs : reply.instances)
        passes.insert(fs.find("AvailableSpace")->number);
    promise(passes.size() == 1, "no answer mixes two passes");
    const auto threshold = accepted.find("WarningThreshold");
    promise(threshold == accepted.end() || reply.instances.back().find("WarningThreshold")->number >= threshold->second,
            "an accepted setting is read");
}

void Schedules::askFor(const std::string &name, const std::string &answer) {
    const Reply reply = requests.at(name).ask();
    promise(showStatus(reply) == answer, name + " afterwards is answered " + answer + ", not " + showStatus(reply));
    if (name == "files" && reply.ok())
        lookAt(reply);
}

// A running thread watches, whether anybody asks or not.
void Schedules::expectPasses() {
    if (explorer::watchers() == 0 || emptied)
        return;
    std::filesystem::remove(savePath());
    explorer::rest(61 * kSecond);
    promise(std::filesystem::exists(savePath()), "the passes of a running thread succeed");
}

// The agent's alert library is there as long as the thread runs.
void Schedules::expectAlerts() {
    const long before = explored::alerts();
    space = 1;
    explorer::rest(60 * kSecond); // the longest cycle here
    promise(explored::alerts() > before, "a running thread sends alerts");
    space = 500000;
}

// Whoever was told that a setting is accepted finds it in the save file, and whoever was told that it is not does not.
// (Who has waited too long for another save is refused, and the change is made all the same.)
void Schedules::expectSaved() {
    const std::string file = fileContent(savePath());
    const auto holds = [&](const std::pair<const std::string, int> &setting) {
        const std::size_t offset = setting.first == "MonitorCycle" ? 18 : 30 + 1840 + 1292;
        return file.size() > offset && static_cast<unsigned char>(file[offset]) == setting.second;
    };
    for (const auto &setting : accepted)
        promise(holds(setting), "the save file holds the accepted " + setting.first);
    for (const auto &setting : refused)
        promise(!holds(setting), "the save file does not hold the refused " + setting.first);
}

// Everything once more, and nothing is left.
void Schedules::end(const Meeting &meeting) {
    explored::hangAt(nullptr);
    explorer::rest(meeting.hangs != nullptr ? 50 * kSecond : 1); // until the thread is at rest
    expectSaved();
    if (meeting.service && meeting.hangs == nullptr)
        expectPasses();
    if (meeting.service) {
        ask("start");
        explorer::rest(kSecond);
        if (!emptied)
            askFor("files", kOk);
        if (meeting.agent)
            expectAlerts();
        askFor("stop", kDone); // which heals a store that a refused stop has emptied
        askFor("start", kDone);
        askFor("a second", kOk);
    }
    for (const char *name : {"files", "set cycle", "set threshold", "files"})
        askFor(name, kOk);
    if (meeting.service)
        askFor("stop", kDone);
    askFor("ending", kOk);
    expectSaved();
    promise(host->failBrokerCall("", 0) == explorer::watchersMade(), "each thread attaches once");
    promise(host->misuses().empty() && host->live().total() == 0, "the object manager gets back what it gave");
    promise(explored::held() == 0, "no memory is left: " + std::to_string(explored::held()));
    promise(explored::segmentsLeft() == 0, "no segment is left");
    host.reset();
}

void Schedules::meet(const Meeting &meeting) {
    ASSERT_TRUE(emptyAgentDirectory()) << "the agent directory must lie in the build directory";
    for (const char *digit : {"0", "1", "2"}) // each schedule finds the same files
        std::ofstream(agentPath("work/oxtfsshm.key") + digit);
    explorer::Scenario scenario = {[&] { begin(meeting); }, {}, [&] { end(meeting); }, meeting.atomics};
    for (const Names &names : meeting.actors)
        scenario.actors.push_back([&] {
            for (const char *name : names)
                ask(name);
        });
    const bool longForm = getenv("OXT_LONG") != nullptr;
    explorer::explore(meeting.name, scenario, longForm ? 2 : meeting.preemptions, longForm ? 10'000 : 100);
}

TEST_F(Schedules, AFirstRequestBesideAFirstRequest) {
    meet({"two first requests", false, {}, {{"files"}, {"set cycle"}}});
}
TEST_F(Schedules, AChangeBesideAPass) {
    meet({"a change beside a pass", true, {"start"}, {{"set threshold"}}});
}
TEST_F(Schedules, StartBesideStop) {
    meet({"start beside stop", true, {"start", "a second"}, {{"start"}, {"stop"}}});
}
TEST_F(Schedules, StopBesideStop) {
    meet({"two stops", true, {"start", "a second"}, {{"stop", "thread"}, {"stop"}}});
}
TEST_F(Schedules, StartBesideStart) {
    meet({"start beside start", true, {"thread"}, {{"start"}, {"start"}}});
}
TEST_F(Schedules, StartBesideCleanUp) {
    meet({"start beside clean-up", true, {"thread"}, {{"start"}, {"clean-up"}}});
}
TEST_F(Schedules, StartBesideAChange) {
    meet({"start beside a change", true, {"thread"}, {{"start"}, {"set threshold"}}});
}
TEST_F(Schedules, StopBesideCleanUp) {
    meet({"stop beside clean-up", true, {"start", "a second"}, {{"stop"}, {"clean-up"}}});
}
TEST_F(Schedules, StopBesideEnding) {
    meet({"stop beside the end", true, {"start", "a second"}, {{"stop"}, {"ending"}}});
}
TEST_F(Schedules, ARefusedCleanUpBesideAPass) {
    meet({"a refused clean-up beside a pass", true, {"start"}, {{"clean-up"}}, nullptr, true});
}
TEST_F(Schedules, AStopThatTimesOut) {
    meet({"a stop that times out", true, {"start"}, {{"a second", "stop"}, {"a second", "files"}}, "statfs"});
}
TEST_F(Schedules, CleanUpsBesideARead) {
    meet({"clean-ups beside a read", false, {"files"}, {{"clean-up"}, {"method clean-up"}, {"files"}}});
}
TEST_F(Schedules, TheLibrarysClosingBesideATraceCall) {
    meet({"the library's closing beside a trace call", false, {}, {{"clean-up"}, {"refused"}}, nullptr, true, true, 2});
}
TEST_F(Schedules, StopBesideRequests) {
    meet({"stop beside a read", true, {"start", "a second"}, {{"stop"}, {"files"}}});
    meet({"stop beside a change", true, {"start", "a second"}, {{"stop"}, {"set threshold"}}});
}
TEST_F(Schedules, AFrozenDisk) {
    meet({"a change to a frozen disk beside stop", true, {"start", "a second"}, {{"set cycle"}, {"stop"}}, "fwrite"});
    meet({"a stop with a frozen disk beside two reads",
          true,
          {"start", "a second"},
          {{"stop"}, {"a second", "files"}, {"a second", "a second", "files"}},
          "fwrite"});
    meet({"a change to a frozen disk beside clean-up", false, {"files"}, {{"set cycle"}, {"clean-up"}}, "fwrite"});
}
TEST_F(Schedules, AStuckSegment) {
    meet({"requests behind a stuck segment", true, {"start", "a second"}, {{"set cycle"}, {"set threshold"}}, "shmat"});
}
TEST_F(Schedules, AStuckPass) {
    meet({"requests behind a stuck pass",
          false,
          {"files"},
          {{"files"}, {"a second", "files"}, {"a second", "set cycle"}},
          "statfs"});
}
TEST_F(Schedules, TwoSavers) {
    meet({"two savers", true, {"start", "a second"}, {{"set cycle"}, {"set threshold"}}});
}

} // namespace
