// Settings that are accepted change one field, in the answers and in the save file; what is refused is in Requests.
#include "providerTest.h"

#include <algorithm>

using namespace oxthost;

namespace {

using Args = std::vector<NamedValue>;

class Thresholds : public ProviderTest {
  protected:
    void SetUp() override {
        ProviderTest::SetUp();
        mountMachine();
        load();
    }
    // All that clients can read.
    std::string everything() { return showInstances(enumerate(kConfig)) + showInstances(enumerate(kFs)); }
};

Args setting(const char *name, const std::string &value, const char *index = "1") {
    return {{"Index", text(index)}, {name, text(value)}};
}
Args setting(const char *name, Value value, const char *index = "1") {
    return {{"Index", text(index)}, {name, std::move(value)}};
}

constexpr char kSetMonitor[] = "SetMonitorThreshold", kSetWarning[] = "SetWarningThreshold",
               kSetFatal[] = "SetFatalThreshold", kMonitor[] = "MonitorThreshold", kWarning[] = "WarningThreshold",
               kFatal[] = "FatalThreshold", kCycle[] = "MonitorCycle", kSetCycle[] = "SetMonitorCycle";

TEST_F(Thresholds, AnAcceptedSettingChangesOneFieldOnly) {
    const struct {
        const char *method, *argument;
        Args args;
        std::size_t position, offset, width; // of the field in the save file's records
        long long value;
        const char *shown, *status; // the field and FreeSpaceStatus afterwards
    } rows[] = {
        {kSetMonitor, kMonitor, setting(kMonitor, "1", "8"), 7, 1288, 2, 1, "1:u16", "1:s16"}, // of no monitored type
        {kSetMonitor, kMonitor, setting(kMonitor, "0"), 0, 1288, 2, 0, "0:u16", "0:s16"},
        {kSetMonitor, kMonitor, setting(kMonitor, number(CMPI_uint16, 1)), 0, 1288, 2, 1, "1:u16", "1:s16"},
        {kSetWarning, kWarning, setting(kWarning, "5000"), 0, 1292, 4, 5000, "5000:u32", "2:s16"},
        {kSetWarning, kWarning, setting(kWarning, "10000"), 0, 1292, 4, 10000, "10000:u32", "2:s16"},
        {kSetFatal, kFatal, setting(kFatal, "4999"), 0, 1300, 4, 4999, "4999:u32", "2:s16"},
        {kSetFatal, kFatal, setting(kFatal, "5000"), 0, 1300, 4, 5000, "5000:u32", "3:s16"},
        {kSetWarning, kWarning, setting(kWarning, "1"), 0, 1292, 4, 1, "1:u32", "3:s16"}, // below the fatal one
        {kSetFatal, kFatal, setting(kFatal, number(CMPI_uint32, 65536 + 7)), 0, 1300, 4, 7, "7:u32", "1:s16"},
        {kSetWarning, kWarning, setting(kWarning, " 100 MiB", "3"), 2, 1292, 4, 100, "100:u32", "2:s16"},
        {kSetFatal, kFatal, setting(kFatal, number(CMPI_sint64, 100), "3"), 2, 1300, 4, 100, "100:u32", "3:s16"},
    };
    for (const auto &row : rows) {
        const std::string number = row.args[0].second.text;
        std::string expected = everything();
        const auto replace = [&](const std::string &name, const std::string &value) {
            const std::size_t line = expected.find("Index='" + number + "' CSC");
            const std::size_t at = expected.find(" " + name + "=", line) + name.size() + 2;
            expected.replace(at, expected.find(' ', at) - at, value);
        };
        replace(row.argument, row.shown);
        replace("FreeSpaceStatus", row.status);
        EXPECT_EQ(showStatus(call(kFs, row.method, row.args)), "0 ''") << row.method << " " << show(row.args);
        EXPECT_EQ(savedOf(row.position, row.offset, row.width), row.value) << row.method << " " << show(row.args);
        EXPECT_EQ(everything(), expected) << row.method << " " << show(row.args);
    }
    for (const auto &[value, seconds] : {std::pair(text("10"), 10), std::pair(number(CMPI_uint16, 3600), 3600),
                                         std::pair(text("30 s"), 30), std::pair(number(CMPI_uint32, 65536 + 11), 11)}) {
        EXPECT_EQ(showStatus(call(kConfig, kSetCycle, {{kCycle, value}})), "0 ''") << show(value);
        EXPECT_EQ(saved(18, 2), seconds);
        EXPECT_EQ(show(*get(kConfig).instances.at(0).find(kCycle)), std::to_string(seconds) + ":u16");
    }
    // What was set outlives the provider.
    const std::string before = everything();
    EXPECT_EQ(showStatus(cleanUp(true)), "0 ''");
    load();
    EXPECT_EQ(everything(), before);
}

// Types whose value is a pattern of bits: which number they are is nobody's promise, but it is in its range.
TEST_F(Thresholds, ArgumentsOfEveryTypeAreAnswered) {
    for (const int type : {CMPI_boolean, CMPI_char16, CMPI_uint8, CMPI_uint16, CMPI_uint32, CMPI_uint64, CMPI_sint8,
                           CMPI_sint16, CMPI_sint32, CMPI_sint64, CMPI_real32, CMPI_real64}) {
        for (const long long value : {0LL, 1LL, -1LL, 1LL << 15, 1LL << 31, 1LL << 62}) {
            Value given = number(static_cast<CMPIType>(type), value);
            given.text = std::to_string(value) + ".5"; // of a real
            for (const char *method : {kSetMonitor, kSetWarning, kSetFatal})
                EXPECT_LE(call(kFs, method, {{"Index", given}, {method + 3, given}}).rc, CMPI_RC_ERR_NOT_FOUND);
            EXPECT_LE(call(kConfig, kSetCycle, {{kCycle, given}}).rc, CMPI_RC_ERR_FAILED);
        }
    }
    const auto cycle = get(kConfig).instances.at(0).find(kCycle)->number;
    EXPECT_TRUE(cycle >= 10 && cycle <= 3600) << cycle;
    for (const Instance &fs : enumerate(kFs).instances) {
        for (const char *threshold : {kWarning, kFatal}) {
            const auto value = fs.find(threshold)->number,
                       most = std::max(fs.find("FileSystemSize")->number, int64_t{1});
            EXPECT_TRUE(value >= 1 && value <= most) << fs.find("Root")->text << " " << value;
        }
        EXPECT_LE(fs.find(kMonitor)->number, 1);
    }
}

TEST_F(Thresholds, AFailedCommitIsReported) {
    EXPECT_TRUE(enumerate(kFs).ok());
    for (const char *full : {"/dev/full", "/nowhere/oxtfssave.dat"}) {
        system.redirectOpen(savePath(), full);
        EXPECT_EQ(showStatus(call(kConfig, kSetCycle, {{kCycle, text("44")}})), "1 'FileSystem-Update FAILED'") << full;
        EXPECT_EQ(show(*get(kConfig).instances.at(0).find(kCycle)), "44:u16") << "the change is not taken back";
        EXPECT_EQ(showStatus(call(kFs, kSetWarning, setting(kWarning, "77"))), "1 'fsGetInstance() FAILED'");
        EXPECT_EQ(showStatus(cleanUp(true)), "1 'fsSetInstance() Failure!!'") << "what cannot be saved is kept";
    }
    system.redirectOpen(savePath(), savePath());
    EXPECT_EQ(showStatus(cleanUp(false)), "0 ''");
    EXPECT_EQ(saved(18, 2), 44);
    EXPECT_EQ(savedOf(0, 1292, 4), 1000);
}

} // namespace
