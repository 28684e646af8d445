// The schema beside the provider that it describes: what is declared is what is published and read, by name, type and
// key; and both registrations name the classes of the schema.
#include "providerTest.h"

#include <gmock/gmock.h>

#include <map>
#include <sstream>

#include "oxtMof.h"

using namespace oxthost;
using testing::ContainerEq;
using testing::UnorderedElementsAreArray;

namespace {

const std::map<std::string, CMPIType> kTypes = {{"string", CMPI_string},
                                                {"uint16", CMPI_uint16},
                                                {"sint16", CMPI_sint16},
                                                {"uint32", CMPI_uint32},
                                                {"boolean", CMPI_boolean}};
constexpr unsigned long kSizeMiB = 200000; // thresholds beyond 16 bits fit

std::string packaged(const std::string &name) {
    return fileContent(OXT_TEST_SOURCE_DIR "../packaging/" + name);
}

// What an object manager of that kind has declared when it reads its registration.
constexpr const char *kPegasusClasses = R"(
class PG_ProviderModule {
    string Name; string Vendor; string Version; string InterfaceType; string InterfaceVersion; string Location;
    uint16 UserContext;
};
class PG_Provider { string ProviderModuleName; string Name; };
class PG_ProviderCapabilities {
    string ProviderModuleName; string ProviderName; string CapabilityID; uint16 ProviderType[]; string ClassName;
    string Namespaces[];
};
)";

std::vector<std::string> namesOfClasses(const Mof &mof) {
    std::vector<std::string> names;
    for (const auto &cls : mof.classes)
        names.push_back(cls.name);
    return names;
}

class Schema : public ProviderTest {
  protected:
    void SetUp() override {
        ProviderTest::SetUp();
        system.addFileSystem("/dev/sda1", 8, "/", "ext4", kSizeMiB, kSizeMiB / 2);
        load();
    }
    // A call as a client makes it that types nothing: the schema decides how each argument arrives.
    Reply callAsDeclared(const std::string &cls, const MofMethod &method, const std::string &without = "") {
        std::vector<NamedValue> arguments;
        for (const auto &parameter : method.parameters)
            if (parameter.name != without)
                arguments.emplace_back(parameter.name, host->argument(cls, method.name, parameter.name,
                                                                      kArguments.at(parameter.name).first));
        return host->invokeMethod(cls, method.name, arguments);
    }

    // A value that shows what a wrong type would do to it, and the class that shows it afterwards.
    const std::map<std::string, std::pair<std::string, std::string>> kArguments = {
        {"Index", {"1", ""}},
        {"MonitorThreshold", {"0", "OXT_FileSystem"}},
        {"WarningThreshold", {"150000", "OXT_FileSystem"}},
        {"FatalThreshold", {"199999", "OXT_FileSystem"}},
        {"MonitorCycle", {"3600", "OXT_FileSystemConfig"}}};
    const Mof mof = readMof(packaged("OXT_FileSystem.mof"));
};

TEST_F(Schema, DeclaresThePropertiesThatArePublishedAndTheKeysThatAreRead) {
    ASSERT_FALSE(mof.classes.empty());
    for (const auto &cls : mof.classes) {
        SCOPED_TRACE(cls.name);
        std::map<std::string, CMPIType> declared, published;
        std::vector<NamedValue> keys;
        for (const auto &property : cls.properties) {
            declared[property.name] = kTypes.at(property.type);
            if (property.isKey)
                keys.emplace_back(property.name, Value::string("1"));
        }
        const Reply reply = host->enumInstances(cls.name);
        ASSERT_EQ(reply.instances.size(), 1u) << reply.message;
        for (const auto &[name, value] : reply.instances[0].properties)
            published[name] = value.type;
        EXPECT_THAT(published, ContainerEq(declared));
        EXPECT_TRUE(host->getInstance(cls.name, keys).ok());
        EXPECT_LE(keys.size(), 1u);
        if (!keys.empty()) {
            EXPECT_EQ(host->getInstance(cls.name).message, "getKeyIndex() FAILED");
        }
    }
}

TEST_F(Schema, DeclaresTheParametersThatAreRead) {
    int read = 0;
    for (const auto &cls : mof.classes)
        for (const auto &method : cls.methods)
            for (const auto &parameter : method.parameters) {
                SCOPED_TRACE(cls.name + "." + method.name + "(" + parameter.name + ")");
                EXPECT_TRUE(parameter.in && !parameter.out);
                const Reply without = callAsDeclared(cls.name, method, parameter.name);
                EXPECT_EQ(without.rc, CMPI_RC_ERR_FAILED);
                EXPECT_EQ(without.message, "getArgToInt(" + parameter.name + ") FAILED");
                const Reply with = callAsDeclared(cls.name, method);
                EXPECT_TRUE(with.ok()) << with.message;
                EXPECT_FALSE(with.returned) << "these methods answer by their status";
                const auto &[value, shownBy] = kArguments.at(parameter.name);
                if (shownBy.empty())
                    continue;
                const Reply after = host->enumInstances(shownBy);
                ASSERT_EQ(after.instances.size(), 1u) << after.message;
                EXPECT_EQ(std::to_string(after.instances[0].find(parameter.name)->number), value);
                ++read;
            }
    EXPECT_EQ(read, 4);
}

TEST_F(Schema, DeclaresWhatTheMethodsOfTheThreadReturn) {
    cleanUp(true);
    load(ServiceMode::on());
    const auto *cls = mof.findClass("OXT_FileSystemThread");
    ASSERT_TRUE(cls);
    ASSERT_EQ(cls->methods.size(), 2u);
    for (const auto &method : cls->methods) { // the schema has Start before Stop
        const Reply reply = callAsDeclared(cls->name, method);
        ASSERT_TRUE(reply.returned) << method.name;
        EXPECT_EQ(reply.returned->type, kTypes.at(method.returnType)) << method.name;
        EXPECT_EQ(reply.returned->number, 0) << method.name << ": " << reply.message;
    }
}

TEST_F(Schema, IsWhatBothRegistrationsName) {
    std::vector<std::string> sections, instances;
    std::istringstream registration(packaged("sfcb/OXT_FileSystem.reg"));
    for (std::string line; std::getline(registration, line);)
        if (line.size() > 2 && line.front() == '[')
            sections.push_back(line.substr(1, line.size() - 2));
    EXPECT_THAT(sections, UnorderedElementsAreArray(namesOfClasses(mof)));

    const Mof pegasus = readMof(kPegasusClasses + packaged("pegasus/OXT_FileSystemRegistration.mof"));
    for (const auto &instance : pegasus.instances)
        for (const auto &[name, value] : instance.values)
            if (name == "ClassName")
                instances.push_back(value);
    EXPECT_THAT(instances, UnorderedElementsAreArray(namesOfClasses(mof)));
}

// An object manager finds the instance by a path without keys only when its class has one.
TEST_F(Schema, OfTheAgentAnswersForTheServiceMode) {
    const Mof agent = readMof(packaged("OXT_GeneralInformation.mof"));
    const auto *mode = agent.findProperty("OXT_GeneralInformation", "InstalledServiceMode");
    ASSERT_TRUE(mode);
    EXPECT_EQ(kTypes.at(mode->type), CMPI_boolean);
    int keys = 0;
    for (const auto *property : agent.propertiesOf("OXT_GeneralInformation"))
        keys += property->isKey ? 1 : 0;
    EXPECT_EQ(keys, 1);
    ASSERT_EQ(agent.instances.size(), 1u);
    EXPECT_THAT(agent.instances[0].values, testing::Contains(testing::Pair("InstalledServiceMode", "false")));
}

} // namespace
