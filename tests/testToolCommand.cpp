// The command oxtfsctl as it is built, with the provider behind it or beside it: run as users run it, over file systems
// of its own.
//
// All of it happens in a private mount and IPC namespace: the mount table is a fixture below /mnt, the file systems are
// small tmpfs, and the agent's directories start empty. That takes root; without it the tests are skipped.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <pty.h>
#include <sched.h>
#include <signal.h>
#include <sys/ipc.h>
#include <sys/mount.h>
#include <sys/shm.h>
#include <unistd.h>
#include <utmp.h>

#include <chrono>
#include <clocale>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "agentDir.h"
#include "command.h"
#include "golden.h"
#include "grid.h"
#include "jsonSchema.h"
#include "keyedSegment.h"
#include "providerSegment.h"

namespace {

namespace filesystem = std::filesystem;
using nlohmann::json;
using ::testing::HasSubstr;

constexpr unsigned kNobody = 65534;

class ToolCommand : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        isolated_ = geteuid() == 0 && unshare(CLONE_NEWNS | CLONE_NEWIPC) == 0 &&
                    mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                    mount("none", "/mnt", "tmpfs", 0, "mode=755") == 0;
        setenv("LC_ALL", "C.UTF-8", 1);
        unsetenv("TMPDIR"); // a sanitizer writes there, too; the commands read TMP as well
        setenv("T", OXTFSCTL, 1);
        std::setlocale(LC_CTYPE, "");
        // The agent's directory is another as a whole: tests beside this one remove what lies in the build's.
        isolated_ =
            isolated_ && std::system("cd /mnt && printf 'Block devices:\\n  8 sd\\n 11 sr\\n' >devices && mkdir etc && "
                                     "cp /etc/ld.so.cache etc && : >etc/mtab && cp -L $T oxtfsctl && "
                                     "mount --bind devices /proc/devices && mount --bind etc /etc && "
                                     "mkdir agent && mount -t tmpfs -o mode=755 none agent && cd agent && "
                                     "mkdir data work log lib && mount --bind " OXT_TEST_AGENT_DIR "lib lib && "
                                     "for part in data work log; do mount -t tmpfs -o mode=755 none $part; done && "
                                     "mount --rbind . " OXT_TEST_AGENT_DIR) == 0;
    }

    void SetUp() override {
        if (!isolated_)
            GTEST_SKIP() << "needs root and the right to make mount and IPC namespaces";
        for (const char *part : {"data", "work", "log"})
            for (const auto &entry : filesystem::directory_iterator(agentPath(part)))
                filesystem::remove_all(entry.path());
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
    static void prepare(const std::string &script) {
        const std::string all = ". " OXT_TEST_SOURCE_DIR "golden/commands.sh; " + script;
        EXPECT_EQ(WEXITSTATUS(std::system(all.c_str())), 0) << script;
    }
    // Two file systems: /mnt/big of 128 MiB and /mnt/small of 64, which is too small.
    static void mountTwo() { prepare(": >/mnt/etc/mtab; add /mnt/big 128 0 ext4; add /mnt/small 64 0 xfs"); }

    // `output` names the files in /mnt that take what the command writes.
    static pid_t start(const std::string &words, const std::string &output = "run", unsigned user = 0) {
        return startShell(words, "/mnt/" + output, user);
    }
    static Ended finish(pid_t child, const std::string &output = "run") {
        return finishCommand(child, "/mnt/" + output);
    }
    static Ended run(const std::string &arguments) { return finish(start("$T " + arguments)); }
    // On a terminal, which takes both streams. After `cue` the keys are pressed.
    static Ended runOnTerminal(const std::string &command, unsigned short columns, const char *cue = nullptr,
                               const std::string &keys = "") {
        winsize size = {};
        size.ws_row = 24;
        size.ws_col = columns;
        constexpr char kEnd = 4; // no program here writes it
        int terminal = -1, program = -1;
        EXPECT_EQ(openpty(&terminal, &program, nullptr, nullptr, &size), 0);
        const pid_t child = fork();
        if (child == 0) {
            close(terminal);
            login_tty(program);
            setenv("NO_COLOR", "1", 1);
            execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), nullptr);
            _exit(127);
        }
        Ended ended;
        // Its side stays open here until all is read: what a program writes last could be lost with its end.
        std::thread end([&] {
            ended.exit = finish(child).exit;
            EXPECT_EQ(write(program, &kEnd, 1), 1);
        });
        char buffer[4096];
        for (ssize_t got;
             ended.out.find(kEnd) == std::string::npos && (got = read(terminal, buffer, sizeof buffer)) > 0;)
            if (ended.out.append(buffer, static_cast<std::size_t>(got));
                cue && ended.out.find(cue) != std::string::npos)
                cue = write(terminal, keys.data(), keys.size()) > 0 ? nullptr : cue;
        end.join();
        ended.out.resize(ended.out.find(kEnd));
        termios state = {};
        EXPECT_TRUE(tcgetattr(terminal, &state) == 0 && (state.c_lflag & ECHO) != 0) << "the terminal shows no typing";
        close(terminal);
        close(program);
        ended.out = std::regex_replace(ended.out, std::regex("\r"), "");
        return ended;
    }
    static json parsed(const std::string &arguments) {
        const Ended ended = run(arguments);
        const json value = json::parse(ended.out, nullptr, false);
        return value.is_discarded() ? json("no JSON: " + ended.out + ended.err) : value;
    }
    static void fillBig(int mib) { prepare("fallocate -l " + std::to_string(mib) + "M /mnt/big/filler"); }
    static bool isolated_;
};
bool ToolCommand::isolated_ = false;

