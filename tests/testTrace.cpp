// The trace library as its callers and an administrator meet it: many writers, hostile names and texts, and a log
// directory in which things happen. The library's directory in these tests is OXT_AGENT_TEST_DIR.

#include "agentFile.h"
#include "agentText.h"
#include "golden.h"
#include "svtrace.h"
#include "svtraceSettings.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <numeric>
#include <regex>
#include <sched.h>
#include <set>
#include <string>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

const fs::path kDirectory = OXT_AGENT_TEST_DIR "log";
constexpr int kSkipped = 77;

// The lines of a log without "<time> <process> <thread> <level> ", which must stand before each.
Lines bodiesOf(const fs::path &path) {
    static const std::regex kHead(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z \d+ \d+ -?\d+ )");
    std::ifstream file(path);
    Lines bodies;
    for (std::string line; std::getline(file, line);) {
        std::smatch head;
        EXPECT_TRUE(std::regex_search(line, head, kHead)) << line;
        bodies.push_back(head.empty() ? "" : head.suffix().str());
    }
    return bodies;
}

// The writers' lines that arrived, each whole and there only once, and those reported lost.
std::size_t countWhole(const Lines &bodies) {
    std::set<std::string> seen;
    std::size_t dropped = 0;
    for (const std::string &body : bodies) {
        std::size_t count = 0;
        if (body.rfind("writer:", 0) == 0) {
            EXPECT_TRUE(body.find('|') == body.size() - 1 && seen.insert(body).second) << body;
        } else if (sscanf(body.c_str(), "TraceLog:0 %zu line", &count) == 1) {
            dropped += count;
        }
    }
    return seen.size() + dropped;
}

// The library looks after its files and settings when a new second has begun.
void nextSecond() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    std::this_thread::sleep_for(std::chrono::nanoseconds(1010000000 - now.tv_nsec));
}

void configure(const std::string &settings) {
    std::ofstream(kDirectory / "svtrace.conf") << settings;
    nextSecond();
}

void traceInto(const char *log, int level, const char *text) {
    SetFilePath(log);
    TraceLog(level, "", "test", 1, "%s", text);
}

int writeFromThreads(const char *log, int process, int threads, int lines) {
    std::vector<std::thread> writers;
    for (int thread = 0; thread < threads; ++thread) {
        writers.emplace_back([=] {
            for (int i = 0; i < lines; ++i) {
                SetFilePath(log);
                TraceLog(i % 2 == 0 ? 0 : 3, "", "writer", process, "%d %d %*d|", thread, i, 20 + i % 60, i);
            }
        });
    }
    for (std::thread &writer : writers)
        writer.join();
    return 0;
}

// Runs the body in `count` processes at once, each told its number, and returns their numbers and exit codes.
std::map<pid_t, int> inProcesses(int count, const std::function<int(int)> &body) {
    std::map<pid_t, int> codes;
    for (int i = 0; i < count; ++i) {
        const pid_t child = fork();
        if (child == 0)
            _exit(body(i));
        codes[child] = -1;
    }
    for (auto &[child, code] : codes) {
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
        code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        EXPECT_TRUE(code == 0 || code == kSkipped) << code;
    }
    return codes;
}

class Trace : public testing::Test {
  protected:
    void SetUp() override {
        fs::remove_all(kDirectory);
        fs::create_directories(kDirectory);
    }
};

TEST_F(Trace, LinesOfManyThreadsAndProcessesStayWhole) {
    traceInto("many.log", 3, "before the forks");
    const auto codes = inProcesses(3, [](int i) {
        traceInto("many.log", 3, "the child's own thread");
        return writeFromThreads("many.log", i, 4, 500);
    });
    EXPECT_EQ(countWhole(bodiesOf(kDirectory / "many.log")), 3U * 4U * 500U);
    std::map<int, std::set<int>> threads; // of each process
    std::ifstream file(kDirectory / "many.log");
    for (std::string time, rest; file >> time;) {
        int process = 0, thread = 0;
        file >> process >> thread;
        threads[process].insert(thread);
        std::getline(file, rest);
    }
    for (const auto &[child, code] : codes)
        EXPECT_TRUE(threads[child].size() == 5 && threads[child].count(child) == 1);
    EXPECT_EQ(threads[getpid()], std::set<int>{gettid()});
    EXPECT_EQ(fs::status(kDirectory / "many.log").permissions() & fs::perms(0137), fs::perms::none);
}

