#include "session.h"

#include <ctime>

#include "failure.h"
#include "hostedSession.h"
#include "monitorSession.h"
#include "recordSession.h"
#include "shownText.h"

namespace oxttool {

namespace {

struct Reason {
    const char *message; // of the provider
    const char *meaning;
};
constexpr const char *kThreshold = "a threshold is at least 1 MiB and at most the size of the file system.";
constexpr const char *kCycle = "a cycle is 10 to 3600 seconds.";
constexpr Reason kReasons[] = {
    {"ServiceMode But NonThread Failure!!",
     "in service mode the provider answers only while its monitoring thread runs.\nUse 'oxtfsctl watch', or omit "
     "--service-mode."},
    {"ServiceMode is non-Service FAILED", "the monitoring thread needs --service-mode on."},
    {"Thread is Already Pause FAILED",
     "no monitoring thread runs in this process.\nEnd that of 'oxtfsctl watch' with Ctrl-C."},
    {"NotFound Index", "there is no such file system now.\n'oxtfsctl list' shows the file systems and their indexes."},
    {"DriveType not Fixed FAILED", "only file systems on fixed disks can be monitored."},
    {"FileSystemSize less 100MB FAILED", "only file systems of at least 100 MiB can be monitored."},
    {"SetValue(WarningThreshold) FAILED", kThreshold},
    {"SetValue(FatalThreshold) FAILED", kThreshold},
    {"SetValue(MonitorCycle) FAILED", kCycle},
    {"getArgToInt(MonitorCycle) FAILED", kCycle},
    {"FileSystem-Update FAILED",
     "the change was not saved: the file system is gone or its size is another now, or the save file or shared memory "
     "cannot be written.\nTry again, and look at 'oxtfsctl log --failures'."},
    {"fsGetInstance() FAILED",
     "the provider cannot read or keep its records: the save file or shared memory cannot be read or written, for "
     "example on a full or read-only disk, or with a link in the save file's place.\n'oxtfsctl save' and 'oxtfsctl log "
     "--failures' show more."},
    {kNotStarted,
     "the provider found nothing that it can begin with: no mounted disk file system with a device node, as in a "
     "container, or no /etc/mtab that can be read.\nOr it cannot make its shared memory: 'oxtfsctl log --failures' "
     "shows the step that failed."},
};

bool isToHost(const Hosting &hosting) {
    const Hosting asUsual;
    return hosting.direct || hosting.force || hosting.serviceMode || hosting.flavour != asUsual.flavour ||
           hosting.isElsewhere() || hosting.library != asUsual.library || hosting.nameSpace != asUsual.nameSpace;
}

} // namespace

std::string textOrCode(const std::string &message, CMPIrc code) {
    return message.empty() ? "status " + std::to_string(code) + " without a message" : printable(message);
}

void refuse(CMPIrc code, const std::string &message) {
    std::string text = "the provider answered: " + textOrCode(message, code) + "\nThe trace log " + agentDirectory() +
                       "log/" + kTraceFileName + " may tell more.";
    bool explained = false;
    for (const Reason &reason : kReasons)
        if (message == reason.message) {
            text = reason.meaning + ("\nThe provider answered: " + message);
            explained = message != kNotStarted;
        }
    Failure failure(Exit::Refused, text);
    failure.unexplained = !explained;
    throw Failure(failure);
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

double Session::measured() const {
    return static_cast<double>(std::time(nullptr));
}

void Session::invoke(const std::string &className, const std::string &method, const Arguments &arguments) {
    const oxthost::Reply reply = call(className, method, arguments);
    if (!reply.ok() || (reply.returned && reply.returned->number != 0))
        refuse(reply.rc, reply.message);
}

std::unique_ptr<Session> openSession(const Hosting &hosting, oxthost::ServiceMode defaultMode) {
    if (auto monitor = MonitorSession::find(hosting.root)) {
        if (!isToHost(hosting))
            return monitor;
        throw Failure(Exit::Environment, "a monitor is running here; two at once would overwrite each other's settings."
                                         "\nAsk it, without --direct, --force and options of the hosting, or end it: "
                                         "systemctl stop oxtfs-watch");
    }
    Workplace place = enterWork(hosting.root);
    if (place.provider && !isToHost(hosting))
        return std::make_unique<RecordSession>(*place.provider);
    return std::make_unique<HostedSession>(hosting, defaultMode, std::move(place));
}

} // namespace oxttool
