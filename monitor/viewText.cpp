#include "viewText.h"

#include <cmath>

#include <nlohmann/json.hpp>

#include "prometheus.h"
#include "values.h"

namespace oxttool {

namespace {

using nlohmann::ordered_json;

std::string dumped(const ordered_json &object) {
    return object.dump(-1, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

ordered_json jsonOf(const FileSystem &fs, const Outlook &outlook) {
    ordered_json object = {{"index", std::atoll(fs.index.c_str())},
                           {"device", fs.device},
                           {"mountpoint", fs.mountPoint},
                           {"type", fs.type},
                           {"drive", driveName(fs.driveType)},
                           {"size", fs.sizeMiB},
                           {"free", fs.freeMiB},
                           {"monitored", fs.monitored == 1},
                           {"warning", fs.warningMiB},
                           {"fatal", fs.fatalMiB},
                           {"status", statusName(fs.status)}};
    object["shrinking_per_hour"] = nullptr;
    object["full_in_seconds"] = nullptr;
    if (outlook.forecast) {
        object["shrinking_per_hour"] = std::llround(outlook.forecast->mibPerHour);
        object["full_in_seconds"] = std::llround(outlook.forecast->secondsToFull);
    }
    return object;
}

} // namespace

std::string metricsText(const View &view, bool well) {
    Metrics metrics;
    metrics.fileSystems = view.fileSystems;
    metrics.cycleSeconds = view.cycle.seconds;
    metrics.updated = view.updated;
    for (const Outlook &outlook : view.outlooks)
        metrics.forecasts.push_back(outlook.forecast);
    metrics.monitor = MonitorMetrics{well, view.passes.succeeded + view.passes.failed, view.passes.failed,
                                     view.passes.lastDuration.count(), static_cast<double>(view.passes.lastSuccess)};
    return prometheusText(metrics);
}

std::string fileSystemsText(const View &view) {
    ordered_json all = ordered_json::array();
    for (std::size_t i = 0; i < view.fileSystems.size(); ++i)
        all.push_back(jsonOf(view.fileSystems[i], view.outlooks[i]));
    return dumped({{"filesystems", std::move(all)}});
}

std::string alertsText(const View &view) {
    ordered_json all = ordered_json::array();
    for (auto line = view.alerts.rbegin(); line != view.alerts.rend(); ++line)
        if (ordered_json alert = ordered_json::parse(*line, nullptr, false); alert.is_object())
            all.push_back(std::move(alert));
    return dumped({{"alerts", std::move(all)}});
}

} // namespace oxttool
