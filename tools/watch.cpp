#include "watch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <deque>
#include <map>

#include "agentDir.h"
#include "alertFile.h"

namespace oxttool {

namespace {

using oxthost::ServiceMode;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr const char *kThreadClass = "OXT_FileSystemThread";
constexpr std::size_t kRecentLines = 10;
constexpr unsigned kLongestWatch = 30 * 24 * 3600;

std::string now() {
    return utcTime(std::time(nullptr));
}

std::string spaceOf(const std::string &mib, Unit unit) {
    char *end = nullptr;
    const auto amount = std::strtoull(mib.c_str(), &end, 10);
    return *end == '\0' ? formatSpace(amount, unit) : mib;
}

// What tells that something happened: signals, a written save file (every pass ends with one), a grown alert file.
struct Events {
    Events(const std::string &agent, const sigset_t &set)
        : signals(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK)), files(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        data = inotify_add_watch(files.get(), (agent + "data").c_str(), IN_MODIFY | IN_CLOSE_WRITE);
        log = inotify_add_watch(files.get(), (agent + "log").c_str(), IN_MODIFY | IN_CREATE | IN_MOVED_TO);
        if (!signals || data < 0 || log < 0)
            throw Failure(Exit::Environment, std::string("cannot follow the agent directory: ") + std::strerror(errno));
    }
    Fd signals, files;
    int data = -1, log = -1;
    bool saveChanged = false; // the save file was written and is still open
};

struct Happened {
    bool end = false; // a signal came, or nobody reads the output any more
    bool pass = false, alerts = false;
};

Happened waitFor(Events &events, milliseconds atMost) {
    Happened happened;
    pollfd polled[] = {{events.signals.get(), POLLIN, 0}, {events.files.get(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
    if (poll(polled, 3, static_cast<int>(atMost.count())) <= 0)
        return happened;
    signalfd_siginfo signal;
    happened.end = read(events.signals.get(), &signal, sizeof signal) > 0 || (polled[2].revents & (POLLERR | POLLHUP));
    alignas(inotify_event) char buffer[4096];
    for (ssize_t got; (got = read(events.files.get(), buffer, sizeof buffer)) > 0;) {
        for (const char *at = buffer; at < buffer + got;) {
            inotify_event event;
            std::memcpy(&event, at, sizeof event);
            const char *name = event.len != 0 ? at + sizeof event : "";
            if (event.wd == events.data && std::strcmp(name, kSaveFileName) == 0) {
                happened.pass |= events.saveChanged && (event.mask & IN_CLOSE_WRITE);
                events.saveChanged = (event.mask & IN_MODIFY) != 0; // closed unchanged: it was only loaded
            }
            happened.alerts |= event.wd == events.log && std::strcmp(name, kAlertFileName) == 0;
            if (event.mask & IN_Q_OVERFLOW)
                happened.pass = happened.alerts = true;
            at += sizeof event + event.len;
        }
    }
    return happened;
}

class Watch {
  public:
    Watch(Session &session, const Options &options)
        : session_(session), look_(options.look), redraw_(isatty(STDOUT_FILENO)),
          alertFile_(session.root() + "log/" + kAlertFileName), events_(session.root(), session.heldSignals()) {}
    void run(std::optional<seconds> duration);

  private:
    using Identity = std::pair<std::string, std::string>; // device and mount point

    void showAlerts();
    void showPass(bool finished);
    void showChanges(const std::vector<FileSystem> &all);
    void say(const std::string &line);
    void draw(const std::vector<FileSystem> &all);

    Session &session_;
    const Look look_;
    const bool redraw_; // a terminal gets the table anew, anything else gets lines
    AlertFile alertFile_;
    Events events_;
    std::map<Identity, std::int64_t> statuses_; // last told to the user
    std::deque<std::string> recent_;            // lines below a redrawn table
    unsigned passes_ = 0;
    seconds cycle_{1}; // until the first pass has told it
};

void Watch::run(std::optional<seconds> duration) {
    const auto end = duration ? Clock::now() + *duration : Clock::time_point::max();
    session_.invoke(kThreadClass, "StartMonitoringThread");
    auto shownAt = Clock::now();
    while (Clock::now() < end && !std::ferror(stdout)) {
        const auto stale = shownAt + cycle_ + seconds(1);
        const auto wait = std::chrono::ceil<milliseconds>(std::min(stale, end) - Clock::now());
        const Happened happened = waitFor(events_, std::max(wait, milliseconds(0)));
        if (happened.alerts || happened.pass)
            showAlerts();
        // A pass that fails before it saves shows itself by the missing save only.
        if (happened.pass || Clock::now() >= stale) {
            showPass(happened.pass);
            shownAt = Clock::now();
        }
        if (happened.end)
            break;
        std::fflush(stdout);
    }
    session_.invoke(kThreadClass, "StopMonitoringThread");
}

void Watch::showAlerts() {
    for (const Alert &alert : alertFile_.read()) {
        std::string line = alert.time + " alert " + alert.severity + ": ";
        if (!alert.newStatus) {
            say(line + alert.event);
            continue;
        }
        line += alert.mountPoint + " (" + alert.device + ") " + spaceOf(alert.freeMiB, look_.unit) + " of " +
                spaceOf(alert.sizeMiB, look_.unit) + " free, ";
        if (!alert.thresholdMiB.empty())
            line += "threshold " + spaceOf(alert.thresholdMiB, look_.unit) + ", ";
        const Identity identity(alert.device, alert.mountPoint);
        const auto known = statuses_.find(identity);
        // The status from before this watch is the provider's own; a file system that comes up later is new.
        line += known != statuses_.end() ? statusName(known->second) : passes_ == 0 ? "before" : "new";
        line += std::string(" -> ") + statusName(*alert.newStatus);
        statuses_[identity] = *alert.newStatus;
        say(line);
    }
}

// Status changes that no alert told: to and from "not monitored", and all of them where the agent's own alert library
// keeps no file.
void Watch::showChanges(const std::vector<FileSystem> &all) {
    std::map<Identity, std::int64_t> current;
    for (const FileSystem &fs : all) {
        const Identity identity(fs.device, fs.mountPoint);
        const auto known = statuses_.find(identity);
        if (known != statuses_.end() && known->second != fs.status)
            say(now() + " status: " + fs.mountPoint + " (" + fs.device + ") " + statusName(known->second) + " -> " +
                statusName(fs.status));
        current[identity] = fs.status;
    }
    statuses_ = std::move(current);
}

void Watch::showPass(bool finished) {
    std::vector<FileSystem> all;
    for (const auto &instance : session_.enumerate("OXT_FileSystem"))
        all.push_back(fileSystemOf(instance));
    if (const auto config = session_.get("OXT_FileSystemConfig"); const auto *cycle = config.find("MonitorCycle"))
        cycle_ = seconds(std::max<std::int64_t>(cycle->number, 1));
    showChanges(all);
    passes_ += finished ? 1 : 0;
    if (redraw_) {
        draw(all);
        return;
    }
    const std::string time = now();
    std::printf("%s pass %u%s: %zu file systems, every %lld s\n", time.c_str(), passes_, finished ? "" : " again",
                all.size(), static_cast<long long>(cycle_.count()));
    for (const FileSystem &fs : all)
        std::printf("%s file system %s: %s (%s) %s of %s free, %s\n", time.c_str(), fs.index.c_str(),
                    printable(fs.mountPoint).c_str(), printable(fs.device).c_str(),
                    formatSpace(fs.freeMiB, look_.unit).c_str(), formatSpace(fs.sizeMiB, look_.unit).c_str(),
                    statusName(fs.status));
}

void Watch::say(const std::string &line) {
    recent_.push_back(printable(line));
    if (recent_.size() > kRecentLines)
        recent_.pop_front();
    std::printf("%s\n", recent_.back().c_str());
}

void Watch::draw(const std::vector<FileSystem> &all) {
    std::fputs("\033[H\033[2J", stdout);
    if (!look_.machine.empty())
        std::printf("%s\n", printable(machineLabel(look_)).c_str());
    std::printf("Pass %u at %s, every %lld s. Ctrl-C ends.\n\n", passes_, now().c_str(),
                static_cast<long long>(cycle_.count()));
    printFileSystems(stdout, all, look_);
    std::fputs("\n", stdout);
    for (const std::string &line : recent_)
        std::printf("%s\n", line.c_str());
}

} // namespace

Exit watchCommand(const Options &options) {
    std::optional<seconds> duration;
    if (!options.seconds.empty())
        duration = seconds(parseNumber(options.seconds, 1, kLongestWatch, "a time in seconds"));
    if (options.look.json)
        throw Failure(Exit::Usage, "watch writes lines, not JSON.\nUse 'oxtfsctl list --json' for the present state.");
    signal(SIGPIPE, SIG_IGN); // a closed output ends the watch in order
    if (!options.cycle.empty()) {
        parseNumber(options.cycle, 0, 65535, "a cycle in seconds");
        // Set in a life of its own: the thread's first sleep would still take the old cycle.
        Hosting hosting = options.hosting;
        hosting.serviceMode = ServiceMode::off();
        Session setting(hosting, ServiceMode::off());
        setting.invoke("OXT_FileSystemConfig", "SetMonitorCycle", {{"MonitorCycle", options.cycle}});
        setting.close();
    }
    Session session(options.hosting, ServiceMode::on());
    Watch(session, options).run(duration);
    session.close();
    return Exit::Ok;
}

} // namespace oxttool
