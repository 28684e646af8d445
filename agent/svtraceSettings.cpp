#include "svtraceSettings.h"

#include "agentFile.h"
#include "svtraceWatch.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

namespace agent {

namespace {

constexpr std::int64_t kDefaultBytes = 5 * 1024 * 1024;
constexpr TraceSettings kDefaults = {true, kDefaultBytes, kDefaultBytes, 4};
constexpr std::int64_t kLeastBytes = 64 * 1024;
constexpr std::int64_t kMostBytes = 1024 * 1024 * 1024;
constexpr int kLeastFiles = 2;
constexpr int kMostFiles = 99;
constexpr char kPath[] = OXT_AGENT_DIR "log/svtrace.conf";
constexpr std::size_t kFileRoom = 4096; // what lies behind is not looked at

std::atomic<bool> g_normal{kDefaults.normal};
std::atomic<std::int64_t> g_maxBytes{kDefaults.maxBytes};
std::atomic<std::int64_t> g_capacity{kDefaults.capacity};
std::atomic<int> g_files{kDefaults.files};
Watch g_watch; // over the file

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

// The text between two positions without the blanks around it, ended by a zero in place.
char *trimmed(char *begin, char *end) {
    while (begin < end && isBlank(*begin))
        ++begin;
    while (end > begin && isBlank(end[-1]))
        --end;
    *end = '\0';
    return begin;
}

// A plain decimal number, moved to the nearest allowed one; `otherwise` for anything else.
std::int64_t numberOf(const char *text, std::int64_t least, std::int64_t most, std::int64_t otherwise) {
    const std::size_t length = std::strlen(text);
    if (length == 0 || length > 18 || std::strspn(text, "0123456789") != length)
        return otherwise;
    return std::clamp<std::int64_t>(std::strtoll(text, nullptr, 10), least, most);
}

void apply(const char *key, const char *value, TraceSettings &settings) {
    if (std::strcmp(key, "normal") == 0) {
        const bool off = std::strcmp(value, "off") == 0;
        settings.normal = off || std::strcmp(value, "on") == 0 ? !off : settings.normal;
    } else if (std::strcmp(key, "max_bytes") == 0) {
        settings.maxBytes = numberOf(value, kLeastBytes, kMostBytes, settings.maxBytes);
    } else if (std::strcmp(key, "files") == 0) {
        settings.files = static_cast<int>(numberOf(value, kLeastFiles, kMostFiles, settings.files));
    }
}

// Lines "key = value"; a '#' begins a remark. `text` ends in a zero.
void parse(char *text, TraceSettings &settings) {
    for (char *line = text; *line != '\0';) {
        char *const end = line + std::strcspn(line, "\n");
        char *const next = *end == '\n' ? end + 1 : end;
        *end = '\0';
        char *const stop = line + std::strcspn(line, "#");
        char *const equals = line + std::strcspn(line, "=");
        if (equals < stop) {
            const char *const value = trimmed(equals + 1, stop);
            apply(trimmed(line, equals), value, settings);
        }
        line = next;
    }
}

TraceSettings readFile() {
    TraceSettings settings = kDefaults;
    const int file = open(kPath, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (file < 0)
        return settings;
    char text[kFileRoom];
    struct stat status = {};
    const ssize_t length =
        fstat(file, &status) == 0 && S_ISREG(status.st_mode) ? read(file, text, sizeof text - 1) : ssize_t{-1};
    (void)close(file);
    if (length > 0) {
        text[length] = '\0';
        parse(text, settings);
    }
    return settings;
}

// Reading the few bytes costs no more than asking for their time of change, and misses no change within one clock tick.
void refresh(const TraceMoment &now) {
    int before = 0;
    (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    if (beginLook(g_watch, now, false)) {
        const TraceSettings settings = readFile();
        g_normal.store(settings.normal, std::memory_order_relaxed);
        g_maxBytes.store(settings.maxBytes, std::memory_order_relaxed);
        // A quarter below the limit of the process, because others make the file grow as well.
        g_capacity.store(std::min(settings.maxBytes, largestFile() / 4 * 3), std::memory_order_relaxed);
        g_files.store(settings.files, std::memory_order_relaxed);
        endLook(g_watch, now);
    }
    (void)pthread_setcancelstate(before, nullptr);
}

} // namespace

TraceSettings traceSettings(const TraceMoment &now) {
    if (isLookDue(g_watch, now))
        refresh(now);
    return {g_normal.load(std::memory_order_relaxed), g_maxBytes.load(std::memory_order_relaxed),
            g_capacity.load(std::memory_order_relaxed), g_files.load(std::memory_order_relaxed)};
}

} // namespace agent
