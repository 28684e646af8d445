// What oxtfsctl shows without a provider of its own: metrics, the trace log, and the commands as users run them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "agentDir.h"
#include "lineFile.h"
#include "prometheus.h"
#include "traceLine.h"

namespace {

using namespace oxttool;
using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// True also where there is no promtool.
bool promtoolTakes(const std::string &metrics) {
    FILE *promtool = popen("! command -v promtool >/dev/null || promtool check metrics", "w");
    const bool written = fwrite(metrics.data(), 1, metrics.size(), promtool) == metrics.size();
    return pclose(promtool) == 0 && written;
}

TEST(PeekShow, metricsAreEscapedAndWellFormed) {
    FileSystem odd;
    odd.index = "2";
    odd.device = "a\\b\"c\nd\xff";
    odd.mountPoint = "/m\u00e9 {x=\"y\"}";
    odd.type = "ext4";
    odd.driveType = 0;
    odd.monitored = 1;
    odd.status = 7;
    odd.sizeMiB = 4294967296;
    odd.freeMiB = 1;
    odd.warningMiB = odd.fatalMiB = 4294967295;
    FileSystem plain;
    plain.index = "1";
    plain.status = 3;
    const std::string text = prometheusText({{odd, plain, odd}, 60, 1893456000.25});
    const std::string labels = "{device=\"a\\\\b\\\"c\\nd\ufffd\",mountpoint=\"/m\u00e9 {x=\\\"y\\\"}\","
                               "fstype=\"ext4\",index=\"2\",drive=\"fixed\"} ";
    const std::string none = "{device=\"\",mountpoint=\"\",fstype=\"\",index=\"1\",drive=\"unknown\"} ";
    for (const std::string &line :
         {"oxtfs_filesystem_size_bytes" + labels + "4503599627370496\n", "oxtfs_filesystem_size_bytes" + none + "0\n",
          "oxtfs_filesystem_avail_bytes" + labels + "1048576\n",
          "oxtfs_filesystem_warning_threshold_bytes" + labels + "4503599626321920\n",
          "oxtfs_filesystem_fatal_threshold_bytes" + labels + "4503599626321920\n",
          "oxtfs_filesystem_monitored" + labels + "1\n", "oxtfs_filesystem_monitored" + none + "0\n",
          "oxtfs_filesystem_status" + labels + "-1\n", "oxtfs_filesystem_status" + none + "3\n",
          std::string("oxtfs_filesystems 3\n"), std::string("oxtfs_monitor_cycle_seconds 60\n"),
          std::string("oxtfs_last_update_timestamp_seconds 1893456000.250\n")}) {
        const std::size_t at = text.find("\n" + line);
        EXPECT_NE(at, std::string::npos) << line << text;
        EXPECT_EQ(text.find("\n" + line, at + 1), std::string::npos) << "twice the same labels: " << line;
    }
    EXPECT_EQ(prometheusText({}).find('{'), std::string::npos);
    EXPECT_TRUE(promtoolTakes(text));
}

TEST(PeekShow, traceLines) {
    const std::string begin = "2031-01-05T07:08:09.123Z 12 34 ", point = "shmNew:56 ";
    const struct {
        std::string line;
        bool parsed, failure;
    } rows[] = {{begin + "0 " + point + "_IN_", true, false},
                {begin + "3 " + point + "_OUT_ shmat Failure!! errno=[13]", true, true},
                {begin + "3 " + point + "pthread_mutex_trylock() retry(30) Failre!!", true, true},
                {begin + "3 " + point + "##start##", true, false},
                {begin + "0 " + point + "a name with Failure!! in it", true, false},
                {begin + "3 " + point, true, false},
                {"", false, false},
                {begin, false, false},
                {begin + "3 shmNew Failure!!", false, true},
                {begin + "x " + point + "text", false, false},
                {"2031-01-05 07:08:09.123 12 34 0 " + point + "text", false, false},
                {"another form of line: Failure!!", false, true}};
    for (const auto &row : rows) {
        const TraceLine line = parseTraceLine(row.line);
        EXPECT_EQ(line.parsed, row.parsed) << row.line;
        EXPECT_EQ(line.isFailure(), row.failure) << row.line;
        Look look;
        EXPECT_EQ(shownTraceLine(row.line, look), row.line);
        look.colour = true;
        EXPECT_EQ(shownTraceLine(row.line, look).find("\033[1;31m") == 0, row.failure) << row.line;
        look.json = true;
        EXPECT_EQ(json::parse(shownTraceLine(row.line, look)).at("failure"), row.failure) << row.line;
    }
    Look look;
    EXPECT_EQ(shownTraceLine("\033[2J\xff", look), "?[2J\ufffd");
    look.json = true;
    EXPECT_EQ(json::parse(shownTraceLine(begin + "3 " + point + "t: \"\xff", look)),
              (json{{"time", "2031-01-05T07:08:09.123Z"},
                    {"process", 12},
                    {"thread", 34},
                    {"level", 3},
                    {"function", "shmNew"},
                    {"line", 56},
                    {"failure", false},
                    {"text", "t: \"\ufffd"}}));
}

TEST(PeekShow, aLogIsFollowedThroughRotationsInARow) {
    char name[] = "/tmp/oxtpeekXXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    const std::string path = name + std::string("/log");
    const auto append = [&path](const std::string &text) { std::ofstream(path, std::ios::app) << text; };
    const auto rotate = [&path] {
        for (int age = 3; age > 0; --age)
            if (std::filesystem::exists(path + "." + std::to_string(age)))
                std::filesystem::rename(path + "." + std::to_string(age), path + "." + std::to_string(age + 1));
        std::filesystem::rename(path, path + ".1");
    };
    append("1\n2\n");
    LineFile file(path, LineFile::Beginning);
    std::vector<std::string> lines;
    const auto read = [&] { file.read([&lines](const std::string &line) { lines.push_back(line); }); };
    append("3\n");
    rotate();
    append("4\n");
    rotate();
    append("5\n");
    rotate();
    append("6\n7");
    read();
    EXPECT_THAT(lines, ElementsAre("1", "2", "3", "4", "5", "6"));
    append("\n");
    rotate();
    read();
    append("8th\n");
    read();
    std::filesystem::resize_file(path, 0);
    append("9\n");
    read();
    EXPECT_THAT(lines, ElementsAre("1", "2", "3", "4", "5", "6", "7", "8th", "9"));
    std::filesystem::remove_all(name);
}

// The command over file systems and an agent directory of its own, in a private mount and IPC namespace. That takes
// root; without it these tests are skipped.
class PeekCommand : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        char name[] = "/tmp/oxtpeekXXXXXX";
        if (geteuid() != 0 || unshare(CLONE_NEWNS | CLONE_NEWIPC) != 0 || !mkdtemp(name))
            return;
        base_ = name;
        isolated_ = mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        for (const std::string &directory : {agentDirectory() + "data", agentDirectory() + "work",
                                             agentDirectory() + "log", base_ + "/big", base_ + "/etc"}) {
            std::filesystem::create_directories(directory);
            isolated_ = isolated_ && mount("none", directory.c_str(), "tmpfs", 0, "mode=755,size=128m") == 0;
        }
        std::error_code ignored;
        std::filesystem::copy_file("/etc/ld.so.cache", base_ + "/etc/ld.so.cache", ignored);
        isolated_ = isolated_ && mknod((base_ + "/disk").c_str(), S_IFBLK | 0600, makedev(8, 1)) == 0;
        std::ofstream(base_ + "/devices") << "Block devices:\n  8 sd\n";
        std::ofstream(base_ + "/etc/mtab") << base_ << "/disk " << base_ << "/big ext4 rw 0 0\n";
        isolated_ = isolated_ && mount((base_ + "/etc").c_str(), "/etc", nullptr, MS_BIND, nullptr) == 0 &&
                    mount((base_ + "/devices").c_str(), "/proc/devices", nullptr, MS_BIND, nullptr) == 0;
    }
    static void TearDownTestSuite() {
        for (const std::string &directory :
             {std::string("/etc"), std::string("/proc/devices"), base_ + "/big", base_ + "/etc"})
            umount2(directory.c_str(), MNT_DETACH);
        if (!base_.empty())
            std::filesystem::remove_all(base_);
    }
    void SetUp() override {
        if (!isolated_)
            GTEST_SKIP() << "needs root and the right to make mount and IPC namespaces";
    }
    static std::string contentOf(const std::string &path) {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }
    static pid_t start(const std::string &arguments, const std::string &output) {
        const pid_t child = fork();
        if (child == 0) {
            const std::string out = base_ + "/" + output;
            for (const int fd : {STDOUT_FILENO, STDERR_FILENO})
                dup2(open((out + (fd == STDOUT_FILENO ? "" : ".err")).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), fd);
            execl("/bin/sh", "sh", "-c", (std::string("exec ") + OXTFSCTL + " " + arguments).c_str(), nullptr);
            _exit(127);
        }
        return child;
    }
    // The exit code; what it wrote is in out_ and err_.
    static int finish(pid_t child, const std::string &output) {
        int status = 0;
        waitpid(child, &status, 0);
        out_ = contentOf(base_ + "/" + output);
        err_ = contentOf(base_ + "/" + output + ".err");
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    static int run(const std::string &arguments) { return finish(start(arguments, "run"), "run"); }
    static json parsed(const std::string &arguments) {
        EXPECT_EQ(run(arguments), 0) << err_;
        const json value = json::parse(out_, nullptr, false);
        return value.is_discarded() ? json("no JSON: " + out_) : value;
    }
    static bool waitForOutput(const std::string &output, const std::string &text) {
        for (int i = 0; i < 1200; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(50)))
            if (contentOf(base_ + "/" + output).find(text) != std::string::npos)
                return true;
        return false;
    }

    static std::string base_, out_, err_;
    static bool isolated_;
};
std::string PeekCommand::base_, PeekCommand::out_, PeekCommand::err_;
bool PeekCommand::isolated_ = false;

