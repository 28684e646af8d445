// One life of the provider inside this process: from loading its library to both of its clean-ups.
//
// SIGINT, SIGTERM and SIGHUP wait for as long as a session lives, so that the provider always gets its clean-up: it
// saves its records there and removes its shared memory. A signal that came in takes effect when the session is gone.
#ifndef OXT_MONITOR_HOSTEDSESSION_H
#define OXT_MONITOR_HOSTEDSESSION_H

#include <signal.h>

#include <memory>

#include "agentDir.h"
#include "session.h"

namespace oxttool {

class SignalsHeld {
  public:
    SignalsHeld();
    ~SignalsHeld(); // a signal that waits is delivered here
    SignalsHeld(const SignalsHeld &) = delete;
    SignalsHeld &operator=(const SignalsHeld &) = delete;

  private:
    sigset_t held_, before_;
};

class HostedSession : public Session {
  public:
    // Throws an environment failure when no provider can or may be hosted here.
    HostedSession(const Hosting &hosting, oxthost::ServiceMode defaultMode);
    HostedSession(const Hosting &hosting, oxthost::ServiceMode defaultMode, Workplace place);
    ~HostedSession() override; // closes; what goes wrong then is reported on the standard error stream

    oxthost::Reply getInstance(const std::string &className, const Keys &keys) override;
    oxthost::Reply enumInstances(const std::string &className) override;
    oxthost::Reply call(const std::string &className, const std::string &method, const Arguments &arguments) override;
    void close() override; // both clean-ups, then unloads the library

  private:
    SignalsHeld signals_;
    Workplace place_;
    std::unique_ptr<oxthost::Host> host_;
};

// The path of a library of this project: in a build beside this program's folder, else installed in a folder of the
// libraries' directory. Throws an environment failure that ends in the help when it is in neither.
std::string libraryBeside(const char *buildFolder, const char *installedFolder, const char *name, const char *help);

} // namespace oxttool

#endif
