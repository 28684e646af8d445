#include "commands.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "prometheus.h"

namespace oxttool {

namespace {

using oxthost::Instance;
using oxthost::ServiceMode;

constexpr const char *kFileSystemClass = "OXT_FileSystem";
constexpr const char *kConfigClass = "OXT_FileSystemConfig";
constexpr const char *kThreadClass = "OXT_FileSystemThread";
constexpr const char *kNotStarted = "fsInitProvider() Failure!!"; // of the provider, whatever it was asked
constexpr unsigned kHighestIndex = 65535;

const char *onOff(const std::string &number) {
    return number == "1" ? "on" : "off";
}

std::string propertyText(const Instance &instance, const char *property) {
    const oxthost::Value *value = instance.find(property);
    return value ? textOf(*value) : "";
}

unsigned cycleOf(const Instance &config) {
    const oxthost::Value *cycle = config.find("MonitorCycle");
    return cycle ? static_cast<unsigned>(cycle->number) : 0;
}

Instance getByIndex(Session &session, const std::string &index) {
    return session.get(kFileSystemClass, {{"Index", oxthost::Value::string(index)}});
}

// An index that the provider's 16 bits would fold onto another one is refused here.
void checkTarget(const std::string &target) {
    if (isIndex(target))
        parseNumber(target, 1, kHighestIndex, "an index");
}

Instance find(Session &session, const std::string &target) {
    if (isIndex(target))
        return getByIndex(session, target);
    std::string mountPoint = target;
    while (mountPoint.size() > 1 && mountPoint.back() == '/')
        mountPoint.pop_back();
    for (Instance &instance : session.enumerate(kFileSystemClass))
        if (propertyText(instance, "Root") == mountPoint)
            return std::move(instance);
    throw Failure(Exit::Refused, "the provider knows no file system mounted on '" + printable(target) +
                                     "'.\n'oxtfsctl list' shows those that it knows.");
}

// How a property looks to people: a code with its meaning, an amount in the chosen unit, anything else as it is.
std::string shown(const std::string &property, const oxthost::Value &value, Unit unit) {
    constexpr const char *amounts[] = {"WarningThreshold",      "WarningThresholdDefault", "FatalThreshold",
                                       "FatalThresholdDefault", "FileSystemSize",          "AvailableSpace"};
    const std::string text = textOf(value);
    if (std::find(std::begin(amounts), std::end(amounts), property) != std::end(amounts))
        return formatSpace(static_cast<std::uint64_t>(value.number), unit);
    if (property == "DriveType")
        return text + " (" + driveName(value.number) + ")";
    if (property == "FreeSpaceStatus")
        return text + " (" + statusName(value.number) + ")";
    if (property.compare(0, 12, "MonitorCycle") == 0)
        return text + " seconds";
    if (property == "MonitorThreshold")
        return text + " (" + onOff(text) + ")";
    return text;
}

void printInstance(const std::string &name, const Instance &instance, const Look &look) {
    std::vector<Field> fields;
    for (const auto &[property, value] : instance.properties)
        fields.push_back(
            {property, shown(property, value, look.unit), textOf(value), isText(value) ? Field::Text : Field::Number});
    printRecord(stdout, name, fields, look);
}

// What a change did, read before and after it.
void printChange(const Instance &before, const Instance &after, const char *property, const char *word,
                 const Look &look) {
    const FileSystem was = fileSystemOf(before), is = fileSystemOf(after);
    const auto *oldValue = before.find(property), *newValue = after.find(property);
    if (!oldValue || !newValue)
        throw Failure(Exit::Refused, std::string("the provider answered without the property ") + property + ".");
    if (look.json) {
        printRecord(stdout, "change",
                    {{"index", "", is.index, Field::Number},
                     {"mountpoint", "", is.mountPoint},
                     {"property", "", property},
                     {"old", "", textOf(*oldValue), Field::Number},
                     {"new", "", textOf(*newValue), Field::Number},
                     {"oldstatus", "", statusName(was.status)},
                     {"newstatus", "", statusName(is.status)}},
                    look);
        return;
    }
    const auto value = [&](const oxthost::Value &v) {
        return property == std::string("MonitorThreshold") ? std::string(onOff(textOf(v)))
                                                           : shown(property, v, look.unit);
    };
    std::printf("%s (index %s): %s %s -> %s, status ", printable(is.mountPoint).c_str(), is.index.c_str(), word,
                value(*oldValue).c_str(), value(*newValue).c_str());
    if (was.status != is.status)
        std::printf("%s -> ", statusName(was.status));
    std::printf("%s%s%s\n", colourOf(is.status, look), statusName(is.status), colourEnd(look));
}

Exit changeThreshold(const Options &options, const char *method, const char *property, const char *word) {
    checkTarget(options.target);
    const Amount amount = parseAmount(options.value);
    Session session(options.hosting, ServiceMode::off());
    const Instance before = find(session, options.target);
    const FileSystem was = fileSystemOf(before);
    session.invoke(kFileSystemClass, method,
                   {{"Index", was.index}, {property, std::to_string(amount.of(was.sizeMiB))}});
    const Instance after = getByIndex(session, was.index);
    session.close();
    printChange(before, after, property, word, options.look);
    return Exit::Ok;
}

} // namespace

Exit listCommand(const Options &options) {
    Session session(options.hosting, ServiceMode::off());
    std::vector<FileSystem> all;
    for (const Instance &instance : session.enumerate(kFileSystemClass))
        all.push_back(fileSystemOf(instance));
    Metrics metrics;
    metrics.updated = static_cast<double>(std::time(nullptr));
    if (options.wantsMetrics())
        metrics.cycleSeconds = cycleOf(session.get(kConfigClass));
    session.close();
    if (options.wantsMetrics()) {
        metrics.fileSystems = std::move(all);
        std::fputs(prometheusText(metrics).c_str(), stdout);
    } else {
        printFileSystems(stdout, all, options.look);
    }
    return Exit::Ok;
}

Exit getCommand(const Options &options) {
    checkTarget(options.target);
    Session session(options.hosting, ServiceMode::off());
    const Instance instance = find(session, options.target);
    session.close();
    printInstance("filesystem", instance, options.look);
    return Exit::Ok;
}

Exit configCommand(const Options &options) {
    if (!options.cycle.empty())
        parseNumber(options.cycle, 0, 65535, "a cycle in seconds"); // what fits is the provider's to judge
    Session session(options.hosting, ServiceMode::off());
    const Instance before = session.get(kConfigClass);
    if (!options.cycle.empty())
        session.invoke(kConfigClass, "SetMonitorCycle", {{"MonitorCycle", options.cycle}});
    const Instance after = session.get(kConfigClass);
    session.close();
    if (options.cycle.empty() || options.look.json)
        printInstance("config", after, options.look);
    else
        std::printf("MonitorCycle: %s -> %s seconds\n", propertyText(before, "MonitorCycle").c_str(),
                    propertyText(after, "MonitorCycle").c_str());
    return Exit::Ok;
}

Exit totalCommand(const Options &options) {
    Session session(options.hosting, ServiceMode::off());
    const Instance instance = session.get("OXT_FileSystemTotalNumber");
    session.close();
    printInstance("total", instance, options.look);
    return Exit::Ok;
}

Exit monitorCommand(const Options &options) {
    checkTarget(options.target);
    Session session(options.hosting, ServiceMode::off());
    const Instance before = find(session, options.target);
    const std::string index = propertyText(before, "Index");
    session.invoke(kFileSystemClass, "SetMonitorThreshold",
                   {{"Index", index}, {"MonitorThreshold", options.value == "on" ? "1" : "0"}});
    const Instance after = getByIndex(session, index);
    session.close();
    printChange(before, after, "MonitorThreshold", "monitoring", options.look);
    return Exit::Ok;
}

Exit warnCommand(const Options &options) {
    return changeThreshold(options, "SetWarningThreshold", "WarningThreshold", "warning threshold");
}

Exit fatalCommand(const Options &options) {
    return changeThreshold(options, "SetFatalThreshold", "FatalThreshold", "fatal threshold");
}

Exit threadCommand(const Options &options) {
    Session session(options.hosting, ServiceMode::on());
    if (options.value == "start")
        session.invoke(kThreadClass, "StartMonitoringThread");
    else if (options.value == "stop")
        session.invoke(kThreadClass, "StopMonitoringThread");
    const Instance instance = session.get(kThreadClass);
    session.close();
    printInstance("thread", instance, options.look);
    std::fflush(stdout);
    if (options.value == "start")
        std::fputs("oxtfsctl: the monitoring thread ends with this command; 'oxtfsctl watch' keeps it.\n", stderr);
    return Exit::Ok;
}

Exit callCommand(const Options &options) {
    std::vector<std::pair<std::string, std::string>> arguments;
    for (const std::string &argument : options.arguments) {
        const auto equals = argument.find('=');
        if (equals == std::string::npos || equals == 0)
            throw Failure(Exit::Usage, "'" + printable(argument) + "' is not an argument: NAME=TEXT is.");
        arguments.emplace_back(argument.substr(0, equals), argument.substr(equals + 1));
    }
    Session session(options.hosting, ServiceMode::off());
    const oxthost::Reply reply = session.call(options.className, options.method, arguments);
    const auto closed = [&session]() -> std::optional<Failure> {
        try {
            session.close();
        } catch (const Failure &failure) {
            return failure;
        }
        return std::nullopt;
    }();
    const std::string code = std::to_string(reply.rc);
    const std::string returned = reply.returned ? textOf(*reply.returned) : "";
    printRecord(stdout, "call",
                {{"status", code, code, Field::Number},
                 {"message", reply.message.empty() ? "-" : reply.message, reply.message},
                 {"returned", reply.returned ? returned : "-", returned,
                  reply.returned && isText(*reply.returned) ? Field::Text : Field::Number}},
                options.look);
    if (closed)
        throw *closed; // the answer is shown all the same
    if (!reply.ok() && reply.message == kNotStarted)
        refuse(reply.rc, reply.message);
    return reply.ok() && (!reply.returned || reply.returned->number == 0) ? Exit::Ok : Exit::Refused;
}

} // namespace oxttool
