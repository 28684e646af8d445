// The alert library: what stands in the JSON file and in the system log after an alert, and what is refused. Its
// directory in these tests is OXT_AGENT_TEST_DIR; the system log is the test's own.

#include "svalert.h"

#include "fakeSystem.h"
#include "golden.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <sys/file.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using Strings = std::vector<const char *>;

const fs::path kDirectory = OXT_AGENT_TEST_DIR "log";
const fs::path kFile = kDirectory / "svalert.json";
const fs::path kOlderFile = kDirectory / "svalert.json.1";
constexpr std::uintmax_t kMaxBytes = 1024 * 1024;

int send(unsigned int id, int type, Strings strings, const char *source = "OXTFSService") {
    char **const pointers = strings.empty() ? nullptr : const_cast<char **>(strings.data());
    return SendIndication({0, 3, source, id, type, static_cast<int>(strings.size()), pointers});
}

int sendCountChange() {
    return send(0x400407D0U, 4, {});
}

// The lines of a file, each of which must be a JSON object.
std::vector<json> alertsIn(const fs::path &path) {
    std::ifstream file(path);
    std::vector<json> alerts;
    for (std::string line; std::getline(file, line);) {
        json alert = json::parse(line, nullptr, false);
        EXPECT_TRUE(alert.is_object()) << line;
        alerts.push_back(std::move(alert));
    }
    return alerts;
}

class Alert : public testing::Test {
  protected:
    void SetUp() override {
        fs::remove_all(kDirectory);
        fs::create_directories(kDirectory);
    }
    FakeSystem system;
};

// Without its time, and with bytes beyond ASCII as numbers.
std::string readable(const std::string &line) {
    std::string text;
    for (const char c : std::regex_replace(line, std::regex(R"("time":"[-:.T\d]{23}Z")"), R"("time":"TIME")")) {
        const auto byte = static_cast<unsigned char>(c);
        char code[8];
        snprintf(code, sizeof code, byte >= 0x80 ? "<%02X>" : "%c", byte);
        text += code;
    }
    return text;
}

TEST_F(Alert, EveryEventInBothLogs) {
    const struct {
        unsigned int id;
        int type;
        Strings strings;
    } kCases[] = {
        {0x400407D0U, 4, {}},
        {0x400403EAU, 4, {"/dev/sda1", "/", "90", "1000"}},
        {0x800403E9U, 2, {"a\"b\\c\n", "/\xC3\xBC\xFF\xC3\u202e\u009b", "0", "18446744073709551615", "100"}},
        {0xC00403E8U, 1, {"\xED\xA0\x80", nullptr, "-1", "007"}},
        {0x400403EAU, 0, {"d", "/", "100000000000000000000", "000", "10 "}},
        {0x0000000AU, 9, {"x", "\xF4\x90\x80\x80\xF0\x9F\x98\x80\xC0\xAF"}},
    };
    for (const auto &testCase : kCases)
        EXPECT_EQ(send(testCase.id, testCase.type, testCase.strings), 0);
    EXPECT_EQ(alertsIn(kFile).size(), std::size(kCases));
    std::string both = readable(fileContent(kFile));
    for (const std::string &line : system.systemLog())
        both += readable(line) + "\n";
    expectGolden("alerts.txt", both);
    // The largest alert there is: sixteen strings, each longer than what is passed on and all of it escaped.
    const std::string tooLong(2000, '\x01');
    const std::string longest(1024, 's');
    EXPECT_EQ(send(0xC00403E8U, 1, Strings(16, tooLong.c_str()), longest.c_str()), 0);
    EXPECT_EQ(alertsIn(kFile).back()["source"], longest) << "whole";
    EXPECT_EQ(alertsIn(kFile).back()["strings"], json(std::vector<std::string>(16, std::string(1024, '\x01') + "...")));
}

TEST_F(Alert, CarriesTheForecastOfAMonitor) {
    SetAlertForecast([](const char *device, const char *mountPoint, double *shrink, double *full) {
        *shrink = std::strcmp(mountPoint, "/nan") == 0 ? std::nan("") : mountPoint[1] == '-' ? -1 : 1024.4;
        *full = std::strcmp(mountPoint, "/-") == 0 ? 1e15 : std::strcmp(mountPoint, "/--") == 0 ? 1.001e15 : 7200;
        return std::strcmp(device, "/dev/a") == 0 ? 1 : 0;
    });
    for (const auto &[device, mountPoint] :
         {std::pair("/dev/a", "/"), {"/dev/a", "/nan"}, {"/dev/b", "/"}, {"/dev/a", "/-"}, {"/dev/a", "/--"}})
        EXPECT_EQ(send(0x800403E9U, 2, {device, mountPoint, "1", "2", "3"}), 0);
    EXPECT_EQ(sendCountChange(), 0);
    SetAlertForecast(nullptr);
    EXPECT_EQ(send(0x800403E9U, 2, {"/dev/a", "/", "1", "2", "3"}), 0);
    const std::vector<json> alerts = alertsIn(kFile);
    EXPECT_EQ(alerts.at(0).value("shrinkMiBPerHour", 0), 1024);
    EXPECT_EQ(alerts.at(0).value("fullInSeconds", 0), 7200);
    EXPECT_FALSE(alerts.at(1).contains("shrinkMiBPerHour"));
    EXPECT_TRUE(alerts.at(3).at("fullInSeconds") == 1000000000000000 && !alerts.at(3).contains("shrinkMiBPerHour"));
    for (const std::size_t i : {2U, 4U, 5U, 6U})
        EXPECT_FALSE(alerts.at(i).contains("fullInSeconds")) << i;
}

