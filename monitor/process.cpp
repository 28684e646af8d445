#include "process.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>

#include "shownText.h"

namespace oxttool {

namespace {

// Clocks of different steps are compared, and the machine's may be corrected by a little meanwhile.
constexpr double kSlack = 2; // seconds
constexpr const char *kProvider = "/libOXTFileSystemProvider.so";

std::string entryOf(pid_t pid, const char *file) {
    return "/proc/" + std::to_string(pid) + "/" + file;
}

struct Status {
    char state;
    std::uint64_t started; // clock ticks after the machine's start
};

std::optional<Status> statusOf(pid_t pid) {
    std::ifstream file(entryOf(pid, "stat"));
    const std::string line{std::istreambuf_iterator<char>(file), {}};
    const auto name = line.rfind(')'); // which may hold any character before it, a line feed too
    if (name == std::string::npos)
        return std::nullopt;
    std::istringstream rest(line.substr(name + 1));
    Status status = {};
    rest >> status.state;
    constexpr int between = 18; // fields between the state and the start
    std::string ignored;
    for (int i = 0; i < between; ++i)
        rest >> ignored;
    rest >> status.started;
    return rest ? std::optional(status) : std::nullopt;
}

double now(clockid_t clock) {
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double startOf(const Status &status) {
    const double age =
        now(CLOCK_BOOTTIME) - static_cast<double>(status.started) / static_cast<double>(sysconf(_SC_CLK_TCK));
    return now(CLOCK_REALTIME) - age;
}

// Whether it has the provider's library loaded; yes when it may not be looked at.
bool hasProvider(pid_t pid) {
    errno = 0;
    std::ifstream maps(entryOf(pid, "maps"));
    std::string line;
    if (!maps || (!std::getline(maps, line) && errno == EACCES))
        return errno == EACCES || errno == EPERM;
    do
        if (line.find(kProvider) != std::string::npos)
            return true;
    while (std::getline(maps, line));
    return false;
}

} // namespace

std::string processName(pid_t pid) {
    std::ifstream file(entryOf(pid, "comm"));
    std::string name;
    std::getline(file, name);
    return printable(name);
}

bool mayHaveActed(pid_t pid, uid_t user, std::time_t then) {
    if (pid <= 0 || (kill(pid, 0) != 0 && errno != EPERM))
        return false;
    struct stat owner = {};
    if (stat(entryOf(pid, ".").c_str(), &owner) == 0 && owner.st_uid != user)
        return false; // another's
    const auto status = statusOf(pid);
    if (!status)
        return true;
    if (status->state == 'Z') // dead, and its parent has not noticed
        return false;
    // A clock that was set forward since, as it happens while a machine starts, makes everybody seem to have begun
    // later.
    return startOf(*status) <= static_cast<double>(then) + kSlack || hasProvider(pid);
}

} // namespace oxttool
