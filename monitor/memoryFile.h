// What the monitor remembers over a restart: what its rules have set, and the history of free space. A file of JSON in
// the agent's data directory, replaced as a whole. It is not believed: what makes no sense is left out, and a file that
// cannot be read is as none.
#ifndef OXT_MONITOR_MEMORYFILE_H
#define OXT_MONITOR_MEMORYFILE_H

#include <map>
#include <optional>
#include <string>
#include <utility>

#include "history.h"
#include "rules.h"

namespace oxttool {

struct Memory {
    RuleMemories rules;
    std::optional<unsigned> cycleSeconds;                             // of the settings file when it was last applied
    std::map<std::pair<std::string, std::string>, History> histories; // by device and mount point
};

inline constexpr const char *kMemoryFileName = "oxtfsmonitor.json"; // in data/
inline constexpr std::size_t kMostHistories = 4096;                 // beyond, file systems have none

std::string memoryText(const Memory &memory);
Memory parseMemory(const std::string &text, std::int64_t now);

Memory readMemory(const std::string &path, std::int64_t now);
// False when it could not be written; the old file is then as it was.
bool writeMemory(const std::string &path, const Memory &memory);

} // namespace oxttool

#endif
