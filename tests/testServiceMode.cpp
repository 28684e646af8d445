// Monitoring in service mode, end to end: passes by the configured cycle, alerts once per change, stops, and clients
// that read and set while mounts come and go.
#include "providerTest.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <set>
#include <thread>

using namespace oxthost;

namespace {

using Clock = std::chrono::steady_clock;
using Texts = std::vector<std::string>;
using std::chrono::milliseconds;

constexpr char kOk[] = "0 ''", kDone[] = "0 '' returned 0:u32",
               kNotService[] = "0 'ServiceMode is non-Service FAILED' returned 1:u32",
               kNoThread[] = "1 'ServiceMode But NonThread Failure!!'";

class Service : public ProviderTest {};

TEST_F(Service, TheModeIsAskedForUntilItIsKnown) {
    const struct {
        ServiceMode mode;
        const char *later; // a start once the agent says that service mode is on
    } rows[] = {{ServiceMode::off(), kNotService},
                {{ServiceMode::Byte, 2}, kDone},
                {{ServiceMode::Byte, 255}, kDone},
                {{ServiceMode::NoSuchInstance, 0}, kDone},
                {{ServiceMode::NoSuchProperty, 0}, kDone}};
    mountMachine();
    for (const auto &row : rows) {
        load(row.mode);
        EXPECT_EQ(enumerate(kFs).instances.size(), 8u) << "no service mode: no thread is needed";
        EXPECT_EQ(showStatus(start()), kNotService);
        host->setServiceMode(ServiceMode::on());
        EXPECT_EQ(showStatus(start()), row.later);
        host->setServiceMode(ServiceMode::off()); // known once, it stays
        EXPECT_EQ(showStatus(start()).substr(0, 11), row.later == kDone ? "0 'Thread i" : "0 'ServiceM");
        EXPECT_EQ(showStatus(cleanUp(true)), kOk);
    }
}

TEST_F(Service, EachChangeIsAnnouncedOnce) {
    const auto monitor = [&](const char *value) {
        EXPECT_EQ(
            showStatus(call(kFs, "SetMonitorThreshold", {{"Index", text("1")}, {"MonitorThreshold", text(value)}})),
            kOk);
    };
    const std::string changed = "0x400407D0 info";
    const struct {
        std::function<void()> change;
        Texts alerts;
        const char *status; // of the first file system afterwards
    } rows[] = {
        {[] {}, {}, "1:s16"},
        {[&] { system.setFree("/", 1001); }, {}, "1:s16"},
        {[&] { system.setFree("/", 1000); }, {"0x800403E9 warning /dev/sda1 / 1000 10000 1000"}, "2:s16"},
        {[&] { system.setFree("/", 999); }, {}, "2:s16"},
        {[&] { system.setFree("/", 100); }, {"0xC00403E8 critical /dev/sda1 / 100 10000 100"}, "3:s16"},
        {[&] { system.setFree("/", 0); }, {}, "3:s16"},
        {[&] { system.setFree("/", 101); }, {"0x800403E9 warning /dev/sda1 / 101 10000 1000"}, "2:s16"},
        {[&] { system.setFree("/", 6000); }, {"0x400403EA info /dev/sda1 / 6000 10000"}, "1:s16"},
        {[&] { monitor("0"); }, {}, "0:s16"},
        {[&] { system.setFree("/", 5); }, {}, "0:s16"},
        {[&] { monitor("1"); }, {"0xC00403E8 critical /dev/sda1 / 5 10000 100"}, "3:s16"},
        {[&] { monitor("0"); }, {}, "0:s16"},
        {[&] { system.setFree("/", 6000); }, {}, "0:s16"},
        {[&] { monitor("1"); }, {}, "1:s16"}, // back to normal in silence
        {[&] { system.addFileSystem("/dev/sdb1", 8, "/new", "xfs", 5000, 4000); }, {changed}, "1:s16"},
        {[&] { system.addFileSystem("/dev/sdb2", 8, "/low", "ext3", 5000, 50); },
         {"0xC00403E8 critical /dev/sdb2 /low 50 5000 50", changed},
         "1:s16"},
        {[&] { system.addFileSystem("/dev/sdb3", 8, "/vfat", "vfat", 5000, 0); }, {changed}, "1:s16"},
        {[&] { system.removeFileSystem("/low"); }, {changed}, "1:s16"},
        {[&] { system.setMissing(true, false); }, {}, "1:s16"}, // a failed pass keeps what is known
        {[&] { system.setMissing(false, false); }, {}, "1:s16"},
    };
    system.addFileSystem("/dev/sda1", 8, "/", "ext4", 10000, 5000);
    system.addFileSystem("/dev/sda2", 8, "/data", "ext4", 2000, 1500);
    system.speedUpWaits(1000);
    load(ServiceMode::on());
    EXPECT_EQ(showStatus(start()), kDone);
    for (const auto &row : rows) {
        row.change();
        waitForPasses();
        EXPECT_EQ(alerts(), row.alerts) << "row " << &row - rows;
        EXPECT_EQ(property("1", "FreeSpaceStatus"), row.status) << "row " << &row - rows;
    }
    EXPECT_EQ(showInstances(get(kTotal)), "OXT_FileSystemTotalNumber. FileSystemTotalNumber=4:u16\n");

    // Nothing is announced anew by a thread that starts again.
    EXPECT_EQ(showStatus(stop()), kDone);
    system.setFree("/data", 100);
    EXPECT_EQ(showStatus(start()), kDone);
    waitForPasses();
    EXPECT_EQ(alerts(), Texts{"0x800403E9 warning /dev/sda2 /data 100 2000 200"});
}

TEST_F(Service, NothingIsAnnouncedOutsideServiceMode) {
    system.addFileSystem("/dev/sda1", 8, "/", "ext4", 10000, 5000);
    load();
    for (const auto &[free, status] : {std::pair(5000UL, 1), {1000UL, 2}, {100UL, 3}, {1000UL, 2}, {1001UL, 1}}) {
        system.setFree("/", free);
        EXPECT_EQ(property("1", "FreeSpaceStatus"), std::to_string(status) + ":s16");
        EXPECT_EQ(savedOf(0, 1308, 2), status);
        EXPECT_EQ(savedOf(0, 1576, 8), static_cast<long long>(free));
    }
    system.addFileSystem("/dev/sda2", 8, "/data", "ext4", 10000, 10);
    EXPECT_EQ(property("2", "FreeSpaceStatus"), "3:s16");
    EXPECT_EQ(alerts(), Texts());
}

TEST_F(Service, ANewCycleCountsFromTheNextSleep) {
    mountMachine();
    system.speedUpWaits(30);
    load(ServiceMode::on());
    EXPECT_EQ(showStatus(start()), kDone);
    while (system.sleeps().empty())
        std::this_thread::sleep_for(milliseconds(1));
    EXPECT_EQ(showStatus(call(kConfig, "SetMonitorCycle", {{"MonitorCycle", text("10")}})), kOk);
    EXPECT_EQ(system.sleeps(), (std::vector<unsigned>{60}));
    const auto begin = Clock::now();
    waitForPasses();
    EXPECT_GE(Clock::now() - begin, milliseconds(500)) << "the current sleep goes on";
    std::vector<unsigned> sleeps = system.sleeps();
    sleeps.resize(3);
    EXPECT_EQ(sleeps, (std::vector<unsigned>{60, 10, 10}));
}

TEST_F(Service, AStopWaitsForThePassAndEndsTheSleep) {
    mountMachine();
    load(ServiceMode::on());
    std::atomic<bool> inside{false}, slow{true};
    std::atomic<int> begun{0}, ended{0};
    FakeVolume last = system.volume("/vfat");
    last.during = [&] {
        ++begun;
        inside = true;
        if (slow)
            std::this_thread::sleep_for(milliseconds(100));
        ++ended;
    };
    system.setVolume("/vfat", last);
    EXPECT_EQ(showStatus(get(kThread)), kOk);
    inside = false;
    EXPECT_EQ(showStatus(start()), kDone);
    while (!inside)
        std::this_thread::yield();
    EXPECT_EQ(showStatus(stop()), kDone);
    EXPECT_EQ(begun, ended) << "the pass was cut off";
    EXPECT_EQ(system.sleeps().size(), 1u) << "the whole pass was waited for";
    EXPECT_EQ(savedOf(7, 1568, 8), 400);

    slow = false;
    EXPECT_EQ(showStatus(start()), kDone);
    while (system.sleeps().size() < 2)
        std::this_thread::sleep_for(milliseconds(1));
    const auto begin = Clock::now();
    EXPECT_EQ(showStatus(stop()), kDone);
    EXPECT_LT(Clock::now() - begin, milliseconds(20000)) << "the sleep lasts a minute";
    EXPECT_EQ(showStatus(enumerate(kFs)), kNoThread);

    // What could not be saved when it was set is saved by the stop.
    EXPECT_EQ(showStatus(start()), kDone);
    while (system.sleeps().size() < 3)
        std::this_thread::sleep_for(milliseconds(1));
    system.redirectOpen(savePath(), "/nowhere/oxtfssave.dat");
    EXPECT_EQ(showStatus(call(kConfig, "SetMonitorCycle", {{"MonitorCycle", text("77")}})),
              "1 'FileSystem-Update FAILED'");
    system.redirectOpen(savePath(), savePath());
    EXPECT_EQ(showStatus(stop()), kDone);
    EXPECT_EQ(saved(18, 2), 77);
}

// Two file systems that belong to one client each and whose free space always tells the same number of the pass, and
// one that comes and goes.
class Clients : public Service {
  protected:
    static constexpr long long kSize = 1000000, kFree = 500000;

