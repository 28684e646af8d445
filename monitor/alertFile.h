// The alerts of a machine without the agent: its alert stand-in writes them to a file, one JSON object per line.
#ifndef OXT_MONITOR_ALERTFILE_H
#define OXT_MONITOR_ALERTFILE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lineFile.h"

namespace oxttool {

struct Alert {
    std::string time, severity, event, device, mountPoint; // empty where the line has none
    std::optional<std::int64_t> newStatus;                 // a free-space status; none when the alert is not about one
    std::optional<std::uint64_t> freeMiB, sizeMiB, thresholdMiB;
};

// One line of the file; nothing when it is no JSON object. A member of another type than expected counts as missing.
std::optional<Alert> parseAlert(const std::string &line);

// The alerts that are written from now on.
class AlertFile {
  public:
    explicit AlertFile(std::string path) : lines_(std::move(path), LineFile::End) {}
    // The alerts of all lines completed since the last call. What is no alert is left out.
    std::vector<Alert> read();

  private:
    LineFile lines_;
};

} // namespace oxttool

#endif
