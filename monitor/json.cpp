#include "json.h"

#include <cmath>
#include <cstdlib>

namespace oxttool {

namespace {

Json spaceOrNull(std::optional<std::uint64_t> mib, Unit unit) {
    return mib ? jsonOfSpace(*mib, unit) : Json();
}

} // namespace

const char *wordOf(Unit unit) {
    return unit == Unit::Bytes ? "bytes" : "MiB";
}

Json jsonOfSpace(std::uint64_t mib, Unit unit) {
    return unit == Unit::Bytes ? mib * 1048576 : mib;
}

Json jsonOf(const FileSystem &fs, Unit unit) {
    const auto measured = [&fs](const Json &value) { return fs.isMeasured() ? value : Json(); };
    Json json = {{"index", std::strtoul(fs.index.c_str(), nullptr, 10)},
                 {"device", fs.device},
                 {"mountpoint", fs.mountPoint},
                 {"type", fs.type},
                 {"drive", driveName(fs.driveType)},
                 {"size", measured(jsonOfSpace(fs.sizeMiB, unit))},
                 {"free", measured(jsonOfSpace(fs.freeMiB, unit))},
                 {"freepercent", measured(fs.freePermille() / 10.0)},
                 {"monitored", fs.monitored == 1},
                 {"warning", jsonOfSpace(fs.warningMiB, unit)},
                 {"warningdefault", jsonOfSpace(fs.warningDefaultMiB, unit)},
                 {"fatal", jsonOfSpace(fs.fatalMiB, unit)},
                 {"fataldefault", jsonOfSpace(fs.fatalDefaultMiB, unit)},
                 {"status", statusName(fs.status)}};
    if (!fs.outlook)
        return json;
    const auto &forecast = fs.outlook->forecast;
    json["monitoredby"] = fs.outlook->monitoredBy;
    json["warningby"] = fs.outlook->warningBy;
    json["fatalby"] = fs.outlook->fatalBy;
    json["shrinkperhour"] =
        forecast ? jsonOfSpace(static_cast<std::uint64_t>(std::llround(forecast->mibPerHour)), unit) : Json();
    json["fullseconds"] = forecast ? Json(std::llround(forecast->secondsToFull)) : Json();
    return json;
}

Json jsonOf(const Alert &alert, Unit unit) {
    const auto text = [](const std::string &value) { return value.empty() ? Json() : Json(value); };
    return {{"time", text(alert.time)},
            {"severity", text(alert.severity)},
            {"event", text(alert.event)},
            {"device", text(alert.device)},
            {"mountpoint", text(alert.mountPoint)},
            {"size", spaceOrNull(alert.sizeMiB, unit)},
            {"free", spaceOrNull(alert.freeMiB, unit)},
            {"threshold", spaceOrNull(alert.thresholdMiB, unit)},
            {"status", alert.newStatus ? Json(statusName(*alert.newStatus)) : Json()}};
}

Json jsonOf(const Cycle &cycle) {
    return {{"cycle", cycle.seconds},
            {"cyclemin", cycle.least},
            {"cyclemax", cycle.greatest},
            {"cycledefault", cycle.standard}};
}

Json jsonOfThread(std::optional<bool> runs) {
    return {{"running", runs ? Json(*runs) : Json()}};
}

Json jsonOf(const std::vector<FileSystem> &all, Unit unit) {
    Json array = Json::array();
    for (const FileSystem &fs : all)
        array.push_back(jsonOf(fs, unit));
    return {{"unit", wordOf(unit)}, {"filesystems", std::move(array)}};
}

std::string textOf(const Json &json, int indent) {
    return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

} // namespace oxttool
