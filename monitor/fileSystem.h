// One file system as the provider publishes it, and its monitoring cycle.
#ifndef OXT_MONITOR_FILESYSTEM_H
#define OXT_MONITOR_FILESYSTEM_H

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

#include "forecast.h"

namespace oxttool {

// What a running monitor adds.
struct Outlook {
    std::optional<Forecast> forecast;
    std::string monitoredBy, warningBy, fatalBy; // where the setting's value comes from
};

struct FileSystem {
    std::string index, device, mountPoint, type;
    std::int64_t driveType = -1;
    std::int64_t monitored = 0;
    std::int64_t status = -1;
    std::uint64_t sizeMiB = 0, freeMiB = 0; // 0 when they were not measured
    std::uint64_t warningMiB = 0, warningDefaultMiB = 0;
    std::uint64_t fatalMiB = 0, fatalDefaultMiB = 0;

    std::optional<Outlook> outlook;

    bool isMeasured() const { return sizeMiB != 0; }
    // The share of the size that is free, in thousandths, rounded down; 0 when they were not measured.
    unsigned freePermille() const {
        return isMeasured() ? static_cast<unsigned>(std::min(freeMiB, sizeMiB) * 1000 / sizeMiB) : 0;
    }
};

struct Cycle { // seconds
    unsigned seconds = 0, least = 0, greatest = 0, standard = 0;
};

} // namespace oxttool

#endif
