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
std::vector<std::string> g_systemLog; // "<priority> <text>"; guarded by g_lock

void keep(int priority, const char *format, va_list arguments) {
    char text[4096];
    vsnprintf(text, sizeof text, format, arguments);
    const std::lock_guard<std::mutex> guard(g_lock);
    g_systemLog.push_back(std::to_string(priority) + " " + text);
}

} // namespace

// In place of the C library's, plain and fortified. <syslog.h> stays out: it may define them inline.
extern "C" {
__attribute__((format(printf, 2, 3))) void syslog(int priority, const char *format, ...);
__attribute__((format(printf, 3, 4))) void __syslog_chk(int priority, int flag, const char *format, ...);

void syslog(int priority, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keep(priority, format, arguments);
    va_end(arguments);
}

void __syslog_chk(int priority, int /*flag*/, const char *format, ...) {
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

int send(unsigned int id, int type, Strings strings, const char *source = "OXTFSService") {
    return SendIndication({0, 3, source, id, type, static_cast<int>(strings.size()),
                           strings.empty() ? nullptr : const_cast<char **>(strings.data())});
}

// Every line of the file, which must be one JSON object with the common fields.
std::vector<json> alerts() {
    std::ifstream file(kFile);
    std::vector<json> all;
    for (std::string line; std::getline(file, line);) {
        json alert = json::parse(line, nullptr, false);
        EXPECT_EQ(alert["time"].dump().size(), std::string(R"("2031-01-05T07:08:09.123Z")").size()) << line;
        alert.erase("time");
        all.push_back(std::move(alert));
    }
    return all;
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
    const std::string tooLong(2000, '\x01');
    std::string cut;
    for (int i = 0; i < 1024; ++i) {
        cut += "\\u0001";
    }
    const struct {
        unsigned int id;
        int type;
        Strings strings;
        const char *expected; // the JSON line without time, source and strings
        const char *sentence; // in the system log, priority and facility before it
    } kCases[] = {
        {0x400407D0U,
         4,
         {},
         R"("eventId":"0x400407D0","severity":"info","event":"fileSystemCountChanged")",
         "30 OXTFSService: The number of file systems changed."},
        {0x400403EAU,
         4,
         {"/dev/sda1", "/", "90", "1000"},
         R"("eventId":"0x400403EA","severity":"info","event":"freeSpaceNormal","device":"/dev/sda1","mountPoint":"/",
            "availableMiB":90,"sizeMiB":1000,"thresholdMiB":null)",
         "30 OXTFSService: Free space of file system /dev/sda1 mounted on / is back to normal: 90 MiB of 1000 MiB are "
         "free."},
        {0x800403E9U,
         2,
         {"a\"b\\c\n", "/m\xC3\xBC\xFF\xC3", "0", "18446744073709551615", "100"},
         "\"eventId\":\"0x800403E9\",\"severity\":\"warning\",\"event\":\"freeSpaceWarning\",\"device\":"
         "\"a\\\"b\\\\c\\n\","
         "\"mountPoint\":\"/m\\u00fc\\ufffd\\ufffd\",\"availableMiB\":0,\"sizeMiB\":18446744073709551615,"
         "\"thresholdMiB\":100",
         "28 OXTFSService: Free space of file system a\"b\\c\\n mounted on /m\xC3\xBC\xFF\xC3 is low: 0 MiB of "
         "18446744073709551615 MiB are free, warning threshold 100 MiB."},
        {0xC00403E8U,
         1,
         {"\xED\xA0\x80", nullptr, "-1", "007"},
         R"("eventId":"0xC00403E8","severity":"critical","event":"freeSpaceFatal","device":"\ufffd\ufffd\ufffd",
            "mountPoint":null,"availableMiB":null,"sizeMiB":null,"thresholdMiB":null)",
         "26 OXTFSService: Free space of file system \xED\xA0\x80 mounted on ? is nearly used up: -1 MiB of 007 MiB "
         "are "
         "free, fatal threshold ? MiB."},
        {0x0000000AU,
         9,
         {"x", "\xF4\x90\x80\x80\xF0\x9F\x98\x80\xC0\xAF"},
         R"("eventId":"0x0000000A","severity":"unknown","event":"other")",
         "29 OXTFSService: Event 0x0000000A: x, \xF4\x90\x80\x80\xF0\x9F\x98\x80\xC0\xAF"},
    };
    for (const auto &testCase : kCases) {
        EXPECT_EQ(send(testCase.id, testCase.type, testCase.strings), 0);
        json alert = alerts().back();
        EXPECT_EQ(alert["strings"].size(), testCase.strings.size());
        if (alert["event"] != "fileSystemCountChanged" && alert["event"] != "other") {
            EXPECT_EQ(alert["strings"][0], alert["device"]);
        }
        alert.erase("strings");
        EXPECT_EQ(alert, json::parse(std::string("{\"source\":\"OXTFSService\",") + testCase.expected + "}"));
        EXPECT_EQ(g_systemLog.back(), testCase.sentence);
    }
    const std::string valid = "\xEF\xBF\xBD";
    EXPECT_EQ(alerts().back()["strings"][1], valid + valid + valid + valid + "\xF0\x9F\x98\x80" + valid + valid);
    // The largest alert there is: sixteen strings, each longer than what is passed on and all of it escaped.
    EXPECT_EQ(send(0xC00403E8U, 1, Strings(16, tooLong.c_str()), tooLong.c_str()), 0);
    EXPECT_EQ(alerts().back()["strings"], json(std::vector<json>(16, json::parse("\"" + cut + "...\""))));
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
    std::ofstream(kFile) << "{\"torn\":";
    EXPECT_EQ(send(0x400407D0U, 4, {}), 0);
    std::string line;
    std::ifstream torn(kFile);
    std::getline(torn, line);
    std::getline(torn, line);
    EXPECT_TRUE(json::accept(line)) << line;

    fs::resize_file(kFile, 1024 * 1024);
    EXPECT_EQ(send(0x400407D0U, 4, {}), 0);
    EXPECT_EQ(fs::file_size(kFile.string() + ".1"), 1024U * 1024U);
    EXPECT_EQ(alerts().size(), 1U);
    fs::resize_file(kFile, 1024 * 1024);
    EXPECT_EQ(send(0x400407D0U, 4, {}), 0);
    EXPECT_EQ(std::distance(fs::directory_iterator(kDirectory), {}), 2);
}

