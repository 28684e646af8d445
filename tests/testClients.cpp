// The provider under clients that never pause, for a long time, and beside a disk that hangs. The short form is what
// every run of the tests does; OXT_SECONDS makes the meetings of clients last longer, OXT_LONG=1 the life.
#include "providerTest.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <set>
#include <thread>

#include <unistd.h>

using namespace oxthost;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

bool isOneOf(const std::string &text, std::initializer_list<const char *> all) {
    return std::find(all.begin(), all.end(), text) != all.end();
}

// Two file systems that belong to one client each and whose free space always tells the same number of the pass, and
// one that comes and goes.
class Clients : public ProviderTest {
  protected:
    static constexpr unsigned long kSize = 1000000, kFree = 500000;

    void begin(ServiceMode mode) {
        saveCycle(1);
        system.speedUpWaits(20);
        for (int i = 0; i < 2; ++i) {
            const std::string dir = "/owned" + std::to_string(i);
            system.addFileSystem("/dev/sda" + std::to_string(i), 8, dir, "ext4", kSize, kFree);
            FakeVolume volume = system.volume(dir);
            volume.freeMiB = [this, i] { // of the calling thread's pass: two may overlap around a stop
                thread_local unsigned long pass;
                pass = i == 0 ? ++pass_ : pass;
                return kFree + pass;
            };
            system.setVolume(dir, volume);
        }
        load(mode);
        if (mode.byte == 1) { // the save file knows no file systems yet
            EXPECT_EQ(showStatus(start()), kDone);
            waitForPasses();
        }
        const int watchers = getenv("OXT_SECONDS") != nullptr ? 3 : 1; // beside each owner
        for (const char *index : {"1", "2"}) {
            clients_.emplace_back([this, index] { own(index); });
            for (int i = 0; i < watchers; ++i)
                clients_.emplace_back([this] { watch(); });
        }
    }
    // Mounts and unmounts the guest, and does the action every now and then.
    void churn(const std::function<void()> &action) {
        const char *seconds = getenv("OXT_SECONDS");
        const auto end = Clock::now() + std::chrono::seconds(seconds != nullptr ? atoi(seconds) : 3);
        for (int round = 0; Clock::now() < end; ++round) {
            system.addFileSystem("/dev/sdb1", 8, "/guest", "xfs", 7000, 6000);
            std::this_thread::sleep_for(milliseconds(70));
            system.removeFileSystem("/guest");
            std::this_thread::sleep_for(milliseconds(50));
            if (round % 3 == 2)
                action();
        }
        over_ = true;
        for (std::thread &client : clients_)
            client.join();
        EXPECT_GT(reads_, 10);
        EXPECT_GT(settings_, 10);
        printf("%d reads, %d settings\n", reads_.load(), settings_.load());
        for (const int i : {0, 1})
            EXPECT_EQ(property(std::to_string(i + 1), "WarningThreshold"), std::to_string(expected_[i]) + ":u32");
        EXPECT_EQ(showStatus(cleanUp(true)), kOk);
        for (const std::size_t i : {0u, 1u})
            EXPECT_EQ(savedOf(i, 1292, 4), expected_[i]);
    }
    // Refused because the thread is just being stopped or started, or another request did not end in time (the waits
    // are shortened): nothing was done.
    static bool isRefused(const Reply &reply) {
        return reply.rc == CMPI_RC_ERR_FAILED &&
               isOneOf(reply.message, {"ServiceMode But NonThread Failure!!", "fsInitProvider() Failure!!",
                                       "FileSystem-Update FAILED", "fsGetInstance() FAILED"});
    }
    void examine(const Reply &reply) {
        EXPECT_TRUE(reply.ok() || isRefused(reply)) << showStatus(reply);
        EXPECT_TRUE(!reply.ok() || reply.instances.size() == 2 || reply.instances.size() == 3) << showInstances(reply);
        std::set<long long> passes;
        int position = 0;
        for (const Instance &fs : reply.instances) {
            const bool guest = position == 2;
            const std::string last = std::to_string(position++);
            EXPECT_EQ(fs.find("Index")->text, std::to_string(position));
            EXPECT_EQ(fs.find("Root")->text, guest ? "/guest" : "/owned" + last);
            const std::string seen = fs.find("Name")->text + " " + fs.find("FileSystemType")->text + " " +
                                     std::to_string(fs.find("FileSystemSize")->number) + " " +
                                     std::to_string(fs.find("FreeSpaceStatus")->number);
            if (guest) { // which may go while a pass looks at it, and is then found unmonitored
                EXPECT_TRUE(
                    isOneOf(seen.c_str(), {"/dev/sdb1 xfs 7000 1", "/dev/sdb1 xfs 0 -1", "/dev/sdb1 xfs 0 0",
                                           "Unknown others 0 -1", "Unknown others 0 0", "/dev/sdb1 xfs 7000 0"}))
                    << seen;
                continue;
            }
            EXPECT_EQ(seen, "/dev/sda" + last + " ext4 1000000 1");
            passes.insert(fs.find("AvailableSpace")->number);
        }
        EXPECT_LE(passes.size(), 1u) << "half of two passes\n" << showInstances(reply);
    }
    // Sets its own file system's threshold over and over; what was accepted must be what is read afterwards.
    void own(const std::string &index) {
        int expected = 0;
        for (int value = 1; !over_; ++value) {
            const Reply set =
                host->invokeMethod(kFs, "SetWarningThreshold",
                                   {{"Index", text(index)}, {"WarningThreshold", text(std::to_string(value))}});
            EXPECT_TRUE(set.ok() || isRefused(set)) << showStatus(set);
            expected = set.ok() ? value : expected;
            Reply read;
            do
                read = host->getInstance(kFs, {{"Index", text(index)}});
            while (isRefused(read) && !over_);
            if (read.ok() && expected != 0) {
                EXPECT_EQ(read.instances.at(0).find("WarningThreshold")->number, expected) << "lost in " << index;
            }
            settings_ += set.ok();
        }
        expected_[index[0] - '1'] = expected;
    }
    void watch() {
        while (!over_) {
            examine(host->enumInstances(kFs));
            const Reply total = host->getInstance(kTotal);
            EXPECT_TRUE(isRefused(total) || total.instances.at(0).find("FileSystemTotalNumber")->number / 2 == 1);
            ++reads_;
        }
    }

