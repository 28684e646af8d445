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
    va_list arguments;
    va_start(arguments, format);
    char *text = nullptr;
    if (vasprintf(&text, format, arguments) < 0)
        text = nullptr;
    va_end(arguments);
    const std::lock_guard<std::mutex> lock(logMutex);
    keptLines.push_back({level, function, text != nullptr ? text : ""});
    free(text);
}

int sendIndication(Info info) {
    SentAlert alert = {info.eventID, info.eventType, info.method, info.sourceName, {}, true};
    if (info.strings != nullptr) {
        alert.strings.assign(info.strings, info.strings + info.numOfStrings);
        alert.closed = info.strings[info.numOfStrings] == nullptr;
    }
    const std::lock_guard<std::mutex> lock(logMutex);
    keptAlerts.push_back(std::move(alert));
    return answer;
}

} // namespace

TraceLog::TraceLog() {
    clear();
    answerAlerts(0);
    // Handles that FinishProcess can close: a complete binding is not bound again.
    for (const OxtFuncSlot handle : {OXT_FUNC_TRACE_HANDLE, OXT_FUNC_ALERT_HANDLE})
        g_Func[handle].store(dlopen(nullptr, RTLD_LAZY));
    g_Func[OXT_FUNC_SETFILEPATH].store(reinterpret_cast<const void *>(&setFilePath));
    g_Func[OXT_FUNC_TRACELOG].store(reinterpret_cast<const void *>(&traceLog));
    g_Func[OXT_FUNC_SENDINDICATION].store(reinterpret_cast<const void *>(&sendIndication));
}

TraceLog::~TraceLog() {
    FinishProcess();
}

std::vector<TraceLine> TraceLog::lines() const {
    const std::lock_guard<std::mutex> lock(logMutex);
    return keptLines;
}

std::vector<SentAlert> TraceLog::alerts() const {
    const std::lock_guard<std::mutex> lock(logMutex);
    return keptAlerts;
}

int TraceLog::countOf(const std::string &text) const {
    const std::vector<TraceLine> all = lines();
    return static_cast<int>(
        std::count_if(all.begin(), all.end(), [&](const TraceLine &line) { return line.text == text; }));
}

std::vector<std::string> TraceLog::failures() const {
    std::vector<std::string> texts;
    for (const TraceLine &line : lines())
        if (line.level == OXT_TRACE_FAILURE)
            texts.push_back(line.text);
    return texts;
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
