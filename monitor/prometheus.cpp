#include "prometheus.h"

#include <cstdio>
#include <map>
#include <utility>

#include "shownText.h"
#include "values.h"

namespace oxttool {

namespace {

double bytesOf(std::uint64_t mib) {
    return static_cast<double>(mib) * 1048576;
}

double statusOf(const FileSystem &fs) {
    return fs.status >= 0 && fs.status <= 3 ? static_cast<double>(fs.status) : -1.0;
}

using Value = std::optional<double>; // none: the file system has no such sample
struct Family {
    const char *name, *help;
    Value (*value)(const FileSystem &);
};

Value ifMeasured(const FileSystem &fs, std::uint64_t mib) {
    return fs.isMeasured() ? Value(bytesOf(mib)) : std::nullopt;
}
Value ifForeseen(const FileSystem &fs, double (*value)(const Forecast &)) {
    return fs.outlook && fs.outlook->forecast ? Value(value(*fs.outlook->forecast)) : std::nullopt;
}

constexpr Family kFamilies[] = {
    {"oxtfs_filesystem_size_bytes", "Size of the file system; missing when it could not be measured.",
     [](const FileSystem &fs) { return ifMeasured(fs, fs.sizeMiB); }},
    {"oxtfs_filesystem_avail_bytes",
     "Space that unprivileged users can still write; missing when it could not be measured.",
     [](const FileSystem &fs) { return ifMeasured(fs, fs.freeMiB); }},
    {"oxtfs_filesystem_warning_threshold_bytes", "Free space at or below which the status is warning.",
     [](const FileSystem &fs) { return ifMeasured(fs, fs.warningMiB); }},
    {"oxtfs_filesystem_fatal_threshold_bytes", "Free space at or below which the status is fatal.",
     [](const FileSystem &fs) { return ifMeasured(fs, fs.fatalMiB); }},
    {"oxtfs_filesystem_monitored", "Whether the file system is monitored.",
     [](const FileSystem &fs) { return Value(fs.monitored == 1 ? 1 : 0); }},
    {"oxtfs_filesystem_status", "Free-space status: 1 normal, 2 warning, 3 fatal, 0 not monitored, -1 unknown.",
     [](const FileSystem &fs) { return Value(statusOf(fs)); }},
    {"oxtfs_filesystem_shrink_bytes_per_second",
     "Rate at which the available space shrinks, while it does so steadily.",
     [](const FileSystem &fs) {
         return ifForeseen(fs, [](const Forecast &forecast) { return forecast.mibPerHour * 1048576 / 3600; });
     }},
    {"oxtfs_filesystem_full_seconds", "Time until the file system is full at that rate.",
     [](const FileSystem &fs) {
         return ifForeseen(fs, [](const Forecast &forecast) { return forecast.secondsToFull; });
     }},
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

// What stays the same while others are mounted and unmounted: not the index.
std::string labelsOf(const FileSystem &fs) {
    return "{mountpoint=\"" + escaped(fs.mountPoint) + "\",device=\"" + escaped(fs.device) + "\",fstype=\"" +
           escaped(fs.type) + "\"}";
}

struct Labelled {
    std::string labels;
    const FileSystem *fs;
};

// One for each set of labels, in the order of their first: the worst, so that no healthy twin hides it.
std::vector<Labelled> labelled(const std::vector<FileSystem> &fileSystems) {
    const auto badness = [](const FileSystem &fs) { return std::pair(statusOf(fs), -bytesOf(fs.freeMiB)); };
    std::vector<Labelled> all;
    std::map<std::string, std::size_t> places;
    for (const FileSystem &fs : fileSystems) {
        const auto [place, isNew] = places.emplace(labelsOf(fs), all.size());
        if (isNew)
            all.push_back({place->first, &fs});
        else if (const FileSystem *&shown = all[place->second].fs; badness(fs) > badness(*shown))
            shown = &fs;
    }
    return all;
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

std::string upText(bool up) {
    return single("oxtfs_monitor_up",
                  "Whether a monitor looks at the file systems, with success; when 0, nobody sends alerts.",
                  up ? "1" : "0");
}

std::string passesText(const PassMetrics &passes) {
    return single("oxtfs_monitor_passes_total", "Passes of the monitor, failed ones included.",
                  std::to_string(passes.passes), "counter") +
           single("oxtfs_monitor_failed_passes_total", "Passes that failed or never ended.",
                  std::to_string(passes.failed), "counter") +
           single("oxtfs_monitor_last_pass_duration_seconds", "How long the last pass took.",
                  number(passes.lastSeconds, 6));
}

} // namespace

std::string prometheusText(const Metrics &metrics) {
    const std::vector<Labelled> all = labelled(metrics.fileSystems);
    std::string text;
    for (const Family &family : kFamilies) {
        std::string samples;
        for (const Labelled &one : all)
            if (const Value value = family.value(*one.fs))
                samples += family.name + one.labels + " " + number(*value) + "\n";
        if (!samples.empty())
            text += head(family.name, family.help) + samples;
    }
    text += single("oxtfs_filesystems", "Number of file systems that the monitor keeps.",
                   std::to_string(metrics.fileSystems.size()));
    text += single("oxtfs_monitor_cycle_seconds", "Time between two looks at the file systems in service mode.",
                   std::to_string(metrics.cycleSeconds));
    text += single("oxtfs_last_update_timestamp_seconds", "When the file systems were last looked at, by whomever.",
                   number(metrics.updated, 3));
    text += upText(metrics.up);
    if (metrics.lastSuccess)
        text += single("oxtfs_monitor_last_success_timestamp_seconds",
                       "When a look of the monitor last succeeded, 0 when none has.", number(*metrics.lastSuccess));
    return metrics.passes ? text + passesText(*metrics.passes) : text;
}

std::string prometheusTextOfNobody() {
    return upText(false);
}

} // namespace oxttool