// A line of the golden file: where the command runs, and the command. Its JSON has to keep to the schema.
std::string told(const std::string &line, const std::function<Ended(const std::string &, unsigned, unsigned)> &run) {
    std::smatch parts;
    const std::regex form("(?:TERMINAL=([0-9]+) )?(?:(AS)=nobody )?((?:[A-Z_]+=\\S* )*)(.*)");
    EXPECT_TRUE(std::regex_match(line, parts, form));
    const unsigned columns = parts[1].matched ? static_cast<unsigned>(std::stoul(parts[1])) : 0;
    const unsigned user = parts[2].matched ? kNobody : 0;
    const std::string program = user != 0 ? "/mnt/oxtfsctl " : OXTFSCTL " ";
    const Ended ended = run("env " + parts[3].str() + program + parts[4].str(), columns, user);
    std::string out = ended.out, err = ended.err;
    std::istringstream lines(out);
    for (std::string row; columns != 0 && std::getline(lines, row);)
        EXPECT_LE(oxttool::cellsOf(std::regex_replace(row, std::regex("\033\\[[0-9;]*m"), "")), columns) << row;
    if (const json answer = json::parse(out, nullptr, false); answer.is_structured()) {
        EXPECT_EQ(JsonSchema().problem(parts[4].str().substr(0, parts[4].str().find(' ')), answer), "");
        out = answer.dump() + "\n";
    }
    if (err.find("shows how it is used.") != std::string::npos &&
        err.rfind("oxtfsctl: unknown ", 0) != 0) // the parser's own words differ by version
        err.erase(0, err.find('\n') + 1);
    out += std::regex_replace(err, std::regex("(.+\n)"), "! $1");
    out += ended.exit != 0 ? "exit " + std::to_string(ended.exit) + "\n" : "";
    out = std::regex_replace(out, std::regex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}Z"), "TIME");
    out = std::regex_replace(out, std::regex("\033"), "ESC");
    return std::regex_replace(out, std::regex(oxttool::agentDirectory()), "AGENT/");
}

TEST_F(ToolCommand, CommandsInARow) {
    prepare(": >/mnt/etc/mtab");
    expectReplay("commands.txt", [&](const std::string &line) -> std::string {
        if (line.rfind("sh ", 0) == 0) {
            const std::string agent = oxttool::agentDirectory();
            const std::string script = std::regex_replace(line.substr(3), std::regex("AGENT/"), agent);
            std::ofstream("/mnt/script") << ". " OXT_TEST_SOURCE_DIR "golden/commands.sh\n" << script << "\n";
            const Ended ended = finish(start("sh /mnt/script"));
            return ended.out + ended.err;
        }
        const std::string answer = told(line, [](const std::string &command, unsigned columns, unsigned user) {
            return columns != 0 ? runOnTerminal(command, static_cast<unsigned short>(columns))
                                : finish(start(command, "run", user));
        });
        if (answer.find("\nexit ") == std::string::npos) { // a provider that cannot save cannot clean up
            EXPECT_EQ(segments(), 0) << line;
        }
        return answer;
    });
}

