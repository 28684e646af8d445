// A log that another process writes, line by line: followed through its being created, truncated, and renamed for a new
// one. Older files are NAME.1, NAME.2 and so on.
#ifndef OXT_MONITOR_LINEFILE_H
#define OXT_MONITOR_LINEFILE_H

#include <sys/stat.h>
#include <sys/types.h>

#include <functional>
#include <string>

#include "fd.h"

namespace oxttool {

class LineFile {
  public:
    enum Start { Beginning, End };
    using Each = std::function<void(const std::string &line)>;

    LineFile(std::string path, Start start);

    // Hands over all lines completed since the last call, without their line feeds. A line of more than 64 KiB is left
    // out.
    void read(const Each &each);
    // The same for the file that is open alone, whatever its name is now.
    void readOpened(const Each &each);

    bool isOpen() const { return static_cast<bool>(fd_); }
    // Whether both have the same file open.
    bool sharesFileWith(const LineFile &other) const;
    std::string numbered(int age) const { return path_ + "." + std::to_string(age); }

  private:
    bool open(const std::string &path);
    int newerFiles() const;

    std::string path_;
    Fd fd_;
    off_t offset_ = 0;
    std::string partial_;  // the beginning of a line whose end is not written yet
    bool tooLong_ = false; // the present line is being skipped
};

} // namespace oxttool

#endif
