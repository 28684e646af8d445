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
    EXPECT_EQ(printable("a\033[31m\n\x7f\u00e9"), "a?[31m??\u00e9");
}

std::string rendered(const std::vector<FileSystem> &all, const Look &look) {
    char *text = nullptr;
    std::size_t size = 0;
    FILE *out = open_memstream(&text, &size);
    printFileSystems(out, all, look);
    std::fclose(out);
    const std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
    return {text, size};
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

TEST(ToolTable, peopleSeeABarAndColoursOnlyWhereWanted) {
    FileSystem unmeasured;
    unmeasured.index = "8";
    Look look;
    const std::string plain = rendered({sample(), unmeasured}, look);
    EXPECT_THAT(plain, HasSubstr("########..  75%"));
    EXPECT_THAT(plain, HasSubstr("warning"));
    EXPECT_EQ(plain.find('\033'), std::string::npos) << plain;
    EXPECT_EQ(plain.find("MONITORED"), std::string::npos) << plain;
    EXPECT_EQ(plain.find("0M"), std::string::npos) << "what was not measured is not shown as 0\n" << plain;
    look.colour = true;
    EXPECT_NE(rendered({sample()}, look).find("\033[33mwarning"), std::string::npos);
}

// True also where there is no promtool.
bool promtoolTakes(const std::string &metrics) {
    FILE *promtool =
        popen("if command -v promtool >/dev/null; then promtool check metrics; else cat >/dev/null; fi", "w");
    const bool written = fwrite(metrics.data(), 1, metrics.size(), promtool) == metrics.size();
    return pclose(promtool) == 0 && written;
}

TEST(ToolShow, metricsAreEscapedAndWellFormed) {
    FileSystem odd = sample(), plain;
    odd.device = "a\\b\"c\nd\xff";
    odd.mountPoint = "/m\u00e9 {x=\"y\"}";
    odd.status = 7;
    plain.index = "1";
    plain.status = 3;
    const std::string text = prometheusText({{odd, plain, odd}, 60, 1893456000.25});
    expectGolden("metrics.txt", text);
    EXPECT_EQ(prometheusText({}).find('{'), std::string::npos);
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

TEST_F(ToolFiles, providerAtWorkIsFoundByItsLivingMakerOrAnAttachment) {
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
    kill(maker, SIGKILL);
    ASSERT_EQ(waitpid(maker, nullptr, 0), maker);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->pid, maker);
    EXPECT_EQ(found->keyFile, keyFile);
    EXPECT_THAT(describe(*found), HasSubstr(std::to_string(maker)));

    const int id = shmget(ftok(keyFile.c_str(), 69), 0, 0);
    EXPECT_FALSE(findProviderAtWork(root_)) << "its maker is dead";
    void *attached = shmat(id, nullptr, 0);
    EXPECT_TRUE(findProviderAtWork(root_)) << "somebody has it attached";
    shmdt(attached);
    shmctl(id, IPC_RMID, nullptr);
}

} // namespace
