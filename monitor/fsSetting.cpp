#include "fsSetting.h"

#include "instances.h"

namespace oxttool {

const FsSetting kSettingOf[kSettings] = {
    {"monitoring", "monitor", "monitored", "SetMonitorThreshold", "MonitorThreshold",
     [](const FileSystem &fs) { return std::uint64_t{fs.monitored == 1}; }},
    {"warning threshold", "warn", "warning", "SetWarningThreshold", "WarningThreshold",
     [](const FileSystem &fs) { return fs.warningMiB; }},
    {"fatal threshold", "fatal", "fatal", "SetFatalThreshold", "FatalThreshold",
     [](const FileSystem &fs) { return fs.fatalMiB; }},
};

void change(Session &session, const std::string &index, std::size_t setting, std::uint64_t value) {
    session.invoke(kFileSystemClass, kSettingOf[setting].method,
                   {{"Index", index}, {kSettingOf[setting].property, std::to_string(value)}});
}

std::string shownSetting(std::size_t setting, std::uint64_t value, Unit unit) {
    if (setting == kMonitoring)
        return value == 1 ? "on" : "off";
    return formatSpace(value, unit);
}

Json jsonOfSetting(std::size_t setting, std::uint64_t value, Unit unit) {
    if (setting == kMonitoring)
        return value == 1;
    return jsonOfSpace(value, unit);
}

} // namespace oxttool
