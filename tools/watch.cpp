#include "watch.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <map>
#include <optional>

#include "agentDir.h"
#include "monitor.h"
#include "monitorSession.h"

namespace oxttool {

namespace {

using std::chrono::seconds;

constexpr std::size_t kRecentLines = 10;
constexpr unsigned kLongestWatch = 30 * 24 * 3600;

std::string now() {
    return utcTime(std::time(nullptr));
}

std::string spaceOf(std::optional<std::uint64_t> mib, Unit unit) {
    return mib ? formatSpace(*mib, unit) : "?";
}

class Watch : public Audience {
  public:
    explicit Watch(const Options &options) : look_(options.look), redraw_(isatty(STDOUT_FILENO) != 0) {}
    void passed(const View &view) override;
    void alerted(const Alert &alert, const View *view) override;
    void said(const std::string &line) override;
    void addTo(std::vector<pollfd> &polled) override { polled.push_back({STDOUT_FILENO, 0, 0}); }
    // Nobody reads the output any more: the watch is over.
    bool handle(const std::vector<pollfd> &polled, std::size_t first) override {
        return (polled[first].revents & (POLLERR | POLLHUP)) == 0 && !std::ferror(stdout);
    }

  private:
    using Identity = std::pair<std::string, std::string>; // device and mount point

    void showChanges(const std::vector<FileSystem> &all);
    void say(const std::string &line);
    void draw(const View &view);

    const Look look_;
    const bool redraw_;                         // a terminal gets the table anew, anything else gets lines
    std::map<Identity, std::int64_t> statuses_; // last told to the user
    std::deque<std::string> recent_;            // lines below a redrawn table
    bool looked_ = false;
};

void Watch::alerted(const Alert &alert, const View *) {
    std::string line = alert.time + " alert " + alert.severity + ": ";
    if (!alert.newStatus) {
        say(line + alert.event);
        return;
    }
    line += alert.mountPoint + " (" + alert.device + ") " + spaceOf(alert.freeMiB, look_.unit) + " of " +
            spaceOf(alert.sizeMiB, look_.unit) + " free, ";
    if (alert.thresholdMiB)
        line += "threshold " + spaceOf(alert.thresholdMiB, look_.unit) + ", ";
    const Identity identity(alert.device, alert.mountPoint);
    const auto known = statuses_.find(identity);
    // The status from before this watch is the provider's own; a file system that comes up later is new.
    line += known != statuses_.end() ? statusName(known->second) : looked_ ? "new" : "before";
    line += std::string(" -> ") + statusName(*alert.newStatus);
    statuses_[identity] = *alert.newStatus;
    say(line);
}

void Watch::said(const std::string &line) {
    if (redraw_) // its place on the error stream is drawn over
        say(now() + " " + line);
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

void Watch::passed(const View &view) {
    showChanges(view.fileSystems);
    looked_ = true;
    if (redraw_) {
        draw(view);
        return;
    }
    const std::string time = now();
    const bool failed = !view.passes.failing.empty();
    std::printf("%s pass %lu%s: %zu file systems, every %u s\n", time.c_str(),
                view.passes.succeeded + view.passes.failed, failed ? " failed" : "", view.fileSystems.size(),
                view.cycle.seconds);
    for (const FileSystem &fs : view.fileSystems)
        std::printf("%s file system %s: %s (%s) %s of %s free, %s\n", time.c_str(), fs.index.c_str(),
                    printable(fs.mountPoint).c_str(), printable(fs.device).c_str(),
                    formatSpace(fs.freeMiB, look_.unit).c_str(), formatSpace(fs.sizeMiB, look_.unit).c_str(),
                    statusName(fs.status));
    std::fflush(stdout);
}

void Watch::say(const std::string &line) {
    recent_.push_back(printable(line));
    if (recent_.size() > kRecentLines)
        recent_.pop_front();
    std::printf("%s\n", recent_.back().c_str());
    std::fflush(stdout);
}

void Watch::draw(const View &view) {
    std::fputs("\033[H\033[2J", stdout);
    std::printf("Pass %lu at %s, every %u s. Ctrl-C ends.\n\n", view.passes.succeeded + view.passes.failed,
                now().c_str(), view.cycle.seconds);
    printFileSystems(stdout, view.fileSystems, look_);
    std::fputs("\n", stdout);
    for (const std::string &line : recent_)
        std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

} // namespace

Exit watchCommand(const Options &options) {
    MonitorOptions monitor;
    monitor.orders.hosting = options.hosting;
    monitor.orders.settingsFile = options.settingsFile;
    if (!options.seconds.empty())
        monitor.duration = seconds(parseNumber(options.seconds, 1, kLongestWatch, "a time in seconds"));
    if (!options.cycle.empty()) // what fits is the provider's to judge
        monitor.orders.cycle = parseNumber(options.cycle, 0, 65535, "a cycle in seconds");
    for (const std::string &address : options.listen)
        monitor.listen.push_back(parseListenAddress(address));
    if (options.look.json)
        throw Failure(Exit::Usage, "watch writes lines, not JSON.\nUse 'oxtfsctl list --json' for the present state.");
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        monitor.foreground |= isatty(fd) != 0;
    signal(SIGPIPE, SIG_IGN); // a closed output ends the watch in order
    Watch watch(options);
    const bool own = monitor.orders.cycle || !monitor.listen.empty() || !options.settingsFile.empty();
    return !own && MonitorSession::find(agentDirectory()) ? followMonitor(monitor.duration, watch)
                                                          : runMonitor(monitor, watch);
}

} // namespace oxttool
