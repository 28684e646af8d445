// The file systems as metrics, in Prometheus' text exposition format: what the node exporter's textfile collector
// reads.
#ifndef OXT_MONITOR_PROMETHEUS_H
#define OXT_MONITOR_PROMETHEUS_H

#include <optional>
#include <string>
#include <vector>

#include "fileSystem.h"

namespace oxttool {

// What only a running monitor knows of its passes.
struct PassMetrics {
    unsigned long passes = 0, failed = 0;
    double lastSeconds = 0;
};

struct Metrics {
    std::vector<FileSystem> fileSystems;
    unsigned cycleSeconds = 0;
    double updated = 0;                     // seconds since the epoch
    bool up = false;                        // a monitor is at work; false for a look on the spot
    std::optional<double> lastSuccess = {}; // of the monitor, seconds since the epoch, 0: none yet; a look has none
    std::optional<PassMetrics> passes = {};
};

// Sizes in bytes. A file system is known by mount point, device and type. Where several have the same three, which a
// collector would refuse altogether, the worst one stands for all.
std::string prometheusText(const Metrics &metrics);

// Where nobody can be asked: that no monitor is up, and nothing else.
std::string prometheusTextOfNobody();

} // namespace oxttool

#endif