TEST_F(Alert, RefusesBrokenRecords) {
    char *strings[17] = {};
    const Info kRefused[] = {{0, 3, nullptr, 1, 1, 0, nullptr},
                             {0, 3, "source", 1, 1, -1, strings},
                             {0, 3, "source", 1, 1, 17, strings},
                             {0, 3, "source", 1, 1, 1, nullptr}};
    for (const Info &info : kRefused)
        EXPECT_NE(SendIndication(info), 0);
    EXPECT_FALSE(fs::exists(kFile));
    EXPECT_TRUE(system.systemLog().empty());
    EXPECT_EQ(SendIndication({0, 3, "source", 1, 1, 16, strings}), 0);
    int state = PTHREAD_CANCEL_DISABLE;
    EXPECT_TRUE(pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state) == 0 && state == PTHREAD_CANCEL_ENABLE);
}

TEST_F(Alert, TheFileIsBoundedAndAStumpDoesNotSpoilTheNextLine) {
    std::ofstream(kFile) << "{\"stump\":";
    EXPECT_EQ(sendCountChange(), 0);
    std::ifstream file(kFile);
    std::string line;
    EXPECT_TRUE(std::getline(file, line) && std::getline(file, line) && json::accept(line)) << line;
    const auto open = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
    const auto before = open();
    for (int i = 0; i < 2; ++i) {
        fs::resize_file(kFile, kMaxBytes);
        EXPECT_EQ(sendCountChange(), 0);
        EXPECT_EQ(open(), before);
        EXPECT_EQ(fs::file_size(kOlderFile), kMaxBytes);
        EXPECT_EQ(alertsIn(kFile).size(), 1U);
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(kDirectory), {}), 2);
    fs::remove(kOlderFile);
    const std::uintmax_t length = fs::file_size(kFile);
    fs::resize_file(kFile, kMaxBytes - length - 2);
    std::ofstream(kFile, std::ios::app) << "\n";
    EXPECT_EQ(sendCountChange(), 0);
    EXPECT_TRUE(fs::file_size(kFile) == kMaxBytes - 1 && !fs::exists(kOlderFile));
    const int held = ::open(kFile.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    EXPECT_EQ(sendCountChange(), 0) << "while another sender keeps the lock";
    EXPECT_GT(fs::file_size(kFile), kMaxBytes);
    fs::resize_file(kFile, 2 * kMaxBytes);
    EXPECT_EQ(sendCountChange(), -1) << "twice as much is the end";
    close(held);
    EXPECT_EQ(sendCountChange(), 0);
    EXPECT_LT(fs::file_size(kFile), kMaxBytes);
    const auto sendInLimits = [] {
        const struct rlimit limit = {fs::file_size(kFile), RLIM_INFINITY};
        signal(SIGXFSZ, SIG_DFL);
        setrlimit(RLIMIT_FSIZE, &limit);
        _exit(sendCountChange() == -1 ? 0 : 1);
    };
    EXPECT_EXIT(sendInLimits(), testing::ExitedWithCode(0), "") << "the process's own limit";
}

TEST_F(Alert, TellsWhenTheFileTookNothing) {
    const fs::path target = OXT_AGENT_TEST_DIR "target";
    std::ofstream(target) << "kept";
    fs::create_symlink(target, kFile);
    EXPECT_EQ(sendCountChange(), -1);
    EXPECT_EQ(fs::file_size(target), 4U);
    fs::remove_all(kDirectory);
    EXPECT_EQ(sendCountChange(), -1);
    EXPECT_EQ(system.systemLog().size(), 2U); // heard all the same
}

TEST_F(Alert, LinesOfManyThreadsStayWholeAcrossARotation) {
    const std::string text(1000, 'x');
    std::vector<std::thread> senders;
    for (int thread = 0; thread < 4; ++thread) {
        senders.emplace_back([&text] {
            for (int i = 0; i < 25; ++i)
                EXPECT_EQ(send(1, 4, Strings(16, text.c_str())), 0);
        });
    }
    for (std::thread &sender : senders)
        sender.join();
    EXPECT_GT(alertsIn(kOlderFile).size(), 10U);
    EXPECT_EQ(alertsIn(kFile).size() + alertsIn(kOlderFile).size(), 100U);
}

} // namespace
