#include "segments.h"

#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <thread>

#include "agentDir.h"
#include "failure.h"
#include "process.h"
#include "providerSegment.h"

namespace oxttool {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr auto kPause = std::chrono::microseconds(250);

struct Class {
    int digit; // of its key file
    const char *name;
    std::size_t recordBytes;
    std::size_t mostRecords;
};
constexpr Class kConfig = {0, "configuration", kConfigBytes, 1};
constexpr Class kTotal = {1, "total number", kTotalBytes, 1};
constexpr Class kFileSystems = {2, "file systems", kFileSystemBytes, kMostFileSystems};

bool hasSize(std::size_t bytes, const Class &of) {
    return bytes > 0 && bytes % of.recordBytes == 0 && bytes / of.recordBytes <= of.mostRecords;
}

// Whether all of it still reads as the kernel handed it out.
bool isBlank(ByteView bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](char c) { return c == '\0'; });
}

struct Copy {
    enum State { Exact, Disturbed, Missing, WrongSize, Forbidden } state = Missing;
    std::string bytes; // when exact or disturbed
    shmid_ds about = {};
};

struct Detach {
    void operator()(const void *address) const { shmdt(address); }
};

// Nobody else has the segment attached, nobody came or left since we did, and no new one has taken its place.
bool isOursAlone(const shmid_ds &state) {
    return state.shm_nattch == 1 && state.shm_lpid == getpid() && (state.shm_perm.mode & SHM_DEST) == 0;
}

Copy refusal() {
    Copy copy;
    copy.state = errno == EACCES ? Copy::Forbidden : Copy::Missing; // it may be gone by now
    return copy;
}

Copy copyOnce(const std::string &keyFile, const Class &of) {
    Copy copy;
    const auto segment = providerSegment(keyFile);
    if (!segment)
        return copy;
    copy.about = segment->about;
    if (!segment->readable) {
        copy.state = Copy::Forbidden;
        return copy;
    }
    const int id = segment->id;
    if (!hasSize(copy.about.shm_segsz, of)) {
        copy.state = Copy::WrongSize;
        return copy;
    }
    void *address = shmat(id, nullptr, SHM_RDONLY);
    if (address == reinterpret_cast<void *>(-1))
        return refusal();
    const std::unique_ptr<const void, Detach> attached(address);
    shmid_ds before = {}, after = {};
    if (shmctl(id, IPC_STAT, &before) != 0)
        return refusal();
    copy.bytes.assign(static_cast<const char *>(address), before.shm_segsz);
    if (shmctl(id, IPC_STAT, &after) != 0)
        return refusal();
    copy.state = isOursAlone(before) && isOursAlone(after) ? Copy::Exact : Copy::Disturbed;
    return copy;
}

// Tries until the copy is exact or there is nothing to wait for. Disturbed at the end of the patience: bytes that stay
// the same while somebody has the segment attached may be half of a copy whose writer was stopped.
Copy copySegment(const std::string &root, const Class &of, Clock::time_point end) {
    for (;;) {
        Copy copy = copyOnce(keyFileOf(root, of.digit), of);
        if (copy.state != Copy::Disturbed || Clock::now() >= end)
            return copy;
        std::this_thread::sleep_for(kPause);
    }
}

struct Taken {
    Copy config, total, fileSystems;
};

Taken takeAll(const std::string &root, Clock::time_point end) {
    Taken taken;
    taken.config = copySegment(root, kConfig, end);
    if (taken.config.state != Copy::Exact)
        return taken;
    taken.total = copySegment(root, kTotal, end);
    taken.fileSystems = copySegment(root, kFileSystems, end);
    return taken;
}

// What stands against believing the copies; empty when they can be parsed.
std::string problemOf(const Taken &taken) {
    const struct {
        const Copy &copy;
        const Class &of;
        bool mayMiss; // there is none for no file system
    } rows[] = {{taken.config, kConfig, false}, {taken.total, kTotal, false}, {taken.fileSystems, kFileSystems, true}};
    for (const auto &row : rows) {
        const std::string name = std::string("the segment of the ") + row.of.name;
        if (row.copy.state == Copy::Forbidden)
            return name + " may not be read.\nRun oxtfsctl as root or as the provider's user.";
        if (row.copy.state == Copy::Disturbed)
            return name + " could not be copied whole: another process writes it or keeps it attached.\nTry again.";
        if (row.copy.state == Copy::WrongSize)
            return name + " has " + std::to_string(row.copy.about.shm_segsz) +
                   " bytes: it is another program's, or another version's of the provider.\n'oxtfsctl save' shows what "
                   "the provider saved last.";
        if (row.copy.state == Copy::Missing && !row.mayMiss)
            return name + " is missing.\nTry again when the provider has started.";
    }
    return "";
}

