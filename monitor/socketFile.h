// The monitor's Unix sockets: where they lie, how one is made where others may have left theirs, and who asks.
#ifndef OXT_MONITOR_SOCKETFILE_H
#define OXT_MONITOR_SOCKETFILE_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "fd.h"

namespace oxttool {

inline constexpr const char *kSocketName = "oxtfs.sock";

// The directories that can hold a monitor's socket, in the order in which clients look: the agent's work directory,
// which is root's alone, and one that everybody may enter.
std::vector<std::string> socketDirectories(const std::string &root);

// A socket file that goes when this goes.
class SocketFile {
  public:
    // Listens in `directory`, which must belong to this user and be writable by nobody else. Everybody who may enter it
    // may connect. The socket of a monitor that died is replaced. Throws an environment failure, also for one that
    // lives. A path can be longer than the address of a socket can hold.
    explicit SocketFile(const std::string &directory);
    SocketFile(SocketFile &&) noexcept = default;
    SocketFile &operator=(SocketFile &&) = delete;
    ~SocketFile();
    int get() const { return listener_.get(); }
    const std::string &path() const { return path_; }

  private:
    std::string path_;
    Fd directory_, listener_;
};

// A connection to the monitor that listens in `directory`; no descriptor when none does. Only a monitor of root or of
// this user is believed.
Fd connectTo(const std::string &directory);

// The user at the other end of a Unix socket; nothing when it cannot be told.
std::optional<uid_t> peerOf(int socket);

} // namespace oxttool

#endif
