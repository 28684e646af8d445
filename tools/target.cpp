#include "target.h"

#include <mntent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>

#include "failure.h"
#include "shownText.h"
#include "values.h"

namespace oxttool {

namespace {

constexpr unsigned kHighestIndex = 65535;
constexpr const char *kHint = "\n'oxtfsctl list' shows the file systems.";

std::vector<FileSystem> those(const std::vector<FileSystem> &all,
                              const std::function<bool(const FileSystem &)> &wanted) {
    std::vector<FileSystem> found;
    std::copy_if(all.begin(), all.end(), std::back_inserter(found), wanted);
    return found;
}

// A provider replaces what is no text for its clients, each byte by U+FFFD: what is left of both names is compared.
std::string comparable(const std::string &name) {
    const std::string replaced = "\xEF\xBF\xBD";
    std::string text;
    for (std::string rest = asUtf8(name); !rest.empty();) {
        const bool mark = rest.compare(0, replaced.size(), replaced) == 0;
        const bool odd = mark || (static_cast<unsigned char>(rest[0]) < 0x20 && !std::strchr("\t\n\r", rest[0]));
        if (!odd || text.empty() || text.back() != '\0')
            text += odd ? '\0' : rest[0];
        rest.erase(0, mark ? replaced.size() : 1);
    }
    return text;
}

std::string withoutSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

std::vector<FileSystem> byName(const std::vector<FileSystem> &all, const std::string &name,
                               std::string FileSystem::*which) {
    auto found = those(all, [&](const FileSystem &fs) { return fs.*which == name; });
    if (found.empty())
        found = those(all, [&](const FileSystem &fs) { return comparable(fs.*which) == comparable(name); });
    return found;
}

// Another name of a device: a link, or one of the device mapper's.
std::vector<FileSystem> byDeviceNode(const std::vector<FileSystem> &all, const std::string &target) {
    struct stat meant = {};
    if (stat(target.c_str(), &meant) != 0 || !S_ISBLK(meant.st_mode))
        return {};
    return those(all, [&meant](const FileSystem &fs) {
        struct stat state = {};
        return stat(fs.device.c_str(), &state) == 0 && S_ISBLK(state.st_mode) && state.st_rdev == meant.st_rdev;
    });
}

struct Mount {
    std::string point, type;
};

// The mount that holds the path, which is absolute and without links.
Mount mountOf(const std::string &path) {
    Mount found;
    const std::unique_ptr<FILE, decltype(&endmntent)> table(setmntent("/proc/self/mounts", "re"), &endmntent);
    while (const mntent *entry = table ? getmntent(table.get()) : nullptr) {
        const std::string point = entry->mnt_dir;
        const bool holds = path == point || point == "/" || path.compare(0, point.size() + 1, point + "/") == 0;
        if (holds && point.size() >= found.point.size()) // the last one lies on top
            found = {point, entry->mnt_type};
    }
    return found;
}

std::vector<FileSystem> byFile(const std::vector<FileSystem> &all, const std::string &target) {
    const std::unique_ptr<char, decltype(&std::free)> path(realpath(target.c_str(), nullptr), &std::free);
    if (!path && errno == ENOENT)
        throw Failure(Exit::Refused,
                      "no mount point, device, file or directory is called '" + printable(target) + "'." + kHint);
    if (!path)
        throw Failure(Exit::Refused, "cannot find '" + printable(target) + "': " + std::strerror(errno) + "." + kHint);
    const Mount mount = mountOf(path.get());
    auto found = byName(all, mount.point, &FileSystem::mountPoint);
    if (found.empty())
        throw Failure(Exit::Refused, "'" + printable(target) + "' is on " + printable(mount.point) + " (" +
                                         printable(mount.type) +
                                         "), which the provider does not list: it lists disk file systems." + kHint);
    return found;
}

std::vector<FileSystem> byDeviceNodeOrFile(const std::vector<FileSystem> &all, const std::string &target) {
    const auto found = byDeviceNode(all, target);
    return found.empty() ? byFile(all, target) : found;
}

// Those whose mount point, else whose device has the name.
std::vector<FileSystem> named(const std::vector<FileSystem> &all, const std::string &name) {
    const auto found = byName(all, withoutSlashes(name), &FileSystem::mountPoint);
    return found.empty() ? byName(all, withoutSlashes(name), &FileSystem::device) : found;
}

} // namespace

void checkTarget(const std::string &target) {
    if (isIndex(target))
        parseNumber(target, 1, kHighestIndex, "an index");
}

std::vector<FileSystem> findAll(const std::vector<FileSystem> &all, const std::string &target) {
    if (isIndex(target)) {
        const auto found = those(all, [&](const FileSystem &fs) {
            return std::strtoul(fs.index.c_str(), nullptr, 10) == std::strtoul(target.c_str(), nullptr, 10);
        });
        if (found.empty())
            throw Failure(Exit::Refused, "no file system has the index " + target + "." + kHint);
        return found;
    }
    const std::string copied = unprintable(target);
    const auto found = named(all, copied);
    if (copied == target)
        return found.empty() ? byDeviceNodeOrFile(all, target) : found;
    // A stranger may have named a directory the way another's name is shown. What we print means the other, a name
    // from elsewhere this one: it is not for us to choose.
    struct stat state = {};
    const auto literal = named(all, target);
    const bool isName = !literal.empty() || stat(target.c_str(), &state) == 0;
    const bool isShown = !found.empty() || stat(copied.c_str(), &state) == 0;
    if (isName && isShown)
        throw Failure(Exit::Refused, "two things can be meant by '" + printableLine(target) +
                                         "': one has that name, and the name of one "
                                         "shows like that.\nGive the file system's index or its device." +
                                         kHint);
    if (!isShown)
        return literal.empty() ? byDeviceNodeOrFile(all, target) : literal;
    return found.empty() ? byDeviceNodeOrFile(all, copied) : found;
}

FileSystem findOne(const std::vector<FileSystem> &all, const std::string &target) {
    return findAll(all, target).front();
}

} // namespace oxttool
