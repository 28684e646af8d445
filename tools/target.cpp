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
    for (const std::string &name : {target, unprintable(target)})
        for (const auto which : {&FileSystem::mountPoint, &FileSystem::device})
            if (const auto found = byName(all, withoutSlashes(name), which); !found.empty())
                return found;
    if (const auto found = byDeviceNode(all, target); !found.empty())
        return found;
    struct stat state = {};
    const std::string copied = unprintable(target);
    return byFile(all, stat(target.c_str(), &state) != 0 && stat(copied.c_str(), &state) == 0 ? copied : target);
}

FileSystem findOne(const std::vector<FileSystem> &all, const std::string &target) {
    return findAll(all, target).front();
}

} // namespace oxttool
