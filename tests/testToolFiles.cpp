// The command-line tool's own parts: the files that it follows and writes, the agent directory, a provider at work.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "agentDir.h"
#include "alertFile.h"
#include "failure.h"
#include "golden.h"
#include "keyedSegment.h"
#include "lineFile.h"
#include "passSigns.h"
#include "process.h"
#include "providerSegment.h"

namespace {

using namespace oxttool;
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

TEST_F(ToolFiles, AFileIsFollowedThroughEverything) {
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

// A failed pass is told by this process's lines in a log that is root's or its own; the log's directory may be somebody
// else's.
TEST_F(ToolFiles, AStrangersTraceIsNotBelieved) {
    std::filesystem::create_directory(root_ + "log");
    for (const auto &[owner, process] :
         {std::pair(getuid(), getpid()), {uid_t{65534}, getpid()}, {getuid(), getppid()}}) {
        const std::string name = std::string("log/") + kTraceFileName;
        std::filesystem::remove(root_ + name);
        append(name, "");
        if (chown((root_ + name).c_str(), owner, static_cast<gid_t>(-1)) != 0)
            GTEST_SKIP() << "needs root to make a stranger's file";
        TraceSigns signs(root_);
        for (const char *line :
             {" 1 3 fsSaveData:9 fopen Failure!! err=[30]\n", " 1 3 fsWatchThread:9 fsCheckConfigChange() Failure!!\n"})
            append(name, "2026-11-25T00:00:00.000Z " + std::to_string(process) + line);
        EXPECT_EQ(signs.failure(0).value_or(TracedFailure{"none", {}}).reason,
                  owner == getuid() && process == getpid() ? "fopen Failure!! err=[30] (Read-only file system)"
                                                           : "none");
    }
}

// From the end, with what follows left to the next call; what lies before the bound is not looked at.
TEST_F(ToolFiles, TheEndIsReadBackwards) {
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

TEST_F(ToolFiles, AgentDirectory) {
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

TEST_F(ToolFiles, ProviderAtWorkIsFoundByItsLivingMaker) {
    std::filesystem::create_directory(root_ + "work");
    EXPECT_FALSE(findProviderAtWork(root_)) << "no key file";
    append("work/oxtfsshm.key2", "");
    const std::string keyFile = root_ + "work/oxtfsshm.key2";
    EXPECT_FALSE(findProviderAtWork(root_)) << "no segment";

    const pid_t maker = fork();
    if (maker == 0) {
        makeUnderKey(keyFile, kKeyProject, 16, root_ + "taken");
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
    const int made = shmget(ftok(keyFile.c_str(), kKeyProject), 0, 0);
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

    const int id = shmget(ftok(keyFile.c_str(), kKeyProject), 0, 0);
    EXPECT_FALSE(findProviderAtWork(root_)) << "its maker is dead";
    const std::time_t now = std::time(nullptr);
    EXPECT_TRUE(mayHaveActed(getpid(), getuid(), now));
    EXPECT_FALSE(mayHaveActed(getpid(), getuid() + 1, now) || mayHaveActed(0, getuid(), now)) << "another's";
    EXPECT_FALSE(mayHaveActed(getpid(), getuid(), now - 1000000)) << "it had not begun";
    const pid_t zombie = fork();
    if (zombie == 0)
        _exit(0);
    siginfo_t ended = {};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(zombie), &ended, WEXITED | WNOWAIT), 0);
    EXPECT_FALSE(mayHaveActed(zombie, getuid(), now)) << "dead, and not waited for";
    waitpid(zombie, nullptr, 0);
    shmctl(id, IPC_RMID, nullptr);
}

} // namespace
