// The log files of the agent on the disk: opening one for appending, and giving a full one a number.
//
// No state. Several threads and processes may do either on the same file at once: appending is O_APPEND with one write
// per line, and whoever rotates holds an advisory lock (flock) on the file itself.
#ifndef AGENT_FILE_H
#define AGENT_FILE_H

#include <cstdint>
#include <sys/stat.h>

namespace agent {

// The file opened for appending, created with mode 0640 when it is missing, and its status in `status`; -1 with errno
// when it cannot be opened or is no regular file (a symbolic link is not followed). `access` is O_WRONLY or O_RDWR. The
// descriptor is closed on exec and is never one of the three standard ones.
int openAppend(const char *path, int access, struct stat &status);

// Renames a log of at least `full` bytes to <path>.1, an older <path>.1 to <path>.2 and so on, so that `files` files
// stay with the new log that the next openAppend creates. True when `path` no longer names the full file, whoever moved
// it; false when it still does because it could not be renamed or another process has been about to for long.
bool rotate(const char *path, int files, std::int64_t full);

// Takes the advisory lock on an open file, which flock(file, LOCK_UN) gives back; false when somebody else keeps it for
// longer than some 20 ms.
bool lockBriefly(int file);

// Whether both describe the same file.
inline bool sameFile(const struct stat &one, const struct stat &other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// How large the process may make a file. Writing past it raises a signal that ends the process, so nobody may try.
std::int64_t largestFile();

} // namespace agent

#endif
