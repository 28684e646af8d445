// The in-process host, tried through the probe provider: the two flavours, lifetimes, misuse, failing services, the
// schema and its reader.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <ctime>
#include <dlfcn.h>
#include <filesystem>
#include <functional>
#include <regex>
#include <stdexcept>
#include <thread>
#include <unistd.h>

#include "cmpift.h"
#include "cmpimacs.h"
#include "golden.h"
#include "oxtHost.h"
#include "oxtMof.h"

using namespace oxthost;

namespace {

std::vector<timespec> slept; // the times that are asked for in place of sleeping; a signal ends the first

} // namespace

extern "C" int nanosleep(const timespec *time, timespec *rest) {
    slept.push_back(*time);
    if (slept.size() > 1)
        return 0;
    *rest = {0, 5};
    errno = EINTR;
    return -1;
}

namespace {

const char *const schema = R"(
    #pragma locale("en_US")
    Qualifier Key : boolean = false, Scope(property); /* declared, as
    a compiler wants it */ Qualifier Values : string[], Scope(any); Qualifier In : boolean; Qualifier Out : boolean;
    class OXT_Base { [Key] string Id; };
    class OXT_Probe : OXT_Base {
        [Values{"a\"b", "c" "\td"}] uint16 Number = 5; string Text; OXT_Base ref Other; datetime Times[];
        uint32 echo(uint16 u, [In(false), out] sint16 s, boolean b, string t, real64 r);
    };
    instance of OXT_Probe { Id = "x" "y"; Number = -3; };)";

Options probe(Flavour flavour = Flavour::Sfcb, const std::string &mof = "") {
    Options options;
    options.library = OXT_PROBE_LIBRARY;
    options.providerName = "Probe";
    options.flavour = flavour;
    options.schema = mof;
    return options;
}

std::string call(Host &host, const std::string &method, const std::vector<NamedValue> &args = {}) {
    const Reply reply = host.invokeMethod("OXT_Probe", method, args);
    return reply.returned ? reply.returned->text : "status " + std::to_string(reply.rc);
}

std::string textOf(const std::vector<NamedValue> &values) {
    std::string all;
    for (const auto &[name, value] : values)
        all +=
            name + "=" + (value.text.empty() ? std::to_string(value.number) : value.text) + (value.null ? "! " : " ");
    return all;
}

// An instance with a list of keys or without one ("keyed", "bare"), under the filter of the words that follow, if any.
std::string filtered(Host &host, std::istringstream &words) {
    std::string keys;
    std::vector<std::string> filter;
    words >> keys;
    for (std::string name; words >> name;)
        filter.push_back(name);
    const std::vector<NamedValue> bare = {{"Bare", Value::unsignedNumber(CMPI_uint64, 1)}};
    const bool none = !filter.empty() && filter[0] == "nothing";
    const Host::Filter given = filter.empty() ? nullptr : &filter;
    if (none)
        filter.clear();
    const Reply reply = host.getInstance("oxt_probe", keys == "bare" ? bare : std::vector<NamedValue>(), given);
    EXPECT_TRUE(reply.done);
    const Instance &instance = reply.instances.at(0);
    return instance.className + "." + textOf(instance.keys) + "with " + textOf(instance.properties);
}

std::string complaint(const std::function<void()> &action) {
    try {
        action();
    } catch (const std::runtime_error &error) {
        return error.what();
    }
    return "no complaint";
}

// What the probe's methods see of each flavour and do to it, with what the host notes of misuse.
TEST(Host, ProbesInARow) {
    expectReplay("probes.txt", [](const std::string &line) {
        std::istringstream words(line);
        std::string flavour, method, told;
        words >> flavour;
        Host host(probe(flavour == "sfcb" ? Flavour::Sfcb : Flavour::Standard));
        while (words >> method) {
            const std::string answer = method == "get" ? filtered(host, words) : call(host, method);
            told += (answer.empty() ? "nothing" : answer) + "\n";
        }
        for (const std::string &sentence : host.misuses())
            told += "! " + sentence + "\n";
        for (const timespec &time : std::exchange(slept, {}))
            told += "slept " + std::to_string(time.tv_sec) + " s " + std::to_string(time.tv_nsec) + " ns\n";
        EXPECT_EQ(host.live().total(), 0) << line;
        return told;
    });
}

