// The command oxtfsctl as it is built, with the provider behind it: run as users run it, over file systems of its own.
//
// All of it happens in a private mount and IPC namespace: the mount table is a fixture, the file systems are small
// tmpfs, and the agent's directories start empty. That takes root; without it the tests are skipped.
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
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "agentDir.h"

namespace {

namespace filesystem = std::filesystem;
using nlohmann::json;

constexpr int kSizeMiB = 128;

std::string contentOf(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

struct Ended {
    int exit = -1; // -1: ended by a signal
    std::string out, err;
    json parsed() const {
        const json value = json::parse(out, nullptr, false);
        return value.is_discarded() ? json("no JSON: " + out + err) : value;
    }
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
            isolated_ = isolated_ && mountAt(oxttool::agentDirectory() + part, "mode=755");
        for (const char *part : {"/big", "/small", "/odd"})
            isolated_ = isolated_ && mountAt(base_ + part, std::string(part) == "/small" ? "size=64m" : "size=128m");
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
        isolated_ = isolated_ && bind("/etc", "/etc") && bind("/devices", "/proc/devices");
    }
    static bool bind(const std::string &fixture, const char *over) {
        return mount((base_ + fixture).c_str(), over, nullptr, MS_BIND, nullptr) == 0;
    }
    static void TearDownTestSuite() {
        if (base_.empty())
            return;
        umount2("/etc", MNT_DETACH);
        umount2("/proc/devices", MNT_DETACH);
        for (const char *part : {"/big", "/small", "/odd"})
            umount2((base_ + part).c_str(), MNT_DETACH);
        filesystem::remove_all(base_);
    }
    static bool mountAt(const std::string &path, const std::string &options) {
        filesystem::create_directories(path);
        return mount("none", path.c_str(), "tmpfs", 0, options.c_str()) == 0;
    }

    void SetUp() override {
        if (!isolated_)
            GTEST_SKIP() << "needs root and the right to make mount and IPC namespaces";
        for (const char *part : {"data", "work", "log"})
            for (const auto &entry : filesystem::directory_iterator(oxttool::agentDirectory() + part))
                filesystem::remove_all(entry.path());
        filesystem::remove(base_ + "/big/filler");
    }
    void TearDown() override {
        if (isolated_) {
            EXPECT_EQ(segments(), 0) << "shared memory was left behind";
        }
    }
    static long segments() {
        const std::string table = contentOf("/proc/sysvipc/shm");
        return std::count(table.begin(), table.end(), '\n') - 1;
    }

    // `output` names the files in base_ that take what the command writes.
    static pid_t start(const std::string &arguments, const std::string &output = "run") {
        const std::string command = std::string("exec ") + OXTFSCTL + " " + arguments;
        const std::string out = base_ + "/" + output + ".out", err = base_ + "/" + output + ".err";
        const pid_t child = fork();
        if (child == 0) {
            dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
            dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            _exit(127);
        }
        return child;
    }
    static Ended finish(pid_t child, const std::string &output = "run") {
        int status = 0;
        waitpid(child, &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentOf(base_ + "/" + output + ".out"),
                contentOf(base_ + "/" + output + ".err")};
    }
    static Ended run(const std::string &arguments) { return finish(start(arguments)); }
    static json get(const std::string &target) {
        const json record = run("get --json " + target).parsed();
        return record.is_object() ? record["filesystem"][0] : record;
    }
    static void fillBig(int mib) {
        const int fd = open((base_ + "/big/filler").c_str(), O_WRONLY | O_CREAT, 0600);
        EXPECT_EQ(posix_fallocate(fd, 0, static_cast<off_t>(mib) * 1048576), 0);
        close(fd);
    }
    static bool waitForOutput(const std::string &output, const std::string &text) {
        for (int i = 0; i < 1200; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(50)))
            if (contentOf(base_ + "/" + output + ".out").find(text) != std::string::npos)
                return true;
        return false;
    }

    static std::string base_;
    static bool isolated_;
};
std::string ToolCommand::base_;
bool ToolCommand::isolated_ = false;

TEST_F(ToolCommand, listAndGetShowWhatIsMounted) {
    const Ended list = run("list --json");
    ASSERT_EQ(list.exit, 0) << list.err;
    const json all = list.parsed().at("filesystems");
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[0], (json{{"index", 1},
                            {"device", base_ + "/disk1"},
                            {"mountpoint", base_ + "/big"},
                            {"type", "others"},
                            {"drive", "fixed"},
                            {"size", kSizeMiB},
                            {"free", kSizeMiB},
                            {"used", 0},
                            {"monitored", false},
                            {"warning", 1},
                            {"fatal", 1},
                            {"status", all[0].at("status")}}));
    EXPECT_EQ(all[1].at("size"), 64);
    EXPECT_EQ(all[2].at("drive"), "unknown");

    const json byMount = get(base_ + "/big//");
    EXPECT_EQ(byMount, get("1"));
    EXPECT_EQ(byMount.size(), 17u);
    EXPECT_EQ(byMount["root"], base_ + "/big");
    EXPECT_EQ(byMount["filesystemsize"], kSizeMiB);
    EXPECT_EQ(run("total --json").parsed()["total"][0]["filesystemtotalnumber"], 3);
    EXPECT_NE(run("list -m").out.find("/small"), std::string::npos);
}

