#include "svtraceLog.h"

#include "agentFile.h"
#include "svtraceWatch.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

namespace agent {

struct TraceLogFile {
    std::atomic<int> naming{0};          // kFree, kBeingNamed, kNamed
    char name[kTraceNameRoom] = {};      // does not change once kNamed
    std::atomic<int> file{-1};           // descriptor; the number stays ours from the first opening on
    std::atomic<bool> usable{false};     // `file` is the log, and lines may be written
    Watch watch;                         // over the file
    std::atomic<std::int64_t> size{0};   // of the file, as far as this process knows
    std::atomic<std::int64_t> lookAt{0}; // size at which to look again
    std::atomic<std::uint32_t> dropped{0};
    std::atomic<bool> torn{false}; // the last write stopped within a line
    struct stat identity = {};     // the file behind `file`; the keeper's
};

namespace {

enum Naming { kFree, kBeingNamed, kNamed };

constexpr char kDirectory[] = OXT_AGENT_DIR "log/";
constexpr std::size_t kPathRoom = sizeof kDirectory + kTraceNameRoom;
constexpr std::int64_t kLeastChunk = 1024;
constexpr std::int64_t kMostChunk = 64 * 1024;

TraceLogFile g_logs[kTraceLogs];

bool isPlainName(const char *name) {
    const std::size_t length = strnlen(name, kTraceNameRoom);
    if (length == 0 || length == kTraceNameRoom || std::strstr(name, "..") != nullptr || std::strcmp(name, ".") == 0 ||
        std::strcmp(name, kTraceSettingsName) == 0) {
        return false;
    }
    return std::none_of(name, name + length, [](unsigned char c) { return c == '/' || c < ' ' || c == 0x7F; });
}

// Whether the place is taken. Naming lasts an instant; in a child forked within it, it lasts for ever.
bool isNamed(const TraceLogFile &log) {
    constexpr timespec kStep = {0, 100000};
    constexpr int kSteps = 20;
    int naming = log.naming.load(std::memory_order_acquire);
    for (int step = 0; step < kSteps && naming == kBeingNamed; ++step) {
        (void)nanosleep(&kStep, nullptr);
        naming = log.naming.load(std::memory_order_acquire);
    }
    return naming == kNamed;
}

// The log is rotated some way below the limit, so that the lines which other threads and processes write meanwhile find
// room; at the limit lines are dropped.
std::int64_t fullAt(const TraceSettings &settings) {
    return settings.maxBytes - settings.maxBytes / 8;
}

// How far this process writes beyond the size at which it should have looked: what other processes wrote meanwhile is
// known from a look only.
std::int64_t lateMost(const TraceSettings &settings) {
    return settings.maxBytes / 16;
}

bool isOurs(const TraceLogFile &log) {
    struct stat held = {};
    const int file = log.file.load(std::memory_order_relaxed);
    return file >= 0 && fstat(file, &held) == 0 && sameFile(held, log.identity);
}

bool reopen(TraceLogFile &log, const char *path, bool ours, struct stat &status) {
    const int fresh = openAppend(path, O_WRONLY, status);
    if (fresh < 0)
        return false;
    const int file = log.file.load(std::memory_order_relaxed);
    // In place, under the old number: a writer that has just read the number writes into the new file, and never into
    // what the host opens next under a number that we gave back.
    if (ours && dup3(fresh, file, O_CLOEXEC) == file) {
        (void)close(fresh);
    } else {
        // The host closed our descriptor; its number may be another file's and is left alone.
        log.file.store(fresh, std::memory_order_release);
    }
    log.identity = status;
    log.torn.store(false, std::memory_order_relaxed);
    return true;
}

// Makes the descriptor that of the file which the path names, after a rotation if one is due; false when it cannot.
bool bringUp(TraceLogFile &log, const TraceSettings &settings, struct stat &status) {
    char path[kPathRoom];
    (void)std::snprintf(path, sizeof path, "%s%s", kDirectory, log.name);
    constexpr int kMostRounds = 3; // open, rotate, open the new one
    for (int round = 0; round < kMostRounds; ++round) {
        const bool ours = isOurs(log);
        const bool current = ours && lstat(path, &status) == 0 && sameFile(status, log.identity);
        if (!current && !reopen(log, path, ours, status))
            return false;
        if (status.st_size < fullAt(settings) || !rotate(path, settings.files, fullAt(settings)))
            break;
    }
    return true;
}

// Looks after the file, unless another thread of this process does so already.
void look(TraceLogFile &log, const TraceMoment &when, const TraceSettings &settings) {
    const std::int64_t late = log.size.load(std::memory_order_relaxed) - log.lookAt.load(std::memory_order_relaxed);
    if (!beginLook(log.watch, when, late > lateMost(settings) / 2))
        return;
    if (!hasLooked(log.watch, when.process)) {
        // What the parent lost is the parent's to tell.
        log.dropped.store(0, std::memory_order_relaxed);
        log.torn.store(false, std::memory_order_relaxed);
    }
    struct stat status = {};
    const bool usable = bringUp(log, settings, status);
    const std::int64_t chunk = std::clamp(settings.maxBytes / 64, kLeastChunk, kMostChunk);
    log.size.store(status.st_size, std::memory_order_relaxed);
    log.lookAt.store(usable ? status.st_size + chunk : INT64_MAX, std::memory_order_relaxed);
    log.usable.store(usable, std::memory_order_relaxed);
    endLook(log.watch, when);
}

// Whether lines can be written now, after a look at the file if one is due.
bool isReady(TraceLogFile &log, const TraceMoment &when, const TraceSettings &settings) {
    if (isLookDue(log.watch, when) ||
        log.size.load(std::memory_order_relaxed) >= log.lookAt.load(std::memory_order_relaxed)) {
        look(log, when, settings);
    }
    return hasLooked(log.watch, when.process) && log.usable.load(std::memory_order_relaxed);
}

// One write of one line; false when the file did not take the whole of it.
bool append(TraceLogFile &log, const TraceSettings &settings, const TraceLine &line) {
    const auto bytes = static_cast<std::int64_t>(line.length);
    // Room is taken before the write and given back after a failure: many threads at once cannot pass the limit.
    const std::int64_t size = log.size.fetch_add(bytes, std::memory_order_relaxed) + bytes;
    if (size > settings.capacity || size - log.lookAt.load(std::memory_order_relaxed) > lateMost(settings)) {
        log.size.fetch_sub(bytes, std::memory_order_relaxed);
        return false;
    }
    const bool repair = log.torn.load(std::memory_order_relaxed) && log.torn.exchange(false, std::memory_order_relaxed);
    const char *const begin = repair ? line.bytes : line.bytes + 1;
    const std::size_t length = repair ? line.length + 1 : line.length;
    const ssize_t written = write(log.file.load(std::memory_order_acquire), begin, length);
    if (written == static_cast<ssize_t>(length))
        return true;
    log.size.fetch_sub(bytes, std::memory_order_relaxed);
    if (written > 0 || repair)
        log.torn.store(true, std::memory_order_relaxed);
    if (written < 0 && errno == EBADF) {
        log.lookAt.store(0, std::memory_order_relaxed); // the host closed it: the next line opens it again
    }
    return false;
}

// Apart from writeTrace, because its line is as large as the caller's and hardly ever needed.
__attribute__((noinline)) bool reportDropped(TraceLogFile &log, const TraceSettings &settings,
                                             const TraceMoment &when) {
    const std::uint32_t lines = log.dropped.exchange(0, std::memory_order_relaxed);
    if (lines == 0)
        return true;
    TraceLine line;
    composeDropped(line, when, lines);
    if (append(log, settings, line))
        return true;
    log.dropped.fetch_add(lines, std::memory_order_relaxed);
    return false;
}

} // namespace

TraceLogFile *traceLogNamed(const char *name) {
    if (name == nullptr || !isPlainName(name))
        return nullptr;
    // Everybody takes the first free place, so a name is entered once, however many threads bring it at a time.
    for (TraceLogFile &log : g_logs) {
        int naming = kFree;
        if (log.naming.compare_exchange_strong(naming, kBeingNamed)) {
            std::memcpy(log.name, name, std::strlen(name) + 1);
            log.naming.store(kNamed, std::memory_order_release);
            return &log;
        }
        if (isNamed(log) && std::strcmp(log.name, name) == 0)
            return &log;
    }
    return nullptr;
}

const char *traceLogName(const TraceLogFile &log) {
    return log.name;
}

void writeTrace(TraceLogFile &log, const TraceSettings &settings, const TraceMoment &when, const TraceLine &line) {
    int before = 0; // a thread that is cancelled here would stay the file's keeper for ever
    (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    const auto hasNothingToReport = [&log] { return log.dropped.load(std::memory_order_relaxed) == 0; };
    if (!isReady(log, when, settings) || !(hasNothingToReport() || reportDropped(log, settings, when)) ||
        !append(log, settings, line)) {
        log.dropped.fetch_add(1, std::memory_order_relaxed);
    }
    (void)pthread_setcancelstate(before, nullptr);
}

} // namespace agent
