#include "session.h"

#include "agentDir.h"
#include "failure.h"
#include "hostedSession.h"
#include "monitorSession.h"
#include "recordSession.h"
#include "values.h"

namespace oxttool {

namespace {

struct Hint {
    const char *message; // of the provider
    const char *help;
};
constexpr Hint kHints[] = {
    {"ServiceMode But NonThread Failure!!",
     "In service mode only a provider whose monitoring thread runs answers: use 'oxtfsctl watch', or leave "
     "--service-mode off."},
    {"ServiceMode is non-Service FAILED", "The monitoring thread needs --service-mode on."},
    {"Thread is Already Pause FAILED",
     "A monitoring thread lives in the process that started it: end 'oxtfsctl watch' with Ctrl-C."},
    {"NotFound Index", "'oxtfsctl list' shows the file systems and their indexes."},
    {"DriveType not Fixed FAILED", "Only file systems on fixed disks can be monitored."},
    {"FileSystemSize less 100MB FAILED", "Only file systems of at least 100 MiB can be monitored."},
    {"SetValue(WarningThreshold) FAILED", "A threshold is at least 1 MiB and at most the file system's size."},
    {"SetValue(FatalThreshold) FAILED", "A threshold is at least 1 MiB and at most the file system's size."},
    {"SetValue(MonitorCycle) FAILED", "A cycle is 10 to 3600 seconds."},
    {"getArgToInt(MonitorCycle) FAILED", "A cycle is 10 to 3600 seconds."},
};

std::string hintFor(const std::string &message) {
    for (const Hint &hint : kHints)
        if (message == hint.message)
            return hint.help;
    return "The trace log " + agentDirectory() + "log/oxtfs.log may tell more.";
}

bool isToHost(const Hosting &hosting) {
    const Hosting asUsual;
    return hosting.direct || hosting.force || hosting.serviceMode || hosting.flavour != asUsual.flavour ||
           hosting.library != asUsual.library || hosting.nameSpace != asUsual.nameSpace;
}

} // namespace

std::string textOrCode(const std::string &message, CMPIrc code) {
    return message.empty() ? "status " + std::to_string(code) + " without a message" : printable(message);
}

void refuse(CMPIrc code, const std::string &message) {
    throw Failure(Exit::Refused, "the provider answered: " + textOrCode(message, code) + "\n" + hintFor(message));
}

oxthost::Instance Session::get(const std::string &className, const Keys &keys) {
    oxthost::Reply reply = getInstance(className, keys);
    if (!reply.ok())
        refuse(reply.rc, reply.message);
    if (reply.instances.empty())
        throw Failure(Exit::Refused, "the provider answered without an instance of " + className + ".");
    return std::move(reply.instances.front());
}

std::vector<oxthost::Instance> Session::enumerate(const std::string &className) {
    oxthost::Reply reply = enumInstances(className);
    if (!reply.ok())
        refuse(reply.rc, reply.message);
    return std::move(reply.instances);
}

void Session::invoke(const std::string &className, const std::string &method, const Arguments &arguments) {
    const oxthost::Reply reply = call(className, method, arguments);
    if (!reply.ok() || (reply.returned && reply.returned->number != 0))
        refuse(reply.rc, reply.message);
}

std::unique_ptr<Session> openSession(const Hosting &hosting, oxthost::ServiceMode defaultMode) {
    if (auto monitor = MonitorSession::find(agentDirectory())) {
        if (!isToHost(hosting))
            return monitor;
        throw Failure(Exit::Environment, "a monitor is running here; two at once would overwrite each other's settings."
                                         "\nAsk it, without --direct, --force and options of the hosting, or end it: "
                                         "systemctl stop oxtfs-watch");
    }
    Workplace place = enterWork(agentDirectory());
    if (place.provider && !isToHost(hosting))
        return std::make_unique<RecordSession>(*place.provider);
    return std::make_unique<HostedSession>(hosting, defaultMode, std::move(place));
}

} // namespace oxttool