TEST_F(Alert, TellsWhenTheFileTookNothing) {
    const fs::path target = OXT_AGENT_TEST_DIR "target";
    std::ofstream(target) << "kept";
    fs::create_symlink(target, kFile);
    EXPECT_EQ(send(0x400407D0U, 4, {}), -1);
    EXPECT_EQ(fs::file_size(target), 4U);
    fs::remove_all(kDirectory);
    EXPECT_EQ(send(0x400407D0U, 4, {}), -1);
    EXPECT_EQ(g_systemLog.size(), 2U); // heard all the same
}

TEST_F(Alert, ManyThreadsAcrossARotation) {
    const std::string text(1000, 'x');
    std::ofstream(kFile) << "\n";
    fs::resize_file(kFile, 1024 * 1024 - 100000);
    std::vector<std::thread> senders;
    for (int thread = 0; thread < 4; ++thread) {
        senders.emplace_back([&text] {
            for (int i = 0; i < 50; ++i) {
                EXPECT_EQ(send(1, 4, {text.c_str()}), 0);
            }
        });
    }
    for (std::thread &sender : senders) {
        sender.join();
    }
    std::ifstream older(kFile.string() + ".1");
    const auto before = std::count(std::istreambuf_iterator<char>(older), {}, '}');
    EXPECT_GT(before, 80);
    EXPECT_EQ(alerts().size() + static_cast<std::size_t>(before), 200U);
}

} // namespace