TEST_F(PeekCommand, aProviderAtWorkIsSeenAndNotDisturbed) {
    EXPECT_EQ(run("peek"), 3);
    EXPECT_THAT(err_, HasSubstr("oxtfsctl watch"));
    EXPECT_EQ(run("save"), 3);
    EXPECT_TRUE(std::filesystem::is_empty(agentDirectory() + "work")) << "nothing is made";
    ASSERT_EQ(run("monitor 1 on"), 0) << err_;
    const pid_t watch = start("watch --cycle 10", "watch");
    ASSERT_TRUE(waitForOutput("watch", "pass 1:")) << contentOf(base_ + "/watch.err");
    const json saved = parsed("save --json");
    EXPECT_EQ(saved.at("filesystems").at(0).at("mountpoint"), base_ + "/big");
    for (int i = 0; i < 30; ++i) {
        const json peeked = parsed("peek --json");
        EXPECT_EQ(peeked.at("filesystems"), saved.at("filesystems"));
        EXPECT_EQ(peeked.at("provider").at(0).at("pid"), watch);
        EXPECT_EQ(peeked.at("provider").at(0).at("monitorcycle"), 10);
    }
    EXPECT_EQ(parsed("peek --format json -b").at("filesystems").at(0).at("size"), 134217728);
    EXPECT_EQ(run("peek"), 0);
    EXPECT_THAT(out_, HasSubstr("process " + std::to_string(watch) + " (oxtfsctl)"));
    EXPECT_EQ(run("peek --format prometheus"), 0);
    EXPECT_THAT(
        out_, HasSubstr("mountpoint=\"" + base_ + "/big\",fstype=\"others\",index=\"1\",drive=\"fixed\"} 134217728\n"));
    EXPECT_THAT(out_, HasSubstr("oxtfs_monitor_cycle_seconds 10\n"));
    EXPECT_TRUE(promtoolTakes(out_)) << out_;
    EXPECT_TRUE(waitForOutput("watch", "pass 2:"));
    EXPECT_EQ(kill(watch, SIGTERM), 0);
    EXPECT_EQ(finish(watch, "watch"), 0) << err_;
    EXPECT_EQ(run("log --failures -n 1000"), 0) << err_;
    EXPECT_EQ(out_, "");
    EXPECT_EQ(run("peek"), 3) << "it has ended";

    const std::string saveFile = agentDirectory() + "data/" + kSaveFileName;
    std::filesystem::resize_file(saveFile, 1000);
    EXPECT_EQ(run("save"), 1);
    EXPECT_THAT(out_, HasSubstr("rejected: it counts 1 file systems and ends after 0 whole records"));
    EXPECT_EQ(run("save " + saveFile + " --json"), 1);
    EXPECT_EQ(json::parse(out_).at("findings").at(0).at("severity"), "rejected");
    EXPECT_EQ(run("list --format prometheus"), 0);
    EXPECT_THAT(out_, HasSubstr("oxtfs_filesystems 1\n"));
    EXPECT_TRUE(promtoolTakes(out_)) << out_;
    for (const char *arguments : {"peek 1", "peek --format yaml", "list --json --format prometheus", "save a b",
                                  "log -n x", "log -n -1", "log file"})
        EXPECT_EQ(run(arguments), 2) << arguments;
}