    std::vector<std::thread> clients_;
    std::atomic<unsigned long> pass_{0};
    std::atomic<bool> over_{false};
    std::atomic<int> reads_{0}, settings_{0};
    int expected_[2] = {};
};

TEST_F(Clients, MeetTheThreadItsStopAndItsStart) {
    begin(ServiceMode::on());
    churn([&] {
        EXPECT_EQ(showStatus(host->invokeMethod(kThread, "StopMonitoringThread", {})), kDone);
        EXPECT_EQ(showStatus(host->invokeMethod(kThread, "StartMonitoringThread", {})), kDone);
    });
}

TEST_F(Clients, MeetCleanUpsAndFactoriesOutsideServiceMode) {
    begin(ServiceMode::off());
    churn([&] {
        const Reply reply = host->cleanupInstance(false);
        EXPECT_TRUE(isOneOf(showStatus(reply).c_str(), {kOk, "1 'fsSetInstance() Failure!!'"})) << showStatus(reply);
        host->callFactoriesAgain();
    });
}

struct Footprint { // of the process
    std::size_t resident, descriptors, threads, segments, files;
};

std::size_t entries(const std::string &dir) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(dir), {}));
}

class LongLife : public ProviderTest {
  protected:
    // Without the host, which keeps dead objects for a while to notice their misuse.
    Footprint footprint() {
        EXPECT_EQ(host->live().total(), 0);
        unload();
        std::size_t size = 0, resident = 0;
        std::ifstream("/proc/self/statm") >> size >> resident;
        return {resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)), entries("/proc/self/fd"),
                entries("/proc/self/task"), system.segments().size(),
                entries(agentPath("work/")) + entries(agentPath("data/"))};
    }
    void request(int number) {
        const std::string value = std::to_string(10 + number % 50);
        const std::function<Reply()> all[] = {
            [&] { return enumerate(kFs); },
            [&] {
                return get(kFs, {{"Index", text("1")}});
            },
            [&] {
                return call(kFs, "SetWarningThreshold", {{"Index", text("1")}, {"WarningThreshold", text(value)}});
            },
            [&] { return get(kTotal); },
            [&] {
                return call(kConfig, "SetMonitorCycle", {{"MonitorCycle", text(value)}});
            }};
        EXPECT_TRUE(all[number % 5]().ok());
    }
    // Lives of 250 requests each, from a start to a stop or a clean-up, with mounts that come and go.
    void live(ServiceMode mode) {
        const bool longForm = getenv("OXT_LONG") != nullptr, service = mode.byte == 1;
        const int requests = longForm ? 100'000 : 1'000, lives = longForm ? 40 : 2;
        const std::size_t passes = longForm ? 10'000 : 100;
        mountMachine();
        system.speedUpWaits(100'000);
        std::ofstream(agentPath("log/svtrace.conf")) << "normal = off\n"; // half a million lines a second otherwise
        load(mode);
        Footprint first = {};
        int number = 0, life = 0;
        for (; number < requests || (service && system.sleeps().size() < passes); ++life) {
            if (life == lives) {
                first = footprint();
                load(mode);
            }
            if (service) {
                EXPECT_EQ(showStatus(start()), kDone);
            }
            for (const int end = number + 250; number < end; ++number) {
                system.addFileSystem("/dev/sdb1", 8, "/guest", "xfs", 7000, 6000);
                request(number);
                system.removeFileSystem("/guest");
            }
            EXPECT_EQ(showStatus(service ? stop() : cleanUp(false)), service ? kDone : kOk);
            host->callFactoriesAgain();
        }
        const Footprint last = footprint();
        printf("%d requests in %d lives, %zu passes of the thread; resident %zu then %zu, descriptors %zu then %zu\n",
               number, life, system.sleeps().size(), first.resident, last.resident, first.descriptors,
               last.descriptors);
#if !defined(OXT_UNDER_ASAN) && !defined(OXT_UNDER_TSAN) // they keep what was freed
        // What one request copies is 15 KB; the allocator's own caches move within this margin.
        EXPECT_LE(last.resident, first.resident + 1024 * 1024);
#endif
        EXPECT_EQ(last.descriptors, first.descriptors);
        EXPECT_EQ(last.threads, first.threads);
        EXPECT_EQ(last.segments, first.segments);
        EXPECT_EQ(last.files, first.files);
    }
};

