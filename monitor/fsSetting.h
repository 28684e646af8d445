// What clients and rules can set of a file system: whether it is monitored, and its two thresholds.
#ifndef OXT_MONITOR_FSSETTING_H
#define OXT_MONITOR_FSSETTING_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "json.h"
#include "session.h"

namespace oxttool {

// Amounts are MiB; monitoring is 1 or 0.
struct FsSetting {
    const char *word;              // as users know it
    const char *command, *member;  // of oxtfsctl, and of the JSON object
    const char *method, *property; // the provider's
    std::uint64_t (*now)(const FileSystem &);
};
enum FsSettingId : std::size_t { kMonitoring, kWarning, kFatal, kSettings };
extern const FsSetting kSettingOf[kSettings];

// Sets it through the provider; throws a refusal. Whoever has to know whether it holds, looks afterwards.
void change(Session &session, const std::string &index, std::size_t setting, std::uint64_t value);

// "on", "off" or an amount.
std::string shownSetting(std::size_t setting, std::uint64_t value, Unit unit);
// As the member has it.
Json jsonOfSetting(std::size_t setting, std::uint64_t value, Unit unit);

} // namespace oxttool

#endif
