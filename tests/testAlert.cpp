// The alert library: what stands in the JSON file and in the system log after an alert, and what is refused. Its
// directory in these tests is OXT_AGENT_TEST_DIR; the system log is the test's own.

#include "svalert.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdarg>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <sys/file.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

std::mutex g_lock;
std::vector<std::string> g_systemLog; // "<facility and priority> <text>"; guarded by g_lock

__attribute__((format(printf, 2, 0))) void keep(int priority, const char *format, va_list arguments) {
    char text[4096];
    vsnprintf(text, sizeof text, format, arguments);
    const std::lock_guard<std::mutex> guard(g_lock);
    g_systemLog.push_back(std::to_string(priority) + " " + text);
}

} // namespace

// In place of the C library's, plain and fortified. <syslog.h> stays out: it may define them inline.
extern "C" {
__attribute__((format(printf, 2, 3))) void syslog(int priority, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keep(priority, format, arguments);
    va_end(arguments);
}

__attribute__((format(printf, 3, 4))) void __syslog_chk(int priority, int /*flag*/, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keep(priority, format, arguments);
    va_end(arguments);
}
}

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

// The lines of a file, each of which must be a JSON object, without their times.
std::vector<json> alertsIn(const fs::path &path) {
    std::ifstream file(path);
    std::vector<json> alerts;
    for (std::string line; std::getline(file, line);) {
        json alert = json::parse(line, nullptr, false);
        EXPECT_TRUE(alert.is_object()) << line;
        if (alert.is_object()) {
            EXPECT_EQ(alert["time"].dump().size(), std::string(R"("2031-01-05T07:08:09.123Z")").size()) << line;
            alert.erase("time");
        }
        alerts.push_back(std::move(alert));
    }
    return alerts;
}

class Alert : public testing::Test {
  protected:
    // The log directory is this test's alone, also when the tests run side by side.
    void SetUp() override {
        lock_ = open(OXT_AGENT_TEST_DIR "lock", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_EQ(flock(lock_, LOCK_EX), 0);
        fs::remove_all(kDirectory);
        fs::create_directories(kDirectory);
        g_systemLog.clear();
    }
    void TearDown() override { close(lock_); }

  private:
    int lock_ = -1;
};

TEST_F(Alert, EveryEventInBothLogs) {
    const struct {
        unsigned int id;
        int type;
        Strings strings;
        const char *expected; // of the JSON line, behind time and source
        const char *sentence; // in the system log
    } kCases[] = {
        {0x400407D0U,
         4,
         {},
         R"("eventId":"0x400407D0","severity":"info","event":"fileSystemCountChanged","strings":[])",
         "30 OXTFSService: The number of file systems changed."},
        {0x400403EAU,
         4,
         {"/dev/sda1", "/", "90", "1000"},
         R"("eventId":"0x400403EA","severity":"info","event":"freeSpaceNormal","device":"/dev/sda1","mountPoint":"/",
            "availableMiB":90,"sizeMiB":1000,"thresholdMiB":null,"strings":["/dev/sda1","/","90","1000"])",
         "30 OXTFSService: Free space of file system /dev/sda1 mounted on / is back to normal: 90 MiB of 1000 MiB are "
         "free."},
        {0x800403E9U,
         2,
         {"a\"b\\c\n", "/\xC3\xBC\xFF\xC3", "0", "18446744073709551615", "100"},
         R"("eventId":"0x800403E9","severity":"warning","event":"freeSpaceWarning","device":"a\"b\\c\n",
            "mountPoint":"/\u00fc\ufffd\ufffd","availableMiB":0,"sizeMiB":18446744073709551615,"thresholdMiB":100,
            "strings":["a\"b\\c\n","/\u00fc\ufffd\ufffd","0","18446744073709551615","100"])",
         "28 OXTFSService: Free space of file system a\"b\\c\\n mounted on /\xC3\xBC\xFF\xC3 is low: 0 MiB of "
         "18446744073709551615 MiB are free, warning threshold 100 MiB."},
        {0xC00403E8U,
         1,
         {"\xED\xA0\x80", nullptr, "-1", "007"},
         R"("eventId":"0xC00403E8","severity":"critical","event":"freeSpaceFatal","device":"\ufffd\ufffd\ufffd",
            "mountPoint":null,"availableMiB":null,"sizeMiB":null,"thresholdMiB":null,
            "strings":["\ufffd\ufffd\ufffd",null,"-1","007"])",
         "26 OXTFSService: Free space of file system \xED\xA0\x80 mounted on ? is nearly used up: -1 MiB of 007 MiB "
         "are "
         "free, fatal threshold ? MiB."},
        {0x0000000AU,
         9,
         {"x", "\xF4\x90\x80\x80\xF0\x9F\x98\x80\xC0\xAF"},
         R"("eventId":"0x0000000A","severity":"unknown","event":"other",
            "strings":["x","\ufffd\ufffd\ufffd\ufffd\ud83d\ude00\ufffd\ufffd"])",
         "29 OXTFSService: Event 0x0000000A: x, \xF4\x90\x80\x80\xF0\x9F\x98\x80\xC0\xAF"},
    };
    for (const auto &testCase : kCases) {
        EXPECT_EQ(send(testCase.id, testCase.type, testCase.strings), 0);
        EXPECT_EQ(alertsIn(kFile).back(),
                  json::parse(R"({"source":"OXTFSService",)" + std::string(testCase.expected) + "}"));
        EXPECT_EQ(g_systemLog.back(), testCase.sentence);
    }
    // The largest alert there is: sixteen strings, each longer than what is passed on and all of it escaped.
    const std::string tooLong(2000, '\x01');
    EXPECT_EQ(send(0xC00403E8U, 1, Strings(16, tooLong.c_str()), tooLong.c_str()), 0);
    EXPECT_EQ(alertsIn(kFile).back()["strings"], json(std::vector<std::string>(16, std::string(1024, '\x01') + "...")));
}

