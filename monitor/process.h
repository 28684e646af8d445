// Other processes, as /proc tells of them.
#ifndef OXT_MONITOR_PROCESS_H
#define OXT_MONITOR_PROCESS_H

#include <sys/types.h>

#include <ctime>
#include <string>

namespace oxttool {

// Printable; empty when it cannot be told.
std::string processName(pid_t pid);

// Whether the process with that number may have done something as `user` at `then`: whether it lives, is this user's
// and was there. Numbers are given out again, and any user can make processes until one of them has a dead process's
// number. What cannot be told (/proc hides other users' processes) counts as a yes.
bool mayHaveActed(pid_t pid, uid_t user, std::time_t then);

} // namespace oxttool

#endif
