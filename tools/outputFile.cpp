#include "outputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "failure.h"
#include "fd.h"
#include "hostedSession.h"
#include "shownText.h"

namespace oxttool {

namespace {

constexpr mode_t kMode = 0644;
constexpr int kTries = 10; // of several that write the same file at a time

Failure failure(const std::string &path, const std::string &why) {
    return {Exit::Environment, printable(path) + " cannot be written: " + why + "."};
}

// The directory itself, one step at a time: a link on the way may be put there by whoever owns what lies above.
Fd openDirectory(const std::string &path, const std::string &directory) {
    constexpr int flags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    Fd at(open(directory.front() == '/' ? "/" : ".", flags));
    for (std::size_t begin = 0; begin < directory.size();) {
        const std::size_t end = std::min(directory.find('/', begin), directory.size());
        const std::string step = directory.substr(begin, end - begin);
        struct stat state = {};
        if (!step.empty() && fstatat(at.get(), step.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISLNK(state.st_mode))
            throw failure(path, "'" + printable(directory.substr(0, end)) +
                                    "' is a symbolic link.\nName the directory itself");
        if (!step.empty())
            at = Fd(openat(at.get(), step.c_str(), flags));
        if (!at)
            throw failure(path, "'" + printable(directory.substr(0, end)) + "': " + std::strerror(errno));
        begin = end + 1;
    }
    struct stat state = {};
    if (fstat(at.get(), &state) != 0 || ((state.st_mode & S_IWOTH) != 0 && (state.st_mode & S_ISVTX) == 0))
        throw failure(path, "everybody can write in its directory");
    return at;
}

void write(const Fd &file, const std::string &path, const std::string &text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t now = ::write(file.get(), text.data() + done, text.size() - done);
        if (now < 0 && errno != EINTR)
            throw failure(path, std::strerror(errno));
        done += now > 0 ? static_cast<std::size_t>(now) : 0;
    }
    if (fchmod(file.get(), kMode) != 0)
        throw failure(path, std::strerror(errno));
}

// One try to bring the text to its name, by way of the name `part`. False, with errno, when it failed.
bool place(const Fd &directory, const std::string &path, const std::string &name, const std::string &part,
           const std::string &text) {
    // A file without a name is gone with its process. Not every file system knows such files.
    Fd file(openat(directory.get(), ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
    unlinkat(directory.get(), part.c_str(), 0);
    if (file) {
        write(file, path, text);
        const std::string open = "/proc/self/fd/" + std::to_string(file.get());
        if (linkat(AT_FDCWD, open.c_str(), directory.get(), part.c_str(), AT_SYMLINK_FOLLOW) != 0)
            return false;
    } else {
        file = Fd(openat(directory.get(), part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!file)
            return false;
        write(file, path, text);
    }
    if (renameat(directory.get(), part.c_str(), directory.get(), name.c_str()) == 0)
        return true;
    const int error = errno;
    unlinkat(directory.get(), part.c_str(), 0);
    errno = error;
    return false;
}

} // namespace

void deliver(const std::string &text, const std::string &path) {
    if (path.empty()) {
        std::fputs(text.c_str(), stdout);
        return;
    }
    const std::size_t slash = path.rfind('/');
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    if (name.empty() || name == "." || name == "..")
        throw failure(path, "it names a directory");
    const SignalsHeld held;
    const Fd directory =
        openDirectory(path, slash == std::string::npos ? "." : path.substr(0, std::max<std::size_t>(slash, 1)));
    for (int i = 1; !place(directory, path, name, "." + name + ".part", text); ++i)
        if (i == kTries || (errno != EEXIST && errno != ENOENT))
            throw failure(path, std::strerror(errno));
}

} // namespace oxttool
