#include "monitorSignals.h"

#include <sys/signalfd.h>
#include <unistd.h>

namespace oxttool {

MonitorSignals::MonitorSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD})
        sigaddset(&set, number);
    pthread_sigmask(SIG_BLOCK, &set, &before_);
    fd_ = Fd(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
}

MonitorSignals::~MonitorSignals() {
    signalfd_siginfo taken;
    while (read(fd_.get(), &taken, sizeof taken) > 0) {
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

} // namespace oxttool
