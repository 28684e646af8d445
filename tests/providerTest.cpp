#include "providerTest.h"

#include <chrono>
#include <thread>

#include <nlohmann/json.hpp>

using namespace oxthost;

namespace {

constexpr char kVersion[] = "# Version=1.0.0.0\n";
constexpr std::size_t kFirstRecord = 30, kRecordSize = 1840;

std::string typeName(CMPIType type) {
    return type == CMPI_uint16   ? "u16"
           : type == CMPI_sint16 ? "s16"
           : type == CMPI_uint32 ? "u32"
                                 : "type " + std::to_string(type);
}

} // namespace

Value text(const std::string &value) {
    return Value::string(value);
}
Value number(CMPIType type, long long value) {
    return Value::signedNumber(type, value);
}

std::string show(const Value &value) {
    if (value.null)
        return "NULL";
    return value.type == CMPI_string ? "'" + value.text + "'"
                                     : std::to_string(value.number) + ":" + typeName(value.type);
}

std::string show(const std::vector<NamedValue> &values) {
    std::string all;
    for (const auto &[name, value] : values)
        all += (all.empty() ? "" : " ") + name + "=" + show(value);
    return all;
}

std::string showInstances(const Reply &reply) {
    std::string all;
    for (const Instance &instance : reply.instances)
        all += instance.className + "." + show(instance.keys) + " " + show(instance.properties) + "\n";
    return all;
}

std::string showStatus(const Reply &reply) {
    const std::string status = std::to_string(reply.rc) + " '" + reply.message + "'";
    return reply.returned ? status + " returned " + show(*reply.returned) : status;
}

void ProviderTest::SetUp() {
    ASSERT_TRUE(emptyAgentDirectory()) << "the agent directory must lie in the build directory";
}

void ProviderTest::TearDown() {
    if (host == nullptr)
        return;
    host->cleanupInstance(true);
    EXPECT_EQ(host->live().total(), 0);
    EXPECT_EQ(host->misuses(), std::vector<std::string>());
    EXPECT_EQ(system.segments(), std::vector<int>());
    unload();
}

void ProviderTest::load(ServiceMode mode, Flavour flavour) {
    unload();
    Options options;
    options.library = OXT_TEST_PROVIDER;
    options.serviceMode = mode;
    options.flavour = flavour;
    options.schema = fileContent(OXT_TEST_SOURCE_DIR "../packaging/OXT_FileSystem.mof");
    host = std::make_unique<Host>(options);
}

void ProviderTest::unload() {
    host.reset();
    startedThread = false;
}

Reply ProviderTest::checked(Reply reply) {
    EXPECT_EQ(host->misuses(), std::vector<std::string>());
    EXPECT_LE(host->live().total(), startedThread ? 1 : 0);
    return reply;
}

Reply ProviderTest::enumerate(const std::string &cls, Host::Filter filter) {
    return checked(host->enumInstances(cls, filter));
}

Reply ProviderTest::get(const std::string &cls, const std::vector<NamedValue> &keys, Host::Filter filter) {
    return checked(host->getInstance(cls, keys, filter));
}

Reply ProviderTest::call(const std::string &cls, const std::string &method, const std::vector<NamedValue> &args) {
    startedThread = startedThread || method == "StartMonitoringThread";
    return checked(host->invokeMethod(cls, method, args));
}

std::string ProviderTest::property(const std::string &index, const std::string &name) {
    const Reply reply = get(kFs, {{"Index", text(index)}});
    const Value *value = reply.instances.empty() ? nullptr : reply.instances[0].find(name);
    return value != nullptr ? show(*value) : showStatus(reply);
}

long long ProviderTest::saved(std::size_t offset, std::size_t width) {
    const std::string content = fileContent(savePath());
    long long value = 0;
    for (std::size_t i = width; i > 0; --i)
        value = value * 256 + (offset + i <= content.size() ? static_cast<unsigned char>(content[offset + i - 1]) : -1);
    return value;
}

long long ProviderTest::savedOf(std::size_t position, std::size_t offset, std::size_t width) {
    return saved(kFirstRecord + position * kRecordSize + offset, width);
}

void ProviderTest::saveCycle(unsigned seconds) {
    std::string content = kVersion;
    for (const unsigned value : {seconds, 10U, 3600U, 60U, 0U, 0U}) {
        content += static_cast<char>(value & 0xFF);
        content += static_cast<char>(value >> 8);
    }
    std::ofstream(savePath(), std::ios::binary) << content;
}

void ProviderTest::waitForPasses() {
    const std::size_t before = system.sleeps().size();
    for (int i = 0; i < 10000 && system.sleeps().size() < before + 2; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    ASSERT_GE(system.sleeps().size(), before + 2) << "the watch thread does not go round";
}

std::vector<std::string> ProviderTest::alerts() {
    std::ifstream file(agentPath("log/svalert.json"));
    std::vector<std::string> fresh;
    std::size_t position = 0;
    for (std::string line; std::getline(file, line); ++position) {
        const nlohmann::json alert = nlohmann::json::parse(line, nullptr, false);
        EXPECT_TRUE(alert.is_object()) << line;
        if (position < alertsSeen_ || !alert.is_object())
            continue;
        EXPECT_EQ(alert["source"], "OXTFSService");
        std::string all = alert["eventId"].get<std::string>() + " " + alert["severity"].get<std::string>();
        for (const auto &string : alert["strings"])
            all += " " + string.get<std::string>();
        fresh.push_back(all);
    }
    alertsSeen_ = position;
    return fresh;
}