    void SetUp() override {
        Service::SetUp();
        saveCycle(1);
        system.speedUpWaits(20);
        for (int i = 0; i < 2; ++i) {
            const std::string dir = "/owned" + std::to_string(i);
            system.addFileSystem("/dev/sda" + std::to_string(i), 8, dir, "ext4", kSize, kFree);
            FakeVolume volume = system.volume(dir);
            volume.during = [this, dir, i] {
                system.setFree(dir, static_cast<unsigned long>(kFree + (i == 0 ? ++pass_ : pass_.load())));
            };
            system.setVolume(dir, volume);
        }
        load(ServiceMode::on());
        EXPECT_EQ(showStatus(start()), kDone);
        waitForPasses();
    }
    // Refused because the thread is just being stopped or started: nothing was done.
    static bool isRefused(const Reply &reply) {
        return reply.rc == CMPI_RC_ERR_FAILED && (reply.message == "ServiceMode But NonThread Failure!!" ||
                                                  reply.message == "fsInitProvider() Failure!!");
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
            const char *guests[] = {"/dev/sdb1 xfs 7000 1", "/dev/sdb1 xfs 0 -1", "/dev/sdb1 xfs 0 0",
                                    "Unknown others 0 -1",  "Unknown others 0 0", "/dev/sdb1 xfs 7000 0"};
            if (guest) { // which may go while a pass looks at it, and is then found unmonitored
                EXPECT_NE(std::find(std::begin(guests), std::end(guests), seen), std::end(guests)) << seen;
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

    std::atomic<long long> pass_{0};
    std::atomic<bool> over_{false};
    std::atomic<int> reads_{0}, settings_{0};
    int expected_[2] = {};
};

TEST_F(Clients, ReadAndSetWhileAllChanges) {
    std::vector<std::thread> clients;
    for (const char *index : {"1", "2"}) {
        clients.emplace_back([this, index] { own(index); });
        clients.emplace_back([this] { watch(); });
    }
    const auto end = Clock::now() + std::chrono::seconds(3);
    for (int round = 0; Clock::now() < end; ++round) {
        system.addFileSystem("/dev/sdb1", 8, "/guest", "xfs", 7000, 6000);
        std::this_thread::sleep_for(milliseconds(70));
        system.removeFileSystem("/guest");
        std::this_thread::sleep_for(milliseconds(50));
        if (round % 3 != 2)
            continue;
        EXPECT_EQ(showStatus(host->invokeMethod(kThread, "StopMonitoringThread", {})), kDone);
        EXPECT_EQ(showStatus(host->invokeMethod(kThread, "StartMonitoringThread", {})), kDone);
    }
    over_ = true;
    for (std::thread &client : clients)
        client.join();
    EXPECT_GT(reads_, 10);
    EXPECT_GT(settings_, 10);
    for (const int i : {0, 1})
        EXPECT_EQ(property(std::to_string(i + 1), "WarningThreshold"), std::to_string(expected_[i]) + ":u32");
    EXPECT_EQ(showStatus(cleanUp(true)), kOk);
    for (const std::size_t i : {0u, 1u})
        EXPECT_EQ(savedOf(i, 1292, 4), expected_[i]);
}

} // namespace
