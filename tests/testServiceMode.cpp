// Monitoring in service mode, end to end: passes by the configured cycle, alerts once per change, and stops.
#include "providerTest.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

using namespace oxthost;

namespace {

using Clock = std::chrono::steady_clock;
using Texts = std::vector<std::string>;
using std::chrono::milliseconds;

constexpr char kNoThread[] = "1 'ServiceMode But NonThread Failure!!'";

class Service : public ProviderTest {};

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
        {[&] { system.setFree("/", 1001); }, {}, "1:s16"},
        {[&] { system.setFree("/", 1000); }, {"0x800403E9 warning /dev/sda1 / 1000 10000 1000"}, "2:s16"},
        {[&] { system.setFree("/", 999); }, {}, "2:s16"},
        {[&] { system.setFree("/", 100); }, {"0xC00403E8 critical /dev/sda1 / 100 10000 100"}, "3:s16"},
        {[&] { system.setFree("/", 6000); }, {"0x400403EA info /dev/sda1 / 6000 10000"}, "1:s16"},
        {[&] { monitor("0"), system.setFree("/", 101); }, {}, "0:s16"},
        {[&] { monitor("1"); }, {"0x800403E9 warning /dev/sda1 / 101 10000 1000"}, "2:s16"},
        {[&] { monitor("0"), system.setFree("/", 6000); }, {}, "0:s16"},
        {[&] { monitor("1"); }, {}, "1:s16"}, // back to normal in silence
        {[&] { system.addFileSystem("/dev/sdb1", 8, "/new", "xfs", 5000, 4000); }, {changed}, "1:s16"},
        {[&] { system.addFileSystem("/dev/sdb2", 8, "/low", "ext3", 5000, 50); },
         {"0xC00403E8 critical /dev/sdb2 /low 50 5000 50", changed},
         "1:s16"},
        {[&] { system.removeFileSystem("/low"); }, {changed}, "1:s16"},
        {[&] { system.setMissing(true, false); }, {}, "1:s16"}, // a failed pass keeps what is known
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
    system.setMissing(false, false);

    // Nothing is announced anew by a thread that starts again.
    EXPECT_EQ(showStatus(stop()), kDone);
    system.setFree("/data", 100);
    EXPECT_EQ(showStatus(start()), kDone);
    waitForPasses();
    EXPECT_EQ(alerts(), Texts{"0x800403E9 warning /dev/sda2 /data 100 2000 200"});
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
    saveCycle(1);
    load(ServiceMode::on());
    std::atomic<bool> inside{false}, slow{true}, blocked{false};
    std::atomic<int> begun{0}, ended{0};
    FakeVolume last = system.volume("/vfat");
    last.during = [&] {
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        blocked = sigismember(&mask, SIGTERM) == 1;
        ++begun;
        inside = true;
        if (slow)
            std::this_thread::sleep_for(milliseconds(100));
        ++ended;
    };
    system.setVolume("/vfat", last);
    for (const std::size_t passes : {1u, 2u}) { // before the first sleep, and after it
        EXPECT_EQ(showStatus(get(kThread)), kOk);
        const std::size_t sleeps = system.sleeps().size();
        EXPECT_EQ(showStatus(start()), kDone);
        while (system.sleeps().size() < sleeps + passes - 1)
            std::this_thread::yield();
        inside = false;
        while (!inside)
            std::this_thread::yield();
        EXPECT_EQ(showStatus(stop()), kDone);
        EXPECT_EQ(begun, ended) << "the pass was cut off";
        EXPECT_EQ(system.sleeps().size(), sleeps + passes) << "the whole pass was waited for";
        EXPECT_EQ(savedOf(7, 1568, 8), 400);
        EXPECT_TRUE(blocked) << "the host's signals are for the host's threads";
    }

    slow = false;
    saveCycle(60);
    EXPECT_EQ(showStatus(start()), kDone);
    while (system.sleeps().size() < 4)
        std::this_thread::sleep_for(milliseconds(1));
    const auto begin = Clock::now();
    EXPECT_EQ(showStatus(stop()), kDone);
    EXPECT_LT(Clock::now() - begin, milliseconds(20000)) << "the sleep lasts a minute";
    EXPECT_EQ(showStatus(enumerate(kFs)), kNoThread);

    // What could not be saved when it was set is saved by the stop.
    EXPECT_EQ(showStatus(start()), kDone);
    while (system.sleeps().size() < 5)
        std::this_thread::sleep_for(milliseconds(1));
    system.redirectOpen(savePath(), "/nowhere/oxtfssave.dat");
    EXPECT_EQ(showStatus(call(kConfig, "SetMonitorCycle", {{"MonitorCycle", text("77")}})),
              "1 'FileSystem-Update FAILED'");
    system.redirectOpen(savePath(), savePath());
    EXPECT_EQ(showStatus(stop()), kDone);
    EXPECT_EQ(saved(18, 2), 77);
}

} // namespace