TEST(Host, AgentAnswersInRequestsAndThreads) {
    const struct {
        ServiceMode mode;
        const char *answer;
    } rows[] = {{ServiceMode::off(), "0"},
                {ServiceMode::on(), "1"},
                {{ServiceMode::Byte, 7}, "7"},
                {{ServiceMode::NoSuchInstance, 0}, "no instance 6/0000 "},
                {{ServiceMode::NoSuchProperty, 0}, "no property 6/0000 "}};
    Host host(probe());
    for (const auto &row : rows) {
        host.setServiceMode(row.mode);
        EXPECT_EQ(call(host, "askAgent"), row.answer);
        EXPECT_EQ(call(host, "inThread"), row.answer);
    }
    EXPECT_TRUE(host.misuses().empty());
    EXPECT_EQ(host.live().total(), 0);
    EXPECT_EQ(host.cleanupInstance(false).message, "busy");
    EXPECT_EQ(host.cleanupMethod(false).rc, CMPI_RC_OK);
    EXPECT_TRUE(host.misuses().empty());
    EXPECT_EQ(host.cleanupInstance(true).rc, CMPI_RC_DO_NOT_UNLOAD); // asks the agent, which it must not
    EXPECT_EQ(host.misuses().size(), 1u);
    void *const library = dlopen(OXT_PROBE_LIBRARY, RTLD_LAZY | RTLD_NOLOAD);
    CMNewString(*static_cast<const CMPIBroker **>(dlsym(library, "broker")), "x", nullptr);
    EXPECT_EQ(host.misuses().back(), "newString: called in a thread that is not attached"); // behind its requests
    dlclose(library);
}

TEST(Host, ClonesOutliveTheirRequest) {
    Host host(probe());
    EXPECT_EQ(call(host, "keepString"), "nothing");
    EXPECT_EQ(host.live().strings, 1);
    EXPECT_EQ(call(host, "keepString"), "kept");
    EXPECT_EQ(host.live().total(), 1);
}

TEST(Host, StaysForThreadsThatOutliveIt) {
    int in[2], out[2];
    char byte = 0;
    ASSERT_TRUE(pipe(in) == 0 && pipe(out) == 0);
    {
        Host host(probe());
        call(host, "linger",
             {{"in", Value::signedNumber(CMPI_sint32, in[0])}, {"out", Value::signedNumber(CMPI_sint32, out[1])}});
        ASSERT_TRUE(read(out[0], &byte, 1) == 1 && byte == 'a');
        EXPECT_EQ(host.live().contexts, 1);
    }
    EXPECT_EQ(write(in[1], "x", 1), 1);
    EXPECT_TRUE(read(out[0], &byte, 1) == 1 && byte == '0');
    for (const int fd : {in[0], in[1], out[0], out[1]})
        close(fd);
}

TEST(Host, ClosesTheLibraryBehindAThreadThatAttachedTwice) {
    char name[] = "/tmp/oxthostXXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    Options options = probe();
    options.library = std::string(name) + "/libcopy.so";
    std::filesystem::copy_file(OXT_PROBE_LIBRARY, options.library);
    {
        Host host(options);
        EXPECT_EQ(call(host, "attachTwo"), "0/0000 0/0000 0/0000 0/0000 ");
    }
    EXPECT_EQ(dlopen(options.library.c_str(), RTLD_LAZY | RTLD_NOLOAD), nullptr);
    std::filesystem::remove_all(name);
}

TEST(Host, EveryServiceCanFail) {
    Host host(probe(Flavour::Standard));
    const std::vector<std::string> filter = {"Number"};
    host.failBrokerCall("*", 0);
    EXPECT_TRUE(host.getInstance("OXT_Probe", {}, &filter).ok());
    const long calls = host.failBrokerCall("newInstance", 1);
    EXPECT_EQ(calls, 11); // clone, addKey, newInstance, getKey, the filter, four properties, instance, done
    EXPECT_EQ(host.getInstance("OXT_Probe").message, "no instance");
    EXPECT_TRUE(host.getInstance("OXT_Probe").ok()); // only the one call fails
    EXPECT_EQ(host.failBrokerCall("", 0), 2);
    int failed = 0;
    for (long n = 1; n <= calls + 1; ++n) {
        host.failBrokerCall("*", n);
        failed += host.getInstance("OXT_Probe", {}, &filter).ok() ? 0 : 1;
    }
    EXPECT_EQ(failed, 9); // the probe minds neither a lost key nor a missing one
    EXPECT_TRUE(host.misuses().empty());
    EXPECT_EQ(host.live().total(), 0);
}

