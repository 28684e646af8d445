// What a monitor is made of besides the provider: settings, rules, history and forecast, its memory, how passes are
// told, the program for alerts, and the service manager.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <random>
#include <thread>

#include "agentDir.h"
#include "alertForecast.h"
#include "alertProgram.h"
#include "fd.h"
#include "golden.h"
#include "memoryFile.h"
#include "monitorSamples.h"
#include "notify.h"
#include "outlook.h"
#include "passes.h"
#include "svalert.h"

namespace {

using namespace oxttool;
using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

// Each line of the script is a whole file; "\n" in it begins a new line.
TEST(MonitorSettings, InARow) {
    expectReplay("settings.txt", [](const std::string &line) {
        std::string text;
        for (std::size_t i = 0; i < line.size(); ++i)
            text += line.compare(i, 2, "\\n") == 0 ? (++i, '\n') : line[i];
        std::ostringstream shown;
        std::string problem = problemOf([&] {
            const Settings settings = parseSettings(text, "FILE");
            shown << "cycle " << settings.cycleSeconds.value_or(0);
            for (const ListenAddress &address : settings.listen)
                shown << " listen " << address.address << " " << address.port;
            for (const std::string &word : settings.exec)
                shown << " exec " << word;
            for (const Rule &rule : settings.rules)
                shown << " rule " << rule.line << " '" << rule.mount << "' '" << rule.device << "' '" << rule.type
                      << "' " << (rule.monitored ? *rule.monitored ? "on" : "off" : "-") << " "
                      << (rule.warning ? rule.warning->of(1000) : 0) << " " << (rule.fatal ? rule.fatal->of(1000) : 0);
            shown << ", ";
        });
        problem.resize(std::min(problem.size(), problem.find(" TOML: "))); // the rest is the library's
        return shown.str() + problem + "\n";
    });
}

TEST(MonitorMemory, IsReplacedWholeOrNotAtAll) {
    char name[] = "/tmp/oxtmemoryXXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    const std::string path = std::string(name) + "/memory", link = std::string(name) + "/link";
    EXPECT_TRUE(writeMemory(path, {{}, 20, {}}) && writeMemory(path, {{}, 30, {}}));
    EXPECT_EQ(readMemory(path, 0).cycleSeconds, 30u);
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0600));
    std::filesystem::create_symlink(path, link);
    EXPECT_FALSE(readMemory(link, 0).cycleSeconds) << "no link is followed";
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    EXPECT_FALSE(writeMemory(path, {}) || writeMemory(path + "none/memory", {}) ||
                 std::filesystem::exists(path + ".new"));
    std::filesystem::remove_all(name);
}

struct RulesAtWork : ::testing::Test {
    // The changes, made as the provider makes them, as "setting from -> to".
    std::vector<std::string> apply() {
        std::vector<std::string> texts;
        for (const Change &change : planChanges(rules, all, memories)) {
            texts.push_back(change.mountPoint + ": " + kSettingOf[change.setting].word + " " +
                            std::to_string(change.from) + " -> " + std::to_string(change.to));
            for (FileSystem &fs : all)
                if (fs.device == change.device)
                    *std::array<std::uint64_t *, 2>{&fs.warningMiB, &fs.fatalMiB}.at(change.setting - 1) = change.to;
        }
        return texts;
    }
    void use(const std::string &text) { rules = parseSettings(text, "FILE").rules; }
    std::string warningBy() { return originOf(memories, all[0], 1); }
    // What the provider does when the size changes.
    void resize(std::uint64_t size) { all[0] = fileSystem("/data", size, size / 2); }

    std::vector<FileSystem> all = {fileSystem("/data", 1000, 500)};
    std::vector<Rule> rules;
    RuleMemories memories;
};

