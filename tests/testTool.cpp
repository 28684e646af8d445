// The command-line tool's own parts: what users write, what they are shown, the files that it follows, the agent
// directory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iomanip>
#include <map>
#include <memory>
#include <regex>

#include <nlohmann/json.hpp>

#include "agentDir.h"
#include "alertFile.h"
#include "failure.h"
#include "golden.h"
#include "json.h"
#include "jsonSchema.h"
#include "lineFile.h"
#include "prometheus.h"
#include "screen.h"
#include "shownText.h"
#include "shownTraceLine.h"
#include "table.h"
#include "traceSetting.h"
#include "values.h"

namespace {

using namespace oxttool;
using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ToolFiles : public ::testing::Test {
  protected:
    void SetUp() override {
        char name[] = "/tmp/oxttoolXXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        root_ = std::string(name) + "/";
    }
    void TearDown() override { std::filesystem::remove_all(root_); }
    void append(const std::string &name, const std::string &text) {
        std::ofstream(root_ + name, std::ios::app) << text;
    }
    std::string root_;
};

template <class Function> Exit exitOf(Function function) {
    try {
        function();
    } catch (const Failure &failure) {
        return failure.exitCode;
    }
    return Exit::Ok;
}

// What users write and what they are shown, and the words for what is none of it.
TEST(ToolValues, inARow) {
    expectReplay("values.txt", [](const std::string &line) {
        std::istringstream words(line);
        std::string kind, text, more;
        words >> kind >> std::quoted(text) >> more;
        const std::map<std::string, std::function<std::string()>> kinds = {
            {"amount", [&] { return std::to_string(parseAmount(text).of(std::stoull(more))); }},
            {"index", [&] { return std::to_string(parseNumber(text, 1, 65535, "an index")); }},
            {"mode",
             [&] {
                 const oxthost::ServiceMode mode = parseServiceMode(text);
                 return mode.kind == oxthost::ServiceMode::Byte ? std::to_string(mode.byte) : "no instance";
             }},
            {"space",
             [&] {
                 const Unit unit = more == "MiB" ? Unit::MiB : more == "bytes" ? Unit::Bytes : Unit::Human;
                 return formatSpace(std::stoull(text), unit);
             }},
            {"status", [&] { return std::string(statusName(std::stoll(text))); }},
            {"alert",
             [&]() -> std::string {
                 const auto alert = parseAlert(line.substr(kind.size() + 1));
                 if (!alert)
                     return "none";
                 const std::string status = alert->newStatus ? statusName(*alert->newStatus) : "no";
                 return status + " status of '" + alert->device + "' on '" + alert->mountPoint + "': " +
                        textOf(Json{alert->freeMiB.value_or(0), alert->sizeMiB.value_or(0),
                                    alert->thresholdMiB.value_or(0)});
             }},
            {"drive", [&] { return std::string(driveName(std::stoll(text))); }},
        };
        try {
            return kinds.at(kind)() + "\n";
        } catch (const Failure &failure) {
            EXPECT_EQ(failure.exitCode, Exit::Usage) << line;
            const std::string problem = failure.what(); // and behind it, what to do
            return problem.substr(0, problem.find('\n')) + "\n";
        }
    });
    EXPECT_FALSE(parseAlert("{\"a\":\xff\"}"));
    EXPECT_FALSE(parseAlert("{\"device\":\"\xff\"}"));
}

FileSystem sample() {
    FileSystem fs;
    fs.index = "7";
    fs.device = "/dev/sdb1";
    fs.mountPoint = "/data";
    fs.type = "xfs";
    fs.driveType = 0;
    fs.monitored = 1;
    fs.status = 2;
    fs.sizeMiB = 4294967295;
    fs.freeMiB = 1073741824;
    fs.warningMiB = 2147483648;
    fs.fatalMiB = 1;
    return fs;
}

TEST(ToolTable, jsonKeepsEveryValueAndStaysJson) {
    FileSystem odd = sample();
    odd.mountPoint = "/a \"b\"\\\n\x01\xff"; // the last byte is no UTF-8
    odd.monitored = 0;
    odd.sizeMiB = odd.freeMiB = 0;
    const json told = json::parse(textOf(jsonOf(std::vector{sample(), odd}, Unit::Human)));
    EXPECT_EQ(JsonSchema().problem("list", told), "");
    const json all = told.at("filesystems");
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0], json::parse(R"({"index": 7, "device": "/dev/sdb1", "mountpoint": "/data", "type": "xfs",
                                      "drive": "fixed", "size": 4294967295, "free": 1073741824, "freepercent": 25.0,
                                      "monitored": true, "warning": 2147483648, "warningdefault": 0, "fatal": 1,
                                      "fataldefault": 0, "status": "warning"})"));
    EXPECT_EQ(all[1].at("mountpoint"), "/a \"b\"\\\n\x01\ufffd");
    EXPECT_EQ(all[1].at("monitored"), false);
    EXPECT_EQ(all[1].at("freepercent"), nullptr);
    EXPECT_EQ(jsonOf(sample(), Unit::Bytes).at("size"), 4503599626321920);
    for (const char *line : {"{}", R"({"eventId":"0x800403E9","device":"/d","availableMiB":9,"time":"T"})"})
        EXPECT_EQ(JsonSchema().problem("alert", json::parse(textOf(jsonOf(*parseAlert(line), Unit::MiB)))), "");
}

