#include "instances.h"

#include <cmath>
#include <type_traits>
#include <utility>
#include <variant>

namespace oxttool {

namespace {

using oxthost::Instance;
using oxthost::NamedValue;
using oxthost::Reply;
using oxthost::Value;

// A property of a class, and the field of the record that holds it; none for one that the provider leaves empty.
template <class Record, class... Fields> struct Property {
    const char *name;
    CMPIType type;
    std::variant<std::monostate, Fields Record::*...> field = {};
};

// In the provider's order.
const Property<FileSystem, std::string, std::int64_t, std::uint64_t> kFileSystem[] = {
    {"Index", CMPI_string, &FileSystem::index},
    {"CSCreationClassName", CMPI_string},
    {"CSName", CMPI_string},
    {"CreationClassName", CMPI_string},
    {"Name", CMPI_string, &FileSystem::device},
    {"DriveType", CMPI_sint16, &FileSystem::driveType},
    {"DeviceID", CMPI_string},
    {"MonitorThreshold", CMPI_uint16, &FileSystem::monitored},
    {"WarningThreshold", CMPI_uint32, &FileSystem::warningMiB},
    {"WarningThresholdDefault", CMPI_uint32, &FileSystem::warningDefaultMiB},
    {"FatalThreshold", CMPI_uint32, &FileSystem::fatalMiB},
    {"FatalThresholdDefault", CMPI_uint32, &FileSystem::fatalDefaultMiB},
    {"FreeSpaceStatus", CMPI_sint16, &FileSystem::status},
    {"Root", CMPI_string, &FileSystem::mountPoint},
    {"FileSystemSize", CMPI_uint32, &FileSystem::sizeMiB},
    {"AvailableSpace", CMPI_uint32, &FileSystem::freeMiB},
    {"FileSystemType", CMPI_string, &FileSystem::type},
};
const Property<Cycle, unsigned> kCycle[] = {
    {"MonitorCycle", CMPI_uint16, &Cycle::seconds},
    {"MonitorCycleMin", CMPI_uint16, &Cycle::least},
    {"MonitorCycleMax", CMPI_uint16, &Cycle::greatest},
    {"MonitorCycleDefault", CMPI_uint16, &Cycle::standard},
};

// What a running monitor adds to a file system.
constexpr std::pair<const char *, std::string Outlook::*> kOrigins[] = {
    {"MonitorThresholdSetBy", &Outlook::monitoredBy},
    {"WarningThresholdSetBy", &Outlook::warningBy},
    {"FatalThresholdSetBy", &Outlook::fatalBy},
};
constexpr const char *kShrink = "ShrinkMiBPerHour", *kToFull = "SecondsToFull";

constexpr const char *kTotalProperty = "FileSystemTotalNumber";
constexpr const char *kThreadProperty = "ThreadRunning";

template <class Record, class Field> void set(Record &record, Field Record::*field, const Value &value) {
    if constexpr (std::is_same_v<Field, std::string>)
        record.*field = textOf(value);
    else
        record.*field = static_cast<Field>(value.number);
}
template <class Record> void set(Record &, std::monostate, const Value &) {}

template <class Record, class Field> Value valueOf(const Record &record, Field Record::*field, CMPIType type) {
    if constexpr (std::is_same_v<Field, std::string>)
        return Value::string(record.*field);
    else
        return Value::signedNumber(type, static_cast<std::int64_t>(record.*field));
}
template <class Record> Value valueOf(const Record &, std::monostate, CMPIType) {
    return Value::string("");
}

template <std::size_t count, class Record, class... Fields>
Record recordOf(const Instance &instance, const Property<Record, Fields...> (&properties)[count]) {
    Record record;
    std::size_t at = 0; // where the next one is likely to be
    for (const auto &[name, value] : instance.properties) {
        for (std::size_t tried = 0; tried < count && name != properties[at].name; ++tried)
            at = (at + 1) % count;
        if (name == properties[at].name)
            std::visit([&record, &from = value](auto field) { set(record, field, from); }, properties[at].field);
        at = (at + 1) % count;
    }
    return record;
}

template <std::size_t count, class Record, class... Fields>
Instance instanceOfRecord(const char *className, const Record &record,
                          const Property<Record, Fields...> (&properties)[count]) {
    Instance instance;
    instance.className = className;
    for (const auto &property : properties)
        instance.properties.emplace_back(
            property.name,
            std::visit([&](auto field) { return valueOf(record, field, property.type); }, property.field));
    return instance;
}

Instance instanceWith(const char *className, const char *property, Value value) {
    Instance instance;
    instance.className = className;
    instance.properties.emplace_back(property, std::move(value));
    return instance;
}

Reply refusal(CMPIrc code, const char *message) {
    Reply reply;
    reply.rc = code;
    reply.message = message;
    return reply;
}

} // namespace

bool isText(const Value &value) {
    return value.type == CMPI_string || value.type == CMPI_chars;
}

std::string textOf(const Value &value) {
    if (value.null || isText(value))
        return value.text;
    const bool isUnsigned =
        value.type == CMPI_uint8 || value.type == CMPI_uint16 || value.type == CMPI_uint32 || value.type == CMPI_uint64;
    return isUnsigned ? std::to_string(static_cast<std::uint64_t>(value.number)) : std::to_string(value.number);
}

FileSystem fileSystemOf(const Instance &instance) {
    FileSystem fs = recordOf(instance, kFileSystem);
    Outlook outlook;
    for (const auto &[name, member] : kOrigins)
        if (const Value *origin = instance.find(name)) {
            outlook.*member = origin->text;
            fs.outlook = outlook;
        }
    const Value *shrink = instance.find(kShrink), *toFull = instance.find(kToFull);
    if (fs.outlook && shrink && toFull)
        fs.outlook->forecast = {static_cast<double>(shrink->number), static_cast<double>(toFull->number)};
    return fs;
}

Cycle cycleOf(const Instance &config) {
    return recordOf(config, kCycle);
}

unsigned totalOf(const Instance &total) {
    const Value *count = total.find(kTotalProperty);
    return count ? static_cast<unsigned>(count->number) : 0;
}

std::optional<bool> threadRunsOf(const Instance &thread) {
    const Value *runs = thread.find(kThreadProperty);
    return runs && !runs->null ? std::optional(runs->number != 0) : std::nullopt;
}

Instance instanceOf(const FileSystem &fs) {
    Instance instance = instanceOfRecord(kFileSystemClass, fs, kFileSystem);
    instance.keys.emplace_back("Index", Value::string(fs.index));
    if (!fs.outlook)
        return instance;
    for (const auto &[name, member] : kOrigins)
        instance.properties.emplace_back(name, Value::string((*fs.outlook).*member));
    if (const auto &forecast = fs.outlook->forecast) {
        instance.properties.emplace_back(
            kShrink,
            Value::unsignedNumber(CMPI_uint64, static_cast<std::uint64_t>(std::llround(forecast->mibPerHour))));
        instance.properties.emplace_back(
            kToFull,
            Value::unsignedNumber(CMPI_uint64, static_cast<std::uint64_t>(std::llround(forecast->secondsToFull))));
    }
    return instance;
}

Instance instanceOf(const Cycle &cycle) {
    return instanceOfRecord(kConfigClass, cycle, kCycle);
}

Instance instanceOfTotal(unsigned count) {
    return instanceWith(kTotalClass, kTotalProperty, Value::unsignedNumber(CMPI_uint16, count));
}

Instance instanceOfThread(std::optional<bool> runs) {
    return instanceWith(kThreadClass, kThreadProperty,
                        runs ? Value::unsignedNumber(CMPI_uint16, *runs ? 1 : 0) : Value::nullOf(CMPI_uint16));
}

Reply instancesFrom(const KnownRecords &records, const std::string &className) {
    Reply reply;
    if (className == kFileSystemClass)
        for (const FileSystem &fs : records.fileSystems)
            reply.instances.push_back(instanceOf(fs));
    else if (className == kConfigClass)
        reply.instances.push_back(instanceOf(records.cycle));
    else if (className == kTotalClass)
        reply.instances.push_back(instanceOfTotal(static_cast<unsigned>(records.fileSystems.size())));
    else if (className == kThreadClass)
        reply.instances.push_back(instanceOfThread(records.threadRuns));
    else
        return refusal(CMPI_RC_ERR_FAILED, "Generic Failure!!");
    return reply;
}

Reply instanceFrom(const KnownRecords &records, const std::string &className, const std::vector<NamedValue> &keys) {
    if (className != kFileSystemClass)
        return instancesFrom(records, className);
    const std::string index = keys.empty() ? "" : textOf(keys.front().second);
    for (const FileSystem &fs : records.fileSystems)
        if (fs.index == index) {
            Reply reply;
            reply.instances.push_back(instanceOf(fs));
            return reply;
        }
    return refusal(CMPI_RC_ERR_INVALID_PARAMETER, "NotFound Index");
}

} // namespace oxttool