TEST_F(RulesAtWork, APercentageSurvivesAResizeAndAHandTheRule) {
    use("[[rule]]\ndevice = '/dev/d'\nfatal = '9%'\n[[rule]]\ntype = 'xfs'\nmount = '/data'\nfatal = '8%'\n"
        "[[rule]]\nmount = '/d*'\ndevice = '/dev/data'\ntype = 'ext?'\nwarning = '20%'\n"
        "[[rule]]\nwarning = '5%'\nfatal = '3%'\n");
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 100 -> 200", "/data: fatal threshold 10 -> 30"))
        << "of two rules the first that matches counts, for each setting";
    EXPECT_THAT(apply(), IsEmpty());
    resize(2000);
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 200 -> 400", "/data: fatal threshold 20 -> 60"));
    all[0].warningMiB = 777;
    EXPECT_THAT(apply(), IsEmpty()) << "set by hand";
    EXPECT_EQ(warningBy(), "by hand");
    memories = parseMemory(memoryText({memories, {}, {}}), 0).rules;
    EXPECT_THAT(apply(), IsEmpty()) << "after a restart";
    all[0].sizeMiB = all[0].freeMiB = 0;
    EXPECT_THAT(apply(), IsEmpty()) << "not measured for a moment";
    all[0].sizeMiB = 2000;
    EXPECT_THAT(apply(), IsEmpty());
    use("[[rule]]\nwarning = '21%'\nfatal = '3%'\n");
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 777 -> 420")) << "another outcome";
    EXPECT_EQ(warningBy(), "the rule in line 1");
    all[0].warningMiB = 5;
    EXPECT_THAT(apply(), IsEmpty());
    resize(1000);
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 100 -> 210", "/data: fatal threshold 10 -> 30"))
        << "the provider has given up what was set by hand";
    use("[[rule]]\nwarning = '300M'\nfatal = '3%'\n");
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 210 -> 300"));
    resize(1001);
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 100 -> 300", "/data: fatal threshold 10 -> 30"))
        << "an amount, too";
    use("");
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 300 -> 100", "/data: fatal threshold 30 -> 10"))
        << "no rule any more: what was before";
    EXPECT_EQ(warningBy(), "no rule");
}

TEST_F(RulesAtWork, OnlyWhatTheProviderTakes) {
    FileSystem small = fileSystem("/small", 99, 50), removable = fileSystem("/stick", 1000, 500);
    FileSystem second = fileSystem("/again", 1000, 500), tiny = fileSystem("/tiny", 100, 50);
    removable.driveType = 1;
    second.device = all[0].device;
    all.insert(all.end(), {small, removable, second, tiny});
    use("[[rule]]\nwarning = '200M'\nfatal = '0.1%'\n");
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 100 -> 200", "/data: fatal threshold 10 -> 1",
                                     "/tiny: warning threshold 10 -> 100"))
        << "no change of what is never judged, none of a device's second mount, none above the size";
    memories["/dev/data"].settings[1].outcome.reset();
    all[0].warningMiB = 100;
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 100 -> 200")) << "refused, and tried again";
    const FileSystem gone = all[0];
    all = {small};
    apply();
    all = {gone};
    all[0].warningMiB = 100;
    all[0].fatalMiB = 10;
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 100 -> 200", "/data: fatal threshold 10 -> 1"))
        << "gone and mounted again, the provider has its defaults";
    all[0].warningMiB = 1;
    EXPECT_EQ(allChanges(rules, all).size(), 1u);
    const std::vector<Change> changed = changesBetween({gone, small}, all, {});
    ASSERT_EQ(changed.size(), 1u) << "of what is there before and after";
    EXPECT_EQ(changed[0].from, 200u);
    EXPECT_EQ(changed[0].to, 1u);
    EXPECT_EQ(changed[0].line, 0) << "no rule any more";
}

