// The long-running monitor: it hosts the provider in service mode, answers on its sockets, tells of alerts, and says
// when something is wrong. This is its main loop; nothing in it waits for a disk, a client or a program.
#ifndef OXT_MONITOR_MONITOR_H
#define OXT_MONITOR_MONITOR_H

#include <poll.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "alertFile.h"
#include "failure.h"
#include "providerWorker.h"
#include "settings.h"

namespace oxttool {

// Who sits in front of a monitor and looks on.
class Audience {
  public:
    virtual ~Audience() = default;
    virtual void passed(const View &) {}
    virtual void alerted(const Alert &, const View *) {}
    // Once when passes begin to fail, once when they succeed again, and what else an administrator has to know. The
    // standard error stream gets it, too.
    virtual void said(const std::string &) {}
    // Appends what to wait for, and handles what came of it, from `first` on; false ends the monitor.
    virtual void addTo(std::vector<pollfd> &) {}
    virtual bool handle(const std::vector<pollfd> &, std::size_t) { return true; }
};

struct MonitorOptions {
    MonitorOrders orders;
    std::vector<ListenAddress> listen; // beside those of the settings file
    std::optional<std::chrono::seconds> duration;
    bool foreground = false; // a closed terminal ends it
};

// Shows the audience what the monitor that runs here does, until SIGINT, SIGTERM, the end of the time or of the
// monitor.
Exit followMonitor(std::optional<std::chrono::seconds> duration, Audience &audience);

// Runs until SIGINT, SIGTERM, the end of its time or of its audience. Refused when the last save failed; throws when no
// provider can be hosted here.
Exit runMonitor(const MonitorOptions &options, Audience &audience);

} // namespace oxttool

#endif
