// A provider that is killed (kill -9) at its n-th system call, for each n of each operation that changes what lies
// outside of it; and the provider that starts on what it left. Nothing may be lost but what was being changed, and
// nothing may pile up: segments, key files and their backups, files of data/.
//
// OXT_LONG=1 takes every system call and goes round until 1,000 providers were killed; else a part of them is taken.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <elf.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/shm.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include "agentDirectory.h"
#include "fakeSystem.h"
#include "oxtHost.h"

// Where the processor has the number of a system call and its third argument.
#if defined(__x86_64__)
#define OXT_CALL orig_rax
#define OXT_THIRD_ARGUMENT rdx
#elif defined(__aarch64__)
#define OXT_CALL regs[8]
#define OXT_THIRD_ARGUMENT regs[2]
#else
#error "name this processor's registers"
#endif

using namespace oxthost;
using ::testing::AnyOf;

namespace {

constexpr char kConfig[] = "OXT_FileSystemConfig", kTotal[] = "OXT_FileSystemTotalNumber", kFs[] = "OXT_FileSystem",
               kThread[] = "OXT_FileSystemThread";
constexpr unsigned long kPage = 4096; // a write that a signal ends has written whole pages

// The cycle, and the warning thresholds of the first and of the last file system.
using Settings = std::array<long long, 3>;
constexpr Settings kDefaults = {60, 100, 100};

// What a child process tells its parent, in memory that both have.
struct Told {
    char problem[512]; // empty: none
    long long count;   // of file systems
    Settings settings;
};

// A provider of its own in its own process, over four file systems of 1000 MiB.
struct Provider {
    Provider() { mount({"/", "/data", "/gone", "/last"}); }
    void mount(const std::vector<std::string> &dirs) {
        for (const std::string &dir : dirs)
            system.addFileSystem("/dev" + dir, 8, dir, "ext4", 1000, 500);
    }
    void unmount(const std::vector<std::string> &dirs) {
        for (const std::string &dir : dirs)
            system.removeFileSystem(dir);
    }
    Reply pass() { return host->enumInstances(kFs); }
    void start() {
        Options options;
        options.library = OXT_TEST_PROVIDER;
        host = std::make_unique<Host>(options);
        pass();
    }
    void set(const char *cls, const std::string &name, long long value, std::size_t index = 0) {
        host->invokeMethod(
            cls, "Set" + name,
            {{"Index", Value::string(std::to_string(index))}, {name, Value::string(std::to_string(value))}});
    }
    void set(const Settings &to) {
        set(kConfig, "MonitorCycle", to[0]);
        set(kFs, "WarningThreshold", to[1], 1);
        set(kFs, "WarningThreshold", to[2], pass().instances.size());
    }

