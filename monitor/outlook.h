// What a monitor adds to what the provider publishes of a file system.
#ifndef OXT_MONITOR_OUTLOOK_H
#define OXT_MONITOR_OUTLOOK_H

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "fileSystem.h"
#include "forecast.h"
#include "memoryFile.h"

namespace oxttool {

struct Outlook {
    std::vector<Measurement> curve; // of the last day, the oldest first
    std::optional<Forecast> forecast;
    std::array<std::string, kSettings> origins; // what each setting's value comes from
};

// Takes the measurements of one pass. Histories of file systems that are gone go when they are a day old.
void addToHistories(Memory &memory, const std::vector<FileSystem> &fileSystems, std::int64_t now);

Outlook outlookOf(const Memory &memory, const FileSystem &fs);

// "3 h 20 min", "2 days": how people say a time to come.
std::string spokenTime(double seconds);

} // namespace oxttool

#endif
