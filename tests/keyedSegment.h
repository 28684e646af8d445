// A segment under the key of a file.
#ifndef OXT_KEYED_SEGMENT_H
#define OXT_KEYED_SEGMENT_H

#include <fstream>
#include <string>
#include <sys/ipc.h>
#include <sys/shm.h>

// The id of a new segment, above 0 as a provider's, or -1. The file's key may be that of anybody's segment: then the
// file is put aside under that name and a number, and the next one, with another inode, has another key.
inline int makeUnderKey(const std::string &keyFile, int project, std::size_t size, const std::string &aside) {
    for (int n = 1; n < 100; ++n) {
        std::ofstream(keyFile).close();
        const int id = shmget(ftok(keyFile.c_str(), project), size, IPC_CREAT | IPC_EXCL | 0600);
        if (id > 0)
            return id;
        if (id == 0)
            shmctl(id, IPC_RMID, nullptr);
        std::rename(keyFile.c_str(), (aside + std::to_string(n)).c_str());
    }
    return -1;
}

#endif
