// A machine in place of this one, for as long as it lives: what is hosted meanwhile is the provider over that machine,
// out of liboxtfsmachine.so, with an agent directory of its own that goes with it. The directory that provider and tool
// were built for is never touched.
#ifndef OXT_TOOL_HOSTEDMACHINE_H
#define OXT_TOOL_HOSTEDMACHINE_H

#include <string>

#include "hostedSession.h"
#include "machine.h"

namespace oxttool {

class HostedMachine {
  public:
    // Throws an environment failure where the library or room for the directory is missing.
    explicit HostedMachine(oxtmachine::Machine machine);
    ~HostedMachine();
    HostedMachine(const HostedMachine &) = delete;
    HostedMachine &operator=(const HostedMachine &) = delete;

    // The hosting, with library and agent directory of this machine.
    Hosting over(Hosting hosting) const;

  private:
    SignalsHeld signals_; // until the directory is gone
    std::string library_, root_;
    int memoryError_ = 0;
};

// The machine that a file describes; throws a usage failure that names the line.
oxtmachine::Machine machineOfFile(const std::string &path);

// This machine, to be noted down while a provider looks at it.
oxtmachine::Machine thisMachine();

} // namespace oxttool

#endif