TEST(Host, RefusesWhatIsNoProvider) {
    const struct {
        const char *library, *name, *sentence;
    } rows[] = {{"/nowhere/lib.so", "Probe", "cannot load"},
                {OXT_PROBE_LIBRARY, "Nobody", "does not export Nobody_Create_InstanceMI"},
                {OXT_PROBE_LIBRARY, "Broken", "out of order"}};
    for (const auto &row : rows) {
        Options options = probe();
        options.library = row.library;
        options.providerName = row.name;
        EXPECT_THAT(complaint([&] { Host host(options); }), testing::HasSubstr(row.sentence));
    }
    Host host(probe());
    EXPECT_EQ(host.deleteInstance("OXT_Probe").rc, CMPI_RC_ERR_NOT_SUPPORTED); // a NULL slot of the probe's table
    EXPECT_EQ(host.misuses().size(), 1u);
    EXPECT_EQ(host.enumInstanceNames("OXT_Probe").instances.size(), 1u);
}

TEST(Schema, TypesArgumentsAndProperties) {
    const struct {
        const char *parameter, *text, *arrives;
    } rows[] = {{"u", "300", "0090:300"},     {"U", "65566", "0090:30"},
                {"u", "-1", "0090:65535"},    {"u", "abc", "0090:30818"},
                {"s", "-2", "00d0:65534"},    {"b", "TRUE", "0002:1"},
                {"b", "1", "0002:1"},         {"b", "yes", "0002:0"},
                {"s", "40000", "00d0:40000"}, {"r", "1.5", "000c:4609434218613702656"},
                {"u", "", "0090:0"},          {"t", "65566", "1600:65566"},
                {"other", "5", "1600:5"}};
    Host host(probe(Flavour::Sfcb, schema));
    for (const auto &row : rows)
        EXPECT_EQ(call(host, "echo", {{row.parameter, host.argument("oxt_probe", "ECHO", row.parameter, row.text)}}),
                  row.arrives);
    EXPECT_EQ(host.argument("OXT_Probe", "echo", "s", "65534").number, -2);
    const Reply reply = host.getInstance("OXT_Probe");
    EXPECT_EQ(textOf(reply.instances.at(0).properties), "Text=text Id=7 Number=70000 "); // a wider number replaces
    Host keyed(probe(Flavour::Sfcb, "class OXT_Probe { [Key] string Id; [Key] string Unset; };"));
    EXPECT_EQ(textOf(keyed.getInstance("OXT_Probe").instances.at(0).keys), "Id=7 ");
    Host strict(probe(Flavour::Standard, schema));
    EXPECT_EQ(strict.getInstance("OXT_Probe").rc, CMPI_RC_ERR_TYPE_MISMATCH);
    Host wrong(probe(Flavour::Sfcb, "class OXT_Probe { datetime Text; };"));
    EXPECT_EQ(wrong.getInstance("OXT_Probe").rc, CMPI_RC_ERR_TYPE_MISMATCH);
}

TEST(Schema, ReadsWhatASchemaUses) {
    const Mof mof = readMof(schema);
    const MofProperty *number = mof.findProperty("OXT_PROBE", "number");
    ASSERT_TRUE(number != nullptr && mof.findProperty("OXT_Probe", "Id") != nullptr);
    EXPECT_EQ(number->defaultText + number->qualifiers.at(0).second, "5a\"b, c\td");
    EXPECT_TRUE(mof.propertiesOf("OXT_Probe").front()->isKey && mof.propertiesOf("OXT_Probe").back()->isArray);
    EXPECT_EQ(mof.instances.at(0).values.at(0).second + mof.instances[0].values.at(1).second, "xy-3");
    const MofMethod *echo = mof.findMethod("oxt_probe", "ECHO");
    ASSERT_TRUE(echo != nullptr && echo->parameters.size() == 5);
    EXPECT_TRUE(echo->parameters[0].in && !echo->parameters[0].out && !echo->findParameter("S")->in);
    EXPECT_TRUE(echo->findParameter("s")->out && !number->isKey);
    EXPECT_EQ(mof.findProperty("OXT_Probe", "Other")->type, "OXT_Base ref");
    EXPECT_FALSE(mof.findProperty("OXT_Base", "Number"));
    EXPECT_TRUE(mof.isA("OXT_Probe", "oxt_base") && !mof.isA("OXT_Base", "OXT_Probe"));
}

TEST(Schema, SaysWhereItIsWrong) {
    expectReplay("schemaErrors.txt", [](const std::string &text) {
        return complaint([&] { readMof(std::regex_replace(text, std::regex(R"(\\n)"), "\n")); }) + "\n";
    });
}

} // namespace
