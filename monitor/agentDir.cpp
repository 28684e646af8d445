#include "agentDir.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <thread>

#include "failure.h"
#include "values.h"

namespace oxttool {

namespace {

constexpr int kKeyFiles = 3;
constexpr auto kLockPatience = std::chrono::seconds(3);

std::optional<ProviderAtWork> lookAtSegment(const std::string &keyFile) {
    const key_t key = ftok(keyFile.c_str(), kKeyProject);
    if (key == -1)
        return std::nullopt; // no key file, no segment under it
    const int id = shmget(key, 0, 0);
    if (id == -1 && errno != EACCES)
        return std::nullopt;
    shmid_ds state = {};
    if (id == -1 || shmctl(id, IPC_STAT, &state) == -1) {
        if (errno == EACCES)
            return ProviderAtWork{0, "", keyFile}; // another user's
        return std::nullopt;                       // removed in between
    }
    const pid_t maker = state.shm_cpid;
    const bool makerLives = maker != getpid() && isAlive(maker);
    if (!makerLives && state.shm_nattch == 0)
        return std::nullopt; // left behind by a process that died
    return ProviderAtWork{maker, processName(maker), keyFile};
}

} // namespace

std::string agentDirectory() {
    return OXT_AGENT_DIR;
}

std::string keyFileOf(const std::string &root, int digit) {
    return root + "work/oxtfsshm.key" + std::to_string(digit);
}

bool isAlive(pid_t pid) {
    return pid > 0 && (kill(pid, 0) == 0 || errno == EPERM);
}

std::string processName(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(file, name);
    return printable(name);
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
            throw Failure(Exit::Environment, "the agent's directory " + path + " cannot be written: " +
                                                 std::strerror(errno) + ".\nRun oxtfsctl as root or as its owner.");
    }
}

Fd lockWork(const std::string &root, std::chrono::milliseconds patience) {
    constexpr auto kPause = std::chrono::milliseconds(50);
    Fd work(open((root + "work").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!work)
        return Fd();
    for (auto waited = std::chrono::milliseconds(0); flock(work.get(), LOCK_EX | LOCK_NB) != 0; waited += kPause) {
        if (errno != EWOULDBLOCK || waited >= patience)
            return Fd();
        std::this_thread::sleep_for(kPause);
    }
    return work;
}

std::optional<ProviderAtWork> findProviderAtWork(const std::string &root) {
    for (int digit = 0; digit < kKeyFiles; ++digit)
        if (auto found = lookAtSegment(keyFileOf(root, digit)))
            return found;
    return std::nullopt;
}

std::string nameOf(const ProviderAtWork &found) {
    if (found.pid == 0)
        return "another user's process";
    return "process " + std::to_string(found.pid) + (found.process.empty() ? "" : " (" + found.process + ")");
}

std::string describe(const ProviderAtWork &found) {
    return "a provider in " + nameOf(found) + " is at work here: it keeps its records in shared memory under " +
           found.keyFile +
           ".\n'oxtfsctl peek' shows them. Ask it through its object manager, or end it first. If you know that it is "
           "none, --force goes on; two providers at once would overwrite each other's settings.";
}

Workplace enterWork(const std::string &root) {
    Fd lock = lockWork(root, kLockPatience); // first, so that the provider of another command is gone
    return {std::move(lock), findProviderAtWork(root)};
}

} // namespace oxttool
