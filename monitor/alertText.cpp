#include "alertText.h"

#include <cmath>
#include <map>
#include <utility>

#include "shownText.h"
#include "values.h"

namespace oxttool {

namespace {

// Of the statuses normal, warning and fatal, as the alert file has them.
constexpr std::pair<const char *, const char *> kStatusEvents[] = {
    {"freeSpaceNormal", "info"}, {"freeSpaceWarning", "warning"}, {"freeSpaceFatal", "critical"}};

std::string decimal(const std::optional<std::uint64_t> &amount) {
    return amount ? std::to_string(*amount) : "";
}

std::string space(const std::optional<std::uint64_t> &mib) {
    return spaceOrUnknown(mib, Unit::Human);
}

std::string fullIn(const Alert &alert, const View *view) {
    if (!view)
        return "";
    for (const FileSystem &fs : view->fileSystems)
        if (fs.device == alert.device && fs.mountPoint == alert.mountPoint && fs.outlook && fs.outlook->forecast)
            return std::to_string(std::llround(fs.outlook->forecast->secondsToFull));
    return "";
}

} // namespace

std::string sentenceOf(const Alert &alert) {
    if (!alert.newStatus)
        return alert.event == "fileSystemCountChanged" ? "The number of file systems changed." : alert.event;
    std::string text =
        alert.mountPoint + " (" + alert.device + "): " + space(alert.freeMiB) + " of " + space(alert.sizeMiB) + " free";
    return alert.thresholdMiB ? text + ", threshold " + space(alert.thresholdMiB) : text;
}

std::vector<Alert> changesOfStatus(const std::vector<FileSystem> &before, const std::vector<FileSystem> &after,
                                   std::time_t now) {
    std::map<std::pair<std::string, std::string>, std::int64_t> known;
    for (const FileSystem &fs : before)
        known[{fs.device, fs.mountPoint}] = fs.status;
    std::vector<Alert> alerts;
    for (const FileSystem &fs : after) {
        const auto was = known.find({fs.device, fs.mountPoint});
        if (was == known.end() || was->second == fs.status || was->second < 1 || fs.status < 1 || fs.status > 3)
            continue;
        const auto &[event, severity] = kStatusEvents[fs.status - 1];
        Alert alert;
        alert.time = utcTime(now);
        alert.event = event;
        alert.severity = severity;
        alert.device = fs.device;
        alert.mountPoint = fs.mountPoint;
        alert.newStatus = fs.status;
        alert.freeMiB = fs.freeMiB;
        alert.sizeMiB = fs.sizeMiB;
        if (fs.status > 1)
            alert.thresholdMiB = fs.status == 2 ? fs.warningMiB : fs.fatalMiB;
        alerts.push_back(std::move(alert));
    }
    return alerts;
}

Variables variablesOf(const Alert &alert, const View *view) {
    return {{"OXTFS_EVENT", alert.event},
            {"OXTFS_SEVERITY", alert.severity},
            {"OXTFS_TIME", alert.time},
            {"OXTFS_MOUNTPOINT", alert.mountPoint},
            {"OXTFS_DEVICE", alert.device},
            {"OXTFS_STATUS", alert.newStatus ? statusName(*alert.newStatus) : ""},
            {"OXTFS_FREE_MIB", decimal(alert.freeMiB)},
            {"OXTFS_SIZE_MIB", decimal(alert.sizeMiB)},
            {"OXTFS_THRESHOLD_MIB", decimal(alert.thresholdMiB)},
            {"OXTFS_FULL_IN_SECONDS", fullIn(alert, view)},
            {"OXTFS_MESSAGE", printableUtf8(sentenceOf(alert))}};
}

} // namespace oxttool
