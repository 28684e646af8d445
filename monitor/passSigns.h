// The signs of the provider's passes: a save file that was written, and lines of failure in the trace log.
#ifndef OXT_MONITOR_PASSSIGNS_H
#define OXT_MONITOR_PASSSIGNS_H

#include <chrono>
#include <ctime>
#include <optional>
#include <string>

#include "fd.h"
#include "lineFile.h"

namespace oxttool {

// Follows the save file, through the data directory's being removed and made again.
class SaveSigns {
  public:
    explicit SaveSigns(const std::string &root);
    int fd() const { return events_.get(); }
    // How often the file has been written since the last call. Looks for the directory where it was lost.
    unsigned writes();
    bool isLost() const { return watch_ < 0; } // fd() tells nothing then

  private:
    void find();

    std::string directory_;
    Fd events_;
    int watch_ = -1;
    bool changed_ = false; // written and still open
};

// Whether the save file has all the records that it announces: a full disk cuts it short.
bool isSaveWhole(const std::string &root);

struct TracedFailure {
    std::string reason;
    std::chrono::system_clock::time_point time;
};

// The failures of this process in the trace log of the agent's stand-in. The log's directory may be another account's:
// only a log that root or this process wrote is believed.
class TraceSigns {
  public:
    explicit TraceSigns(const std::string &root);
    // The reason of a pass, or of the save at the end, that failed after `since`, if one did: its first failure. Each
    // is told once.
    std::optional<TracedFailure> failure(std::time_t since);

  private:
    LineFile lines_;
};

// What is wrong with the agent's directory; empty when nothing is.
std::string directoryProblem(const std::string &root);
// The reason of a failure, with that behind it; where neither is known, that the save file is not whole.
std::string withDirectoryProblem(const std::string &reason, const std::string &root);

// "fopen Failure!! err=[2]" with the error's own words.
std::string explainedFailure(const std::string &text);

} // namespace oxttool

#endif
