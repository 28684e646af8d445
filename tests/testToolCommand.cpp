// The command oxtfsctl as it is built, with the provider behind it or beside it: run as users run it, over file systems
// of its own.
//
// All of it happens in a private mount and IPC namespace: the mount table is a fixture, the file systems are small
// tmpfs, and the agent's directories start empty. That takes root; without it the tests are skipped.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/ipc.h>
#include <sys/mount.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "agentDir.h"
#include "golden.h"
#include "jsonSchema.h"

namespace {

namespace filesystem = std::filesystem;
using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

struct Ended {
    int exit = -1; // -1: ended by a signal
    std::string out, err;
};

class ToolCommand : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        char name[] = "/tmp/oxtfsctlXXXXXX";
        if (geteuid() != 0 || unshare(CLONE_NEWNS | CLONE_NEWIPC) != 0 || !mkdtemp(name))
            return;
        base_ = name;
        isolated_ = mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        for (const char *part : {"data", "work", "log"})
            isolated_ = isolated_ && mountAt(agentPath(part), "mode=755");
        isolated_ = isolated_ && mountAt(base_ + "/big", "size=128m") && mountAt(base_ + "/small", "size=64m") &&
                    mountAt(base_ + "/odd", "size=128m");
        filesystem::create_directory(base_ + "/etc");
        std::error_code ignored;
        filesystem::copy_file("/etc/ld.so.cache", base_ + "/etc/ld.so.cache", ignored);
        for (const char *disk : {"/disk1", "/disk2"})
            isolated_ = isolated_ && mknod((base_ + disk).c_str(), S_IFBLK | 0600, makedev(8, 1)) == 0;
        std::ofstream(base_ + "/devices") << "Character devices:\n  1 mem\n\nBlock devices:\n  8 sd\n 11 sr\n";
        std::ofstream(base_ + "/etc/mtab") << base_ << "/disk1 " << base_ << "/big ext4 rw 0 0\n"
                                           << "proc /proc proc rw 0 0\n"
                                           << base_ << "/disk2 " << base_ << "/small xfs rw 0 0\n"
                                           << base_ << "/devices " << base_ << "/odd vfat rw 0 0\n";
        isolated_ = isolated_ && mount((base_ + "/etc").c_str(), "/etc", nullptr, MS_BIND, nullptr) == 0 &&
                    mount((base_ + "/devices").c_str(), "/proc/devices", nullptr, MS_BIND, nullptr) == 0;
    }
    static void TearDownTestSuite() {
        if (base_.empty())
            return;
        for (const std::string &over :
             {std::string("/etc"), std::string("/proc/devices"), base_ + "/big", base_ + "/small", base_ + "/odd"})
            umount2(over.c_str(), MNT_DETACH);
        filesystem::remove_all(base_);
    }
    static bool mountAt(const std::string &path, const std::string &options) {
        filesystem::create_directories(path);
        return mount("none", path.c_str(), "tmpfs", 0, options.c_str()) == 0;
    }

    void SetUp() override {
        if (!isolated_)
            GTEST_SKIP() << "needs root and the right to make mount and IPC namespaces";
        for (const char *part : {"data", "work", "log"}) // which are mounted
            for (const auto &entry : filesystem::directory_iterator(agentPath(part)))
                filesystem::remove_all(entry.path());
        filesystem::remove(base_ + "/big/filler");
    }
    void TearDown() override {
        if (isolated_) {
            EXPECT_EQ(segments(), 0) << "shared memory was left behind";
        }
    }
    static long segments() {
        const std::string table = fileContent("/proc/sysvipc/shm");
        return std::count(table.begin(), table.end(), '\n') - 1;
    }

    // `output` names the files in base_ that take what the command writes.
    static pid_t start(const std::string &arguments, const std::string &output = "run") {
        const std::string command = std::string("exec ") + OXTFSCTL + " " + arguments;
        const std::string out = base_ + "/" + output + ".out", err = base_ + "/" + output + ".err";
        const pid_t child = fork();
        if (child == 0) {
            dup2(creat(out.c_str(), 0600), STDOUT_FILENO);
            dup2(creat(err.c_str(), 0600), STDERR_FILENO);
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            _exit(127);
        }
        return child;
    }
    static Ended finish(pid_t child, const std::string &output = "run") {
        int status = 0;
        waitpid(child, &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, fileContent(base_ + "/" + output + ".out"),
                fileContent(base_ + "/" + output + ".err")};
    }
    static Ended run(const std::string &arguments) { return finish(start(arguments)); }
    static json parsed(const std::string &arguments) {
        const Ended ended = run(arguments);
        const json value = json::parse(ended.out, nullptr, false);
        return value.is_discarded() ? json("no JSON: " + ended.out + ended.err) : value;
    }
    static void fillBig(int mib) {
        const int fd = open((base_ + "/big/filler").c_str(), O_WRONLY | O_CREAT, 0600);
        EXPECT_EQ(posix_fallocate(fd, 0, static_cast<off_t>(mib) * 1048576), 0);
        close(fd);
    }
    static bool waitForOutput(const std::string &output, const std::string &text) {
        for (int i = 0; i < 1200; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(50)))
            if (fileContent(base_ + "/" + output + ".out").find(text) != std::string::npos)
                return true;
        return false;
    }

    static std::string base_;
    static bool isolated_;
};
std::string ToolCommand::base_;
bool ToolCommand::isolated_ = false;

