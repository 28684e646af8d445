// What a monitor adds to what the provider publishes of a file system.
#ifndef OXT_MONITOR_OUTLOOK_H
#define OXT_MONITOR_OUTLOOK_H

#include <string>
#include <vector>

#include "fileSystem.h"
#include "forecast.h"
#include "memoryFile.h"

namespace oxttool {

// Takes the measurements of one pass. Histories of file systems that are gone go when they are a day old.
void addToHistories(Memory &memory, const std::vector<FileSystem> &fileSystems, std::int64_t now);

Outlook outlookOf(const Memory &memory, const FileSystem &fs);

// Its free space over the last day, the oldest measurement first; empty when there is none.
std::vector<Measurement> curveOf(const Memory &memory, const FileSystem &fs);

// "3 h 20 min", "2 days": how people say a time to come.
std::string spokenTime(double seconds);

} // namespace oxttool

#endif
