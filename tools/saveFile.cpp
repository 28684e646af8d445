#include "saveFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "agentDir.h"
#include "failure.h"
#include "fd.h"
#include "shownText.h"

namespace oxttool {

namespace {

constexpr ByteView kVersion = "# Version=1.0.0.0\n";
static_assert(kVersion.size() == kVersionBytes);
constexpr std::size_t kConfigAt = kVersionBytes;
constexpr std::size_t kTotalAt = kConfigAt + kConfigBytes;
constexpr std::size_t kFileSystemsAt = kTotalAt + kTotalBytes;
constexpr std::size_t kMostBytes = kFileSystemsAt + kMostFileSystems * kFileSystemBytes;
constexpr const char *kIsLink = "it is a symbolic link, which the provider does not follow.";
constexpr int kReadings = 10;
constexpr auto kPause = std::chrono::milliseconds(10);

void addDoubts(SaveFile &file, const std::string &about, const std::vector<std::string> &doubts) {
    for (const std::string &doubt : doubts)
        file.findings.push_back({false, about + doubt});
}

void parseRecords(SaveFile &file, ByteView records) {
    const std::size_t whole = std::min<std::size_t>(records.size() / kFileSystemBytes, *file.total);
    for (std::size_t i = 0; i < whole; ++i) {
        const ByteView record = fileSystemRecord(records, i);
        file.fileSystems.push_back(fileSystemOf(record));
        addDoubts(file, "record " + std::to_string(i + 1) + ": ", doubtsOfFileSystem(record, i));
    }
    if (whole < *file.total)
        file.findings.push_back({true, "it counts " + std::to_string(*file.total) + " file systems and ends after " +
                                           std::to_string(whole) + " whole records."});
    else if (records.size() > whole * kFileSystemBytes)
        file.findings.push_back({false, "bytes follow the last record, from " +
                                            std::to_string(kFileSystemsAt + whole * kFileSystemBytes) +
                                            " on; the provider ignores them."});
}

Failure unreadable(const std::string &path) {
    const std::string name = printable(path);
    if (errno != ENOENT && errno != ENOTDIR)
        return {Exit::Environment, "the save file " + name + " cannot be read: " + std::strerror(errno) +
                                       ".\nRun oxtfsctl as root or as the provider's user."};
    const bool own = path == agentDirectory() + "data/" + kSaveFileName;
    return {Exit::Environment, "there is no save file " + name +
                                   (own ? ".\nThe provider writes it at the end of each pass: 'oxtfsctl list' runs one."
                                        : ".\nWithout a name, 'oxtfsctl save' shows the provider's own.")};
}

std::string contentOf(const std::string &path) {
    const Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!fd)
        throw unreadable(path);
    std::string content;
    char buffer[65536];
    ssize_t got = 0;
    while (content.size() <= kMostBytes && (got = read(fd.get(), buffer, sizeof buffer)) > 0)
        content.append(buffer, static_cast<std::size_t>(got));
    if (got < 0)
        throw unreadable(path);
    return content;
}

} // namespace

bool SaveFile::loads() const {
    return std::none_of(findings.begin(), findings.end(), [](const Finding &finding) { return finding.rejected; });
}

SaveFile parseSaveFile(ByteView bytes) {
    SaveFile file;
    const ByteView version = bytes.substr(0, kConfigAt);
    file.version = version.substr(0, version.find('\n'));
    if (version.size() == kVersion.size() && version != kVersion)
        file.findings.push_back({false, "the version line is not \"# Version=1.0.0.0\"; the provider takes any."});
    if (bytes.size() >= kTotalAt) {
        const ByteView config = bytes.substr(kConfigAt, kConfigBytes);
        file.cycle = cycleOf(config);
        addDoubts(file, "", doubtsOfConfig(config));
    }
    if (bytes.size() < kFileSystemsAt) {
        file.findings.push_back({true, "the file has " + std::to_string(bytes.size()) +
                                           " bytes, but its beginning alone needs " + std::to_string(kFileSystemsAt) +
                                           "."});
        return file;
    }
    const ByteView total = bytes.substr(kTotalAt, kTotalBytes);
    file.total = totalOf(total);
    addDoubts(file, "", doubtsOfTotal(total));
    parseRecords(file, bytes.substr(kFileSystemsAt));
    return file;
}

SaveFile readSaveFile(const std::string &path) {
    struct stat state = {};
    if (lstat(path.c_str(), &state) != 0)
        throw unreadable(path);
    const bool isLink = S_ISLNK(state.st_mode);
    SaveFile file;
    if (isLink && stat(path.c_str(), &state) != 0) {
        file.findings.push_back({true, kIsLink});
        return file;
    }
    if (!S_ISREG(state.st_mode)) {
        file.findings.push_back({true, "it is not a regular file."});
        return file;
    }
    std::string last;
    for (int i = 0; i < kReadings; ++i) {
        std::string content = contentOf(path);
        const bool same = i > 0 && content == last;
        last = std::move(content);
        file = parseSaveFile(last);
        if (same && file.loads()) // a short one may be in the middle of being written
            break;
        std::this_thread::sleep_for(kPause);
    }
    if (isLink)
        file.findings.push_back({true, kIsLink});
    if (access(path.c_str(), W_OK) != 0 && errno == EROFS)
        file.findings.push_back({true, "it is on a read-only file system, and the provider opens it for writing."});
    return file;
}

} // namespace oxttool
