// Every operation of the provider in every state, with each of the calls that it makes failing in its turn: memory,
// files, segments, locks, threads, libraries and the object manager's services. It answers as it documents, keeps
// nothing, and serves the next request as if nothing had been.
//
// OXT_LONG=1 in the environment tries every call; else it is one in SHORT_STRIDE, beginning at another one each time.
#include "failingCalls.h"
#include "providerTest.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>

#include <sys/shm.h>

using namespace oxthost;

namespace {

using Texts = std::set<std::string>;

constexpr long kShortStride = 11;

constexpr char kNotRead[] = "1 'fsGetInstance() FAILED'", kNoData[] = "6 'NotFound Data'",
               kNoThread[] = "1 'ServiceMode But NonThread Failure!!'";

// Where an operation finds the provider.
enum : unsigned { SERVICE = 1, SAVED = 2, BUILT = 4, RUNNING = 8 };
struct State {
    const char *name;
    unsigned is;
};
constexpr State kStates[] = {
    {"off, first, no save file", 0},
    {"off, first, save file", SAVED},
    {"off, later", SAVED | BUILT},
    {"service, first, no save file", SERVICE},
    {"service, first, save file", SERVICE | SAVED},
    {"service, later, no thread", SERVICE | SAVED | BUILT},
    {"service, thread", SERVICE | SAVED | BUILT | RUNNING},
};

struct Operation {
    std::string name;
    std::function<Reply()> run;
    Texts answers;
    bool tells = true;  // what it has done
    bool loads = false; // the save file once more
};

// What happens to the machine before an operation, and after it.
struct Change {
    const char *name;
    std::function<void()> before, after;
};

struct Injection {
    const char *service; // of the broker; empty for the calls of the C library
    failing::Mode mode;
    bool traced;
    long nth;
};

struct Seen {
    std::string answer, file;    // of the operation; the save file right afterwards
    std::string cycle, settings; // what clients have set, as they see it in the end
    std::string facts;           // and all else
    Texts alerts;
    failing::Struck struck;
};

std::string outcome(const std::string &text) { // of a method of the thread class
    return "0 '" + text + "' returned 1:u32";
}

std::string namesOf(const failing::Struck &struck) {
    std::string calls;
    for (const auto &call : struck.calls)
        calls += call.first + " ";
    return calls;
}

// Without its message, and without what a method returns, when the object manager did not take them.
bool isAnswer(const Texts &answers, const std::string &seen, bool cut) {
    for (const std::string &answer : answers)
        if (seen == answer ||
            (cut && (seen == answer.substr(0, answer.find(" returned")) ||
                     seen == answer.substr(0, answer.find('\'')) + "''" + answer.substr(answer.rfind('\'') + 1))))
            return true;
    return false;
}

class Failures : public ProviderTest {
  protected:
    void SetUp() override;
    void makeOperations();
    Reply set(const std::string &name, const char *index, const char *value) {
        return host->invokeMethod(kFs, name, {{"Index", text(index)}, {name.substr(3), text(value)}});
    }
    Reply setCycle(const char *value) {
        return host->invokeMethod(kConfig, "SetMonitorCycle", {{"MonitorCycle", text(value)}});
    }
    void mount() { // two file systems
        for (const char *dir : {"/", "/data", "/new"})
            system.removeFileSystem(dir);
        system.addFileSystem("/dev/sda1", 8, "/", "ext4", 10000, 5000);
        system.addFileSystem("/dev/sda2", 8, "/data", "xfs", 2000, 1500);
    }
    void add() { system.addFileSystem("/dev/sdb1", 8, "/new", "ext3", 5000, 40); }
    void prepare(const State &state, bool traced);
    void runThread(); // for one pass
    void look(Seen *seen);
    void lookAfter(const State &state, Seen *seen);
    void expectClean(const Seen &seen, std::size_t segments);
    Seen round(const State &state, const Change &change, const Operation *operation, const Injection &injection);
    void expectAsEver(const Seen &seen, const Seen &undone, const Seen &done, const State &state,
                      const Operation &operation);
    void failEach(const State &state, const Change &change, const Operation &operation, long stride);

