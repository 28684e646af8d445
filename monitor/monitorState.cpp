#include "monitorState.h"

#include <unistd.h>

#include <nlohmann/json.hpp>

#include "failure.h"
#include "packedName.h"
#include "values.h"

namespace oxttool {

namespace {

using nlohmann::json;

// In the order of the fields of one row; a row is shorter than an object and faster to read.
json rowOf(const FileSystem &fs) {
    const Outlook outlook = fs.outlook.value_or(Outlook());
    json row = {packedName(fs.index),
                packedName(fs.device),
                packedName(fs.mountPoint),
                packedName(fs.type),
                fs.driveType,
                fs.monitored,
                fs.status,
                fs.sizeMiB,
                fs.freeMiB,
                fs.warningMiB,
                fs.warningDefaultMiB,
                fs.fatalMiB,
                fs.fatalDefaultMiB};
    for (const std::string &origin : {outlook.monitoredBy, outlook.warningBy, outlook.fatalBy})
        row.push_back(origin);
    if (outlook.forecast) {
        row.push_back(outlook.forecast->mibPerHour);
        row.push_back(outlook.forecast->secondsToFull);
    }
    return row;
}

void takeRow(const json &row, MonitorState &state) {
    FileSystem fs;
    std::size_t at = 0;
    for (std::string *name : {&fs.index, &fs.device, &fs.mountPoint, &fs.type})
        *name = unpackedName(row.at(at++).get<std::string>());
    for (std::int64_t *code : {&fs.driveType, &fs.monitored, &fs.status})
        *code = row.at(at++).get<std::int64_t>();
    for (std::uint64_t *amount :
         {&fs.sizeMiB, &fs.freeMiB, &fs.warningMiB, &fs.warningDefaultMiB, &fs.fatalMiB, &fs.fatalDefaultMiB})
        *amount = row.at(at++).get<std::uint64_t>();
    Outlook outlook;
    for (std::string *origin : {&outlook.monitoredBy, &outlook.warningBy, &outlook.fatalBy})
        *origin = row.at(at++).get<std::string>();
    if (row.size() >= at + 2)
        outlook.forecast = {row.at(at).get<double>(), row.at(at + 1).get<double>()};
    fs.outlook = std::move(outlook);
    state.fileSystems.push_back(std::move(fs));
}

} // namespace

std::string stateText(const View &view, bool well) {
    const std::string missing = well ? "" : "no pass has ended since " + utcTime(view.passes.lastSuccess);
    json rows = json::array();
    for (const FileSystem &fs : view.fileSystems)
        rows.push_back(rowOf(fs));
    json alerts = json::array();
    for (const std::string &alert : view.alerts)
        alerts.push_back(packedName(alert));
    return json{{"filesystems", rows},
                {"cycle", {view.cycle.seconds, view.cycle.least, view.cycle.greatest, view.cycle.standard}},
                {"updated", view.updated},
                {"passes", view.passes.succeeded},
                {"failing", packedName(view.passes.failing.empty() ? missing : view.passes.failing)},
                {"alerts", alerts},
                {"process", getpid()}}
               .dump() +
           "\n";
}

MonitorState parseState(const std::string &text) {
    MonitorState state;
    try {
        const json all = json::parse(text);
        for (const json &row : all.at("filesystems"))
            takeRow(row, state);
        const json &cycle = all.at("cycle");
        state.cycle = {cycle.at(0), cycle.at(1), cycle.at(2), cycle.at(3)};
        state.updated = all.at("updated");
        state.passes = all.at("passes");
        state.failing = unpackedName(all.at("failing"));
        for (const json &alert : all.at("alerts"))
            state.alerts.push_back(unpackedName(alert));
        state.process = all.at("process");
    } catch (const std::exception &) {
        throw Failure(Exit::Environment, "the running monitor speaks another language than this oxtfsctl.\nRestart it: "
                                         "systemctl restart oxtfs-watch");
    }
    return state;
}

} // namespace oxttool