TEST_F(Trace, OneCallIsOneLineWhateverTheText) {
    std::string umlauts;
    while (umlauts.size() < 6000)
        umlauts += "\xC3\xBC";
    const struct {
        std::string text;
        std::string ending; // of the line
    } kCases[] = {
        {"plain \xC3\xBC", "test:1 plain \xC3\xBC"},
        {"", "test:1 "},
        {std::string(5000, 'x'), "xxx...[cut]"},
        {std::string(3000, '\n'), R"(\n\n...[cut])"},
        {umlauts, "\xC3\xBC...[cut]"},
        {"\xC3\xBC" + std::string(5000, 'x'), "xxx...[cut]"},
    };
    for (const auto &testCase : kCases) {
        traceInto("text.log", 3, testCase.text.c_str());
        const std::string body = bodiesOf(kDirectory / "text.log").back();
        EXPECT_EQ(body.substr(body.size() - std::min(body.size(), testCase.ending.size())), testCase.ending);
        EXPECT_LT(body.size(), 4096U);
    }
    const char *const noFormat = nullptr;
    nextSecond();
    errno = ENOSPC;
    void (*const unchecked)(int, const char *, const char *, int, const char *, ...) = TraceLog; // %m is no C++
    unchecked(-7, "tag\n", nullptr, -2, "%m");
    TraceLog(3, nullptr, "nothing", 0, noFormat);
    EXPECT_EQ(errno, ENOSPC);
    const Lines bodies = bodiesOf(kDirectory / "text.log");
    ASSERT_EQ(bodies.size(), std::size(kCases) + 2);
    EXPECT_EQ(*(bodies.end() - 2), std::string("-:-2 [tag\\n] ") + strerror(ENOSPC));
    EXPECT_EQ(bodies.back(), "nothing:0 ");
    // Around the longest text that fits: whole, or cut with its mark, and then as long as there is room.
    SetFilePath("long.log");
    for (std::size_t length = 3950; length < 4096; ++length)
        TraceLog(3, "", "f", 1, "%s", std::string(length, 'y').c_str());
    std::size_t length = 3950, longest = 0;
    for (const std::string &body : bodiesOf(kDirectory / "long.log")) {
        longest = std::max(longest, body.size());
        EXPECT_EQ(body.size(), body.back() == 'y' ? 4 + length : longest);
        ++length;
    }
    EXPECT_TRUE(length == 4096 && longest > 4000 && longest < 4096) << longest;
}

// What becomes of times (seconds and nanoseconds), of bytes and of settings. "\xHH" stands for a byte.
TEST_F(Trace, TextsInARow) {
    agent::TraceMoment then = {{1000, 0}, getpid(), gettid()};
    expectReplay("agent.txt", [&](const std::string &line) {
        std::string text;
        for (std::size_t i = line.find(' ') + 1; i < line.size(); ++i)
            text += line.compare(i, 2, "\\x") != 0
                        ? line[i]
                        : static_cast<char>(std::stoi(line.substr((i += 3) - 1, 2), nullptr, 16));
        char bytes[256];
        agent::Text out = {bytes, bytes + sizeof bytes};
        if (line[0] == 's') {
            std::ofstream(kDirectory / "svtrace.conf") << text;
            ++then.time.tv_sec;
            const agent::TraceSettings settings = agent::traceSettings(then);
            return std::to_string(settings.maxBytes) + " " + std::to_string(settings.capacity) + " " +
                   std::to_string(settings.files) + (settings.normal ? " normal\n" : "\n");
        }
        if (line[0] == 't')
            agent::putTime(out, {std::stoll(text), std::stol(text.substr(text.find(' ')))});
        else if (line[0] == 'v')
            agent::putVisible(out, text.data(), text.size());
        else
            agent::putJson(out, text.c_str(), 20);
        return std::string(bytes, out.at) + "\n";
    });
    fs::remove(kDirectory / "svtrace.conf");
    errno = ENOSPC;
    EXPECT_TRUE(TraceWanted(0) == 1 && errno == ENOSPC);
    // Eight bytes are looked at together, and those at the end each.
    for (int byte = 0; byte < 256; ++byte)
        for (std::size_t at = 0; at < 11; ++at) {
            std::string text(11, 'a');
            text[at] = static_cast<char>(byte);
            EXPECT_EQ(agent::needsCare(text.data(), text.size()), byte < 0x20 || byte >= 0x7F) << byte << " at " << at;
        }
}