    std::vector<Operation> operations;
    std::string savedFile; // with a client's settings
    failing::Struck ever;  // calls that have failed
    long operationCount = 0, rounds = 0, injected = 0;
};

void Failures::SetUp() {
    ProviderTest::SetUp();
    system.speedUpWaits(100'000);
    makeOperations();
    prepare(kStates[0], false);
    EXPECT_EQ(showStatus(setCycle("33")), kOk);
    EXPECT_EQ(showStatus(set("SetWarningThreshold", "1", "3000")), kOk);
    EXPECT_EQ(showStatus(set("SetFatalThreshold", "2", "2")), kOk);
    EXPECT_EQ(showStatus(set("SetMonitorThreshold", "2", "0")), kOk);
    EXPECT_EQ(showStatus(host->cleanupInstance(true)), kOk);
    savedFile = fileContent(savePath());
}

void Failures::makeOperations() {
    const auto add = [&](const std::string &name, const Texts &answers, const std::function<Reply()> &run) {
        operations.push_back({name, run, answers});
    };
    const auto request = [&](const std::string &name, Texts answers, const std::function<Reply()> &run) {
        answers.merge(Texts{"1 'fsInitProvider() Failure!!'", "1 'getClassName() Failure!!'", kNoThread});
        add(name, answers, run);
    };
    const Texts running = {kOk, "1 'OXT_FSThreadSetPropInst() FAILED'", "1 'CMReturnInstance() FAILED'"};
    for (const auto &[cls, builder] : {std::pair(kConfig, "Config"), {kTotal, "TotalNum"}, {kFs, ""}, {kThread, ""}}) {
        const std::string name = cls, built = "1 'OXT_FS" + std::string(builder) + "SetPropInst() FAILED'";
        Texts answers = {kOk, kNotRead, kNoData, "1 'CMReturnInstance() FAILED'", "1 'getKeyIndex() FAILED'", built};
        answers = name == kThread ? running : answers;
        request("enumerate " + name, answers, [=] { return host->enumInstances(name); });
        request("get " + name, answers, [=] { return host->getInstance(name, {{"Index", text("2")}}); });
    }
    const Texts changed = {kOk, kNotRead, kNoData, "1 'FileSystem-Update FAILED'"};
    request("SetMonitorCycle", changed, [=] { return setCycle("44"); });
    operations.back().answers.insert("1 'getArgToInt(MonitorCycle) FAILED'");
    for (const std::string name : {"SetMonitorThreshold", "SetWarningThreshold", "SetFatalThreshold"}) {
        request(name, changed, [=] { return set(name, "2", "1"); });
        operations.back().answers.merge(Texts{"1 'DriveType not Fixed FAILED'", "1 'FileSystemSize less 100MB FAILED'",
                                              "4 'NotFound Index'", "1 'getArgToInt(Index) FAILED'",
                                              "1 'getArgToInt(" + name.substr(3) + ") FAILED'"});
    }
    const std::string notService = outcome("ServiceMode is non-Service FAILED");
    request("start",
            {kDone, notService, outcome("fsCreateThread() FAILED"), outcome("Thread is Already WakeUp FAILED")},
            [=] { return host->invokeMethod(kThread, "StartMonitoringThread", {}); });
    request("stop", {kDone, notService, outcome("Thread is Already Pause FAILED")},
            [=] { return host->invokeMethod(kThread, "StopMonitoringThread", {}); });
    const Texts refused = {"7 'NOT_SUPPORTED'"};
    add("names", refused, [=] { return host->enumInstanceNames(kFs); });
    add("create", refused, [=] { return host->createInstance(kFs); });
    add("modify", refused, [=] { return host->modifyInstance(kFs); });
    add("delete", refused, [=] { return host->deleteInstance(kFs); });
    add("query", refused, [=] { return host->execQuery(kFs, "", ""); });
    const Texts ends = {kOk, "50 'MonitorThread is Running!!'", "1 'fsSetInstance() Failure!!'"};
    for (const bool ending : {false, true}) {
        add("clean-up", ends, [=] { return host->cleanupInstance(ending); });
        add("method clean-up", ends, [=] { return host->cleanupMethod(ending); });
    }
    request("clean-up, factories", running, [=] { // the agent's libraries are opened again
        host->cleanupInstance(true);
        host->callFactoriesAgain();
        return host->getInstance(kThread);
    });
    operations.back().loads = true;
}

void Failures::prepare(const State &state, bool traced) {
    for (const char *digit : {"0", "1", "2"})
        std::filesystem::remove(agentPath("work/oxtfsshm.key") + digit);
    std::filesystem::remove(savePath());
    mount();
    if ((state.is & SAVED) != 0)
        std::ofstream(savePath(), std::ios::binary) << savedFile;
    failing::begin(traced);
    Options options;
    options.library = OXT_FAILING_PROVIDER;
    options.serviceMode = (state.is & SERVICE) != 0 ? ServiceMode::on() : ServiceMode::off();
    host = std::make_unique<Host>(options);
    if ((state.is & BUILT) != 0) {
        ASSERT_TRUE(host->getInstance((state.is & SERVICE) != 0 ? kThread : kConfig).ok());
    }
    if ((state.is & RUNNING) != 0)
        runThread();
    failing::takeAlerts();
}

void Failures::runThread() {
    const Reply thread = host->getInstance(kThread);
    ASSERT_TRUE(thread.ok()) << showStatus(thread);
    if (show(*thread.instances.at(0).find("ThreadRunning")) == "0:u16") {
        EXPECT_EQ(showStatus(host->invokeMethod(kThread, "StartMonitoringThread", {})), kDone);
    }
    EXPECT_TRUE(failing::pass());
}

void Failures::look(Seen *seen) {
    const Reply config = host->getInstance(kConfig), all = host->enumInstances(kFs), total = host->getInstance(kTotal);
    seen->cycle = showStatus(config) + showInstances(config);
    seen->settings.clear();
    seen->facts += showStatus(all) + showStatus(total) + showInstances(total);
    for (const Instance &fs : all.instances)
        for (const NamedValue &property : fs.properties) {
            const bool isSet =
                property.first.find("Threshold") != std::string::npos || property.first == "FreeSpaceStatus";
            (isSet ? seen->settings : seen->facts) += show({property}) + " ";
        }
    seen->facts += std::to_string(system.segments().size()) + " segments\n";
}

// What clients see once a pass has followed. A store that a refused stop has freed is healed by a stop and a start.
void Failures::lookAfter(const State &state, Seen *seen) {
    if ((state.is & SERVICE) == 0)
        return look(seen);
    const std::string soon = showStatus(host->enumInstances(kFs));
    EXPECT_TRUE(isAnswer({kOk, kNoData, kNoThread}, soon, false)) << soon;
    runThread();
    look(seen);
    if (seen->cycle.find(kNotRead) == std::string::npos && seen->facts.find(kNoData) == std::string::npos)
        return;
    EXPECT_EQ(showStatus(host->invokeMethod(kThread, "StopMonitoringThread", {})), kDone);
    runThread();
    look(seen);
}

// Nothing of the host's but the thread's context, nothing open or locked, and no more segments than could be removed.
void Failures::expectClean(const Seen &seen, std::size_t segments) {
    const std::multiset<std::string> held = failing::held();
    EXPECT_EQ(host->misuses(), std::vector<std::string>());
    const std::size_t contexts = held.count("thread") + seen.struck.calls.count("release");
    EXPECT_LE(static_cast<std::size_t>(host->live().total()), contexts);
    const auto stuck = seen.struck.calls.find("shmctl");
    const long left = stuck != seen.struck.calls.end() ? stuck->second : 0;
    EXPECT_LE(system.segments().size(), segments + static_cast<std::size_t>(left));
    for (const std::string &call : held)
        EXPECT_TRUE(segments > 0 && (call == "thread" || call.find("alloc") != std::string::npos)) << "held: " << call;
}

long countDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

Seen Failures::round(const State &state, const Change &change, const Operation *operation, const Injection &injection) {
    Seen seen;
    prepare(state, injection.traced);
    const bool isBroker = *injection.service != '\0';
    const long descriptors = countDescriptors();
    change.before();
    host->failBrokerCall(injection.service, isBroker ? injection.nth : 0);
    failing::arm(isBroker ? 0 : injection.nth, injection.mode);
    if (operation != nullptr)
        seen.answer = showStatus(operation->run());
    seen.struck = failing::disarm();
    if (host->failBrokerCall("", 0) >= injection.nth && isBroker)
        seen.struck.calls[injection.service] = 1;
    SCOPED_TRACE(namesOf(seen.struck) + "answered " + seen.answer);
    seen.file = fileContent(savePath());
    expectClean(seen, 3);
    EXPECT_EQ(countDescriptors(), descriptors);
    change.after();
    lookAfter(state, &seen);
    expectClean(seen, 3);
    seen.alerts = failing::takeAlerts();
    const std::string end = showStatus(host->cleanupMethod(true));
    seen.facts += end;
    if (end != kOk) // a store that a refused stop has freed cannot be saved; a stop frees what requests made since
        host->invokeMethod(kThread, "StopMonitoringThread", {});
    expectClean(seen, 0);
    EXPECT_EQ(countDescriptors(), descriptors);
    for (const int id : system.segments())
        shmctl(id, IPC_RMID, nullptr);
    host.reset();
    ++rounds;
    return seen;
}

// As after the operation, or as if it had not been asked for.
void Failures::expectAsEver(const Seen &seen, const Seen &undone, const Seen &done, const State &state,
                            const Operation &operation) {
    const failing::Struck &struck = seen.struck;
    const auto hasStruck = [&](const Texts &calls) {
        return std::any_of(calls.begin(), calls.end(), [&](const auto &call) { return struck.calls.count(call) != 0; });
    };
    SCOPED_TRACE(namesOf(struck) + (struck.discovery ? "in discovery, answered " : "answered ") + seen.answer);
    EXPECT_TRUE(isAnswer(operation.answers, seen.answer, hasStruck({"*", "release"})));
    const bool isDone = operation.tells && seen.answer == done.answer;
    const auto expect = [&](std::string Seen::*part) {
        EXPECT_TRUE(seen.*part == done.*part || (!isDone && seen.*part == undone.*part))
            << "seen:\n"
            << seen.*part << "\nexpected:\n"
            << done.*part << "\nor:\n"
            << undone.*part;
    };
    if (!hasStruck({"shmctl"}))
        expect(&Seen::facts);
    // A save file that cannot be read is none.
    const bool loads = operation.loads || (state.is & BUILT) == 0;
    if (loads && (state.is & SAVED) != 0 && hasStruck({"open", "fdopen", "fread", "realloc"}))
        return;
    expect(&Seen::cycle);
    // What could not be measured is another file system, or one of another size.
    if (struck.discovery)
        return;
    expect(&Seen::settings);
    EXPECT_TRUE(!isDone || seen.file.rfind(done.file, 0) == 0) << "another save file";
    for (const std::string &alert : done.alerts)
        EXPECT_TRUE(seen.alerts.count(alert) != 0 || undone.alerts.count(alert) == 0 || hasStruck({"dlopen", "dlsym"}))
            << alert;
}

void Failures::failEach(const State &state, const Change &change, const Operation &operation, long stride) {
    ++operationCount;
    for (const bool traced : {false, true}) {
        if (stride > 1 && operation.tells && (operationCount + (&state - kStates)) % 2 == (traced ? 0 : 1))
            continue;
        const Seen undone = round(state, change, nullptr, {"", failing::ONCE, traced, 0}),
                   done = round(state, change, &operation, {"", failing::ONCE, traced, 0});
        for (const auto &[service, mode] : {std::pair("", failing::ONCE),
                                            {"", failing::THRICE},
                                            {"", failing::FOREVER},
                                            {"*", failing::ONCE},
                                            {"release", failing::ONCE}}) {
            bool struck = true;
            for (long nth = rounds % stride + 1; struck; nth += stride) {
                SCOPED_TRACE(operation.name + "; " + state.name + "; " + change.name + "; call " + std::to_string(nth) +
                             " of " + service + " mode " + std::to_string(mode) + (traced ? ", traced" : ""));
                const Seen seen = round(state, change, &operation, {service, mode, traced, nth});
                expectAsEver(seen, undone, done, state, operation);
                struck = !seen.struck.calls.empty();
                injected += struck ? 1 : 0;
                ever.calls.insert(seen.struck.calls.begin(), seen.struck.calls.end());
            }
        }
    }
}

TEST_F(Failures, AtEveryStep) {
    const long stride = getenv("OXT_LONG") != nullptr ? 1 : kShortStride;
    const Change none = {"", [] {}, [] {}};
    for (const State &state : kStates)
        for (const Operation &operation : operations)
            failEach(state, none, operation, operation.name == "start" && (state.is & BUILT) != 0 ? 1 : stride);
    const Change changes[] = {
        {"one more", [&] { add(); }, [] {}},
        {"one more for a while", [&] { add(); }, [&] { system.removeFileSystem("/new"); }},
        {"one less", [&] { system.removeFileSystem("/data"); }, [] {}},
        {"none", [&] { system.removeFileSystem("/"), system.removeFileSystem("/data"); }, [&] { mount(); }},
        {"little space", [&] { system.setFree("/", 2000); }, [] {}},
    };
    const auto passOnce = [] {
        EXPECT_TRUE(failing::pass());
        return Reply();
    };
    const Operation pass = {"pass", passOnce, {kOk}, false};
    for (const Change &change : changes) {
        for (const Operation &operation : operations)
            if (operation.name == "enumerate OXT_FileSystem" || operation.name == "SetFatalThreshold")
                failEach(kStates[2], change, operation, stride);
        failEach(kStates[6], change, pass, stride);
    }
    failEach(kStates[6], none, pass, stride);

    std::cout << injected << " failures in " << rounds << " rounds of " << operationCount << " operations\n";
    RecordProperty("failures", static_cast<int>(injected));
    RecordProperty("operations", static_cast<int>(operationCount));
    EXPECT_GT(injected, 2000);
    EXPECT_EQ(namesOf(ever),
              "* calloc dlclose dlopen dlsym fclose fdopen fflush fmemopen fopen fread ftok ftruncate "
              "fwrite malloc open open_memstream pthread_create pthread_mutex_trylock pthread_mutex_unlock "
              "realloc release rename setmntent shmat shmctl shmdt shmget stat statfs strdup ");
}

} // namespace