// With what each command writes ("!" marks what goes to the other stream), and how it ends.
TEST_F(ToolCommand, commandsInARow) {
    expectReplay("commands.txt", [&](const std::string &command) {
        const Ended ended = run(std::regex_replace(command, std::regex("BASE"), base_));
        const json parsed = json::parse(ended.out, nullptr, false);
        std::string told = parsed.is_discarded() ? ended.out : parsed.dump() + "\n";
        if (!parsed.is_discarded()) {
            EXPECT_EQ(JsonSchema().problem(command.substr(0, command.find(' ')), parsed), "");
        }
        if (ended.exit == 2) { // a wrong command line, before any other
            EXPECT_FALSE(ended.err.empty()) << command;
            EXPECT_TRUE(filesystem::is_empty(agentPath("data"))) << command;
        } else {
            told += std::regex_replace(ended.err, std::regex("(.+\n)"), "! $1");
        }
        told += ended.exit != 0 ? "exit " + std::to_string(ended.exit) + "\n" : "";
        told = std::regex_replace(told, std::regex(base_), "BASE");
        EXPECT_EQ(segments(), 0) << command;
        return std::regex_replace(told, std::regex(oxttool::agentDirectory()), "AGENT/");
    });
}

TEST_F(ToolCommand, whatTheMachineLacksIsSaid) {
    EXPECT_EQ(run("").exit, 2);
    EXPECT_EQ(run("--help").exit, 0);
    EXPECT_THAT(run("warn --help").out, HasSubstr("VALUE"));
    const Ended noLibrary = run("list --library /nowhere.so");
    EXPECT_EQ(noLibrary.exit, 3);
    EXPECT_THAT(noLibrary.err, HasSubstr("/nowhere.so"));
    EXPECT_EQ(run("list --library /bin/sh").exit, 3) << "no provider";
    EXPECT_EQ(run("list >/dev/full").exit, 3);

    const std::string keyFile = agentPath("work/oxtfsshm.key0");
    std::ofstream(keyFile).close();
    const int id = shmget(ftok(keyFile.c_str(), 69), 8, IPC_CREAT | IPC_EXCL | 0600);
    ASSERT_GE(id, 0);
    const Ended busy = run("warn 1 5");
    EXPECT_EQ(busy.exit, 3);
    EXPECT_THAT(busy.err, HasSubstr(std::to_string(getpid())));
    EXPECT_EQ(run("list --force").exit, 0);
    EXPECT_EQ(shmctl(id, IPC_RMID, nullptr), 0) << "the other provider's memory is left alone";
}

