#include "prometheus.h"

#include <cstdio>
#include <set>

#include "shownText.h"
#include "values.h"

namespace oxttool {

namespace {

double bytesOf(std::uint64_t mib) {
    return static_cast<double>(mib) * 1048576;
}

struct Family {
    const char *name, *help;
    double (*value)(const FileSystem &);
};
constexpr Family kFamilies[] = {
    {"oxtfs_filesystem_size_bytes", "Size of the file system, 0 when it could not be measured.",
     [](const FileSystem &fs) { return bytesOf(fs.sizeMiB); }},
    {"oxtfs_filesystem_avail_bytes", "Space that unprivileged users can still write, 0 when it could not be measured.",
     [](const FileSystem &fs) { return bytesOf(fs.freeMiB); }},
    {"oxtfs_filesystem_warning_threshold_bytes", "Free space at or below which the status is warning.",
     [](const FileSystem &fs) { return bytesOf(fs.warningMiB); }},
    {"oxtfs_filesystem_fatal_threshold_bytes", "Free space at or below which the status is fatal.",
     [](const FileSystem &fs) { return bytesOf(fs.fatalMiB); }},
    {"oxtfs_filesystem_monitored", "Whether the file system is monitored.",
     [](const FileSystem &fs) { return fs.monitored == 1 ? 1.0 : 0.0; }},
    {"oxtfs_filesystem_status", "Free-space status: 1 normal, 2 warning, 3 fatal, 0 not monitored, -1 unknown.",
     [](const FileSystem &fs) { return fs.status >= 0 && fs.status <= 3 ? static_cast<double>(fs.status) : -1.0; }},
};

std::string escaped(const std::string &value) {
    std::string text;
    for (const char c : asUtf8(value)) {
        if (c == '\\' || c == '"')
            text += '\\';
        text += c == '\n' ? std::string("\\n") : std::string(1, c);
    }
    return text;
}

std::string labelsOf(const FileSystem &fs) {
    return "{device=\"" + escaped(fs.device) + "\",mountpoint=\"" + escaped(fs.mountPoint) + "\",fstype=\"" +
           escaped(fs.type) + "\",index=\"" + escaped(fs.index) + "\",drive=\"" + driveName(fs.driveType) + "\"}";
}

std::string head(const std::string &name, const std::string &help, const std::string &type = "gauge") {
    return "# HELP " + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

std::string number(double value, int decimals = 0) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

std::string single(const std::string &name, const std::string &help, const std::string &value,
                   const std::string &type = "gauge") {
    return head(name, help, type) + name + " " + value + "\n";
}

struct ForecastFamily {
    const char *name, *help;
    double (*value)(const Forecast &);
};
constexpr ForecastFamily kForecasts[] = {
    {"oxtfs_filesystem_shrink_bytes_per_second",
     "Rate at which the available space shrinks, while it does so steadily.",
     [](const Forecast &forecast) { return forecast.mibPerHour * 1048576 / 3600; }},
    {"oxtfs_filesystem_full_seconds", "Time until the file system is full at that rate.",
     [](const Forecast &forecast) { return forecast.secondsToFull; }},
};

std::string forecastsText(const Metrics &metrics) {
    std::string text;
    for (const ForecastFamily &family : kForecasts) {
        std::string samples;
        std::set<std::string> shown;
        for (const FileSystem &fs : metrics.fileSystems) {
            const std::string labels = labelsOf(fs);
            if (shown.insert(labels).second && fs.outlook && fs.outlook->forecast)
                samples += family.name + labels + " " + number(family.value(*fs.outlook->forecast)) + "\n";
        }
        if (!samples.empty())
            text += head(family.name, family.help) + samples;
    }
    return text;
}

std::string upText(bool up) {
    return single("oxtfs_monitor_up", "Whether the monitor's last pass succeeded and none is missing.", up ? "1" : "0");
}

std::string monitorText(const MonitorMetrics &monitor) {
    return upText(monitor.up) +
           single("oxtfs_monitor_passes_total", "Passes of the monitor, failed ones included.",
                  std::to_string(monitor.passes), "counter") +
           single("oxtfs_monitor_failed_passes_total", "Passes that failed or never ended.",
                  std::to_string(monitor.failedPasses), "counter") +
           single("oxtfs_monitor_last_pass_duration_seconds", "How long the last pass took.",
                  number(monitor.lastPassSeconds, 6)) +
           single("oxtfs_monitor_last_success_timestamp_seconds", "When the last pass succeeded, 0 when none has.",
                  number(monitor.lastSuccess));
}

} // namespace

std::string prometheusText(const Metrics &metrics) {
    std::string text;
    for (const Family &family : kFamilies) {
        if (!metrics.fileSystems.empty())
            text += head(family.name, family.help);
        std::set<std::string> shown;
        for (const FileSystem &fs : metrics.fileSystems) {
            const std::string labels = labelsOf(fs);
            if (shown.insert(labels).second)
                text += family.name + labels + " " + number(family.value(fs)) + "\n";
        }
    }
    text += forecastsText(metrics);
    text += single("oxtfs_filesystems", "Number of file systems that the monitor keeps.",
                   std::to_string(metrics.fileSystems.size()));
    text += single("oxtfs_monitor_cycle_seconds", "Time between two looks at the file systems in service mode.",
                   std::to_string(metrics.cycleSeconds));
    text += single("oxtfs_last_update_timestamp_seconds", "When the file systems were last looked at.",
                   number(metrics.updated, 3));
    if (metrics.up)
        text += upText(*metrics.up);
    return metrics.monitor ? text + monitorText(*metrics.monitor) : text;
}

} // namespace oxttool
