// Every setting: what is refused, with its words, and leaves the records as they were; what is accepted changes one
// field, in the answers and in the save file.
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

Args index(const std::string &value) {
    return {{"Index", text(value)}};
}
Args setting(const char *name, const std::string &value, const char *index = "1") {
    return {{"Index", text(index)}, {name, text(value)}};
}
Args setting(const char *name, Value value, const char *index = "1") {
    return {{"Index", text(index)}, {name, std::move(value)}};
}

constexpr char kSetMonitor[] = "SetMonitorThreshold", kSetWarning[] = "SetWarningThreshold",
               kSetFatal[] = "SetFatalThreshold", kMonitor[] = "MonitorThreshold", kWarning[] = "WarningThreshold",
               kFatal[] = "FatalThreshold", kCycle[] = "MonitorCycle", kSetCycle[] = "SetMonitorCycle";

TEST_F(Thresholds, ARefusalLeavesEverythingAsItWas) {
    const std::string before = everything(), file = fileContent(savePath());
    // Each of the values alone, as the argument of that name beside the others.
    const auto refused = [&](const std::string &status, const char *cls, const char *method, const Args &others,
                             const char *name, const std::vector<Value> &values) {
        for (const Value &value : values) {
            Args args = others;
            args.emplace_back(name, value);
            const Reply reply = call(cls, method, args);
            EXPECT_EQ(showStatus(reply), status) << method << " " << show(args);
            EXPECT_TRUE(reply.done) << method;
            EXPECT_EQ(fileContent(savePath()), file) << method << " " << show(args);
        }
    };
    const auto missing = [](const char *name) { return "1 'getArgToInt(" + std::string(name) + ") FAILED'"; };
    const auto bad = [](const char *name) { return "1 'SetValue(" + std::string(name) + ") FAILED'"; };
    const auto n = [](long long value) { return number(CMPI_uint16, value); };
    const Value null = Value::nullOf(CMPI_string), minusOne = number(CMPI_sint16, -1);
    const Args first = index("1"), third = index("3"), thirty = {{kWarning, text("30")}}; // 10000 and 100 MiB
    const char generic[] = "1 'Generic Failure!!'", notFixed[] = "1 'DriveType not Fixed FAILED'",
               small[] = "1 'FileSystemSize less 100MB FAILED'";

    // Numbers are not cut to 16 or 32 bits: 65566 and 4294967326 would be 30, and 40000 negative.
    refused(bad(kCycle), kConfig, kSetCycle, {}, kCycle,
            {text("9"), n(3601), n(40000), text("65566"), text("4294967326"), text("0"), text("a minute"),
             number(CMPI_boolean, 1), number(CMPI_uint64, 1LL << 32)});
    refused(missing(kCycle), kConfig, kSetCycle, {}, kCycle,
            {text("-1"), minusOne, n(0), Value::nullOf(CMPI_uint16), null});
    refused(missing(kCycle), kConfig, kSetCycle, {}, "Cycle", {text("30")});
    refused(generic, kConfig, "setmonitorcycle", {}, kCycle, {text("30")});
    refused(generic, kConfig, kSetWarning, first, kWarning, {text("30")});
    refused(generic, kTotal, kSetCycle, {}, kCycle, {text("30")});
    refused(generic, kFs, kSetCycle, first, kCycle, {text("30")});
    refused(generic, kFs, "setwarningthreshold", first, kWarning, {text("30")});
    refused(missing("Index"), kFs, kSetWarning, {}, kWarning, {text("30")});
    refused(missing("Index"), kFs, kSetWarning, thirty, "Index",
            {text("0"), text("-1"), text("-65535"), text("root"), n(0), n(65535)});
    refused("4 'NotFound Index'", kFs, kSetWarning, thirty, "Index", {text("9"), text("65537"), text("4294967297")});
    // The drive is judged before the size, and both before the value.
    refused(notFixed, kFs, kSetMonitor, {}, "Index", {text("4"), text("7")});
    refused(notFixed, kFs, kSetWarning, thirty, "Index", {text("5")});
    refused(notFixed, kFs, kSetFatal, {}, "Index", {text("6")});
    refused(small, kFs, kSetMonitor, {{kMonitor, text("1")}}, "Index", {text("2")});
    refused(small, kFs, kSetWarning, {}, "Index", {text("2")});
    refused(missing(kMonitor), kFs, kSetMonitor, {}, "Index", {text("1")});
    refused(missing(kMonitor), kFs, kSetMonitor, first, kMonitor, {text("-1"), n(0)}); // off is sent as text
    refused(bad(kMonitor), kFs, kSetMonitor, first, kMonitor, {text("2"), text("-2"), text("65536")});
    refused(missing(kWarning), kFs, kSetWarning, {}, "Index", {text("3")});
    refused(missing(kWarning), kFs, kSetWarning, third, kWarning, {text("-1"), null});
    refused(bad(kWarning), kFs, kSetWarning, third, kWarning,
            {text("0"), text(""), text("101"), text("-2"), text("4294967396"), text("2147483648"), n(32768)});
    refused(missing(kFatal), kFs, kSetFatal, third, kFatal, {minusOne, null});
    refused(bad(kFatal), kFs, kSetFatal, third, kFatal, {text("0"), text("101"), text("18446744073709551617")});
    EXPECT_EQ(everything(), before);
}

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
