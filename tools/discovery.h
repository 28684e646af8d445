// What the provider's discovery decided about each mount, and why: told from what it asked the machine and from what it
// traced, and not from rules of this tool's own, which could come to differ from the provider's.
#ifndef OXT_TOOL_DISCOVERY_H
#define OXT_TOOL_DISCOVERY_H

#include <cstdint>
#include <string>
#include <vector>

#include "hostedMachine.h"

namespace oxttool {

enum class Degree { NotListed, Listed, Measured, Monitored };
const char *degreeName(Degree degree);

// What decided.
enum class Rule {
    Type,        // not one of those that are listed
    NoType,      // the mount has none
    Twice,       // mounted again on the same directory
    NoRoom,      // nothing of it can be examined, and so the list has no room for it
    NoDevice,    // no device name that is not layered
    NoNode,      // its device node cannot be examined
    NotADevice,  // what lies there is no device node
    NoDrivers,   // the driver list cannot be read
    NoDriver,    // none has its major number
    OtherDriver, // none of those that are known
    Kind,        // its kind of drive is not measured
    Unmeasured,  // free space cannot be read
    RamDisk,     // measured, never monitored
    Family,      // not one of the types that are monitored by themselves
    Small,       // too small
    Monitored
};
const char *ruleName(Rule rule); // for programs: "type", "no-node"

struct Verdict {
    std::string mountPoint, device, type;
    std::string node;   // "block 8:1", "missing"; empty when it was not asked for
    std::string driver; // empty when none was found or looked up
    std::int64_t driveType = -1;
    std::uint64_t sizeMiB = 0, freeMiB = 0;
    Degree degree = Degree::NotListed;
    Rule rule = Rule::Type;
    std::string reason; // a sentence without its full stop
};

// One for each entry of the mount table, in its order. Pure: `trace` holds the lines of a discovery of that machine.
std::vector<Verdict> verdictsOf(const oxtmachine::Facts &machine, const std::vector<oxtmachine::TraceLine> &trace);

struct Discovery {
    oxtmachine::Facts machine; // as the provider found it
    std::vector<Verdict> verdicts;
};

// Lets the provider look at the machine in place once. `hosting` is over that machine.
Discovery discover(const Hosting &hosting);

} // namespace oxttool

#endif