// True also where there is no promtool.
bool promtoolTakes(const std::string &metrics) {
    FILE *promtool =
        popen("if command -v promtool >/dev/null; then promtool check metrics; else cat >/dev/null; fi", "w");
    const bool written = fwrite(metrics.data(), 1, metrics.size(), promtool) == metrics.size();
    return pclose(promtool) == 0 && written;
}

// The rows between the headings and what can be pressed.
TEST(ToolShow, theScreenShowsTheWorstWhereNotAllFit) {
    View view;
    for (unsigned i = 1; i <= 9; ++i) {
        FileSystem fs;
        fs.index = std::to_string(i);
        fs.mountPoint = "/" + fs.index;
        fs.sizeMiB = 1000;
        fs.freeMiB = 100 * i;
        fs.monitored = 1;
        fs.status = i == 7 ? 3 : 1;
        view.fileSystems.push_back(fs);
    }
    Look look;
    look.columns = {"mountpoint"};
    ScreenState state;
    state.recent = {"older", "newer"};
    const auto shown = [&](std::size_t rows) {
        const std::string text = screenOf(view, look, "now", rows, state);
        EXPECT_LE(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')), rows);
        std::string table = text.substr(text.find("MOUNTPOINT\n") + 11);
        return std::regex_replace(table, std::regex("\n+"), " ");
    };
    EXPECT_EQ(shown(17), "/1 /2 /3 /4 /5 /6 /7 /8 /9 in the order of the mount table. q ends, s sorts. older newer ");
    EXPECT_EQ(shown(10), "/7 /1 /2 /3 1 to 4 of 9, worst first. q ends, s sorts, arrows scroll. ");
    state.first = 99;
    EXPECT_EQ(shown(10), "/5 /6 /8 /9 6 to 9 of 9, worst first. q ends, s sorts, arrows scroll. ");
    EXPECT_EQ(state.first, 5U);
}

TEST(ToolShow, metricsAreEscapedAndWellFormed) {
    FileSystem odd = sample(), plain, twin;
    odd.device = "a\\b\"c\nd\xff";
    odd.mountPoint = "/m\u00e9 {x=\"y\"}";
    plain.index = "1";
    plain.status = 3;
    odd.outlook = Outlook{Forecast{3600, 9000}, "", "", ""};
    twin = odd;      // of the same names: the worse one shows, however it stands
    twin.status = 7; // unknown
    twin.freeMiB = 1;
    odd.status = 2;
    const std::string text =
        prometheusText({{twin, plain, odd, twin}, 60, 1893456000.25, true, 1893456000, {{5, 2, .5}}});
    expectGolden("metrics.txt", text);
    EXPECT_EQ(prometheusText({}).find('{'), std::string::npos);
    EXPECT_THAT(prometheusText({}), HasSubstr("\noxtfs_monitor_up 0\n")) << "a look on the spot is no monitor";
    EXPECT_EQ(prometheusText({}).find("success_"), std::string::npos);
    EXPECT_TRUE(promtoolTakes(text));
}

// In the golden file: in colour (ESC begins one), and as JSON.
TEST(ToolShow, traceLines) {
    const std::string begin = "2031-01-05T07:08:09.123Z 12 34 ", point = "shmNew:56 ";
    const std::string lines[] = {begin + "0 " + point + "_IN_",
                                 begin + "3 " + point + "_OUT_ shmat Failure!! errno=[13]",
                                 begin + "3 " + point + "pthread_mutex_trylock() retry(30) Failre!!",
                                 begin + "3 " + point + "##start##",
                                 begin + "0 " + point + "a name with Failure!! in it",
                                 begin + "3 " + point,
                                 "",
                                 begin,
                                 begin + "3 shmNew Failure!!",
                                 begin + "x " + point + "text",
                                 "2031-01-05 07:08:09.123 12 34 0 " + point + "text",
                                 "another form of line: Failure!!",
                                 begin + "3 " + point + "t: \"\xff\033[2J"};
    std::string shown;
    for (const std::string &line : lines) {
        Look look;
        EXPECT_EQ(shownTraceLine(line, look), printable(line));
        look.colour = true;
        shown += shownTraceLine(line, look) + "\n";
        look.json = true;
        shown += shownTraceLine(line, look) + "\n";
    }
    expectGolden("traceLines.txt", std::regex_replace(shown, std::regex("\033"), "ESC"));
}

TEST_F(ToolFiles, theTraceIsSwitchedAndTheOtherSettingsStay) {
    std::filesystem::create_directory(root_ + "log");
    const std::string name = "log/svtrace.conf", conf = root_ + name;
    writeTraceSetting(root_, "off");
    EXPECT_EQ(fileContent(conf), "normal = off\n");
    append(name, "# normal = on\nfiles=3\n  normal=off # why\nnormally = 1");
    writeTraceSetting(root_, "on");
    EXPECT_EQ(fileContent(conf), "normal = on\n# normal = on\nfiles=3\nnormal = on # why\nnormally = 1\n");
    std::filesystem::rename(conf, root_ + "elsewhere");
    std::filesystem::create_symlink(root_ + "elsewhere", conf);
    EXPECT_EQ(exitOf([this] { writeTraceSetting(root_, "off"); }), Exit::Environment) << "no link is followed";
}

TEST_F(ToolFiles, aFileIsFollowedThroughEverything) {
    const std::string name = "a", path = root_ + name;
    std::vector<std::string> seen;
    append(name, "1\n");
    LineFile all(path, LineFile::Beginning), fresh(path, LineFile::End), later(root_ + "b", LineFile::End);
    const auto read = [&](LineFile &file) {
        seen.clear();
        file.read([&](const std::string &line) { seen.push_back(line); });
        return seen;
    };
    EXPECT_THAT(read(fresh), IsEmpty()) << "what was there before";
    append(name, "ha");
    EXPECT_THAT(read(fresh), IsEmpty()) << "half a line";
    append(name, "lf\n" + std::string(70000, 'x') + "\n2\n");
    EXPECT_THAT(read(fresh), ElementsAre("half", "2")) << "a line that never seems to end is left out";
    for (const char *line : {"3\n", "4\n", "5\n"}) {
        append(name, line);
        for (int age = 3; age > 0; --age)
            if (std::filesystem::exists(path + "." + std::to_string(age)))
                std::filesystem::rename(path + "." + std::to_string(age), path + "." + std::to_string(age + 1));
        std::filesystem::rename(path, path + ".1");
    }
    append(name, "6\n7");
    EXPECT_THAT(read(fresh), ElementsAre("3", "4", "5", "6")) << "through rotations in a row";
    EXPECT_THAT(read(all), ElementsAre("1", "half", "2", "3", "4", "5", "6"));
    append(name, "\n");
    EXPECT_THAT(read(fresh), ElementsAre("7"));
    append(name, "half");
    EXPECT_THAT(read(fresh), IsEmpty());
    std::filesystem::resize_file(path, 0);
    append(name, "8\n");
    EXPECT_THAT(read(fresh), ElementsAre("8")) << "truncated";
    std::filesystem::remove(path);
    EXPECT_THAT(read(fresh), IsEmpty());
    EXPECT_THAT(read(later), IsEmpty());
    append("b", "first\n");
    EXPECT_THAT(read(later), ElementsAre("first")) << "created after the start";

    const std::string line = "{\"eventId\":\"0x800403E9\"}\n";
    append("alerts", line);
    AlertFile alerts(root_ + "alerts");
    append("alerts", line + "rubbish\n" + line);
    EXPECT_EQ(alerts.read().size(), 2u);
}

// From the end, with what follows left to the next call; what lies before the bound is not looked at.
TEST_F(ToolFiles, theEndIsReadBackwards) {
    const std::string longest(65536, 'l'), longer(65537, 'm');
    const struct {
        std::string content;
        off_t most;
        std::vector<std::string> lines; // the newest first
        std::string next;               // the line that the next call completes
    } rows[] = {{"", 99, {}, "+"},
                {"half", 99, {}, "half+"},
                {"1\n", 99, {"1"}, "+"},
                {"\n\n2\n3", 99, {"2", "", ""}, "3+"},
                {"1\n2\n3\n", 5, {"3", "2"}, "+"},
                {"1\n2\n3\n", 4, {"3"}, "+"},
                {"1\nhalf", 4, {}, ""},
                {longer + "\n" + longest + "\n2\n", 999999, {"2", longest}, "+"},
                {"1\n" + longer, 999999, {"1"}, ""}};
    for (const auto &row : rows) {
        std::filesystem::remove(root_ + "log");
        append("log", row.content);
        LineFile file(root_ + "log", LineFile::Beginning);
        std::vector<std::string> lines, next;
        const off_t looked = file.readBackwards(row.most, [&lines](const std::string &line) {
            lines.push_back(line);
            return true;
        });
        EXPECT_EQ(looked, std::min<off_t>(row.most, static_cast<off_t>(row.content.size())));
        EXPECT_EQ(lines, row.lines);
        append("log", "+\n");
        file.read([&next](const std::string &line) { next.push_back(line); });
        EXPECT_EQ(next, row.next.empty() ? std::vector<std::string>() : std::vector{row.next});
        const off_t part = file.readBackwards(99, [](const std::string &) { return false; });
        EXPECT_LE(part, 65536) << "enough after the first";
    }
}

TEST_F(ToolFiles, agentDirectory) {
    EXPECT_EQ(exitOf([this] { checkAgentDirectory(root_); }), Exit::Environment);
    for (const char *name : {"data", "work"})
        std::filesystem::create_directory(root_ + name);
    append("log", "a file");
    EXPECT_EQ(exitOf([this] { checkAgentDirectory(root_); }), Exit::Environment);
    std::filesystem::remove(root_ + "log");
    std::filesystem::create_directory(root_ + "log");
    EXPECT_EQ(exitOf([this] { checkAgentDirectory(root_); }), Exit::Ok);

    Fd first = lockWork(root_, std::chrono::milliseconds(0));
    EXPECT_TRUE(first);
    EXPECT_FALSE(lockWork(root_, std::chrono::milliseconds(60)));
    first = Fd();
    EXPECT_TRUE(lockWork(root_, std::chrono::milliseconds(0)));
}

TEST_F(ToolFiles, providerAtWorkIsFoundByItsLivingMaker) {
    std::filesystem::create_directory(root_ + "work");
    EXPECT_FALSE(findProviderAtWork(root_)) << "no key file";
    append("work/oxtfsshm.key2", "");
    const std::string keyFile = root_ + "work/oxtfsshm.key2";
    EXPECT_FALSE(findProviderAtWork(root_)) << "no segment";

    const pid_t maker = fork();
    if (maker == 0) {
        shmget(ftok(keyFile.c_str(), 69), 16, IPC_CREAT | IPC_EXCL | 0600);
        for (;;)
            pause();
    }
    auto found = findProviderAtWork(root_);
    for (int i = 0; i < 5000 && !found; ++i, found = findProviderAtWork(root_))
        usleep(1000);
    const std::string moved = root_ + "moved";
    std::filesystem::rename(keyFile, moved);
    std::filesystem::create_symlink(moved, keyFile);
    EXPECT_FALSE(findProviderAtWork(root_)) << "a link is no key file";
    std::filesystem::rename(moved, keyFile);
    shmid_ds about = {};
    const int made = shmget(ftok(keyFile.c_str(), 69), 0, 0);
    ASSERT_EQ(shmctl(made, IPC_STAT, &about), 0);
    about.shm_perm.mode = 0640;
    ASSERT_EQ(shmctl(made, IPC_SET, &about), 0);
    EXPECT_FALSE(findProviderAtWork(root_)) << "others may read it";
    kill(maker, SIGKILL);
    ASSERT_EQ(waitpid(maker, nullptr, 0), maker);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->pid, maker);
    EXPECT_EQ(found->keyFile, keyFile);
    EXPECT_THAT(describe(*found), HasSubstr(std::to_string(maker)));

    const int id = shmget(ftok(keyFile.c_str(), 69), 0, 0);
    EXPECT_FALSE(findProviderAtWork(root_)) << "its maker is dead";
    shmctl(id, IPC_RMID, nullptr);
}

} // namespace
