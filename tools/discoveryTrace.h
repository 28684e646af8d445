// The provider's discovery as it traced it, step by step.
#ifndef OXT_TOOL_DISCOVERYTRACE_H
#define OXT_TOOL_DISCOVERYTRACE_H

#include <cstdint>
#include <string>
#include <vector>

#include "machine.h"

namespace oxttool {

// What was traced while one mount point of the list was looked at.
struct MountSteps {
    std::string dir;
    bool named = true;        // a device that is not layered is mounted there
    bool fixedByName = false; // without a look at node and driver
    int nodeError = 0;        // errno of stat
    long major = -1;          // -1: the node was not examined
    bool block = true;
    bool driversRead = true;
    std::string driver; // the last one that was compared, and its number
    long driverMajor = -1;
    bool byFileSystem = false; // the driver left it open
    bool measured = false;
    // Of the record that was made of it. -1: there is none, and what the record means by it.
    std::uint64_t size = 0, free = 0;
    long driveType = -1, monitored = 0, status = -1;
};

// One line of the list of mount points: what became of an entry.
struct ListLine {
    enum Verb { JumpOver, Add, Remove, Ignore } verb;
    std::string device;
};

struct DiscoveryTrace {
    std::vector<bool> examined; // by entry: device node and file system could be examined
    std::vector<ListLine> list; // entries that found no room have none
    std::vector<MountSteps> listed;
};

// The first discovery among the lines. Pure.
DiscoveryTrace discoveryIn(const std::vector<oxtmachine::TraceLine> &lines);

} // namespace oxttool

#endif