TEST_F(ToolCommand, changesAreShownAndSurvive) {
    const struct {
        const char *arguments;
        json before, after;
    } rows[] = {
        {"monitor 1 on", 0, 1},   {"warn 1 25%", 1, 32},   {"warn 1 0.1G", 32, 102}, {"fatal 1 128", 1, 128},
        {"fatal 1 2M", 128, 2},   {"monitor 1 off", 1, 0}, {"monitor 1 off", 0, 0},  {"warn 1 70000", nullptr, nullptr},
        {"warn 1 100%", 102, 128}};
    for (const auto &row : rows) {
        const Ended change = run(std::string(row.arguments) + " --json");
        EXPECT_EQ(change.exit, row.after.is_null() ? 1 : 0) << row.arguments << change.err;
        if (row.after.is_null()) // a number that 16 bits would turn into an acceptable one
            continue;
        const json shown = change.parsed()["change"][0];
        EXPECT_EQ(shown["old"], row.before) << row.arguments;
        EXPECT_EQ(shown["new"], row.after) << row.arguments;
    }
    const json fs = get("1");
    EXPECT_EQ(fs["warningthreshold"], 128);
    EXPECT_EQ(fs["fatalthreshold"], 2);
    EXPECT_EQ(fs["monitorthreshold"], 0);
    EXPECT_EQ(run("warn " + base_ + "/big 64").out,
              base_ + "/big (index 1): warning threshold 128M -> 64M, status not monitored\n");
    EXPECT_EQ(run("monitor 1 on").out,
              base_ + "/big (index 1): monitoring off -> on, status not monitored -> normal\n");

    EXPECT_EQ(run("config --cycle 30").out, "MonitorCycle: 60 -> 30 seconds\n");
    EXPECT_EQ(run("config --json").parsed()["config"][0]["monitorcycle"], 30);
}

TEST_F(ToolCommand, theProvidersRefusalsAreShown) {
    const struct {
        const char *arguments, *message;
    } rows[] = {{"get 9", "NotFound Index"},
                {"get /nowhere", "no file system mounted on '/nowhere'"},
                {"monitor 9 on", "NotFound Index"},
                {"warn 1 0", "SetValue(WarningThreshold) FAILED"},
                {"warn 1 0%", "SetValue(WarningThreshold) FAILED"},
                {"warn 1 129", "SetValue(WarningThreshold) FAILED"},
                {"fatal 1 1G", "SetValue(FatalThreshold) FAILED"},
                {"fatal 1 2147483647", "SetValue(FatalThreshold) FAILED"},
                {"monitor 2 on", "FileSystemSize less 100MB FAILED"},
                {"warn 3 10", "DriveType not Fixed FAILED"},
                {"config --cycle 9", "SetValue(MonitorCycle) FAILED"},
                {"config --cycle 3601", "SetValue(MonitorCycle) FAILED"},
                {"config --cycle 0", "getArgToInt(MonitorCycle) FAILED"},
                {"list --service-mode on", "ServiceMode But NonThread Failure!!"},
                {"thread stop", "Thread is Already Pause FAILED"},
                {"thread start --service-mode off", "ServiceMode is non-Service FAILED"},
                {"thread start --service-mode 2", "ServiceMode is non-Service FAILED"},
                {"watch --service-mode fail", "ServiceMode is non-Service FAILED"}};
    for (const auto &row : rows) {
        const Ended refused = run(row.arguments);
        EXPECT_EQ(refused.exit, 1) << row.arguments;
        EXPECT_NE(refused.err.find(row.message), std::string::npos) << row.arguments << "\n" << refused.err;
        EXPECT_EQ(refused.out, "") << row.arguments;
        EXPECT_EQ(segments(), 0) << row.arguments;
    }
}

