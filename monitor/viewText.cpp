#include "viewText.h"

#include "json.h"
#include "prometheus.h"

namespace oxttool {

std::string metricsText(const View &view, bool well) {
    Metrics metrics;
    metrics.fileSystems = view.fileSystems;
    metrics.cycleSeconds = view.cycle.seconds;
    metrics.updated = view.updated;
    metrics.up = well;
    metrics.lastSuccess = static_cast<double>(view.passes.lastSuccess);
    metrics.passes =
        PassMetrics{view.passes.succeeded + view.passes.failed, view.passes.failed, view.passes.lastDuration.count()};
    return prometheusText(metrics);
}

std::string fileSystemsText(const View &view) {
    return textOf(jsonOf(view.fileSystems, Unit::MiB)) + "\n";
}

std::string alertsText(const View &view) {
    Json all = Json::array();
    for (auto line = view.alerts.rbegin(); line != view.alerts.rend(); ++line)
        if (Json alert = Json::parse(*line, nullptr, false); alert.is_object())
            all.push_back(std::move(alert));
    return textOf(Json{{"alerts", std::move(all)}}) + "\n";
}

} // namespace oxttool
