#include "svalert.h"

#include "agentFile.h"
#include "agentText.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <iterator>
#include <pthread.h>
#include <sys/file.h>
#include <syslog.h>
#include <unistd.h>

namespace {

using agent::Text;

constexpr char kPath[] = OXT_AGENT_DIR "log/svalert.json";
constexpr std::int64_t kMaxBytes = 1024 * 1024; // of the file, and of the one older file beside it
constexpr int kFiles = 2;
constexpr int kMostStrings = 16;
constexpr std::size_t kStringMost = 1024;   // bytes of a string that are passed on
constexpr std::size_t kSentenceMost = 2048; // what a system log takes without cutting

struct Event {
    unsigned int id;
    const char *word;
    const char *sentence; // {0} to {4} are the parameters
    bool freeSpace;       // its parameters are those of kFields
};

constexpr Event kEvents[] = {
    {0x400407D0U, "fileSystemCountChanged", "The number of file systems changed.", false},
    {0x400403EAU, "freeSpaceNormal",
     "Free space of file system {0} mounted on {1} is back to normal: {2} MiB of {3} MiB are free.", true},
    {0x800403E9U, "freeSpaceWarning",
     "Free space of file system {0} mounted on {1} is low: {2} MiB of {3} MiB are free, warning threshold {4} MiB.",
     true},
    {0xC00403E8U, "freeSpaceFatal",
     "Free space of file system {0} mounted on {1} is nearly used up: {2} MiB of {3} MiB are free, fatal threshold "
     "{4} MiB.",
     true},
};

constexpr Event kOtherEvent = {0, "other", "Event", false}; // the sentence is followed by number and strings

struct Severity {
    int type;
    const char *word;
    int priority;
};

constexpr Severity kSeverities[] = {{1, "critical", LOG_CRIT}, {2, "warning", LOG_WARNING}, {4, "info", LOG_INFO}};

constexpr Severity kOtherSeverity = {0, "unknown", LOG_NOTICE};

struct Field {
    const char *key;
    bool number;
};

constexpr Field kFields[] = {
    {"device", false}, {"mountPoint", false}, {"availableMiB", true}, {"sizeMiB", true}, {"thresholdMiB", true}};

const Event &eventOf(const Info &info) {
    for (const Event &event : kEvents)
        if (event.id == info.eventID)
            return event;
    return kOtherEvent;
}

const Severity &severityOf(const Info &info) {
    for (const Severity &severity : kSeverities)
        if (severity.type == info.eventType)
            return severity;
    return kOtherSeverity;
}

const char *stringAt(const Info &info, int index) {
    return index < info.numOfStrings ? info.strings[index] : nullptr;
}

bool putText(Text &out, const char *text) {
    return agent::putBytes(out, text, std::strlen(text));
}

bool putKey(Text &out, const char *key) {
    return putText(out, ",\"") && putText(out, key) && putText(out, "\":");
}

// A decimal number as it stands, anything else as null: leading zeros and signs would not be JSON numbers of one kind.
bool putJsonNumber(Text &out, const char *text) {
    const std::size_t length = text != nullptr ? strnlen(text, kStringMost) : 0;
    const bool plain =
        length > 0 && length <= 20 && std::strspn(text, "0123456789") == length && (text[0] != '0' || length == 1);
    return putText(out, plain ? text : "null");
}

std::atomic<AlertForecast> g_forecast{nullptr};

// A whole number; what is too large for one, or none, is left out with its key.
bool putWhole(Text &out, const char *key, double value) {
    constexpr double most = 1e15;
    if (!(value >= 0 && value <= most))
        return true;
    char digits[24];
    const int length = std::snprintf(digits, sizeof digits, "%.0f", value);
    return putKey(out, key) && agent::putBytes(out, digits, static_cast<std::size_t>(length));
}

bool putForecast(Text &out, const Info &info) {
    const AlertForecast forecast = g_forecast.load();
    const char *device = stringAt(info, 0), *mountPoint = stringAt(info, 1);
    double shrink = 0, full = 0;
    if (forecast == nullptr || device == nullptr || mountPoint == nullptr ||
        forecast(device, mountPoint, &shrink, &full) == 0)
        return true;
    return putWhole(out, "shrinkMiBPerHour", shrink) && putWhole(out, "fullInSeconds", full);
}

// The whole JSON line; false when it does not fit.
bool putJsonLine(Text &out, const Info &info, const timespec &now) {
    const Event &event = eventOf(info);
    bool fits = putText(out, "{\"time\":\"") && agent::putTime(out, now) && putText(out, "\"");
    fits = fits && putKey(out, "source") && agent::putJson(out, info.sourceName, kStringMost);
    fits =
        fits && putKey(out, "eventId") && putText(out, "\"") && agent::putHex(out, info.eventID) && putText(out, "\"");
    fits = fits && putKey(out, "severity") && agent::putJson(out, severityOf(info).word, kStringMost);
    fits = fits && putKey(out, "event") && agent::putJson(out, event.word, kStringMost);
    for (std::size_t i = 0; event.freeSpace && i < std::size(kFields); ++i) {
        const char *const string = stringAt(info, static_cast<int>(i));
        fits = fits && putKey(out, kFields[i].key) &&
               (kFields[i].number ? putJsonNumber(out, string) : agent::putJson(out, string, kStringMost));
    }
    if (event.freeSpace)
        fits = fits && putForecast(out, info);
    fits = fits && putKey(out, "strings");
    for (int i = 0; i < info.numOfStrings; ++i)
        fits = fits && putText(out, i == 0 ? "[" : ",") && agent::putJson(out, info.strings[i], kStringMost);
    return fits && putText(out, info.numOfStrings == 0 ? "[]}\n" : "]}\n");
}

// The file opened with room for `length` bytes more, after a rotation if one is due; -1 when there is none.
int openWithRoom(std::int64_t length) {
    struct stat status = {};
    int file = agent::openAppend(kPath, O_RDWR, status);
    if (file >= 0 && status.st_size + length > kMaxBytes && agent::rotate(kPath, kFiles, status.st_size)) {
        (void)close(file);
        file = agent::openAppend(kPath, O_RDWR, status);
    }
    // Twice the bound while another process is about to rotate. Beyond the process's own limit a signal would end it.
    const std::int64_t largest = agent::largestFile();
    if (file >= 0 && (status.st_size + length > 2 * kMaxBytes || status.st_size + length > largest)) {
        (void)close(file);
        file = -1;
    }
    return file;
}

// Whether the last write was cut short, by a full disk or a kill: the next line must not be joined to its stump.
bool isTorn(int file) {
    struct stat status = {};
    char last = '\n';
    return fstat(file, &status) == 0 && status.st_size > 0 && pread(file, &last, 1, status.st_size - 1) == 1 &&
           last != '\n';
}

// Appends the line, which begins behind a newline at `bytes`, with one write.
bool appendLine(const char *bytes, std::size_t length) {
    const int file = openWithRoom(static_cast<std::int64_t>(length));
    if (file < 0)
        return false;
    // No other sender may be in the midst of its line while the end of the file is examined.
    const std::size_t skipped = agent::lockBriefly(file) && isTorn(file) ? 0 : 1;
    const ssize_t written = write(file, bytes + skipped, length - skipped);
    (void)flock(file, LOCK_UN); // said aloud: a process forked a moment ago holds this description as well
    (void)close(file);
    return written == static_cast<ssize_t>(length - skipped);
}

// The worst a string can grow to: each byte a \u00XX, quotes, mark, comma and key.
constexpr std::size_t kJsonStringRoom = 6 * kStringMost + 32;
constexpr std::size_t kJsonFrameRoom = 512;

bool writeJson(const Info &info, const timespec &now) {
    const std::size_t strings = static_cast<std::size_t>(info.numOfStrings) + 1 + std::size(kFields);
    const std::size_t room = kJsonFrameRoom + strings * kJsonStringRoom;
    char *const bytes = static_cast<char *>(std::malloc(room)); // too much for the stack of somebody else's thread
    if (bytes == nullptr)
        return false;
    Text out = {bytes, bytes + room};
    const bool written = putText(out, "\n") && putJsonLine(out, info, now) &&
                         appendLine(bytes, static_cast<std::size_t>(out.at - bytes));
    std::free(bytes);
    return written;
}

bool putVisibleString(Text &out, const char *string) {
    return string != nullptr ? agent::putVisible(out, string, strnlen(string, kStringMost)) : putText(out, "?");
}

// The event's sentence with its parameters in their places.
void putSentence(Text &out, const Info &info, const Event &event) {
    for (const char *at = event.sentence; *at != '\0'; ++at) {
        if (at[0] == '{') {
            putVisibleString(out, stringAt(info, at[1] - '0'));
            at += 2;
        } else {
            agent::putBytes(out, at, 1);
        }
    }
}

void writeSystemLog(const Info &info) {
    char sentence[kSentenceMost];
    Text out = {sentence, sentence + sizeof sentence - 1};
    const Event &event = eventOf(info);
    putVisibleString(out, info.sourceName);
    putText(out, ": ");
    putSentence(out, info, event);
    if (&event == &kOtherEvent) {
        putText(out, " ");
        agent::putHex(out, info.eventID);
        for (int i = 0; i < info.numOfStrings; ++i) {
            putText(out, i == 0 ? ": " : ", ");
            putVisibleString(out, info.strings[i]);
        }
    }
    *out.at = '\0';
    syslog(LOG_DAEMON | severityOf(info).priority, "%s", sentence);
}

} // namespace

void SetAlertForecast(AlertForecast forecast) {
    g_forecast.store(forecast);
}

int SendIndication(Info info) {
    const bool counted = info.numOfStrings >= 0 && info.numOfStrings <= kMostStrings;
    if (info.sourceName == nullptr || !counted || (info.numOfStrings > 0 && info.strings == nullptr))
        return -1;
    // A cancelled thread of the host would leave the file open and the buffer allocated.
    int before = 0;
    (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    timespec now = {};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    const bool written = writeJson(info, now);
    writeSystemLog(info);
    (void)pthread_setcancelstate(before, nullptr);
    return written ? 0 : -1;
}
