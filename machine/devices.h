// Block devices as most machines have them: what a described machine takes where its file says nothing else. And the
// words for devices.
#ifndef OXT_MACHINE_DEVICES_H
#define OXT_MACHINE_DEVICES_H

#include <optional>
#include <string>

#include "machine.h"

namespace oxtmachine {

// A "/proc/devices" with the drivers of all these devices.
std::string usualDrivers();

// The node of a device by its name: "/dev/sda1" is a block device of the driver sd. A name without a known beginning
// has none.
Node usualNode(const std::string &device);

// "block 8:1", "character 11:0", "file", "missing" or the name of an error.
std::string nodeText(const Node &node);

// "ENOSPC"; "EIO" for an error without a name.
std::string errorName(int error);

// What statfs(2) calls a file system of a mount table's type; 0 for one that is not known here.
long usualMagic(const std::string &type);

} // namespace oxtmachine

#endif