TEST_F(Trace, RefusedNamesLeaveTheSelection) {
    const std::string longest(63, 'n');
    const std::string tooLong(64, 'n');
    inProcesses(1, [&](int) { // which uses up the table of names
        std::thread([&] {
            TraceLog(3, "", "nobody", 0, "no log is selected yet");
            SetFilePath(longest.c_str());
            for (const char *name : {tooLong.c_str(), "", ".", "..", "a..b", "/tmp/x", "a/b", "svtrace.conf", "a\nb"}) {
                traceInto(name, 3, name);
            }
            traceInto(nullptr, 3, "null");
            for (int i = 0; i < 20; ++i)
                traceInto(std::to_string(i).c_str(), 3, "more names than a process may have");
        }).join();
        return 0;
    });
    EXPECT_EQ(bodiesOf(kDirectory / longest).size(), 10U);
    std::vector<std::size_t> lines; // of each file
    for (const auto &entry : fs::directory_iterator(kDirectory))
        lines.push_back(bodiesOf(entry.path()).size());
    EXPECT_LE(lines.size(), 8U);
    EXPECT_EQ(std::accumulate(lines.begin(), lines.end(), std::size_t{0}), 30U);
}

TEST_F(Trace, RotationIsBoundedAndHappensOncePerFullFile) {
    constexpr std::uintmax_t kMax = 65536;
    configure("# small files\nmax_bytes = 65536\nfiles=60 # the newest included\n");
    inProcesses(3, [](int i) {
        writeFromThreads("turn.log", i, 4, 1000);
        nextSecond();
        traceInto("turn.log", 3, "tells about lines that found no room");
        return 0;
    });
    Lines bodies = bodiesOf(kDirectory / "turn.log");
    int files = 1;
    for (fs::path older; fs::exists(older = kDirectory / ("turn.log." + std::to_string(files))); ++files) {
        EXPECT_LE(fs::file_size(older), kMax + 2 * kMax / 16) << older; // a sixteenth for each further process
        EXPECT_GE(fs::file_size(older), kMax - kMax / 8) << older;
        const Lines more = bodiesOf(older);
        bodies.insert(bodies.end(), more.begin(), more.end());
    }
    EXPECT_GT(files, 10);
    EXPECT_EQ(countWhole(bodies), 3U * 4U * 1000U);

    const std::string first = kDirectory / "turn.log.1", second = first + ".1";
    EXPECT_TRUE(agent::rotate(first.c_str(), 9, 10 * kMax)) << "another process was first";
    EXPECT_FALSE(fs::exists(second));
    EXPECT_TRUE(agent::rotate(second.c_str(), 9, 1)) << "and has not begun the next one";
    const int held = open(first.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    EXPECT_FALSE(agent::rotate(first.c_str(), 9, 1)) << "another process is about to";
    close(held);
    EXPECT_TRUE(agent::rotate(first.c_str(), 9, static_cast<std::int64_t>(fs::file_size(first)))) << "just full";

    configure("max_bytes = 1\nfiles = 3\n"); // a limit too low to be meant is raised
    fs::remove(second);
    inProcesses(1, [](int) { return writeFromThreads("turn.log", 9, 1, 3000); });
    for (const auto &entry : fs::directory_iterator(kDirectory)) {
        EXPECT_LE(entry.file_size(), kMax) << entry.path();
        EXPECT_LE(entry.path().filename().string(), "turn.log.2") << "older than the third file";
    }
}

TEST_F(Trace, SettingsAreNoticedWhileRunning) {
    const struct {
        const char *settings;
        bool normal;
    } kSteps[] = {{"normal = off", false},
                  {"normal = maybe\n= off\nnormal\nnor#mal = off", true},
                  {"\t normal=off\r\n", false},
                  {"normal = off\nnormal = on", true}};
    std::size_t lines = 0;
    for (const auto &step : kSteps) {
        configure(step.settings);
        traceInto("switch.log", 3, "failure");
        traceInto("switch.log", 0, "normal");
        lines += step.normal ? 2 : 1;
        EXPECT_EQ(TraceWanted(0), step.normal ? 1 : 0);
        EXPECT_EQ(TraceWanted(3), 1);
        EXPECT_EQ(bodiesOf(kDirectory / "switch.log").size(), lines) << step.settings;
    }
}

TEST_F(Trace, FollowsWhatBecomesOfTheLog) {
    const fs::path log = kDirectory / "fate.log";
    const fs::path aside = OXT_AGENT_TEST_DIR "aside";
    fs::remove_all(aside);
    traceInto("fate.log", 3, "first");
    fs::resize_file(log, 0);
    traceInto("fate.log", 3, "truncated");
    EXPECT_EQ(bodiesOf(log), Lines{"test:1 truncated"});

    fs::rename(log, kDirectory / "moved");
    nextSecond();
    traceInto("fate.log", 3, "moved");
    EXPECT_EQ(bodiesOf(log), Lines{"test:1 moved"});

    const auto lose = [] {
        nextSecond();
        traceInto("fate.log", 3, "lost");
    };
    fs::remove(log);
    fs::create_symlink(kDirectory / "moved", log); // is not followed
    lose();
    EXPECT_EQ(bodiesOf(kDirectory / "moved"), Lines{"test:1 truncated"});
    fs::remove(log);
    ASSERT_EQ(mkfifo(log.c_str(), 0600), 0); // is not waited for
    lose();
    fs::remove(log);
    fs::rename(kDirectory, aside);
    lose();
    fs::rename(aside, kDirectory);
    nextSecond();
    traceInto("fate.log", 3, "back");
    EXPECT_EQ(bodiesOf(log), (Lines{"TraceLog:0 3 lines could not be written", "test:1 back"}));

    // The host closes what it does not know, and the number becomes another file's.
    const fs::path theirs = kDirectory / "theirs";
    const int file = open(theirs.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    int number = file;
    for (std::error_code none; number >= 0 && fs::read_symlink("/proc/self/fd/" + std::to_string(number), none) != log;)
        --number;
    ASSERT_EQ(dup2(file, number), number);
    nextSecond();
    traceInto("fate.log", 3, "ours");
    EXPECT_EQ(fs::file_size(theirs), 0U);
    EXPECT_EQ(bodiesOf(log).size(), 3U);
    close(number);
    close(file);
}

TEST_F(Trace, AFullDiskLosesLinesAndTellsHowMany) {
    const auto codes = inProcesses(1, [](int) {
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", kDirectory.c_str(), "tmpfs", 0, "size=64k") != 0)
            return kSkipped;
        const fs::path log = kDirectory / "full.log";
        std::ofstream(kDirectory / "filler") << std::string(16384, 'x');
        writeFromThreads("full.log", 0, 2, 1000); // 200 KB
        fs::remove(kDirectory / "filler");
        traceInto("full.log", 3, "room again");
        // Where the disk ended there is one stump; all the other lines are whole.
        std::ifstream file(log);
        Lines lines;
        int stumps = 0;
        for (std::string line; std::getline(file, line);) {
            const bool whole = (!line.empty() && line.back() == '|') || line.find(" 3 test:1 ") != line.npos ||
                               line.find(" 3 TraceLog:0 ") != line.npos;
            stumps += whole ? 0 : 1;
            lines.insert(lines.end(), whole ? 1 : 0, line);
        }
        EXPECT_LE(stumps, 1);
        std::ofstream rewritten(log);
        std::copy(lines.begin(), lines.end(), std::ostream_iterator<std::string>(rewritten, "\n"));
        rewritten.close();
        const Lines bodies = bodiesOf(log);
        EXPECT_LT(bodies.size(), 1000U);
        EXPECT_EQ(countWhole(bodies), 2000U);
        EXPECT_EQ(bodies.back(), "test:1 room again");
        return testing::Test::HasFailure() ? 1 : 0;
    });
    if (codes.begin()->second == kSkipped)
        GTEST_SKIP() << "needs the right to mount a small file system";
}

TEST_F(Trace, NeverTriesToPassTheHostsFileSizeLimit) {
    inProcesses(1, [](int) {
        const struct rlimit limit = {32768, 32768}; // a write beyond raises SIGXFSZ, which ends the process
        EXPECT_TRUE(signal(SIGXFSZ, SIG_DFL) != SIG_ERR && setrlimit(RLIMIT_FSIZE, &limit) == 0);
        nextSecond();
        return writeFromThreads("limit.log", 0, 2, 500);
    });
    EXPECT_GT(fs::file_size(kDirectory / "limit.log"), 20000U);
    EXPECT_LT(fs::file_size(kDirectory / "limit.log"), 32768U);
}

TEST_F(Trace, ACancelledThreadWritesItsLineAndLeavesNothingLocked) {
    for (int i = 0; i < 2; ++i) {
        std::thread([] {
            pthread_cancel(pthread_self());
            traceInto("cancel.log", 3, "opens or looks after the log");
            int state = PTHREAD_CANCEL_DISABLE;
            pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state);
            EXPECT_EQ(state, PTHREAD_CANCEL_ENABLE) << "as it was";
            pthread_testcancel();
            ADD_FAILURE() << "it was not cancelled";
        }).join();
        nextSecond();
    }
    EXPECT_EQ(bodiesOf(kDirectory / "cancel.log").size(), 2U);
}

TEST_F(Trace, TheHostsDescriptorsStayItsOwn) {
    inProcesses(2, [](int closed) {
        for (int standard = 0; standard < 3 * closed; ++standard)
            close(standard);
        const std::string name = "fd.log" + std::to_string(closed);
        traceInto(name.c_str(), 3, "opens it");
        std::vector<int> logs;
        std::error_code none;
        for (const auto &entry : fs::directory_iterator("/proc/self/fd"))
            if (fs::read_symlink(entry.path(), none) == kDirectory / name)
                logs.push_back(std::stoi(entry.path().filename().string()));
        return logs.size() == 1 && logs[0] > STDERR_FILENO && fcntl(logs[0], F_GETFD) == FD_CLOEXEC ? 0 : 1;
    });
}

TEST(BuiltTrace, ServesCallersThatUnloadIt) {
    void *const library = dlopen(OXT_AGENT_DIR "lib/libsvtrace.so", RTLD_LAZY);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto select = reinterpret_cast<decltype(&SetFilePath)>(dlsym(library, "SetFilePath"));
    const auto trace = reinterpret_cast<decltype(&TraceLog)>(dlsym(library, "TraceLog"));
    ASSERT_TRUE(select != nullptr && trace != nullptr && dlclose(library) == 0);
    const fs::path log = OXT_AGENT_DIR "log/testTrace.log";
    fs::remove(log);
    select("testTrace.log"); // as by a thread that was still inside
    trace(3, "", "test", 1, "unloaded");
    EXPECT_EQ(bodiesOf(log), Lines{"test:1 unloaded"});
    fs::remove(log);
}

} // namespace