Failure noRecords(const std::string &root) {
    if (const auto found = findProviderAtWork(root))
        return {Exit::Environment,
                "the provider in " + nameOf(*found) +
                    " has no records to show.\nIt has just started or is about to end, or it refused "
                    "to stop a monitoring thread: restart its object manager then."};
    return {
        Exit::Environment,
        "no provider is running: none has shared memory under " + keyFileOf(root, kConfig.digit) +
            ".\nStart one with 'oxtfsctl watch', or by a request to its object manager. 'oxtfsctl list' measures now, "
            "'oxtfsctl save' shows what was saved last."};
}

// When the save file was written, with which every pass ends.
std::optional<double> savedAt(const std::string &root) {
    struct stat saved = {};
    if (lstat((root + "data/" + kSaveFileName).c_str(), &saved) != 0 || !S_ISREG(saved.st_mode))
        return std::nullopt;
    return static_cast<double>(saved.st_mtim.tv_sec) + static_cast<double>(saved.st_mtim.tv_nsec) / 1e9;
}

LiveRecords describe(Segments &&records, const Taken &taken, std::optional<double> saved) {
    LiveRecords live;
    live.cycle = records.cycle;
    live.fileSystems = std::move(records.fileSystems);
    live.pid = taken.config.about.shm_cpid;
    live.process = processName(live.pid);
    const std::time_t made = std::max(taken.config.about.shm_ctime, taken.fileSystems.about.shm_ctime);
    live.measured = saved.value_or(static_cast<double>(made));
    return live;
}

} // namespace

Segments parseSegments(ByteView config, ByteView total, ByteView fileSystems) {
    Segments result;
    result.state = Segments::WrongSize;
    if (!hasSize(config.size(), kConfig) || !hasSize(total.size(), kTotal) ||
        !(fileSystems.empty() || hasSize(fileSystems.size(), kFileSystems))) {
        result.problem = "segments of " + std::to_string(config.size()) + ", " + std::to_string(total.size()) +
                         " and " + std::to_string(fileSystems.size()) + " bytes are not a provider's.";
        return result;
    }
    const std::size_t count = fileSystems.size() / kFileSystemBytes;
    result.state = Segments::NoDataYet;
    result.problem = "the provider has not filled its records yet.\nTry again after its next pass.";
    if (isBlank(config))
        return result;
    std::vector<FileSystem> all;
    for (std::size_t i = 0; i < count; ++i) {
        all.push_back(fileSystemOf(fileSystemRecord(fileSystems, i)));
        if (all.back().index == "0")
            return result;
    }
    if (totalOf(total) != count) {
        result.state = Segments::Disagreeing;
        result.problem = "the provider counts " + std::to_string(totalOf(total)) + " file systems and keeps " +
                         std::to_string(count) + " records.\nTry again after its next pass.";
        return result;
    }
    result.state = Segments::Complete;
    result.problem.clear();
    result.cycle = cycleOf(config);
    result.fileSystems = std::move(all);
    return result;
}

bool isOverdue(const LiveRecords &records, double now) {
    constexpr double kPass = 30; // seconds that a pass may take
    return now - records.measured > 2.0 * records.cycle.seconds + kPass;
}

LiveRecords readSegments(const std::string &root, milliseconds patience) {
    const auto end = Clock::now() + patience;
    for (;;) {
        const auto saved = savedAt(root); // first, so that it never tells more than the records
        const Taken taken = takeAll(root, end);
        std::string problem = problemOf(taken);
        if (problem.empty()) {
            Segments records = parseSegments(taken.config.bytes, taken.total.bytes, taken.fileSystems.bytes);
            if (records.state == Segments::Complete)
                return describe(std::move(records), taken, saved);
            problem = records.problem;
        }
        if (taken.config.state == Copy::Missing)
            throw noRecords(root);
        if (taken.config.state == Copy::Forbidden || Clock::now() >= end)
            throw Failure(Exit::Environment, problem);
        std::this_thread::sleep_for(kPause);
    }
}

} // namespace oxttool
