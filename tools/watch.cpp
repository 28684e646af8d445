#include "watch.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <memory>
#include <optional>

#include "monitor.h"
#include "monitorSession.h"
#include "screen.h"
#include "shownText.h"

namespace oxttool {

namespace {

using std::chrono::seconds;

constexpr unsigned kLongestWatch = 30 * 24 * 3600;

std::string now() {
    return utcTime(std::time(nullptr));
}

unsigned long passesOf(const View &view) {
    return view.passes.succeeded + view.passes.failed;
}

// Puts what happens into sentences, which each way of showing them writes its own way.
class Watch : public Audience {
  public:
    explicit Watch(const Look &look) : look_(look) {}
    void passed(const View &view) final;
    void alerted(const Alert &alert, const View *view) override;
    void addTo(std::vector<pollfd> &polled) override { polled.push_back({STDOUT_FILENO, 0, 0}); }
    // Nobody reads the output any more: the watch is over.
    bool handle(const std::vector<pollfd> &polled, std::size_t first) override {
        return (polled[first].revents & (POLLERR | POLLHUP)) == 0 && !std::ferror(stdout);
    }

  protected:
    virtual void show(const View &view) = 0;
    virtual void say(const std::string &line) = 0;

    const Look look_;

  private:
    using Identity = std::pair<std::string, std::string>; // device and mount point

    void showChanges(const std::vector<FileSystem> &all);

    std::map<Identity, std::int64_t> statuses_; // last told to the user
    bool looked_ = false;
};

void Watch::alerted(const Alert &alert, const View *) {
    std::string line = alert.time + " alert " + alert.severity + ": ";
    if (!alert.newStatus) {
        say(line + alert.event);
        return;
    }
    line += printable(alert.mountPoint) + " (" + printable(alert.device) + ") " +
            spaceOrUnknown(alert.freeMiB, look_.unit) + " of " + spaceOrUnknown(alert.sizeMiB, look_.unit) + " free, ";
    if (alert.thresholdMiB)
        line += "threshold " + spaceOrUnknown(alert.thresholdMiB, look_.unit) + ", ";
    const Identity identity(alert.device, alert.mountPoint);
    const auto known = statuses_.find(identity);
    // The status from before this watch is the provider's own; a file system that comes up later is new.
    line += known != statuses_.end() ? statusName(known->second) : looked_ ? "new" : "before";
    line += std::string(" -> ") + statusName(*alert.newStatus);
    statuses_[identity] = *alert.newStatus;
    say(line);
}

// Status changes that no alert told: to and from "not monitored", and all of them where the agent's own alert library
// keeps no file.
void Watch::showChanges(const std::vector<FileSystem> &all) {
    std::map<Identity, std::int64_t> current;
    for (const FileSystem &fs : all) {
        const Identity identity(fs.device, fs.mountPoint);
        const auto known = statuses_.find(identity);
        if (known != statuses_.end() && known->second != fs.status)
            say(now() + " status: " + printable(fs.mountPoint) + " (" + printable(fs.device) + ") " +
                statusName(known->second) + " -> " + statusName(fs.status));
        current[identity] = fs.status;
    }
    statuses_ = std::move(current);
}

void Watch::passed(const View &view) {
    showChanges(view.fileSystems);
    looked_ = true;
    show(view);
}

// For a file or a pipe: a line for each pass, file system and alert.
class LineWatch : public Watch {
  public:
    using Watch::Watch;

  private:
    void show(const View &view) override {
        const std::string time = now();
        const bool failed = !view.passes.failing.empty();
        std::printf("%s pass %lu%s: %zu file systems, every %u s\n", time.c_str(), passesOf(view),
                    failed ? " failed" : "", view.fileSystems.size(), view.cycle.seconds);
        for (const FileSystem &fs : view.fileSystems)
            std::printf("%s file system %s: %s (%s) %s of %s free, %s\n", time.c_str(), fs.index.c_str(),
                        printable(fs.mountPoint).c_str(), printable(fs.device).c_str(),
                        formatSpace(fs.freeMiB, look_.unit).c_str(), formatSpace(fs.sizeMiB, look_.unit).c_str(),
                        statusName(fs.status));
        std::fflush(stdout);
    }
    void say(const std::string &line) override {
        std::printf("%s\n", printableLine(line).c_str());
        std::fflush(stdout);
    }
};

// For a program: one object a line.
class JsonWatch : public Watch {
  public:
    using Watch::Watch;
    void alerted(const Alert &alert, const View *) override { print({{"alert", jsonOf(alert, look_.unit)}}); }

  private:
    void show(const View &view) override {
        const std::string &failing = view.passes.failing;
        print({{"pass",
                {{"number", passesOf(view)},
                 {"time", now()},
                 {"failing", failing.empty() ? Json() : Json(failing)},
                 {"cycle", view.cycle.seconds}}},
               {"filesystems", jsonOf(view.fileSystems, look_.unit).at("filesystems")}});
    }
    void say(const std::string &) override {} // the statuses stand with the file systems
    void print(const Json &object) const {
        Json all = labelled(look_);
        all["unit"] = wordOf(look_.unit);
        all.update(object);
        std::printf("%s\n", textOf(all).c_str());
        std::fflush(stdout);
    }
};

// For people in front of a terminal.
class ScreenWatch : public Watch {
  public:
    explicit ScreenWatch(const Look &look) : Watch(look), screen_(look) {}
    void said(const std::string &line) override {
        say(now() + " " + line);
    } // the screen is drawn over the error stream
    void addTo(std::vector<pollfd> &polled) override {
        Watch::addTo(polled);
        polled.push_back({screen_.takesKeys() ? STDIN_FILENO : -1, POLLIN, 0});
    }
    bool handle(const std::vector<pollfd> &polled, std::size_t first) override {
        return Watch::handle(polled, first) && (polled[first + 1].revents == 0 || screen_.press());
    }

  private:
    void show(const View &view) override { screen_.show(view); }
    void say(const std::string &line) override { screen_.say(printableLine(line)); }

    Screen screen_;
};

std::unique_ptr<Watch> watchFor(const Look &look) {
    if (look.json)
        return std::make_unique<JsonWatch>(look);
    if (isatty(STDOUT_FILENO) != 0)
        return std::make_unique<ScreenWatch>(look);
    return std::make_unique<LineWatch>(look);
}

} // namespace

Exit watchCommand(const Options &options) {
    MonitorOptions monitor;
    monitor.orders.hosting = options.hosting;
    monitor.orders.settingsFile = options.settingsFile;
    if (!options.seconds.empty())
        monitor.duration = seconds(parseNumber(options.seconds, 1, kLongestWatch, "a time in seconds"));
    if (!options.cycle.empty())
        monitor.orders.cycle = parseCycle(options.cycle);
    for (const std::string &address : options.listen)
        monitor.listen.push_back(parseListenAddress(address));
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        monitor.foreground |= isatty(fd) != 0;
    signal(SIGPIPE, SIG_IGN); // a closed output ends the watch in order
    const auto watch = watchFor(options.look);
    const bool own = options.hosting.isElsewhere() || monitor.orders.cycle || !monitor.listen.empty() ||
                     !options.settingsFile.empty();
    return !own && MonitorSession::find(options.hosting.root) ? followMonitor(monitor.duration, *watch)
                                                              : runMonitor(monitor, *watch);
}

} // namespace oxttool
