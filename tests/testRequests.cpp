// Every request, in both manners of hosting: what is shown, what is refused, what a refusal leaves untouched, and what
// a setting changes.
#include "golden.h"
#include "providerTest.h"

#include <algorithm>
#include <dlfcn.h>
#include <functional>
#include <iomanip>
#include <map>

#include "oxtHostBroker.h"

using namespace oxthost;

namespace {

constexpr Flavour kFlavours[] = {Flavour::Standard, Flavour::Sfcb};

// "Index=3" is text, "Index=3:u16" a number.
NamedValue argument(const std::string &word) {
    static const std::map<std::string, CMPIType> types = {
        {"u16", CMPI_uint16}, {"s16", CMPI_sint16},      {"u32", CMPI_uint32},   {"u64", CMPI_uint64},
        {"s64", CMPI_sint64}, {"boolean", CMPI_boolean}, {"string", CMPI_string}};
    const std::size_t equals = word.find('='), colon = word.find(':');
    const std::string name = word.substr(0, equals), value = word.substr(equals + 1, colon - equals - 1);
    if (colon == std::string::npos)
        return {name, text(value)};
    const CMPIType type = types.at(word.substr(colon + 1));
    return {name, value == "NULL" ? Value::nullOf(type) : number(type, std::stoll(value))};
}

// Of the save file: which bytes became what.
std::string changes(const std::string &before, const std::string &after) {
    constexpr std::size_t head = 30, record = 1840;
    if (before.size() != after.size())
        return ", saved anew";
    std::string all;
    for (std::size_t i = 0; i < after.size(); ++i)
        if (before[i] != after[i])
            all += (i < head ? " " : " record " + std::to_string((i - head) / record + 1) + " ") + "byte " +
                   std::to_string(i < head ? i : (i - head) % record) + "=" +
                   std::to_string(static_cast<unsigned char>(after[i]));
    return all.empty() ? "" : ", saved" + all;
}

class Requests : public ProviderTest {
  protected:
    int looks() const { return system.calls(Call::Setmntent) + system.calls(Call::Shmget); }
    Reply ask(const std::string &kind, const std::string &cls, const std::string &method,
              const std::vector<NamedValue> &args, Host::Filter only) {
        const std::map<std::string, std::function<Reply()>> kinds = {
            {"enum", [&] { return enumerate(cls, only); }},
            {"get", [&] { return get(cls, args, only); }},
            {"call", [&] { return call(cls, method, args); }},
            {"names", [&] { return checked(host->enumInstanceNames(cls)); }},
            {"create", [&] { return checked(host->createInstance(cls)); }},
            {"modify", [&] { return checked(host->modifyInstance(cls)); }},
            {"delete", [&] { return checked(host->deleteInstance(cls)); }},
            {"query", [&] { return checked(host->execQuery(cls, "SELECT * FROM x", "WQL")); }},
            {"fail", [&] { return host->failBrokerCall(cls, 1), Reply(); }}, // the next call of a service
            {"mount", [&] { return mountMachine(), Reply(); }},
            {"add", [&] { return system.addFileSystem("/dev/sdb1", 8, cls, "vfat", 500, 400), Reply(); }},
            {"remove", [&] { return system.removeFileSystem(cls), Reply(); }},
        };
        return kinds.at(kind)();
    }
};

// Each request with its answer, and with what else it did.
TEST_F(Requests, InARow) {
    for (const Flavour flavour : kFlavours) {
        ASSERT_TRUE(emptyAgentDirectory());
        load(ServiceMode::off(), flavour);
        expectReplay("requests.txt", [&](const std::string &line) {
            std::istringstream words(line);
            std::string kind, cls, method;
            words >> kind >> std::quoted(cls);
            if (kind == "call")
                words >> std::quoted(method);
            std::vector<NamedValue> args;
            std::vector<std::string> filter;
            Host::Filter only = nullptr;
            bool whole = false; // all properties are told
            for (std::string word; words >> std::quoted(word);)
                if (word == "whole")
                    whole = true;
                else if (word == "only") // these properties
                    only = &filter;
                else if (only != nullptr)
                    filter.push_back(word);
                else
                    args.push_back(argument(word));
            const std::string file = fileContent(savePath());
            const int before = looks();
            if (kind == "restart") {
                cleanUp(true);
                load(ServiceMode::off(), flavour);
                return std::string();
            }
            const Reply reply = ask(kind, cls, method, args, only);
            std::string told = showStatus(reply) + (reply.done ? ", done" : "") + (looks() > before ? ", looked" : "") +
                               changes(file, fileContent(savePath())) + "\n";
            for (const Instance &instance : reply.instances) {
                EXPECT_EQ(instance.nameSpace, "root/TAVRIN/AS");
                if (only != nullptr || whole) {
                    const Value *index = instance.find("Index"); // the one flavour builds the path from the properties
                    EXPECT_EQ(show(instance.keys),
                              flavour == Flavour::Sfcb && index != nullptr ? "Index=" + show(*index) : "");
                    told += "  {" + show(instance.properties) + "}\n";
                    continue;
                }
                for (const char *name : {"Index", "Root", "MonitorThreshold", "WarningThreshold", "FatalThreshold",
                                         "FreeSpaceStatus", "MonitorCycle", "FileSystemTotalNumber", "ThreadRunning"})
                    if (const Value *value = instance.find(name))
                        told += "  " + show(*value);
                told += "\n";
            }
            return told;
        });
        EXPECT_EQ(showStatus(cleanUp(true)), "0 ''");
    }
}

TEST_F(Requests, TextsOfAnyBytesAreShownAsUtf8) {
    const std::string halves = "/" + std::string(253, 'x') + "\xC3\xA9"; // cut inside the last character
    const struct {
        std::string dir, shown;
    } rows[] = {
        {"/d\xE9j\xE0", "/d\uFFFDj\uFFFD"},
        {"/ctl\x01\x7F\x1F", "/ctl\uFFFD\x7F\uFFFD"},
        {"/tab\tline\nspace back\\", "/tab\tline\nspace back\\"},
        {"/é\u30C7\U0001F600\u0080\u0800\U00010000", "/é\u30C7\U0001F600\u0080\u0800\U00010000"},
        {"/over\xC0\xAF\xE0\x80\x80", "/over\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"/surrogate\xED\xA0\x80", "/surrogate\uFFFD\uFFFD\uFFFD"},
        {"/none\xEF\xBF\xBE\xF4\x90\x80\x80", "/none\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"/cut\xE2\x82", "/cut\uFFFD\uFFFD"},
        {halves, halves.substr(0, 254)},
        {"/" + std::string(253, '\xFF'), "/" + std::string(253, '?')},
    };
    for (const auto &row : rows)
        system.addFileSystem("/dev/sda1", 8, row.dir, "vfat", 500, 400);
    load();
    const Reply all = enumerate(kFs);
    ASSERT_EQ(all.instances.size(), std::size(rows)) << showStatus(all);
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        std::string shown = rows[i].shown;
        for (std::size_t at = 0; (at = shown.find('?')) != std::string::npos;)
            shown.replace(at, 1, "\uFFFD");
        EXPECT_EQ(all.instances[i].find("Root")->text, shown) << rows[i].dir;
        const std::string kept = fileContent(savePath()).substr(30 + 1840 * i + 1312, 255).c_str();
        EXPECT_EQ(kept, rows[i].dir.substr(0, 254)) << "the record keeps the bytes";
    }
}

// Which answers these are is in the golden file.
TEST_F(Requests, AnyServiceOfTheHostMayFail) {
    const std::vector<NamedValue> setting = {{"Index", text("1")}, {"WarningThreshold", text("500")}};
    const std::function<Reply()> asked[] = {
        [&] { return host->getInstance(kConfig); },
        [&] { return host->enumInstances(kFs); },
        [&] { return host->invokeMethod(kFs, "SetWarningThreshold", setting); },
        [&] { return host->invokeMethod(kThread, "StartMonitoringThread", {}); },
    };
    system.addFileSystem("/dev/sda1", 8, "/", "ext4", 1000, 900);
    system.addFileSystem("/dev/sda2", 8, "/data", "xfs", 1000, 900);
    for (const Flavour flavour : kFlavours) {
        load(ServiceMode::off(), flavour);
        EXPECT_TRUE(enumerate(kFs).ok());
        for (const auto &ask : asked) {
            host->failBrokerCall("*", 0);
            const Reply whole = checked(ask());
            const long calls = host->failBrokerCall("*", 0);
            EXPECT_GT(calls, 0);
            for (long n = 1; n <= calls; ++n) {
                host->failBrokerCall("*", n);
                const Reply reply = checked(ask());
                EXPECT_TRUE(reply.rc == whole.rc || reply.rc == CMPI_RC_ERR_FAILED) << n << " " << showStatus(reply);
                EXPECT_TRUE(!reply.ok() || reply.instances.size() == whole.instances.size()) << n << " is left out";
            }
            host->failBrokerCall("", 0);
            EXPECT_EQ(showStatus(checked(ask())), showStatus(whole));
        }
        cleanUp(true);
    }
}

// Types whose value is a pattern of bits: which number they are is nobody's promise, but it is in its range.
TEST_F(Requests, ArgumentsOfEveryTypeAreAnswered) {
    mountMachine();
    load();
    for (const int type : {CMPI_boolean, CMPI_char16, CMPI_uint8, CMPI_uint16, CMPI_uint32, CMPI_uint64, CMPI_sint8,
                           CMPI_sint16, CMPI_sint32, CMPI_sint64, CMPI_real32, CMPI_real64}) {
        for (const long long value : {0LL, 1LL, -1LL, 1LL << 15, 1LL << 31, 1LL << 62}) {
            Value given = number(static_cast<CMPIType>(type), value);
            given.text = std::to_string(value) + ".5"; // of a real
            for (const char *method : {"SetMonitorThreshold", "SetWarningThreshold", "SetFatalThreshold"})
                EXPECT_LE(call(kFs, method, {{"Index", given}, {method + 3, given}}).rc, CMPI_RC_ERR_NOT_FOUND);
            EXPECT_LE(call(kConfig, "SetMonitorCycle", {{"MonitorCycle", given}}).rc, CMPI_RC_ERR_FAILED);
        }
    }
    const auto cycle = get(kConfig).instances.at(0).find("MonitorCycle")->number;
    EXPECT_TRUE(cycle >= 10 && cycle <= 3600) << cycle;
    for (const Instance &fs : enumerate(kFs).instances) {
        for (const char *threshold : {"WarningThreshold", "FatalThreshold"}) {
            const auto value = fs.find(threshold)->number,
                       most = std::max(fs.find("FileSystemSize")->number, int64_t{1});
            EXPECT_TRUE(value >= 1 && value <= most) << fs.find("Root")->text << " " << value;
        }
        EXPECT_LE(fs.find("MonitorThreshold")->number, 1);
    }
}

TEST_F(Requests, AFailedCommitIsReported) {
    mountMachine();
    load();
    EXPECT_TRUE(enumerate(kFs).ok());
    for (const char *full : {"/dev/full", "/nowhere/oxtfssave.dat"}) {
        system.redirectOpen(savePath(), full);
        EXPECT_EQ(showStatus(call(kConfig, "SetMonitorCycle", {{"MonitorCycle", text("44")}})),
                  "1 'FileSystem-Update FAILED'")
            << full;
        EXPECT_EQ(show(*get(kConfig).instances.at(0).find("MonitorCycle")), "44:u16") << "the change is not taken back";
        EXPECT_EQ(
            showStatus(call(kFs, "SetWarningThreshold", {{"Index", text("1")}, {"WarningThreshold", text("77")}})),
            "1 'fsGetInstance() FAILED'");
        EXPECT_EQ(showStatus(cleanUp(true)), "1 'fsSetInstance() Failure!!'") << "what cannot be saved is kept";
    }
    system.redirectOpen(savePath(), savePath());
    EXPECT_EQ(showStatus(cleanUp(false)), "0 ''");
    EXPECT_EQ(saved(18, 2), 44);
    EXPECT_EQ(savedOf(0, 1292, 4), 1000);
}

// Calls that no well-kept host makes, past the host's own arguments.
TEST_F(Requests, NullArgumentsAreAnswered) {
    mountMachine();
    load();
    EXPECT_TRUE(enumerate(kConfig).ok());
    void *library = dlopen(OXT_TEST_PROVIDER, RTLD_NOW);
    ASSERT_NE(library, nullptr);
    using Factory = CMPIMethodMI *(const CMPIBroker *, const CMPIContext *, CMPIStatus *);
    using SetInstance = CMPIStatus(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                                   const CMPIInstance *, const char **);
    const auto create = reinterpret_cast<Factory *>(dlsym(library, "OXTFileSystemProvider_Create_MethodMI"));
    const auto set = reinterpret_cast<SetInstance *>(dlsym(library, "OXT_FileSystemProviderSetInstance"));
    const auto init = reinterpret_cast<int (*)()>(dlsym(library, "OXT_FileSystemProviderInitProcess"));
    ASSERT_TRUE(create != nullptr && set != nullptr && init != nullptr);

    auto broker = std::make_shared<Broker>(Options{});
    {
        const RequestScope scope(*broker);
        CMPIMethodMI *mi = create(&broker->face, nullptr, nullptr);
        EXPECT_EQ(std::string(mi->ft->miName) + " " + std::to_string(mi->ft->ftVersion) + " " +
                      std::to_string(mi->ft->miVersion),
                  "methodOXTFileSystemProvider 200 200");
        EXPECT_EQ(init(), 0);
        EXPECT_EQ(set(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr).rc, CMPI_RC_ERR_NOT_SUPPORTED);
        const struct {
            const char *cls, *method, *message;
            CMPIrc rc;
        } rows[] = {
            {kConfig, "SetMonitorCycle", "getArgToInt(MonitorCycle) FAILED", CMPI_RC_ERR_FAILED},
            {kFs, "SetFatalThreshold", "getArgToInt(Index) FAILED", CMPI_RC_ERR_FAILED},
            {kFs, nullptr, "Generic Failure!!", CMPI_RC_ERR_FAILED},
            {kThread, nullptr, "Generic Failure!!", CMPI_RC_OK},
            {nullptr, "SetMonitorCycle", "getClassName() Failure!!", CMPI_RC_ERR_FAILED},
        };
        for (const auto &row : rows) {
            const CMPIObjectPath *path =
                row.cls != nullptr ? CMNewObjectPath(&broker->face, "root", row.cls, nullptr) : nullptr;
            auto result = std::make_shared<ResultBody>();
            result->expects = ResultBody::Expects::Value;
            const CMPIStatus status = mi->ft->invokeMethod(mi, broker->make(std::make_shared<ContextBody>()),
                                                           broker->make(result), path, row.method, nullptr, nullptr);
            EXPECT_EQ(status.rc, row.rc);
            ASSERT_NE(status.msg, nullptr);
            EXPECT_STREQ(CMGetCharsPtr(status.msg, nullptr), row.message);
            EXPECT_TRUE(result->done);
        }
    }
    EXPECT_EQ(broker->registry.misuses(), std::vector<std::string>());
    EXPECT_EQ(broker->registry.live().total(), 0);
    host->callFactoriesAgain(); // the provider serves the broker that it saw last
    dlclose(library);
}

} // namespace
