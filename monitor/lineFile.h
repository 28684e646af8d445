// A log that another process writes, line by line: followed through its being created, truncated, and renamed for a new
// one. Older files are NAME.1, NAME.2 and so on.
//
// Who writes in its directory may be another user than who reads. Only regular files are opened, by their own name and
// not by a link's, and however long one is, no call reads more than its end.
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
    enum Whose { Anybodys, Ours }; // Ours: of root or this user, else it is as if it was not there
    using Each = std::function<void(const std::string &line)>;

    LineFile(std::string path, Start start, Whose whose = Anybodys);

    // Hands over all lines completed since the last call, without their line feeds. A line of more than 64 KiB is left
    // out, and so is what lies more than kMostBytes before the end.
    void read(const Each &each);
    static constexpr off_t kMostBytes = 64 * 1024 * 1024;
    static constexpr int kMostFiles = 99; // with a number, as the writers have it
    // The same for the file that is open alone, whatever its name is now.
    void readOpened(const Each &each);
    // Hands over its last lines, the newest first, while `each` wants more: as many as lie in its last `most` bytes.
    // The result is how many bytes were looked at. What is written behind them is for the next call of the others.
    off_t readBackwards(off_t most, const std::function<bool(const std::string &line)> &each);

    bool isOpen() const { return static_cast<bool>(fd_); }
    // Whether both have the same file open.
    bool sharesFileWith(const LineFile &other) const;
    std::string numbered(int age) const { return path_ + "." + std::to_string(age); }

  private:
    bool open(const std::string &path);
    int newerFiles() const;
    void forgetLine();

    std::string path_;
    Whose whose_;
    Fd fd_;
    off_t offset_ = 0;
    std::string partial_;  // the beginning of a line whose end is not written yet
    bool tooLong_ = false; // the present line is being skipped
};

} // namespace oxttool

#endif