    FakeSystem system;
    std::unique_ptr<Host> host;
};

struct Operation {
    const char *name;
    enum { Runs, Shrinks, Grows, Starts, StartsAnew } kind; // the last two on what an earlier provider left
    int changed;                                            // the setting that it changes, or -1
    std::function<void(Provider &, const Settings &after)> act;
};

// A key that is taken, three times over: the key file moves away as often, and its backups are removed.
void startOverTakenKeys(Provider &p, const Settings &) {
    for (const int nth : {1, 3, 5}) // between them lies the look at what has the key
        p.system.inject(Call::Shmget, nth, EEXIST);
    p.start();
}

const Operation kOperations[] = {
    {"cycle", Operation::Runs, 0, [](Provider &p, const Settings &s) { p.set(kConfig, "MonitorCycle", s[0]); }},
    {"threshold", Operation::Runs, 2, [](Provider &p, const Settings &s) { p.set(kFs, "WarningThreshold", s[2], 4); }},
    {"fewer", Operation::Shrinks, -1, [](Provider &p, const Settings &) { p.unmount({"/gone"}), p.pass(); }},
    {"more", Operation::Grows, -1, [](Provider &p, const Settings &) { p.mount({"/gone"}), p.pass(); }},
    {"none", Operation::Runs, -1,
     [](Provider &p, const Settings &) {
         p.unmount({"/", "/data", "/gone", "/last"}), p.pass();
         p.mount({"/", "/data", "/gone", "/last"}), p.pass();
     }},
    {"first start", Operation::StartsAnew, -1, startOverTakenKeys},
    {"restart", Operation::Starts, -1, startOverTakenKeys},
    {"clean-up", Operation::Runs, -1, [](Provider &p, const Settings &) { p.host->cleanupInstance(true); }},
};

class Kill : public testing::Test {
  protected:
    void SetUp() override {
#ifdef OXT_UNDER_TSAN
        GTEST_SKIP()
            << "ThreadSanitizer is in the way: most system calls would be its own, and it has a thread of its own";
#endif
        const pid_t child = fork();
        if (child == 0)
            _exit(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 ? 0 : 1);
        int status = 1;
        waitpid(child, &status, 0);
        if (status != 0)
            GTEST_SKIP() << "this process may not trace its children (ptrace)";
        ASSERT_TRUE(emptyAgentDirectory()) << "the agent directory must lie in the build directory";
        std::ofstream(agentPath("log/svtrace.conf")) << "normal = off\n"; // its writes would outnumber all others
        told =
            static_cast<Told *>(mmap(nullptr, sizeof *told, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
        ASSERT_NE(told, MAP_FAILED);
    }

    // Runs in a process of its own, which ends without cleaning up.
    pid_t begin(const std::function<void(Provider &)> &action) {
        const pid_t child = fork();
        if (child == 0) {
            action(*new Provider); // which stays: its end would remove what it made
            raise(SIGKILL);
        }
        children[child] = time(nullptr);
        return child;
    }
    void run(const std::function<void(Provider &)> &action) {
        int status = 0;
        waitpid(begin(action), &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "status " << status;
    }
    enum class Death { Completed, Killed, KilledInLongWrite };
    // Goes on with a child that waits until it enters its nth system call, and kills it; and when it comes to its next
    // stop before. A signal ends a write of several pages between two of them: when it is `torn` the first is written.
    Death killAt(pid_t child, long nth, bool torn) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSTOPPED(status)) << "status " << status;
        ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
        const auto goOn = [&] {
            ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
            waitpid(child, &status, 0);
            return WIFSTOPPED(status) && WSTOPSIG(status) == (SIGTRAP | 0x80);
        };
        Death death = Death::Killed;
        for (long stops = 1; stops < 2 * nth && death == Death::Killed; ++stops, ++calls) // on entry, and on exit
            death = goOn() ? Death::Killed : Death::Completed;
        EXPECT_TRUE(death == Death::Killed || (WIFSTOPPED(status) && WSTOPSIG(status) == SIGSTOP)) << status;
        user_regs_struct registers = {};
        iovec kept = {&registers, sizeof registers};
        ptrace(PTRACE_GETREGSET, child, NT_PRSTATUS, &kept);
        if (death == Death::Killed && registers.OXT_CALL == SYS_write && registers.OXT_THIRD_ARGUMENT > kPage) {
            death = Death::KilledInLongWrite;
            registers.OXT_THIRD_ARGUMENT = kPage;
            if (torn && ptrace(PTRACE_SETREGSET, child, NT_PRSTATUS, &kept) == 0)
                goOn();
        }
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        return death;
    }

    // A provider with these settings begins the operation and dies in it.
    Death killIn(const Operation &operation, const Settings &before, const Settings &after, long nth, bool torn) {
        const bool starts = operation.kind == Operation::Starts || operation.kind == Operation::StartsAnew;
        const auto start = [&](Provider &provider) {
            provider.start();
            provider.set(before);
        };
        if (starts)
            run(start);
        if (operation.kind == Operation::StartsAnew)
            std::filesystem::remove(savePath());
        const pid_t child = begin([&](Provider &provider) {
            if (operation.kind == Operation::Grows)
                provider.unmount({"/gone"});
            if (!starts)
                start(provider);
            ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            raise(SIGSTOP);
            operation.act(provider, after);
            raise(SIGSTOP);
        });
        return killAt(child, nth, torn);
    }

    // A provider starts on what is left, answers for every class, and dies or is cleaned up.
    void startAgain(bool cleanUp) {
        *told = {};
        run([&](Provider &provider) {
            provider.start();
            const auto number = [&](const char *cls, std::size_t at, const char *name) {
                const Reply reply = provider.host->enumInstances(cls);
                const Value *value = at < reply.instances.size() ? reply.instances[at].find(name) : nullptr;
                if (!reply.ok() || value == nullptr)
                    snprintf(told->problem, sizeof told->problem, "%s: %d '%s'", cls, reply.rc, reply.message.c_str());
                return value != nullptr ? value->number : -1;
            };
            number(kThread, 0, "ThreadRunning");
            told->count = number(kTotal, 0, "FileSystemTotalNumber");
            told->settings = {number(kConfig, 0, "MonitorCycle"), number(kFs, 0, "WarningThreshold"),
                              number(kFs, 3, "WarningThreshold")};
            if (cleanUp && !provider.host->cleanupInstance(true).ok())
                snprintf(told->problem, sizeof told->problem, "the clean-up failed");
        });
        EXPECT_STREQ(told->problem, "");
        EXPECT_EQ(told->count, 4);
    }

    // Segments that processes of ours made.
    std::size_t segments() const {
        std::size_t count = 0;
        shmid_ds about = {};
        const int most = shmctl(0, SHM_INFO, &about);
        for (int i = 0; i <= most; ++i) {
            const bool there = shmctl(i, SHM_STAT, &about) >= 0;
            const auto maker = there ? children.find(about.shm_cpid) : children.end();
            if (maker != children.end() && about.shm_ctime - maker->second >= 0 && about.shm_ctime - maker->second < 60)
                ++count;
        }
        return count;
    }
    static std::string files() {
        std::set<std::string> names;
        for (const char *part : {"data", "work"})
            for (const auto &entry : std::filesystem::directory_iterator(agentPath(part)))
                names.insert(entry.path().filename());
        std::string all;
        for (const std::string &name : names)
            all += name + " ";
        return all;
    }

    Told *told = nullptr;
    std::map<pid_t, time_t> children; // when each began: a number may be another process's later
    long rounds = 0, calls = 0;
};

TEST_F(Kill, AtEachSystemCall) {
    const bool all = getenv("OXT_LONG") != nullptr;
    const bool slow = dlsym(RTLD_DEFAULT, "__asan_init") != nullptr; // a process is long in beginning
    const long step = all ? 1 : slow ? 25 : 2;
    long tornRounds = 0;
    do {
        for (const Operation &operation : kOperations) {
            const bool anew = operation.kind == Operation::StartsAnew;
            const bool resizes = operation.kind == Operation::Shrinks || operation.kind == Operation::Grows;
            Death death = Death::Killed;
            bool torn = false; // a long write is met twice: before it, and in the midst of it
            for (long nth = 1 + rounds % step; death != Death::Completed && !HasFailure(); nth += torn ? 0 : step) {
                SCOPED_TRACE(std::string(operation.name) + ", system call " + std::to_string(nth));
                const Settings before = {100 + rounds % 1000, 200 + rounds % 500, 201 + rounds % 500};
                Settings after = anew ? kDefaults : before;
                if (operation.changed >= 0)
                    after.at(static_cast<std::size_t>(operation.changed)) += 80;
                death = killIn(operation, before, after, nth, torn);
                const bool cleanUp = ++rounds % 2 == 0;
                startAgain(cleanUp);
                // A file that was cut short while it grew or shrank may have cost settings.
                const Settings &other = resizes && torn                     ? kDefaults
                                        : death == Death::Completed || anew ? after
                                                                            : before;
                for (std::size_t i = 0; i < after.size(); ++i)
                    EXPECT_THAT(told->settings[i], AnyOf(after[i], other[i])) << "setting " << i;
                tornRounds += torn ? 1 : 0;
                torn = death == Death::KilledInLongWrite && !torn;
                EXPECT_EQ(segments(), cleanUp ? 0U : 3U);
                EXPECT_EQ(files(), "oxtfssave.dat oxtfsshm.key0 oxtfsshm.key1 oxtfsshm.key2 ");
            }
        }
    } while (all && rounds < 1000 && !HasFailure());
    startAgain(true);
    EXPECT_EQ(segments(), 0U);
    printf("%ld rounds, %ld of them in the midst of a write; %zu processes killed; %ld system calls\n", rounds,
           tornRounds, children.size(), calls / 2);
}

} // namespace
