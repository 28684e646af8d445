#include "sharedMemory.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "records.h"

namespace oxttool {

namespace {

const char *helpAgainst(int error) {
    switch (error) {
    case ENOSPC:
        return "All segments or all their memory are taken: 'ipcs -m' shows by whom, 'ipcrm -m ID' removes one that "
               "nobody "
               "needs, 'sysctl kernel.shmmni kernel.shmall' shows the limits.";
    case ENOSYS:
        return "This kernel was built without System V shared memory, or a container or sandbox keeps it away.";
    case EINVAL:
        return "A segment of that size is not allowed: 'sysctl kernel.shmmax' shows the limit in bytes.";
    default:
        return "'ipcs -l' shows the limits.";
    }
}

} // namespace

int sharedMemoryRefusal(std::size_t fileSystems) {
    int error = 0, made[3];
    const std::size_t sizes[] = {kConfigBytes, kTotalBytes, std::max<std::size_t>(fileSystems, 1) * kFileSystemBytes};
    for (int i = 0; i < 3; ++i) {
        made[i] = error == 0 ? shmget(IPC_PRIVATE, sizes[i], IPC_CREAT | 0600) : -1;
        error = made[i] == -1 && error == 0 ? errno : error;
    }
    for (const int id : made)
        if (id != -1)
            shmctl(id, IPC_RMID, nullptr);
    return error;
}

Failure noSharedMemory(int error) {
    return {Exit::NoSharedMemory, "the provider cannot have shared memory: " + std::string(std::strerror(error)) +
                                      " (errno " + std::to_string(error) + " of shmget).\n" + helpAgainst(error)};
}

} // namespace oxttool
