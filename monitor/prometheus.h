// The file systems as metrics, in Prometheus' text exposition format: what the node exporter's textfile collector
// reads.
#ifndef OXT_MONITOR_PROMETHEUS_H
#define OXT_MONITOR_PROMETHEUS_H

#include <string>
#include <vector>

#include "fileSystem.h"

namespace oxttool {

struct Metrics {
    std::vector<FileSystem> fileSystems;
    unsigned cycleSeconds = 0;
    double updated = 0; // seconds since the epoch
};

// Sizes in bytes. Of file systems with equal labels, which a collector would refuse altogether, only the first shows.
std::string prometheusText(const Metrics &metrics);

} // namespace oxttool

#endif