TEST_F(PeekCommand, theLogIsShownAndFollowed) {
    const std::string path = agentDirectory() + "log/" + kTraceFileName;
    for (const auto &entry : std::filesystem::directory_iterator(agentDirectory() + "log"))
        std::filesystem::remove(entry.path());
    const auto append = [](const std::string &to, const std::string &text, int level) {
        std::ofstream(to, std::ios::app) << "2031-01-05T07:08:09.123Z 1 1 " << level << " f:1 " << text << "\n";
    };
    EXPECT_EQ(run("log"), 3);
    EXPECT_THAT(err_, HasSubstr("no trace log"));
    const pid_t follower = start("log -f --failures --json", "follow");
    append(path + ".1", "a Failure!!", 3);
    append(path + ".1", "b Failure!!", 3);
    append(path, "c", 0);
    append(path, "d Failure!!", 3);
    append(path, "##start##", 3);
    const auto texts = [](const std::string &lines) {
        std::vector<std::string> all;
        std::istringstream in(lines);
        for (std::string line; std::getline(in, line);)
            all.push_back(json::parse(line).at("text"));
        return all;
    };
    EXPECT_EQ(run("log --json -n 3"), 0);
    EXPECT_THAT(texts(out_), ElementsAre("c", "d Failure!!", "##start##"));
    EXPECT_EQ(run("log --json --failures -n 2"), 0);
    EXPECT_THAT(texts(out_), ElementsAre("b Failure!!", "d Failure!!"));
    EXPECT_TRUE(waitForOutput("follow", "d Failure!!"));
    std::filesystem::rename(path, path + ".1");
    append(path, "e Failure!!", 3);
    EXPECT_TRUE(waitForOutput("follow", "e Failure!!"));
    EXPECT_EQ(kill(follower, SIGTERM), 0);
    EXPECT_EQ(finish(follower, "follow"), -1);
    EXPECT_THAT(texts(out_), ::testing::Not(::testing::Contains("c")));
    EXPECT_EQ(std::system((std::string(OXTFSCTL) + " log -f | head -1 >/dev/null").c_str()), 0)
        << "ends with its reader";
}

} // namespace
