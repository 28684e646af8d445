// What the tests of a monitor show it.
#ifndef OXT_MONITORSAMPLES_H
#define OXT_MONITORSAMPLES_H

#include <string>
#include <vector>

#include "failure.h"
#include "fileSystem.h"
#include "history.h"

namespace oxttool {

// What the action throws; "none" when it throws no Failure.
template <class Action> std::string problemOf(Action action) {
    try {
        action();
    } catch (const Failure &failure) {
        return failure.what();
    }
    return "none";
}

inline FileSystem fileSystem(const std::string &mountPoint, std::uint64_t size, std::uint64_t free) {
    FileSystem fs;
    fs.index = "1";
    fs.device = "/dev" + mountPoint;
    fs.mountPoint = mountPoint;
    fs.type = "ext4";
    fs.driveType = 0;
    fs.monitored = 1;
    fs.status = 1;
    fs.sizeMiB = size;
    fs.freeMiB = free;
    fs.warningMiB = size / 10;
    fs.fatalMiB = size / 100;
    return fs;
}

// One point a minute, ending now, of `free` minutes ago.
template <class Free> std::vector<Measurement> minutes(int count, Free free) {
    History history;
    for (int ago = count - 1; ago >= 0; --ago)
        history.add({1000000000 - 60 * ago, static_cast<std::uint64_t>(free(ago))});
    return history.points();
}

} // namespace oxttool

#endif
