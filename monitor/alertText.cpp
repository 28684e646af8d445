#include "alertText.h"

#include <cmath>

#include "values.h"

namespace oxttool {

namespace {

std::string decimal(const std::optional<std::uint64_t> &amount) {
    return amount ? std::to_string(*amount) : "";
}

std::string space(const std::optional<std::uint64_t> &mib) {
    return mib ? formatSpace(*mib, Unit::Human) : "?";
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

Environment environmentOf(const Alert &alert, const View *view) {
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
            {"OXTFS_MESSAGE", sentenceOf(alert)}};
}

} // namespace oxttool
