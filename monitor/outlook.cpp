#include "outlook.h"

#include <cmath>

namespace oxttool {

void addToHistories(Memory &memory, const std::vector<FileSystem> &fileSystems, std::int64_t now) {
    for (const FileSystem &fs : fileSystems) {
        const std::pair name(fs.device, fs.mountPoint);
        if (fs.sizeMiB == 0 || (memory.histories.size() >= kMostHistories && memory.histories.count(name) == 0))
            continue;
        memory.histories[name].add({now, fs.freeMiB});
    }
    for (auto one = memory.histories.begin(); one != memory.histories.end();)
        one = one->second.points().empty() || one->second.points().back().time < now - History::kDay
                  ? memory.histories.erase(one)
                  : std::next(one);
}

Outlook outlookOf(const Memory &memory, const FileSystem &fs) {
    Outlook outlook;
    if (const auto history = memory.histories.find({fs.device, fs.mountPoint}); history != memory.histories.end())
        outlook.forecast = forecastOf(history->second.points());
    std::size_t setting = 0;
    for (std::string *origin : {&outlook.monitoredBy, &outlook.warningBy, &outlook.fatalBy})
        *origin = originOf(memory.rules, fs, setting++);
    return outlook;
}

std::vector<Measurement> curveOf(const Memory &memory, const FileSystem &fs) {
    const auto history = memory.histories.find({fs.device, fs.mountPoint});
    return history != memory.histories.end() ? history->second.points() : std::vector<Measurement>();
}

std::string spokenTime(double seconds) {
    const auto minutes = std::llround(seconds / 60);
    if (minutes < 60)
        return std::to_string(minutes) + " min";
    const auto hours = std::llround(seconds / 3600);
    if (minutes < 10 * 60)
        return std::to_string(minutes / 60) + " h " + std::to_string(minutes % 60) + " min";
    if (hours < 48)
        return std::to_string(hours) + " h";
    return std::to_string(std::llround(seconds / (24 * 3600))) + " days";
}

} // namespace oxttool