TEST_F(LongLife, WithTheThread) {
    live(ServiceMode::on());
}

TEST_F(LongLife, OutsideServiceMode) {
    live(ServiceMode::off());
}

// A disk that hangs holds up its own pass. In service mode nobody waits for a pass but a stop, so the other requests
// are answered while it lasts: the test would never get past a request that waits for it.
TEST_F(LongLife, ADiskThatHangsStallsOnlyItsPass) {
    mountMachine();
    saveCycle(10);
    system.speedUpWaits(1000);
    std::promise<void> repaired;
    std::shared_future<void> repair = repaired.get_future().share();
    std::atomic<bool> broken{false}, hangs{false};
    FakeVolume disk = system.volume("/data");
    disk.during = [&] {
        hangs = broken.load();
        if (broken)
            repair.wait();
    };
    system.setVolume("/data", disk);
    load(ServiceMode::on());
    EXPECT_EQ(showStatus(start()), kDone);
    waitForPasses();
    system.addFileSystem("/dev/sdb1", 8, "/guest", "xfs", 7000, 6000);
    broken = true;
    while (!hangs)
        std::this_thread::sleep_for(milliseconds(1));

    const auto begin = Clock::now();
    EXPECT_EQ(enumerate(kFs).instances.size() / 8, 1u) << "as the last pass left it, with or without the guest";
    EXPECT_EQ(property("1", "Root"), "'/'");
    EXPECT_TRUE(get(kTotal).ok());
    EXPECT_TRUE(get(kThread).ok());
    EXPECT_EQ(showStatus(call(kConfig, "SetMonitorCycle", {{"MonitorCycle", text("77")}})), kOk);
    EXPECT_EQ(showStatus(call(kFs, "SetFatalThreshold", {{"Index", text("1")}, {"FatalThreshold", text("55")}})), kOk);
    EXPECT_EQ(showStatus(cleanUp(false)), "50 'MonitorThread is Running!!'");
    EXPECT_EQ(saved(18, 2), 77);
    printf("7 requests beside the hanging pass in %lld ms\n",
           static_cast<long long>(std::chrono::duration_cast<milliseconds>(Clock::now() - begin).count()));
    EXPECT_TRUE(broken && repair.wait_for(milliseconds(0)) == std::future_status::timeout);

    std::future<Reply> end = std::async(std::launch::async, [&] { return stop(); });
    EXPECT_EQ(end.wait_for(milliseconds(50)), std::future_status::timeout) << "a stop waits for the pass";
    broken = false;
    repaired.set_value();
    EXPECT_EQ(showStatus(end.get()), kDone);
    EXPECT_EQ(saved(18, 2), 77);
    EXPECT_EQ(savedOf(0, 1300, 4), 55) << "set while the pass hung";
}

} // namespace