TEST(MonitorForecast, SteadyTrendsAlone) {
    std::mt19937 random(7);
    std::uniform_int_distribution<int> noise(-40, 40);
    const struct {
        const char *what;
        std::vector<Measurement> points;
        double hours; // to full; 0: nothing is told
    } cases[] = {
        {"too few points", minutes(7, [](int ago) { return 1000 + 10 * ago; }), 0},
        {"the fewest that reach over half of a quarter of an hour", minutes(9, [](int ago) { return 1000 + 10 * ago; }),
         1.67},
        {"one less", minutes(8, [](int ago) { return 1000 + 10 * ago; }), 0},
        {"nothing happens", minutes(1440, [](int) { return 5000; }), 0},
        {"it grows", minutes(1440, [](int ago) { return 90000 - 10 * ago; }), 0},
        {"600 MiB an hour", minutes(600, [](int ago) { return 6000 + 10 * ago; }), 10},
        {"the same with noise", minutes(600, [&](int ago) { return 6000 + 10 * ago + noise(random); }), 10},
        {"the same with one outlier", minutes(600, [](int ago) { return ago == 3 ? 60000 : 6000 + 10 * ago; }), 10},
        {"noise", minutes(600, [&](int) { return 6000 + noise(random); }), 0},
        {"one large file", minutes(600, [](int ago) { return ago < 5 ? 6000 : 36000; }), 0},
        {"a runaway after a quiet day", minutes(1440, [](int ago) { return 6000 + (ago < 20 ? 100 * ago : 2000); }), 1},
        {"logs that rotate each hour", minutes(600, [](int ago) { return 6000 + 50 * (ago % 60); }), 0},
        {"the same, and now beyond",
         minutes(600, [](int ago) { return ago < 20 ? 3000 + 100 * ago : 6000 + 50 * (ago % 60); }), 0.5},
        {"freed once, filling again", minutes(600, [](int ago) { return 6000 + 100 * (ago < 60 ? ago : ago - 60); }),
         1},
        {"almost a year", minutes(1440, [](int ago) { return 527000 + ago; }), 8783.4},
        {"longer than a year", minutes(1440, [](int ago) { return 527100 + ago; }), 0},
    };
    for (const auto &row : cases) {
        const auto forecast = forecastOf(row.points);
        EXPECT_EQ(forecast.has_value(), row.hours > 0) << row.what;
        if (forecast && row.hours > 0) {
            const double hours = forecast->secondsToFull / 3600;
            EXPECT_NEAR(hours, row.hours, row.hours / 10) << row.what;
            EXPECT_NEAR(hours * forecast->mibPerHour, static_cast<double>(row.points.back().freeMiB), 1) << row.what;
        }
    }
}

TEST(MonitorForecast, HistoryIsBoundedAndSurvivesClocksAndRestarts) {
    Memory memory;
    const std::string odd = "/m\xff\xc3\xa9\n\"";
    History &history = memory.histories[{"/dev/a", odd}];
    std::int64_t now = 1000000000;
    for (int i = 0; i < 30000; ++i, now += 10)
        history.add({now, static_cast<std::uint64_t>(i)});
    EXPECT_LE(history.points().size(), 480u);
    EXPECT_GE(history.points().front().time, now - History::kDay - 10);
    EXPECT_LE(history.points().front().time, now - History::kDay + History::kStep);
    EXPECT_EQ(history.points().back().freeMiB, 29999u);
    for (std::size_t i = 1; i < history.points().size(); ++i)
        EXPECT_LE(history.points()[i].time - history.points()[i - 1].time, History::kStep + 10);
    const std::string text = memoryText(memory);
    EXPECT_EQ(memoryText(parseMemory(text, now)), text);
    EXPECT_THAT(parseMemory(text, now + 2 * History::kDay).histories.begin()->second.points(), IsEmpty());
    for (const char *broken :
         {"", "[]", "{\"histories\":[{\"device\":1}]}", "{\"rules\":[[]],\"histories\":{},\"cycle\":-1}",
          "{\"histories\":[{\"device\":\"\u4e00\",\"mount\":\"/\",\"points\":[1,1]}]}"})
        EXPECT_TRUE(parseMemory(broken, now).histories.empty()) << broken;
    const FileSystem fs = fileSystem("/data", 1000, 500);
    addToHistories(memory, {fs, fileSystem("/none", 0, 0)}, now);
    EXPECT_EQ(memory.histories.size(), 2u) << "none of what was not measured";
    history.add({now - 5000, 1});
    EXPECT_EQ(history.points().back().freeMiB, 1u) << "the clock was set back";
    EXPECT_LE(history.points()[history.points().size() - 2].time, now - 5000);
    History fresh;
    for (const std::uint64_t free : {1U, 2U})
        fresh.add({now, free});
    EXPECT_EQ(fresh.points().size(), 1u) << "one of a second";
}

