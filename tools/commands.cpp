#include "commands.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "instances.h"
#include "json.h"
#include "prometheus.h"

namespace oxttool {

namespace {

using oxthost::Instance;
using oxthost::ServiceMode;

constexpr unsigned kHighestIndex = 65535;

const char *onOff(const std::string &number) {
    return number == "1" ? "on" : "off";
}

std::string propertyText(const Instance &instance, const char *property) {
    const oxthost::Value *value = instance.find(property);
    return value ? textOf(*value) : "";
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

void printInstance(const Instance &instance, const Look &look) {
    std::vector<Field> fields;
    for (const auto &[property, value] : instance.properties)
        fields.push_back({property, shown(property, value, look.unit)});
    printRecord(stdout, fields, look);
}

// Where the answers come from, for people: not where a program reads them.
void saySource(const Session &session, const Options &options) {
    const std::string source = session.source();
    if (source.empty() || options.look.json || options.wantsMetrics())
        return;
    std::fflush(stdout);
    const bool grey = isatty(STDERR_FILENO) != 0;
    std::fprintf(stderr, "%s%s%s\n", grey ? "\033[2m" : "", source.c_str(), grey ? "\033[0m" : "");
}

// What a change did, read before and after it.
void printChange(const Instance &before, const Instance &after, const char *property, const char *word,
                 const char *member, const Look &look) {
    const FileSystem was = fileSystemOf(before), is = fileSystemOf(after);
    const auto *oldValue = before.find(property), *newValue = after.find(property);
    if (!oldValue || !newValue)
        throw Failure(Exit::Refused, std::string("the provider answered without the property ") + property + ".");
    if (look.json) {
        const Json wasJson = jsonOf(was, look.unit), isJson = jsonOf(is, look.unit);
        printJson({{"unit", look.unit == Unit::Bytes ? "bytes" : "MiB"},
                   {"change",
                    {{"index", isJson.at("index")},
                     {"mountpoint", isJson.at("mountpoint")},
                     {"setting", member},
                     {"old", wasJson.at(member)},
                     {"new", isJson.at(member)},
                     {"oldstatus", wasJson.at("status")},
                     {"newstatus", isJson.at("status")}}}});
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

Exit changeThreshold(const Options &options, const char *method, const char *property, const char *word,
                     const char *member) {
    checkTarget(options.target);
    const Amount amount = parseAmount(options.value);
    const auto session = openSession(options.hosting, ServiceMode::off());
    const Instance before = find(*session, options.target);
    const FileSystem was = fileSystemOf(before);
    session->invoke(kFileSystemClass, method,
                    {{"Index", was.index}, {property, std::to_string(amount.of(was.sizeMiB))}});
    const Instance after = getByIndex(*session, was.index);
    session->close();
    printChange(before, after, property, word, member, options.look);
    return Exit::Ok;
}

} // namespace

Exit listCommand(const Options &options) {
    const auto session = openSession(options.hosting, ServiceMode::off());
    std::vector<FileSystem> all;
    for (const Instance &instance : session->enumerate(kFileSystemClass))
        all.push_back(fileSystemOf(instance));
    Metrics metrics;
    metrics.updated = static_cast<double>(std::time(nullptr));
    if (options.wantsMetrics())
        metrics.cycleSeconds = cycleOf(session->get(kConfigClass)).seconds;
    session->close();
    if (options.wantsMetrics()) {
        metrics.fileSystems = std::move(all);
        std::fputs(prometheusText(metrics).c_str(), stdout);
    } else if (options.look.json) {
        printJson(jsonOf(all, options.look.unit));
    } else {
        printFileSystems(stdout, all, options.look);
    }
    saySource(*session, options);
    return Exit::Ok;
}

Exit getCommand(const Options &options) {
    checkTarget(options.target);
    const auto session = openSession(options.hosting, ServiceMode::off());
    const Instance instance = find(*session, options.target);
    session->close();
    if (options.look.json)
        printJson(jsonOf(std::vector{fileSystemOf(instance)}, options.look.unit));
    else
        printInstance(instance, options.look);
    saySource(*session, options);
    return Exit::Ok;
}

Exit configCommand(const Options &options) {
    if (!options.cycle.empty())
        parseNumber(options.cycle, 0, 65535, "a cycle in seconds"); // what fits is the provider's to judge
    const auto session = openSession(options.hosting, ServiceMode::off());
    const Instance before = session->get(kConfigClass);
    if (!options.cycle.empty())
        session->invoke(kConfigClass, "SetMonitorCycle", {{"MonitorCycle", options.cycle}});
    const Instance after = session->get(kConfigClass);
    session->close();
    if (options.look.json)
        printJson({{"config", jsonOf(cycleOf(after))}});
    else if (options.cycle.empty())
        printInstance(after, options.look);
    else
        std::printf("MonitorCycle: %s -> %s seconds\n", propertyText(before, "MonitorCycle").c_str(),
                    propertyText(after, "MonitorCycle").c_str());
    saySource(*session, options);
    return Exit::Ok;
}

Exit totalCommand(const Options &options) {
    const auto session = openSession(options.hosting, ServiceMode::off());
    const Instance instance = session->get(kTotalClass);
    session->close();
    if (options.look.json)
        printJson({{"total", totalOf(instance)}});
    else
        printInstance(instance, options.look);
    saySource(*session, options);
    return Exit::Ok;
}

Exit monitorCommand(const Options &options) {
    checkTarget(options.target);
    const auto session = openSession(options.hosting, ServiceMode::off());
    const Instance before = find(*session, options.target);
    const std::string index = propertyText(before, "Index");
    session->invoke(kFileSystemClass, "SetMonitorThreshold",
                    {{"Index", index}, {"MonitorThreshold", options.value == "on" ? "1" : "0"}});
    const Instance after = getByIndex(*session, index);
    session->close();
    printChange(before, after, "MonitorThreshold", "monitoring", "monitored", options.look);
    return Exit::Ok;
}

Exit warnCommand(const Options &options) {
    return changeThreshold(options, "SetWarningThreshold", "WarningThreshold", "warning threshold", "warning");
}

Exit fatalCommand(const Options &options) {
    return changeThreshold(options, "SetFatalThreshold", "FatalThreshold", "fatal threshold", "fatal");
}

Exit threadCommand(const Options &options) {
    const auto session = openSession(options.hosting, ServiceMode::on());
    if (options.value == "start")
        session->invoke(kThreadClass, "StartMonitoringThread");
    else if (options.value == "stop")
        session->invoke(kThreadClass, "StopMonitoringThread");
    const Instance instance = session->get(kThreadClass);
    session->close();
    if (options.look.json)
        printJson({{"thread", jsonOfThread(threadRunsOf(instance))}});
    else
        printInstance(instance, options.look);
    saySource(*session, options);
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
    const auto session = openSession(options.hosting, ServiceMode::off());
    const oxthost::Reply reply = session->call(options.className, options.method, arguments);
    const auto closed = [&session]() -> std::optional<Failure> {
        try {
            session->close();
        } catch (const Failure &failure) {
            return failure;
        }
        return std::nullopt;
    }();
    if (options.look.json)
        printJson({{"call",
                    {{"status", static_cast<int>(reply.rc)},
                     {"message", reply.message.empty() ? Json() : Json(reply.message)},
                     {"returned", !reply.returned           ? Json()
                                  : isText(*reply.returned) ? Json(reply.returned->text)
                                                            : Json(reply.returned->number)}}}});
    else
        printRecord(stdout,
                    {{"status", std::to_string(reply.rc)},
                     {"message", reply.message.empty() ? "-" : reply.message},
                     {"returned", reply.returned ? textOf(*reply.returned) : "-"}},
                    options.look);
    if (closed)
        throw Failure(*closed); // the answer is shown all the same
    return reply.ok() && (!reply.returned || reply.returned->number == 0) ? Exit::Ok : Exit::Refused;
}

} // namespace oxttool
