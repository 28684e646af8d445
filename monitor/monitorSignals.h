// SIGINT, SIGTERM, SIGHUP and SIGCHLD, taken from a descriptor for as long as this lives. Threads that begin meanwhile
// block them, too.
#ifndef OXT_MONITOR_MONITORSIGNALS_H
#define OXT_MONITOR_MONITORSIGNALS_H

#include <signal.h>

#include "fd.h"

namespace oxttool {

class MonitorSignals {
  public:
    MonitorSignals();
    ~MonitorSignals(); // what has ended the monitor does not strike again
    MonitorSignals(const MonitorSignals &) = delete;
    MonitorSignals &operator=(const MonitorSignals &) = delete;
    int fd() const { return fd_.get(); } // signalfd(2)

  private:
    sigset_t before_;
    Fd fd_;
};

} // namespace oxttool

#endif