// The alert library that the provider has loaded asks for it, as long as the monitor lives.
TEST(MonitorForecast, StandsInTheAlerts) {
    ASSERT_TRUE(emptyAgentDirectory());
    void *const library = dlopen(agentPath("lib/libsvalert.so").c_str(), RTLD_LAZY);
    const auto send = reinterpret_cast<decltype(&SendIndication)>(dlsym(library, "SendIndication"));
    FileSystem foreseen = fileSystem("/data", 1000, 500);
    foreseen.outlook = Outlook{Forecast{1024.4, 7200}, "", "", ""};
    char device[] = "/dev/data", mount[] = "/data", *strings[] = {device, mount};
    const auto sent = [&] {
        std::filesystem::remove(agentPath("log/svalert.json"));
        EXPECT_EQ(send({0, 3, "test", 0x800403E9U, 2, 2, strings}), 0);
        return fileContent(agentPath("log/svalert.json"));
    };
    auto forecasts = std::make_unique<AlertForecasts>(agentDirectory());
    forecasts->use({fileSystem("/other", 1000, 500), foreseen});
    EXPECT_THAT(sent(), HasSubstr("\"shrinkMiBPerHour\":1024,\"fullInSeconds\":7200,"));
    foreseen.outlook->forecast->secondsToFull = 60;
    forecasts->use({foreseen});
    EXPECT_THAT(sent(), HasSubstr("\"fullInSeconds\":60,")) << "the newest";
    forecasts.reset();
    EXPECT_THAT(sent(), Not(HasSubstr("shrink"))) << "the monitor has ended";
}

TEST(MonitorPasses, AreTold) {
    const auto start = Passes::Clock::time_point() + seconds(1000);
    Passes passes;
    passBegins(passes, start);
    passSucceeded(passes, start + milliseconds(40), 77, seconds(60));
    EXPECT_NEAR(passes.lastDuration.count(), 0.04, 1e-9);
    EXPECT_EQ(statusLine(passes, 12, 1, 0, start + seconds(20)), "12 file systems, 1 warning, next look in 41 s");
    EXPECT_TRUE(passes.areWell(start + seconds(99), seconds(60)));
    EXPECT_FALSE(passes.areWell(start + seconds(101), seconds(60))) << "missing, and nobody says so";
    passFailed(passes, start + seconds(61), seconds(60), "why");
    EXPECT_FALSE(passes.areWell(start + seconds(61), seconds(60)));
    EXPECT_EQ(statusLine(passes, 1, 0, 2, start), "1 file system, 2 fatal, passes fail: why");
    passMissed(passes, seconds(60), "gone");
    EXPECT_EQ(passes.failed, 2u);
    EXPECT_EQ(passes.next, start + seconds(181)) << "the next one is missed a cycle later";
    for (const auto &[cycle, patience] : {std::pair(9, 10), {20, 20}, {31, 30}})
        EXPECT_EQ(passes.overdue(seconds(cycle)), passes.next + seconds(patience));
    passSucceeded(passes, start + seconds(200), 99, seconds(60));
    EXPECT_TRUE(passes.failing.empty());
    EXPECT_EQ(statusLine(passes, 0, 2, 1, passes.next), "0 file systems, 1 fatal, 2 warnings, looking");
    EXPECT_EQ(passes.succeeded, 2u);
    EXPECT_EQ(passes.lastSuccess, 99);
    EXPECT_EQ(passes.lastDuration, seconds(79)) << "of one that hung and then went on";
}

