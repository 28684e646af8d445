// The command-line tool's own parts: what users write, what they are shown, the files that it follows, the agent
// directory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>

#include <nlohmann/json.hpp>

#include "agentDir.h"
#include "alertFile.h"
#include "failure.h"
#include "golden.h"
#include "lineFile.h"
#include "prometheus.h"
#include "table.h"
#include "traceLine.h"
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

TEST(ToolValues, amountsOfSpace) {
    const struct {
        const char *text;
        std::uint64_t sizeMiB, mib;
    } good[] = {{"512", 0, 512},     {"0", 0, 0},          {"20g", 0, 20480},
                {"1.5GiB", 0, 1536}, {"1T", 0, 1048576},   {"10%", 1005, 100},
                {"29%", 100, 29},    {"12.5%", 1000, 125}, {"100%", 4294967295, 4294967295}};
    for (const auto &row : good)
        EXPECT_EQ(parseAmount(row.text).of(row.sizeMiB), row.mib) << row.text;
    for (const char *text :
         {"",    " 5",   "-5",  "M",   "%",    "5 M", "5.",  ".5G",        "1.5", "1e3",   "0x10", "5K",
          "5MM", "1,5G", "inf", "nan", "101%", "5%%", "-1%", "2147483648", "3P",  "1..5G", "١",    "5Gi"})
        EXPECT_EQ(exitOf([text] { parseAmount(text); }), Exit::Usage) << text;
}

TEST(ToolValues, numbersAndServiceModes) {
    EXPECT_EQ(parseNumber("65535", 1, 65535, "an index"), 65535u);
    for (const char *text : {"", "0", "65536", "4294967297", "-1", "+1", "1 ", " 1", "1x"})
        EXPECT_EQ(exitOf([text] { parseNumber(text, 1, 65535, "an index"); }), Exit::Usage) << text;

    EXPECT_EQ(parseServiceMode("on").byte, 1);
    EXPECT_EQ(parseServiceMode("off").byte, 0);
    EXPECT_EQ(parseServiceMode("2").byte, 2);
    EXPECT_EQ(parseServiceMode("fail").kind, oxthost::ServiceMode::NoSuchInstance);
    for (const char *text : {"", "On", "256", "-1", "yes", "1.0"})
        EXPECT_EQ(exitOf([text] { parseServiceMode(text); }), Exit::Usage) << text;
}

TEST(ToolValues, shownSpaceAndNames) {
    const struct {
        std::uint64_t mib;
        Unit unit;
        const char *text;
    } rows[] = {{0, Unit::Human, "0M"},
                {1023, Unit::Human, "1023M"},
                {1024, Unit::Human, "1G"},
                {19968, Unit::Human, "19.5G"},
                {4294967295, Unit::Human, "4P"},
                {4294967295, Unit::MiB, "4294967295"},
                {4294967295, Unit::Bytes, "4503599626321920"}};
    for (const auto &row : rows)
        EXPECT_EQ(formatSpace(row.mib, row.unit), row.text) << row.mib;
    EXPECT_STREQ(statusName(-1), "unknown");
    EXPECT_STREQ(statusName(3), "fatal");
    EXPECT_STREQ(statusName(4), "unknown");
    EXPECT_STREQ(driveName(2), "optical");
    EXPECT_STREQ(driveName(-1), "unknown");
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
    Look look;
    look.json = true;
    const json all = json::parse(rendered({sample(), odd}, look)).at("filesystems");
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0], json::parse(R"({"index": 7, "device": "/dev/sdb1", "mountpoint": "/data", "type": "xfs",
                                      "drive": "fixed", "size": 4294967295, "free": 1073741824, "used": 75,
                                      "monitored": true, "warning": 2147483648, "fatal": 1, "status": "warning"})"));
    EXPECT_EQ(all[1].at("mountpoint"), "/a \"b\"\\\n\x01\ufffd");
    EXPECT_EQ(all[1].at("monitored"), false);
    look.unit = Unit::Bytes;
    EXPECT_EQ(json::parse(rendered({sample()}, look)).at("filesystems")[0].at("size"), 4503599626321920);
    EXPECT_TRUE(json::parse(rendered({}, look)).at("filesystems").empty());
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
    FILE *promtool = popen("! command -v promtool >/dev/null || promtool check metrics", "w");
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

const char *const kWarn =
    R"({"time":"T1","source":"OXTFSService","eventId":"0x800403E9","severity":"warning","event":"e","device":"/dev/a",)"
    R"("mountPoint":"/m","availableMiB":9,"sizeMiB":100,"thresholdMiB":10})";

TEST(ToolAlerts, lines) {
    const auto warn = parseAlert(kWarn);
    ASSERT_TRUE(warn);
    EXPECT_EQ(warn->newStatus, 2);
    EXPECT_EQ(warn->mountPoint, "/m");
    EXPECT_EQ(warn->freeMiB, "9");
    EXPECT_EQ(parseAlert(R"({"eventId":3221488616})")->newStatus, 3);
    EXPECT_EQ(parseAlert(R"({"eventId":"0x400403ea","device":null,"sizeMiB":"100"})")->newStatus, 1);
    // Not about a status, or of an unexpected shape: an alert all the same.
    for (const char *line : {"{}", R"({"eventId":"0x400407D0"})", R"({"eventId":"0x800403E9 "})", R"({"eventId":[2]})",
                             R"({"eventId":-1,"device":{"a":1}})"}) {
        ASSERT_TRUE(parseAlert(line)) << line;
        EXPECT_FALSE(parseAlert(line)->newStatus) << line;
        EXPECT_EQ(parseAlert(line)->device, "") << line;
    }
    for (const char *line :
         {"", "{", "[]", "null", "\"text\"", "3", "{} {}", "{\"a\":\xff\"}", "{\"device\":\"\xff\"}"})
        EXPECT_FALSE(parseAlert(line)) << line;
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

    const std::string line = std::string(kWarn) + "\n";
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