TEST_F(ToolCommand, AWatchTellsAlertsAndIsSeenByOtherCommands) {
    mountTwo();
    for (const char *command : {"monitor 1 on", "warn 1 64", "fatal 1 16M"})
        ASSERT_EQ(run(command).exit, 0) << command;
    fillBig(80);
    const pid_t watch = start("$T watch --cycle 10", "watch");
    const auto told = [](const std::string &text) { return waitForOutput("/mnt/watch", text); };
    EXPECT_TRUE(told("pass 1: 2 file systems, every 10 s")) << fileContent("/mnt/watch.err");
    EXPECT_TRUE(told("/big (/mnt/disk1) 48M of 128M free, threshold 64M, before -> warning"));
    EXPECT_TRUE(told("file system 1: /mnt/big (/mnt/disk1) 48M of 128M free, warning"));
    EXPECT_EQ(segments(), 3);
    const std::string source = "Records of process " + std::to_string(watch) + " (oxtfsctl), measured at ";
    EXPECT_THAT(run("peek").out, HasSubstr(source));
    const json saved = parsed("save --json").at("filesystems");
    for (int i = 0; i < 30; ++i) {
        const json peeked = parsed("peek --json");
        EXPECT_EQ(JsonSchema().problem("peek", peeked), "");
        EXPECT_EQ(peeked.at("filesystems"), saved);
        EXPECT_EQ(peeked.at("provider").at("overdue"), false);
        EXPECT_EQ(peeked.at("config").at("cycle"), 10);
    }
    EXPECT_THAT(run("peek --format prometheus").out, HasSubstr("oxtfs_monitor_cycle_seconds 10\n"));
    const std::string metrics = "--format prometheus --output-file /mnt/metrics";
    EXPECT_EQ(run("list " + metrics).exit, 0);
    EXPECT_THAT(fileContent("/mnt/metrics"), HasSubstr("\noxtfs_monitor_up 1\n"));
    EXPECT_EQ(run("list --direct").exit, 3) << "one provider at a time";
    const Ended seen = run("list");
    EXPECT_THAT(seen.out, HasSubstr("48M"));
    EXPECT_EQ(seen.err, "") << "it is asked, not its shared memory";
    EXPECT_EQ(run("check /mnt/big").exit, 1);
    EXPECT_EQ(parsed("get 1 --json"), parsed("get /mnt/big --json"));
    EXPECT_EQ(parsed("config --json")["config"]["cycle"], 10);
    EXPECT_EQ(parsed("total --json")["total"], 2);
    EXPECT_EQ(parsed("thread status --json")["thread"]["running"], true);
    const pid_t follower = start("$T watch", "follower");
    EXPECT_TRUE(waitForOutput("/mnt/follower", "file system 1: /mnt/big (/mnt/disk1) 48M of 128M free, warning"));
    fillBig(120);
    EXPECT_TRUE(told("free, threshold 16M, warning -> fatal"));
    EXPECT_TRUE(
        waitForOutput("/mnt/follower", "alert critical: /mnt/big (/mnt/disk1) 8M of 128M free, threshold 16M, "));
    EXPECT_TRUE(waitForOutput("/mnt/follower", "file system 1: /mnt/big (/mnt/disk1) 8M of 128M free, fatal"));
    EXPECT_EQ(kill(follower, SIGTERM), 0);
    const std::string followed = finish(follower, "follower").out;
    for (const char *once : {"pass 1: ", "alert "})
        EXPECT_EQ(followed.find(once), followed.rfind(once)) << followed;
    EXPECT_TRUE(told("pass 2"));
    for (const char *socket : {"work/oxtfs.sock", "run/oxtfs.sock"})
        EXPECT_TRUE(filesystem::remove(agentPath(socket)));
    EXPECT_THAT(run("list").err, HasSubstr("Records of process " + std::to_string(watch)));
    EXPECT_EQ(run("list --raw").err, "");
    EXPECT_EQ(run("peek --raw -n -b -o index,free,fatal,status").out,
              "1 8388608 16777216 fatal\n2 67108864 - not\\x20monitored\n");
    EXPECT_THAT(run("thread status").out, HasSubstr("may run or not"));
    EXPECT_EQ(run("warn 1 5").exit, 3) << "its settings are its own";
    EXPECT_EQ(kill(watch, SIGSTOP), 0); // nobody looks
    const std::string save = agentPath("data/oxtfssave.dat");
    filesystem::last_write_time(save, filesystem::last_write_time(save) - std::chrono::hours(1));
    EXPECT_THAT(run("check").out,
                ::testing::StartsWith("OXTFS UNKNOWN - Nothing monitors there: the last look was 36"));
    EXPECT_EQ(parsed("peek --json")["provider"]["overdue"], true);
    EXPECT_THAT(run("peek --format prometheus").out, HasSubstr("\noxtfs_monitor_up 0\n"));
    EXPECT_TRUE(kill(watch, SIGTERM) == 0 && kill(watch, SIGCONT) == 0);
    const Ended ended = finish(watch, "watch");
    EXPECT_EQ(ended.exit, 0) << ended.out << ended.err;
    EXPECT_EQ(run("peek " + metrics).exit, 3) << "it has ended";
    EXPECT_THAT(fileContent("/mnt/metrics"), ::testing::EndsWith("\noxtfs_monitor_up 0\n")) << "and the file knows it";
    EXPECT_THAT(fileContent("/mnt/metrics"), ::testing::Not(HasSubstr("filesystem_")));
    EXPECT_EQ(run("list " + metrics).exit, 0) << "a look on the spot";
    EXPECT_EQ(run("list /nowhere " + metrics).exit, 1) << "which leaves the file";
    EXPECT_THAT(fileContent("/mnt/metrics"), HasSubstr("\noxtfs_monitor_up 0\n"));
    EXPECT_THAT(fileContent("/mnt/metrics"), HasSubstr("mountpoint=\"/mnt/big\""));
    EXPECT_EQ(parsed("config --json")["config"]["cycle"], 10) << "the cycle stays set";
    const Ended failures = run("log --failures -n 1000");
    EXPECT_EQ(failures.exit, 0) << failures.err;
    EXPECT_EQ(failures.out, "");
}

