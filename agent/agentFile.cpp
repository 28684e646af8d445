#include "agentFile.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

namespace agent {

namespace {

constexpr int kMostFiles = 100; // how far older numbers are looked for when the number of files was lowered

bool numbered(char (&name)[PATH_MAX], const char *path, int number) {
    const int length = std::snprintf(name, sizeof name, "%s.%d", path, number);
    return length > 0 && static_cast<std::size_t>(length) < sizeof name;
}

// The oldest first, the live log last: whoever sees a new log at `path` sees the rotation finished.
bool shift(const char *path, int files) {
    char older[PATH_MAX];
    char newer[PATH_MAX];
    for (int number = files; number < kMostFiles && numbered(older, path, number); ++number)
        if (unlink(older) != 0)
            break;
    for (int number = files - 1; number > 1; --number) {
        // A gap in the row is no failure; what cannot be moved is overwritten, so that the whole stays bounded.
        if (numbered(older, path, number) && numbered(newer, path, number - 1))
            (void)std::rename(newer, older);
    }
    return numbered(newer, path, 1) && std::rename(path, newer) == 0;
}

} // namespace

int openAppend(const char *path, int access, struct stat &status) {
    // O_NONBLOCK: a fifo in the place of the log must not hold the caller; it means nothing to a regular file.
    int file = open(path, access | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0640);
    if (file >= 0 && file <= STDERR_FILENO) {
        // A host that closed its standard streams would print into the log.
        const int moved = fcntl(file, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        (void)close(file);
        file = moved;
    }
    if (file < 0)
        return -1;
    if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) {
        (void)close(file);
        errno = EINVAL;
        return -1;
    }
    return file;
}

bool rotate(const char *path, int files, std::int64_t full) {
    // A description of its own: one shared with the parent by fork would share its lock with the parent too.
    const int file = open(path, O_WRONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (file < 0)
        return errno == ENOENT;
    bool moved = false;
    if (lockBriefly(file)) {
        struct stat held = {};
        struct stat named = {};
        if (fstat(file, &held) == 0) {
            const bool gone = lstat(path, &named) != 0 || !sameFile(held, named);
            moved = gone || held.st_size < full || shift(path, files);
        }
        // Said aloud: a process forked a moment ago holds this description as well.
        (void)flock(file, LOCK_UN);
    }
    (void)close(file);
    return moved;
}

bool lockBriefly(int file) {
    constexpr timespec kStep = {0, 500000};
    constexpr int kSteps = 40;
    int step = 0;
    while (step < kSteps && flock(file, LOCK_EX | LOCK_NB) != 0) {
        (void)nanosleep(&kStep, nullptr);
        ++step;
    }
    return step < kSteps;
}

std::int64_t largestFile() {
    struct rlimit limit = {};
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur > static_cast<rlim_t>(INT64_MAX))
        return INT64_MAX;
    return static_cast<std::int64_t>(limit.rlim_cur);
}

} // namespace agent
