// The alerts of a machine without the agent: its alert stand-in writes them to a file, one JSON object per line.
#ifndef OXT_TOOL_ALERTFILE_H
#define OXT_TOOL_ALERTFILE_H

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fd.h"

namespace oxttool {

struct Alert {
    std::string time, severity, event, device, mountPoint; // empty where the line has none
    std::optional<std::int64_t> newStatus;                 // a free-space status; none when the alert is not about one
    std::string freeMiB, sizeMiB, thresholdMiB;            // decimal, empty where the line has none
};

// One line of the file; nothing when it is no JSON object. A member of another type than expected counts as missing.
std::optional<Alert> parseAlert(const std::string &line);

// Follows the file from where it ends now, through its being created, truncated, and renamed for a new one.
class AlertFile {
  public:
    explicit AlertFile(std::string path);
    // The alerts of all lines completed since the last call. What is no alert is left out.
    std::vector<Alert> read();

  private:
    bool reopen();
    void readOn(std::vector<Alert> &alerts);

    std::string path_;
    Fd fd_;
    off_t offset_ = 0;
    std::string partial_;  // the beginning of a line whose end is not written yet
    bool tooLong_ = false; // the present line is being skipped
};

} // namespace oxttool

#endif
