// One life of the provider inside this process: from loading its library to both of its clean-ups.
//
// SIGINT, SIGTERM and SIGHUP wait for as long as a session lives, so that the provider always gets its clean-up: it
// saves its records there and removes its shared memory. A signal that came in takes effect when the session is gone.
#ifndef OXT_TOOL_SESSION_H
#define OXT_TOOL_SESSION_H

#include <signal.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fd.h"
#include "oxtHost.h"

namespace oxttool {

struct Hosting {
    std::string library; // empty: the one that belongs to this oxtfsctl
    std::string nameSpace = "root/TAVRIN/AS";
    std::optional<oxthost::ServiceMode> serviceMode; // none: what the command needs
    oxthost::Flavour flavour = oxthost::Flavour::Sfcb;
    bool force = false;             // go on beside a provider that is at work
    std::string root;               // the agent's directory; empty: the one of the build
    std::optional<int> memoryError; // of a machine in place of this one: what it answers to shmget(2)
};

class SignalsHeld {
  public:
    SignalsHeld();
    ~SignalsHeld(); // a signal that waits is delivered here
    SignalsHeld(const SignalsHeld &) = delete;
    SignalsHeld &operator=(const SignalsHeld &) = delete;
    const sigset_t &set() const { return held_; }

  private:
    sigset_t held_, before_;
};

class Session {
  public:
    // Throws an environment failure when no provider can or may be hosted here.
    Session(const Hosting &hosting, oxthost::ServiceMode defaultMode);
    ~Session(); // closes; what goes wrong then is reported on the standard error stream
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // These throw a refusal with the provider's own message unless it answers OK.
    oxthost::Instance get(const std::string &className, const std::vector<oxthost::NamedValue> &keys = {});
    std::vector<oxthost::Instance> enumerate(const std::string &className);
    // Also refuses a method's return value other than 0. Arguments are text, typed by the schema.
    void invoke(const std::string &className, const std::string &method,
                const std::vector<std::pair<std::string, std::string>> &arguments = {});

    // The same call, with the provider's answer as it is.
    oxthost::Reply call(const std::string &className, const std::string &method,
                        const std::vector<std::pair<std::string, std::string>> &arguments);

    // Both clean-ups, then unloads the library. Throws a refusal when the provider reports a failure.
    void close();

    // The agent's directory, with its closing slash.
    const std::string &root() const { return root_; }
    const sigset_t &heldSignals() const { return signals_.set(); }

  private:
    SignalsHeld signals_;
    std::string root_;
    Fd lock_;
    std::unique_ptr<oxthost::Host> host_;
};

// The path of a library of this project: in a build beside this program's folder, else installed in a folder of the
// libraries' directory. Throws an environment failure that ends in the help when it is in neither.
std::string libraryBeside(const char *buildFolder, const char *installedFolder, const char *name, const char *help);

// The refusal for a provider's answer, with what is known to help against it.
[[noreturn]] void refuse(CMPIrc code, const std::string &message);

} // namespace oxttool

#endif