TEST_F(Alert, RefusesBrokenRecords) {
    char *strings[17] = {};
    const Info kRefused[] = {{0, 3, nullptr, 1, 1, 0, nullptr},
                             {0, 3, "source", 1, 1, -1, strings},
                             {0, 3, "source", 1, 1, 17, strings},
                             {0, 3, "source", 1, 1, 1, nullptr}};
    for (const Info &info : kRefused) {
        EXPECT_NE(SendIndication(info), 0);
    }
    EXPECT_FALSE(fs::exists(kFile));
    EXPECT_TRUE(g_systemLog.empty());
    EXPECT_EQ(SendIndication({0, 3, "source", 1, 1, 16, strings}), 0);
}

TEST_F(Alert, TheFileIsBoundedAndAStumpDoesNotSpoilTheNextLine) {
    std::ofstream(kFile) << "{\"stump\":";
    EXPECT_EQ(sendCountChange(), 0);
    std::ifstream file(kFile);
    std::string line;
    EXPECT_TRUE(std::getline(file, line) && std::getline(file, line) && json::accept(line)) << line;
    for (int i = 0; i < 2; ++i) {
        fs::resize_file(kFile, kMaxBytes);
        EXPECT_EQ(sendCountChange(), 0);
        EXPECT_EQ(fs::file_size(kOlderFile), kMaxBytes);
        EXPECT_EQ(alertsIn(kFile).size(), 1U);
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(kDirectory), {}), 2);
}

TEST_F(Alert, TellsWhenTheFileTookNothing) {
    const fs::path target = OXT_AGENT_TEST_DIR "target";
    std::ofstream(target) << "kept";
    fs::create_symlink(target, kFile);
    EXPECT_EQ(sendCountChange(), -1);
    EXPECT_EQ(fs::file_size(target), 4U);
    fs::remove_all(kDirectory);
    EXPECT_EQ(sendCountChange(), -1);
    EXPECT_EQ(g_systemLog.size(), 2U); // heard all the same
}

TEST_F(Alert, LinesOfManyThreadsStayWholeAcrossARotation) {
    const std::string text(1000, 'x');
    std::vector<std::thread> senders;
    for (int thread = 0; thread < 4; ++thread) {
        senders.emplace_back([&text] {
            for (int i = 0; i < 25; ++i) {
                EXPECT_EQ(send(1, 4, Strings(16, text.c_str())), 0);
            }
        });
    }
    for (std::thread &sender : senders) {
        sender.join();
    }
    EXPECT_GT(alertsIn(kOlderFile).size(), 10U);
    EXPECT_EQ(alertsIn(kFile).size() + alertsIn(kOlderFile).size(), 100U);
}

} // namespace
