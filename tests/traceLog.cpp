#include "traceLog.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <mutex>

#include <dlfcn.h>

#include "oxtTrace.h"

namespace {

std::mutex logMutex; // guards all below
std::vector<TraceLine> keptLines;
std::vector<SentAlert> keptAlerts;
int answer = 0;

void setFilePath(const char *) {}

__attribute__((format(printf, 5, 6))) void traceLog(int level, const char *, const char *function, int,
                                                    const char *format, ...) {
    va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    const int length = vsnprintf(nullptr, 0, format, arguments);
    std::string text(static_cast<size_t>(std::max(length, 0)), '\0');
    vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    va_end(arguments);
    const std::lock_guard<std::mutex> lock(logMutex);
    keptLines.push_back({level, function, std::move(text)});
}

int sendIndication(Info info) {
    SentAlert alert = {info.eventID, info.eventType, info.method, info.sourceName, {}, true};
    for (int i = 0; i < info.numOfStrings; ++i)
        alert.strings.emplace_back(info.strings[i]);
    if (info.strings != nullptr)
        alert.closed = info.strings[info.numOfStrings] == nullptr;
    const std::lock_guard<std::mutex> lock(logMutex);
    keptAlerts.push_back(std::move(alert));
    return answer;
}

void bind(OxtFuncSlot slot, const void *value) {
    g_Func[slot].store(value);
}

} // namespace

TraceLog::TraceLog() {
    clear();
    answerAlerts(0);
    // Handles that FinishProcess can close: a complete binding is not bound again.
    bind(OXT_FUNC_TRACE_HANDLE, dlopen(nullptr, RTLD_LAZY));
    bind(OXT_FUNC_ALERT_HANDLE, dlopen(nullptr, RTLD_LAZY));
    bind(OXT_FUNC_SETFILEPATH, reinterpret_cast<const void *>(&setFilePath));
    bind(OXT_FUNC_TRACELOG, reinterpret_cast<const void *>(&traceLog));
    bind(OXT_FUNC_SENDINDICATION, reinterpret_cast<const void *>(&sendIndication));
}

TraceLog::~TraceLog() {
    FinishProcess();
}

std::vector<TraceLine> TraceLog::lines() const {
    const std::lock_guard<std::mutex> lock(logMutex);
    return keptLines;
}

bool TraceLog::contains(const std::string &text) const {
    return countOf(text) > 0;
}

int TraceLog::countOf(const std::string &text) const {
    const std::lock_guard<std::mutex> lock(logMutex);
    return static_cast<int>(
        std::count_if(keptLines.begin(), keptLines.end(), [&](const TraceLine &line) { return line.text == text; }));
}

std::vector<std::string> TraceLog::failures() const {
    std::vector<std::string> texts;
    const std::lock_guard<std::mutex> lock(logMutex);
    for (const TraceLine &line : keptLines)
        if (line.level == OXT_TRACE_FAILURE)
            texts.push_back(line.text);
    return texts;
}

std::vector<SentAlert> TraceLog::alerts() const {
    const std::lock_guard<std::mutex> lock(logMutex);
    return keptAlerts;
}

std::vector<unsigned> TraceLog::alertIds() const {
    std::vector<unsigned> ids;
    for (const SentAlert &alert : alerts())
        ids.push_back(alert.id);
    return ids;
}

void TraceLog::clear() {
    const std::lock_guard<std::mutex> lock(logMutex);
    keptLines.clear();
    keptAlerts.clear();
}

void TraceLog::answerAlerts(int result) {
    const std::lock_guard<std::mutex> lock(logMutex);
    answer = result;
}
