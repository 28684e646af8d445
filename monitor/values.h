// Values as users write and read them: amounts of space, indexes, codes. All pure.
#ifndef OXT_MONITOR_VALUES_H
#define OXT_MONITOR_VALUES_H

#include <cstdint>
#include <ctime>
#include <string>

#include "oxtHost.h"

namespace oxttool {

enum class Unit { Human, MiB, Bytes };

// An amount of free space: so many MiB, or a share of a file system's size.
struct Amount {
    std::uint64_t mib = 0;
    double percent = -1;                           // -1: not a share
    bool bare = false;                             // written without a unit
    std::uint64_t of(std::uint64_t sizeMiB) const; // in MiB, rounded down
};

// "512M", "1.5G", "10GiB", "2GB" (1000^3 bytes), "10%", or MiB without a unit: "512". Rounded down. Throws a usage
// failure for anything else, for less than a MiB, and for more MiB than the provider can take.
Amount parseAmount(const std::string &text);

// A whole number from lowest to highest, digits only; throws a usage failure that calls it by `what`.
unsigned parseNumber(const std::string &text, unsigned lowest, unsigned highest, const std::string &what);

// A monitoring cycle in seconds, as the provider takes it; throws a usage failure.
unsigned parseCycle(const std::string &text);
inline constexpr unsigned kLeastCycle = 10, kGreatestCycle = 3600, kDefaultCycle = 60;
std::string cycleRange(); // "10 to 3600"

// True when a command's target is an index rather than a mount point.
bool isIndex(const std::string &target);

// "on", "off", "fail" or a byte; throws a usage failure.
oxthost::ServiceMode parseServiceMode(const std::string &text);

std::string formatSpace(std::uint64_t mib, Unit unit);
std::string spaceOrUnknown(const std::optional<std::uint64_t> &mib, Unit unit); // "?" for none

// As 2031-01-05T07:08:09Z.
std::string utcTime(std::time_t time);

// The words for the provider's codes; "unknown" for any code without one.
const char *driveName(std::int64_t driveType);
const char *statusName(std::int64_t freeSpaceStatus);

} // namespace oxttool

#endif