TEST_F(ToolCommand, callShowsTheAnswerAsItIs) {
    const struct {
        const char *arguments;
        int exit;
        json status, message, returned;
    } rows[] = {{"OXT_FileSystem SetWarningThreshold Index=1 WarningThreshold=7", 0, 0, nullptr, nullptr},
                {"OXT_FileSystem SetWarningThreshold Index=1", 1, 1, "getArgToInt(WarningThreshold) FAILED", nullptr},
                {"OXT_FileSystem NoSuchMethod Index=1", 1, 1, "Generic Failure!!", nullptr},
                {"oxt_filesystem SetWarningThreshold Index=1 WarningThreshold=7", 1, 1, "Generic Failure!!", nullptr},
                {"OXT_FileSystemThread StartMonitoringThread", 1, 0, "ServiceMode is non-Service FAILED", 1},
                {"OXT_FileSystemThread StartMonitoringThread --service-mode on", 0, 0, nullptr, 0}};
    for (const auto &row : rows) {
        const Ended call = run(std::string("call --json ") + row.arguments);
        EXPECT_EQ(call.exit, row.exit) << row.arguments << call.err;
        EXPECT_EQ(call.parsed(),
                  (json{{"call", {{{"status", row.status}, {"message", row.message}, {"returned", row.returned}}}}}))
            << row.arguments;
    }
    EXPECT_EQ(get("1")["warningthreshold"], 7);
}

TEST_F(ToolCommand, wrongCommandLinesDoNothing) {
    for (const char *arguments : {"",
                                  "frobnicate",
                                  "list extra",
                                  "get",
                                  "get 0",
                                  "get 65536",
                                  "get 99999999999",
                                  "get 1 2",
                                  "warn 1",
                                  "warn 1 lots",
                                  "warn 1 -5",
                                  "warn 65537 5",
                                  "fatal 1 5KB",
                                  "monitor 1",
                                  "monitor 1 maybe",
                                  "config --cycle",
                                  "config --cycle ten",
                                  "config --cycle 65566",
                                  "thread",
                                  "thread pause",
                                  "list --json --yaml",
                                  "list -b -m",
                                  "list --service-mode maybe",
                                  "list --flavour pegasus",
                                  "call OXT_FileSystem",
                                  "call OXT_FileSystem M x",
                                  "call OXT_FileSystem M =1",
                                  "watch --for 0",
                                  "watch --for never",
                                  "watch --json",
                                  "watch --cycle x"}) {
        const Ended wrong = run(arguments);
        EXPECT_EQ(wrong.exit, 2) << arguments << wrong.err;
        EXPECT_EQ(wrong.out, "") << arguments;
        EXPECT_FALSE(wrong.err.empty()) << arguments;
    }
    EXPECT_TRUE(filesystem::is_empty(oxttool::agentDirectory() + "data"));
    EXPECT_EQ(run("--help").exit, 0);
    EXPECT_NE(run("warn --help").out.find("VALUE"), std::string::npos);
}

TEST_F(ToolCommand, whatTheMachineLacksIsSaid) {
    const Ended noLibrary = run("list --library /nowhere.so");
    EXPECT_EQ(noLibrary.exit, 3);
    EXPECT_NE(noLibrary.err.find("/nowhere.so"), std::string::npos) << noLibrary.err;
    EXPECT_EQ(run("list --library /bin/sh").exit, 3) << "no provider";
    EXPECT_EQ(run("list >/dev/full").exit, 3);

    const std::string keyFile = oxttool::agentDirectory() + "work/oxtfsshm.key0";
    std::ofstream(keyFile).close();
    const int id = shmget(ftok(keyFile.c_str(), 69), 8, IPC_CREAT | IPC_EXCL | 0600);
    ASSERT_GE(id, 0);
    const Ended busy = run("warn 1 5");
    EXPECT_EQ(busy.exit, 3);
    EXPECT_NE(busy.err.find(std::to_string(getpid())), std::string::npos) << busy.err;
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
    EXPECT_TRUE(told("pass 1: 3 file systems, every 10 s")) << contentOf(base_ + "/watch.err");
    EXPECT_TRUE(told("/big (" + base_ + "/disk1) 48M of 128M free, threshold 64M, before -> warning"));
    EXPECT_TRUE(told("file system 1: " + base_ + "/big (" + base_ + "/disk1) 48M of 128M free, warning"));
    EXPECT_EQ(segments(), 3);
    EXPECT_EQ(run("list").exit, 3) << "one provider at a time";
    fillBig(120);
    EXPECT_TRUE(told("free, threshold 16M, warning -> fatal"));
    EXPECT_TRUE(told("pass 2"));
    EXPECT_EQ(kill(watch, SIGTERM), 0);
    const Ended ended = finish(watch, "watch");
    EXPECT_EQ(ended.exit, 0) << ended.out << ended.err;
    EXPECT_EQ(run("config --json").parsed()["config"][0]["monitorcycle"], 10) << "the cycle stays set";
}

TEST_F(ToolCommand, watchEndsByItselfAndWhenNobodyReads) {
    EXPECT_EQ(run("watch --for 1").exit, 0);
    EXPECT_EQ(segments(), 0);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_NE(run("watch --for 60 | head -1").out.find("pass 1"), std::string::npos);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
    EXPECT_EQ(segments(), 0);
    EXPECT_EQ(run("thread start").exit, 0);
    EXPECT_EQ(run("thread status --json").parsed()["thread"][0]["threadrunning"], 0);
}

} // namespace
