#include "providerSegment.h"

#include <sys/ipc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>

#include "failure.h"
#include "process.h"

namespace oxttool {

namespace {

// Of a segment that we may not read, from the table that everybody may.
std::optional<shmid_ds> listed(int id) {
    std::ifstream table("/proc/sysvipc/shm");
    std::string line;
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        shmid_ds about = {};
        long key = 0, segment = -1, size = 0, touched = 0;
        unsigned mode = 0;
        fields >> key >> segment >> std::oct >> mode >> std::dec >> size >> about.shm_cpid >> about.shm_lpid >>
            about.shm_nattch >> about.shm_perm.uid >> about.shm_perm.gid >> about.shm_perm.cuid >>
            about.shm_perm.cgid >> touched >> touched >> about.shm_ctime;
        about.shm_perm.mode = static_cast<decltype(about.shm_perm.mode)>(mode);
        if (fields && segment == id)
            return about;
    }
    return std::nullopt;
}

bool isProviders(const shmid_ds &segment, const struct stat &keyFile) {
    if (!S_ISREG(keyFile.st_mode) || segment.shm_perm.cuid != keyFile.st_uid || (segment.shm_perm.mode & 0777) != 0600)
        return false;
    // No number: it was made in another process namespace, of which nothing can be told.
    return segment.shm_cpid == 0 || mayHaveActed(segment.shm_cpid, segment.shm_perm.cuid, segment.shm_ctime);
}

} // namespace

std::string keyFileOf(const std::string &root, int digit) {
    return root + "work/oxtfsshm.key" + std::to_string(digit);
}

std::optional<ProviderSegment> providerSegment(const std::string &keyFile) {
    struct stat file = {};
    const bool known = lstat(keyFile.c_str(), &file) == 0;
    if (!known && errno == EACCES)
        throw Failure(Exit::Environment, "whether a provider is running cannot be told: " + keyFile +
                                             " may not be looked at.\nRun oxtfsctl as root or as the provider's user.");
    const key_t key = known ? ftok(keyFile.c_str(), kKeyProject) : -1;
    ProviderSegment found;
    found.id = key == -1 ? -1 : shmget(key, 0, 0);
    if (found.id <= 0) // 0 is never a provider's
        return std::nullopt;
    found.readable = shmctl(found.id, IPC_STAT, &found.about) == 0;
    if (!found.readable) {
        const auto about = errno == EACCES ? listed(found.id) : std::nullopt;
        if (!about) // removed in between
            return std::nullopt;
        found.about = *about;
    }
    return isProviders(found.about, file) ? std::optional(found) : std::nullopt;
}

std::optional<ProviderAtWork> findProviderAtWork(const std::string &root) {
    for (int digit = 0; digit < kKeyFiles; ++digit) {
        const std::string keyFile = keyFileOf(root, digit);
        const auto segment = providerSegment(keyFile);
        if (segment && segment->about.shm_cpid != getpid())
            return ProviderAtWork{segment->about.shm_cpid, processName(segment->about.shm_cpid), keyFile};
    }
    return std::nullopt;
}

std::string nameOf(const ProviderAtWork &found) {
    if (found.pid == 0)
        return "a process that cannot be seen from here";
    return "process " + std::to_string(found.pid) + (found.process.empty() ? "" : " (" + found.process + ")");
}

} // namespace oxttool