TEST_F(ToolCommand, watchTellsAlertsAndCleansUpOnASignal) {
    ASSERT_EQ(run("monitor 1 on").exit, 0);
    ASSERT_EQ(run("warn 1 64").exit, 0);
    ASSERT_EQ(run("fatal 1 16").exit, 0);
    fillBig(80);
    const pid_t watch = start("watch --cycle 10", "watch");
    const auto told = [](const std::string &text) { return waitForOutput("watch", text); };
    EXPECT_TRUE(told("pass 1: 3 file systems, every 10 s")) << fileContent(base_ + "/watch.err");
    EXPECT_TRUE(told("/big (" + base_ + "/disk1) 48M of 128M free, threshold 64M, before -> warning"));
    EXPECT_TRUE(told("file system 1: " + base_ + "/big (" + base_ + "/disk1) 48M of 128M free, warning"));
    EXPECT_EQ(segments(), 3);
    EXPECT_EQ(run("list --direct").exit, 3) << "one provider at a time";
    const Ended seen = run("list");
    EXPECT_THAT(seen.out, HasSubstr("48M"));
    EXPECT_EQ(seen.err, "");
    EXPECT_EQ(parsed("get 1 --json"), parsed("get " + base_ + "/big --json"));
    EXPECT_EQ(parsed("config --json")["config"]["cycle"], 10);
    EXPECT_EQ(parsed("total --json")["total"], 3);
    EXPECT_EQ(parsed("thread status --json")["thread"]["running"], true);
    fillBig(120);
    EXPECT_TRUE(told("free, threshold 16M, warning -> fatal"));
    EXPECT_TRUE(told("pass 2"));
    for (const char *socket : {"work/oxtfs.sock", "run/oxtfs.sock"})
        EXPECT_TRUE(filesystem::remove(agentPath(socket)));
    EXPECT_THAT(run("list").err, HasSubstr("Records of process " + std::to_string(watch)));
    EXPECT_EQ(run("warn 1 5").exit, 3) << "its settings are its own";
    EXPECT_EQ(kill(watch, SIGTERM), 0);
    const Ended ended = finish(watch, "watch");
    EXPECT_EQ(ended.exit, 0) << ended.out << ended.err;
    EXPECT_EQ(parsed("config --json")["config"]["cycle"], 10) << "the cycle stays set";
}

TEST_F(ToolCommand, watchEndsByItselfAndWhenNobodyReads) {
    EXPECT_EQ(run("watch --for 1").exit, 0);
    EXPECT_EQ(segments(), 0);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THAT(run("watch --for 60 | head -1").out, HasSubstr("pass 1"));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
    EXPECT_EQ(segments(), 0);
}

