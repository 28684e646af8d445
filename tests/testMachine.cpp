// Machines in place of this one: what their files say, and the tool over them, which leaves the real agent's directory
// alone. Nothing here needs root or a disk.
#include "command.h"
#include "golden.h"
#include "jsonSchema.h"

#include <filesystem>
#include <regex>

#include <signal.h>
#include <sys/inotify.h>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "description.h"

namespace {

namespace filesystem = std::filesystem;
using nlohmann::json;
using oxtmachine::Machine;

std::string replaced(std::string text, const std::string &what, const std::string &by) {
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
        text.replace(at, what.size(), by);
    return text;
}

// "SECONDS TEXT": the machine of a text, whose line feeds are "\\n", as it is written down at that second.
TEST(MachineFile, ReadAndWritten) {
    expectReplay("machineFiles.txt", [](const std::string &line) {
        const std::size_t space = line.find(' ');
        try {
            Machine machine = oxtmachine::readMachine(replaced(line.substr(space + 1), "\\n", "\n"));
            machine.advance(machine.begin + std::chrono::seconds(std::stoi(line)));
            return std::regex_replace(oxtmachine::writeMachine(machine), std::regex("^\n|\n(?=\n)"), "");
        } catch (const oxtmachine::Malformed &problem) {
            return std::regex_replace(problem.what(), std::regex("(not TOML:).*"), "$1") + "\n";
        }
    });
}

// The real agent's directory is watched: whatever opens, makes or changes something in it fails the test.
class MachineCommand : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(emptyAgentDirectory()) << "the agent directory must lie in the build directory";
        for (const char *file : {"data/oxtfssave.dat", "work/oxtfsshm.key0", "log/oxtfs.log", "log/svalert.json"})
            std::ofstream(agentPath(file)).close();
        char name[] = "/tmp/oxtmachineXXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        base_ = name;
        filesystem::create_directory(base_ + "/tmp");
        setenv("LC_ALL", "C", 1);
        setenv("TMPDIR", (base_ + "/tmp").c_str(), 1);
        events_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        for (const char *part : {"", "data", "work", "log"})
            ASSERT_GE(inotify_add_watch(events_, agentPath(part).c_str(), IN_ALL_EVENTS), 0) << part;
    }
    void TearDown() override {
        alignas(inotify_event) char events[4096] = {};
        const ssize_t size = read(events_, events, sizeof events);
        for (ssize_t at = 0; at < size;) {
            const auto *event = static_cast<const inotify_event *>(static_cast<void *>(events + at));
            const std::string name = event->name;
            if ((event->mask & IN_ISDIR) == 0 || (name != "lib" && name != "run")) // which tests beside this one use
                ADD_FAILURE() << "the agent's directory was touched: " << name << ", mask " << event->mask;
            at += static_cast<ssize_t>(sizeof *event + event->len);
        }
        EXPECT_TRUE(filesystem::is_empty(base_ + "/tmp")) << "a machine's directory was left behind";
        close(events_);
        unsetenv("TMPDIR");
        unsetenv("LC_ALL");
        filesystem::remove_all(base_);
    }
    Ended run(const std::string &arguments) { return finishCommand(startCommand(arguments, out()), out()); }
    std::string out() const { return base_ + "/run"; }
    json parsed(const std::string &arguments) {
        const std::string text = run(arguments).out; // none where nothing is mounted
        return text.empty() ? json::object() : json::parse(text);
    }
    std::string save(const std::string &name, const std::string &text) {
        std::ofstream(base_ + "/" + name) << text;
        return base_ + "/" + name;
    }
    std::string base_;
    int events_ = -1;
};
const std::string machines = OXT_TEST_SOURCE_DIR "machines/";

// Each is a life of its own over the machine that stands first. "!" marks the other stream.
TEST_F(MachineCommand, CommandsInARow) {
    expectReplay("machines.txt", [&](const std::string &line) {
        const std::size_t space = line.find(' ');
        const Ended ended = run("--machine " + machines + line.substr(0, space) + ".toml " + line.substr(space + 1));
        const json parsed = json::parse(ended.out, nullptr, false);
        if (parsed.is_structured()) {
            const std::string command = line.substr(space + 1, line.find(' ', space + 1) - space - 1);
            EXPECT_EQ(JsonSchema().problem(command, parsed), "") << line;
        }
        std::string told = parsed.is_discarded() ? ended.out : parsed.dump() + "\n";
        told += std::regex_replace(ended.err, std::regex("(.+\n)"), "! $1");
        told += ended.exit != 0 ? "exit " + std::to_string(ended.exit) + "\n" : "";
        EXPECT_TRUE(filesystem::is_empty(base_ + "/tmp")) << line;
        told = std::regex_replace(replaced(told, machines, "MACHINES/"), std::regex(" +\n"), "\n");
        return std::regex_replace(told, std::regex("(timestamp_seconds )[0-9.]+"), "$1NOW");
    });
}

TEST_F(MachineCommand, AStoryIsPlayed) {
    const pid_t watch = startCommand("--machine " + machines + "story.toml watch --cycle 10", out());
    EXPECT_TRUE(waitForOutput(out(), "/data (/dev/sdb1) 10G of 100G free, warning"));
    EXPECT_TRUE(waitForOutput(out(), "alert info: fileSystemCountChanged"));
    EXPECT_TRUE(waitForOutput(out(), "1 file systems"));
    EXPECT_EQ(kill(watch, SIGTERM), 0);
    const Ended ended = finishCommand(watch, out());
    EXPECT_EQ(ended.exit, 0) << ended.err;
    EXPECT_THAT(ended.out, testing::StartsWith("Described machine story"));
    EXPECT_THAT(ended.out, testing::HasSubstr("10G of 100G free, threshold 10G, normal -> warning"));
    EXPECT_THAT(ended.out, testing::Not(testing::HasSubstr(" status: "))) << "an alert has told it";
    std::istringstream objects(run("--machine " + machines + "story.toml watch --cycle 10 --for 16 --json").out);
    std::vector<std::string> told;
    for (std::string line; std::getline(objects, line);) {
        const json object = json::parse(line);
        EXPECT_EQ(JsonSchema().problem("watch", object), "");
        told.push_back(object.contains("pass") ? "pass" : object.at("alert").at("status").dump());
    }
    EXPECT_THAT(told, testing::IsSupersetOf({"pass", "\"warning\""}));
}

// A record is the machine: of a described one, and of this one whatever it is.
TEST_F(MachineCommand, RecordsAreTheMachine) {
    const std::string described = run("--machine " + machines + "rules.toml record").out;
    const std::string again = save("again.toml", described);
    EXPECT_EQ(replaced(run("--machine " + again + " record").out, again, machines + "rules.toml"), described);
    EXPECT_THAT(run("--machine " + machines + "noMemory.toml record").out, testing::HasSubstr("\"ENOSPC\""));
    const auto seen = [&](const std::string &machine) {
        const json all = parsed(machine + " why --json");
        json mounts = all.value("mounts", json::array());
        for (json &mount : mounts) // which others may be filling
            mount.erase("free"), mount.erase("size");
        return mounts;
    };
    EXPECT_EQ(seen("--machine " + again), seen("--machine " + machines + "rules.toml"));
    const Ended here = run("record");
    EXPECT_EQ(here.exit, 0) << here.err;
    EXPECT_EQ(seen("--machine " + save("here.toml", here.out)), seen(""));
}

} // namespace
