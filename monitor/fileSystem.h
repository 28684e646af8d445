// One file system as the provider publishes it.
#ifndef OXT_MONITOR_FILESYSTEM_H
#define OXT_MONITOR_FILESYSTEM_H

#include <cstdint>
#include <string>

#include "oxtHost.h"

namespace oxttool {

struct FileSystem {
    std::string index, device, mountPoint, type;
    std::int64_t driveType = -1;
    std::int64_t monitored = 0;
    std::int64_t status = -1;
    std::uint64_t sizeMiB = 0, freeMiB = 0; // 0 when they were not measured
    std::uint64_t warningMiB = 0, fatalMiB = 0;

    std::uint64_t usedPercent() const {
        return sizeMiB > freeMiB ? ((sizeMiB - freeMiB) * 100 + sizeMiB / 2) / sizeMiB : 0;
    }
};

// A property that the instance lacks leaves its field as it is above.
FileSystem fileSystemOf(const oxthost::Instance &instance);

// The property's value as plain text; empty for none.
std::string textOf(const oxthost::Value &value);

bool isText(const oxthost::Value &value);

} // namespace oxttool

#endif
