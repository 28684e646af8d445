#include "commands.h"

#include <algorithm>
#include <cstdio>

#include "asking.h"
#include "instances.h"
#include "outputFile.h"
#include "prometheus.h"
#include "shownText.h"
#include "target.h"

namespace oxttool {

namespace {

using oxthost::ServiceMode;

// Those that the targets mean, each once, in their own order; all where there is no target.
std::vector<FileSystem> chosen(std::vector<FileSystem> all, const std::vector<std::string> &targets) {
    std::vector<std::string> wanted;
    for (const std::string &target : targets)
        for (const FileSystem &fs : findAll(all, target))
            wanted.push_back(fs.index);
    if (!targets.empty())
        all.erase(std::remove_if(all.begin(), all.end(),
                                 [&wanted](const FileSystem &fs) {
                                     return std::find(wanted.begin(), wanted.end(), fs.index) == wanted.end();
                                 }),
                  all.end());
    return all;
}

std::string metricsOf(Session &session, const std::vector<std::string> &targets) {
    if (const auto told = targets.empty() ? session.metrics() : std::nullopt)
        return *told;
    Metrics metrics;
    metrics.fileSystems = chosen(fileSystemsOf(session), targets);
    metrics.cycleSeconds = cycleOf(session.get(kConfigClass)).seconds;
    metrics.updated = session.measured();
    if (session.isAnothers()) {
        metrics.up = session.doubt().empty();
        if (metrics.up)
            metrics.lastSuccess = metrics.updated;
    }
    return prometheusText(metrics);
}

} // namespace

void deliverMetrics(const Options &options, const std::function<std::string()> &text) {
    std::string metrics;
    try {
        metrics = text();
    } catch (const Failure &) {
        if (options.targets.empty() && !options.outputFile.empty())
            deliver(prometheusTextOfNobody(), options.outputFile);
        throw;
    }
    deliver(metrics, options.outputFile);
}

Exit listCommand(const Options &options) {
    for (const std::string &target : options.targets)
        checkTarget(target);
    if (options.wantsMetrics()) {
        deliverMetrics(options, [&options] {
            const auto session = openSession(options.hosting, ServiceMode::off());
            std::string text = metricsOf(*session, options.targets);
            session->close();
            return text;
        });
        return Exit::Ok;
    }
    const auto session = openSession(options.hosting, ServiceMode::off());
    std::vector<FileSystem> all = fileSystemsOf(*session);
    session->close();
    printFileSystems(chosen(std::move(all), options.targets), options.look);
    saySource(*session, options);
    return Exit::Ok;
}

Exit getCommand(const Options &options) {
    checkTarget(options.target);
    const auto session = openSession(options.hosting, ServiceMode::off());
    const FileSystem fs = findOne(fileSystemsOf(*session), options.target);
    session->close();
    if (options.isForPeople())
        printRecord(fieldsOf(fs, options.look));
    else
        printFileSystems({fs}, options.look);
    saySource(*session, options);
    return Exit::Ok;
}

Exit totalCommand(const Options &options) {
    const auto session = openSession(options.hosting, ServiceMode::off());
    const unsigned total = totalOf(session->get(kTotalClass));
    session->close();
    if (options.look.json)
        printJson({{"total", total}}, options.look);
    else
        std::printf("%u file system%s\n", total, total == 1 ? "" : "s");
    saySource(*session, options);
    return Exit::Ok;
}

Exit threadCommand(const Options &options) {
    const auto session = openSession(options.hosting, ServiceMode::on());
    if (options.value == "start")
        session->invoke(kThreadClass, "StartMonitoringThread");
    else if (options.value == "stop")
        session->invoke(kThreadClass, "StopMonitoringThread");
    const std::optional<bool> runs = threadRunsOf(session->get(kThreadClass));
    session->close();
    if (options.look.json)
        printJson({{"thread", jsonOfThread(runs)}}, options.look);
    else
        std::printf("The monitoring thread %s.\n", !runs   ? "may run or not: its records do not tell"
                                                   : *runs ? "runs"
                                                           : "does not run");
    saySource(*session, options);
    std::fflush(stdout);
    if (options.value == "start")
        std::fputs("oxtfsctl: it ends with this command; 'oxtfsctl watch' keeps it.\n", stderr);
    return Exit::Ok;
}

Exit callCommand(const Options &options) {
    Session::Arguments arguments;
    for (const std::string &argument : options.arguments) {
        const auto equals = argument.find('=');
        if (equals == std::string::npos || equals == 0)
            throw Failure(Exit::Usage, "'" + printable(argument) +
                                           "' is not a method argument.\nWrite NAME=VALUE, for example Index=1.");
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
                                                            : Json(reply.returned->number)}}}},
                  options.look);
    else
        printRecord({{"status", std::to_string(reply.rc)},
                     {"message", reply.message.empty() ? "-" : reply.message},
                     {"returned", reply.returned ? textOf(*reply.returned) : "-"}});
    if (closed)
        throw Failure(*closed); // the answer is shown all the same
    if (!reply.ok() && reply.message == kNotStarted)
        refuse(reply.rc, reply.message);
    return reply.ok() && (!reply.returned || reply.returned->number == 0) ? Exit::Ok : Exit::Refused;
}

} // namespace oxttool
