#include "oxtFile.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

OxtFile oxtOpenFile(const char *path, const char *mode) {
    const int flags = mode[0] == 'r' ? O_RDWR : O_WRONLY | O_CREAT;
    // O_NONBLOCK: a pipe in the file's place must not block; a regular file knows no difference.
    const int fd = open(path, flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (fd == -1)
        return nullptr;
    OxtFile file(fdopen(fd, mode));
    if (file == nullptr) {
        const int error = errno;
        close(fd);
        errno = error;
    }
    return file;
}