TEST(MonitorNotify, SpeaksToTheServiceManager) {
    char name[] = "/tmp/oxtnotifyXXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    const std::string path = std::string(name) + "/socket";
    const Fd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const void *where = &address;
    ASSERT_EQ(bind(socket.get(), static_cast<const sockaddr *>(where), sizeof address), 0);
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
    setenv("WATCHDOG_USEC", "60000000", 1);
    setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
    notifyManager("READY=1");
    EXPECT_EQ(watchdogPeriod(), std::chrono::microseconds(seconds(60)));
    setenv("WATCHDOG_PID", "1", 1);
    EXPECT_FALSE(watchdogPeriod()) << "another process is watched";
    for (const char *variable : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
        unsetenv(variable);
    notifyManager("STATUS=nobody listens");
    char text[64] = {};
    EXPECT_EQ(recv(socket.get(), text, sizeof text, 0), 7);
    EXPECT_STREQ(text, "READY=1");
    std::filesystem::remove_all(name);
}

TEST(MonitorProgram, IsBoundedInTimeAndNumber) {
    std::vector<std::string> said;
    AlertProgram program([&](const std::string &line) { said.push_back(line); });
    char name[] = "/tmp/oxtprogramXXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    const std::string out = std::string(name) + "/out";
    setenv("CREDENTIALS_DIRECTORY", "/run/credentials/oxtfs", 1); // what systemd gives the monitor is not for others
    sigset_t blocked, before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    signal(SIGUSR2, SIG_IGN);
    program.use({"/bin/sh", "-c",
                 "printf '%s.' \"$OXTFS_MOUNTPOINT$CREDENTIALS_DIRECTORY\" $(readlink /proc/self/fd/0) "
                 "$(grep -cE 'Sig(Blk|Ign):.*[1-9a-f].{0,6}$' /proc/self/status) ${PATH:+path} >>" +
                     out + "; exit 3"});
    for (int i = 0; i < 100; ++i)
        program.run({{"OXTFS_MOUNTPOINT", "/$(id)\n\xff"}});
    EXPECT_EQ(said.size(), 100u - 4 - 64) << "the oldest of too many are left out";
    said.clear();
    for (int i = 0; i < 2000 && program.isBusy(); ++i, std::this_thread::sleep_for(milliseconds(10)))
        program.look();
    unsetenv("CREDENTIALS_DIRECTORY");
    EXPECT_FALSE(program.isBusy());
    EXPECT_THAT(said, ::testing::Each(HasSubstr("ended with 3.")));
    EXPECT_EQ(said.size(), 68u);
    EXPECT_THAT(fileContent(out), ::testing::StartsWith("/$(id)\n\xff./dev/null.0.path."));
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    signal(SIGUSR2, SIG_DFL);
    program.use({"/nonexistent"});
    program.run({});
    EXPECT_THAT(said.back(), HasSubstr("cannot run /nonexistent"));
    AlertProgram endless([&](const std::string &line) { said.push_back(line); }, milliseconds(50));
    endless.use({"/bin/sh", "-c", "exec >/dev/null 2>&1; sleep 1000 & echo $! >" + out + "; wait"}); // both are ended
    endless.run({});
    for (int i = 0; i < 3000 && endless.isBusy(); ++i, std::this_thread::sleep_for(milliseconds(10)))
        endless.look();
    EXPECT_FALSE(endless.isBusy());
    EXPECT_THAT(said.back(), HasSubstr("was ended by signal 9."));
    std::ifstream status("/proc/" + std::to_string(std::atoi(fileContent(out).c_str())) + "/stat");
    const std::string left{std::istreambuf_iterator<char>(status), {}};
    EXPECT_TRUE(left.empty() || left.find(") S") == left.npos) << left << ": what it started";
    std::filesystem::remove_all(name);
}

} // namespace