TEST_F(ToolCommand, WatchEndsByItselfAtAKeyAndWhenNobodyReads) {
    mountTwo();
    const Ended keyed = runOnTerminal(OXTFSCTL " watch --for 60", 80, "q ends", "sq");
    EXPECT_EQ(keyed.exit, 0) << keyed.out;
    EXPECT_THAT(keyed.out, HasSubstr("worst first. q ends, s sorts."));
    EXPECT_EQ(run("watch --for 1").exit, 0);
    EXPECT_EQ(segments(), 0);
    prepare("for i in $(seq 40); do printf '[[mount]]\\ndir = \"/%s\"\\ndevice = \"/dev/sda\"\\ntype = \"ext4\"\\nsize "
            "= 99\\n' $i; "
            "done >/mnt/many.toml"); // of more rows than the terminal has
    const Ended scrolled = runOnTerminal(OXTFSCTL " --machine /mnt/many.toml watch --for 60", 80, "q ends",
                                         "\033[B\033OB\033[B\033[B\033[A\033OAq");
    EXPECT_EQ(scrolled.exit, 0) << scrolled.out;
    EXPECT_THAT(scrolled.out, HasSubstr("3 to 19 of 40, worst first. q ends, s sorts, arrows scroll."));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THAT(run("watch --for 60 | head -1").out, HasSubstr("pass 1"));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
}

TEST_F(ToolCommand, ASegmentOfAnotherProcessStopsAChange) {
    mountTwo();
    const std::string keyFile = agentPath("work/oxtfsshm.key0");
    const int id = makeUnderKey(keyFile, oxttool::kKeyProject, 8, agentPath("work/taken"));
    ASSERT_GT(id, 0);
    const Ended busy = run("warn 1 5M");
    EXPECT_EQ(busy.exit, 3);
    EXPECT_THAT(busy.err, HasSubstr(std::to_string(getpid())));
    EXPECT_EQ(run("list --force").exit, 0);
    EXPECT_EQ(shmctl(id, IPC_RMID, nullptr), 0) << "the other provider's memory is left alone";
}

TEST_F(ToolCommand, TheLogIsShownAndFollowed) {
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
    const pid_t follower = start("$T log -f --failures --json", "follow");
    append(path, "c", 0);
    append(path, "d Failure!!", 3);
    append(path, "##start##", 3);
    EXPECT_TRUE(waitForOutput("/mnt/follow", "d Failure!!"));
    filesystem::rename(path, path + ".1");
    append(path, "c", 0);
    append(path, "e Failure!!", 3);
    EXPECT_TRUE(waitForOutput("/mnt/follow", "e Failure!!"));
    EXPECT_EQ(kill(follower, SIGTERM), 0);
    EXPECT_THAT(texts(finish(follower, "follow").out), ::testing::Not(::testing::Contains("c")));
    EXPECT_EQ(std::system("$T log -f | head -1 >/dev/null"), 0) << "ends with its reader";
}

} // namespace
