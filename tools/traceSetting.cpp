#include "traceSetting.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>

#include "failure.h"
#include "fd.h"

namespace oxttool {

namespace {

constexpr std::size_t kMostBytes = 4096; // what the stand-in reads of it

// Without the blanks in front of a line; "normal" and then a blank or "=" begin the setting.
bool isNormalSetting(const std::string &line) {
    const std::size_t begin = line.find_first_not_of(" \t");
    if (begin == std::string::npos || line.compare(begin, 6, "normal") != 0)
        return false;
    const std::size_t next = line.find_first_not_of(" \t", begin + 6);
    return next != std::string::npos && line[next] == '=';
}

Failure problem(const std::string &path) {
    return {Exit::Environment, "cannot write " + path + ": " + std::strerror(errno) + ".\nRun oxtfsctl as root."};
}

} // namespace

std::string withNormalLines(const std::string &text, const std::string &value) {
    std::string changed;
    bool found = false;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const bool setting = isNormalSetting(line);
        const std::size_t remark = setting ? line.find('#') : std::string::npos;
        changed +=
            setting ? "normal = " + value + (remark != std::string::npos ? " " + line.substr(remark) : "") : line;
        changed += "\n";
        found = found || setting;
    }
    return found ? changed : changed + "normal = " + value + "\n";
}

void writeTraceSetting(const std::string &root, const std::string &value) {
    const std::string path = root + "log/svtrace.conf", fresh = path + ".new";
    char text[kMostBytes];
    ssize_t length = 0;
    struct stat state = {};
    if (const Fd old(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK)); old) {
        if (fstat(old.get(), &state) == 0 && !S_ISREG(state.st_mode))
            throw Failure(Exit::Environment, path + " is not a regular file.\nMove it away.");
        if ((length = read(old.get(), text, sizeof text)) < 0)
            throw problem(path);
    } else if (errno != ENOENT) {
        throw problem(path);
    }
    const std::string changed = withNormalLines(std::string(text, static_cast<std::size_t>(length)), value);
    unlink(fresh.c_str());
    const Fd file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (!file || write(file.get(), changed.data(), changed.size()) != static_cast<ssize_t>(changed.size()) ||
        std::rename(fresh.c_str(), path.c_str()) != 0) {
        const Failure failure = problem(path);
        unlink(fresh.c_str());
        throw failure;
    }
}

} // namespace oxttool