TEST_F(ToolCommand, aProviderAtWorkIsSeenAndNotDisturbed) {
    const Ended none = run("peek");
    EXPECT_EQ(none.exit, 3);
    EXPECT_THAT(none.err, HasSubstr("oxtfsctl watch"));
    EXPECT_EQ(run("save").exit, 3);
    EXPECT_TRUE(filesystem::is_empty(agentPath("work"))) << "nothing is made";
    ASSERT_EQ(run("monitor 1 on").exit, 0);
    const pid_t watch = start("watch --cycle 10", "watch");
    ASSERT_TRUE(waitForOutput("watch", "pass 1:")) << fileContent(base_ + "/watch.err");
    const json saved = parsed("save --json").at("filesystems").at(0);
    EXPECT_EQ(saved.at("mountpoint"), base_ + "/big");
    for (int i = 0; i < 30; ++i) {
        const json peeked = parsed("peek --json");
        EXPECT_EQ(JsonSchema().problem("peek", peeked), "");
        EXPECT_EQ(peeked.at("filesystems").at(0), saved);
        EXPECT_EQ(peeked.at("provider").at("pid"), watch);
        EXPECT_EQ(peeked.at("config").at("cycle"), 10);
    }
    EXPECT_EQ(parsed("peek --format json -b").at("filesystems").at(0).at("size"), 134217728);
    EXPECT_THAT(run("peek").out, HasSubstr("process " + std::to_string(watch) + " (oxtfsctl)"));
    const std::string metrics = run("peek --format prometheus").out;
    EXPECT_THAT(metrics, HasSubstr("mountpoint=\"" + base_ +
                                   "/big\",fstype=\"others\",index=\"1\",drive=\"fixed\"} 134217728\n"));
    EXPECT_THAT(metrics, HasSubstr("oxtfs_monitor_cycle_seconds 10\n"));
    EXPECT_TRUE(waitForOutput("watch", "pass 2:"));
    EXPECT_EQ(kill(watch, SIGTERM), 0);
    EXPECT_EQ(finish(watch, "watch").exit, 0);
    const Ended failures = run("log --failures -n 1000");
    EXPECT_EQ(failures.exit, 0) << failures.err;
    EXPECT_EQ(failures.out, "");
    EXPECT_EQ(run("peek").exit, 3) << "it has ended";

    const std::string saveFile = savePath();
    filesystem::resize_file(saveFile, 1000);
    const Ended damaged = run("save");
    EXPECT_EQ(damaged.exit, 1);
    EXPECT_THAT(damaged.out, HasSubstr("rejected: it counts 3 file systems and ends after 0 whole records"));
    const json told = parsed("save " + saveFile + " --json");
    EXPECT_EQ(JsonSchema().problem("save", told), "");
    EXPECT_EQ(told.at("findings").at(0).at("severity"), "rejected");
    EXPECT_THAT(run("list --format prometheus").out, HasSubstr("oxtfs_filesystems 3\n"));
}

TEST_F(ToolCommand, theLogIsShownAndFollowed) {
    const std::string path = agentPath("log/oxtfs.log");
    const auto append = [](const std::string &to, const std::string &text, int level) {
        std::ofstream(to, std::ios::app) << "2031-01-05T07:08:09.123Z 1 1 " << level << " f:1 " << text << "\n";
    };
    const auto texts = [](const std::string &lines) {
        std::vector<std::string> all;
        std::istringstream in(lines);
        for (std::string line; std::getline(in, line);)
            all.push_back(json::parse(line).at("text"));
        return all;
    };
    const Ended none = run("log");
    EXPECT_EQ(none.exit, 3);
    EXPECT_THAT(none.err, HasSubstr("no trace log"));
    const pid_t follower = start("log -f --failures --json", "follow");
    append(path + ".1", "a Failure!!", 3);
    append(path + ".1", "b Failure!!", 3);
    append(path, "c", 0);
    append(path, "d Failure!!", 3);
    append(path, "##start##", 3);
    EXPECT_THAT(texts(run("log --json -n 3").out), ElementsAre("c", "d Failure!!", "##start##"));
    EXPECT_THAT(texts(run("log --json --failures -n 2").out), ElementsAre("b Failure!!", "d Failure!!"));
    EXPECT_TRUE(waitForOutput("follow", "d Failure!!"));
    filesystem::rename(path, path + ".1");
    append(path, "e Failure!!", 3);
    EXPECT_TRUE(waitForOutput("follow", "e Failure!!"));
    EXPECT_EQ(kill(follower, SIGTERM), 0);
    EXPECT_THAT(texts(finish(follower, "follow").out), ::testing::Not(::testing::Contains("c")));
    EXPECT_EQ(std::system((std::string(OXTFSCTL) + " log -f | head -1 >/dev/null").c_str()), 0)
        << "ends with its reader";
}

} // namespace
