// What a command asks: a provider, by whatever way there is to one. openSession finds the way.
#ifndef OXT_MONITOR_SESSION_H
#define OXT_MONITOR_SESSION_H

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agentDir.h"
#include "oxtHost.h"

namespace oxttool {

struct Hosting {
    std::string library; // empty: the one that belongs to this oxtfsctl
    std::string nameSpace = "root/TAVRIN/AS";
    std::optional<oxthost::ServiceMode> serviceMode; // none: what the command needs
    oxthost::Flavour flavour = oxthost::Flavour::Sfcb;
    bool direct = false; // host a provider, whoever else could be asked
    bool force = false;  // the same, even beside another process's provider; never beside a running monitor
    std::string root = agentDirectory();
    std::optional<int> memoryError; // of a machine in place of this one: what it answers to shmget(2)
    bool isElsewhere() const { return root != agentDirectory(); } // over a machine in place of this one
};

class Session {
  public:
    using Arguments = std::vector<std::pair<std::string, std::string>>; // name and text; the schema gives the type
    using Keys = std::vector<oxthost::NamedValue>;

    Session() = default;
    virtual ~Session() = default;
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // These throw a refusal with the provider's own message unless it answers OK.
    oxthost::Instance get(const std::string &className, const Keys &keys = {});
    std::vector<oxthost::Instance> enumerate(const std::string &className);
    // Also refuses a method's return value other than 0.
    void invoke(const std::string &className, const std::string &method, const Arguments &arguments = {});

    // The provider's answers as they are. A way that cannot ask this throws an environment failure that says what can.
    virtual oxthost::Reply getInstance(const std::string &className, const Keys &keys) = 0;
    virtual oxthost::Reply enumInstances(const std::string &className) = 0;
    virtual oxthost::Reply call(const std::string &className, const std::string &method,
                                const Arguments &arguments) = 0;

    // Lets a monitor read its settings anew and apply them; nothing where none is asked. Throws its refusal.
    virtual void reload() {}
    // Lets the provider save and clean up where its life began here. Throws a refusal when it reports a failure.
    virtual void close() {}
    // When the answers were measured, seconds since the epoch.
    virtual double measured() const;
    // Metrics in the words of what is asked, when it has some; else they are made of the answers.
    virtual std::optional<std::string> metrics() { return std::nullopt; }
    // A sentence for people about where the answers come from; empty when they were measured for it.
    virtual std::string source() const { return {}; }
    // A sentence about why the answers are no longer what the machine is like; empty when nothing says so.
    virtual std::string doubt() const { return {}; }
    // Whether another process monitors, or could.
    virtual bool isAnothers() const { return false; }
};

// The way to the provider of this machine: a running monitor, the records of a provider that is at work, or else one
// that lives in this process, with `defaultMode` as its service mode. Whoever says how to host, wants the latter.
// Throws an environment failure when there is no way.
std::unique_ptr<Session> openSession(const Hosting &hosting, oxthost::ServiceMode defaultMode);

// The provider's message when it has nothing to begin with, whatever it was asked.
inline constexpr const char *kNotStarted = "fsInitProvider() Failure!!";

// The refusal for a provider's answer, with what is known to help against it.
[[noreturn]] void refuse(CMPIrc code, const std::string &message);

// The provider's message, or the code where it gives none; printable.
std::string textOrCode(const std::string &message, CMPIrc code);

} // namespace oxttool

#endif
