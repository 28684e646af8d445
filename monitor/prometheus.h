// The file systems as metrics, in Prometheus' text exposition format: what the node exporter's textfile collector
// reads.
#ifndef OXT_MONITOR_PROMETHEUS_H
#define OXT_MONITOR_PROMETHEUS_H

#include <optional>
#include <string>
#include <vector>

#include "fileSystem.h"

namespace oxttool {

// Of a monitor that runs.
struct MonitorMetrics {
    bool up = false;
    unsigned long passes = 0, failedPasses = 0;
    double lastPassSeconds = 0;
    double lastSuccess = 0; // seconds since the epoch; 0: none
};

struct Metrics {
    std::vector<FileSystem> fileSystems;
    unsigned cycleSeconds = 0;
    double updated = 0; // seconds since the epoch
    std::optional<MonitorMetrics> monitor = {};
    std::optional<bool> up = {}; // of a provider in another process, of which the rest is not known
};

// Sizes in bytes. Of file systems with equal labels, which a collector would refuse altogether, only the first shows.
std::string prometheusText(const Metrics &metrics);

} // namespace oxttool

#endif
