#include "agentDir.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "failure.h"

namespace oxttool {

namespace {

constexpr const char *kLockName = "work/oxtfsctl.lock";
constexpr auto kLockPatience = std::chrono::seconds(3);

Failure environment(const std::string &text) {
    return {Exit::Environment, text};
}

// Whoever can write in it can replace every file of it. Root's account and ours are believed, and a group that the
// administrator has given the right.
void checkWriters(const std::string &path, const struct stat &state) {
    if ((state.st_mode & S_IWOTH) != 0)
        throw environment("the agent's directory " + path +
                          " can be written by everybody.\nSee that nobody has changed " +
                          "its files, and run: chmod o-w " + path);
    if (state.st_uid != 0 && state.st_uid != geteuid())
        throw environment("the agent's directory " + path + " belongs to user " + std::to_string(state.st_uid) +
                          ", who can replace its files.\nRun oxtfsctl as this user, or: chown root " + path);
}

// One that others may open, they may lock for ever.
void checkLock(const std::string &path) {
    struct stat state = {};
    if (lstat(path.c_str(), &state) == 0 &&
        (!S_ISREG(state.st_mode) || (state.st_mode & 077) != 0 || (state.st_uid != 0 && state.st_uid != geteuid())))
        throw environment("the lock " + path + " is another user's, or others may open it.\nRemove it: rm " + path);
    if (access(path.c_str(), R_OK | W_OK) != 0 && errno != ENOENT)
        throw environment("the lock " + path + " cannot be opened: " + std::strerror(errno) +
                          ".\nRun oxtfsctl as root or as its owner.");
}

} // namespace

std::string agentDirectory() {
    return OXT_AGENT_DIR;
}

void checkAgentDirectory(const std::string &root) {
    for (const char *name : {"data", "work", "log"}) {
        const std::string path = root + name;
        struct stat state = {};
        const bool known = stat(path.c_str(), &state) == 0;
        if (!known && (errno == ENOENT || errno == ENOTDIR))
            throw Failure(Exit::Environment, "the agent's directory " + path + " is missing.\nMake it: mkdir -p " +
                                                 root + "data " + root + "work " + root + "log");
        if (known && !S_ISDIR(state.st_mode))
            throw Failure(Exit::Environment, path + " is not a directory.\nMove it away and make one: mkdir " + path);
        if (access(path.c_str(), R_OK | W_OK | X_OK) != 0)
            throw environment("the agent's directory " + path + " cannot be written: " + std::strerror(errno) + ".\n" +
                              (errno == EROFS ? "Its file system is read-only: mount it for writing, or use 'oxtfsctl "
                                                "save' and 'oxtfsctl log', which only read."
                                              : "Run oxtfsctl as root or as its owner."));
        if (std::strcmp(name, "log") != 0) // another account may well write logs
            checkWriters(path, state);
    }
    checkLock(root + kLockName);
}

Fd lockWork(const std::string &root, std::chrono::milliseconds patience) {
    constexpr auto kPause = std::chrono::milliseconds(50);
    constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    Fd lock(open((root + kLockName).c_str(), kFlags, 0600));
    if (!lock)
        return Fd();
    for (auto waited = std::chrono::milliseconds(0); flock(lock.get(), LOCK_EX | LOCK_NB) != 0; waited += kPause) {
        if (errno != EWOULDBLOCK || waited >= patience)
            return Fd();
        std::this_thread::sleep_for(kPause);
    }
    return lock;
}

std::string describe(const ProviderAtWork &found) {
    return "a provider in " + nameOf(found) + " is at work here: it keeps its records in shared memory under " +
           found.keyFile +
           ".\nTo see its records use 'oxtfsctl list'. To change settings use its object manager, or stop that process "
           "first.\nIf no provider runs there, repeat with --force: two at once overwrite each other's settings.";
}

Workplace enterWork(const std::string &root) {
    Workplace place;
    place.lock = lockWork(root, kLockPatience); // first, so that the provider of another command is gone
    place.lockError = place.lock ? 0 : errno;
    try {
        place.provider = findProviderAtWork(root);
    } catch (const Failure &) { // it may not be looked at
    }
    return place;
}

} // namespace oxttool
