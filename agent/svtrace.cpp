#include "svtrace.h"

#include "agentProcess.h"
#include "svtraceLine.h"
#include "svtraceLog.h"
#include "svtraceSettings.h"

#include <cerrno>
#include <cstring>

namespace {

// Initial-exec: the general model allocates at a thread's first use and ends the process when memory is out.
__attribute__((tls_model("initial-exec"))) thread_local agent::TraceLogFile *t_log = nullptr; // null: none selected

// The second is enough to tell whether the settings are still known. The coarse clock costs a fraction of the other,
// and a look at the clock is most of what a line costs where normal lines are off.
agent::TraceSettings settingsNow(agent::TraceMoment *when) {
    (void)clock_gettime(CLOCK_REALTIME_COARSE, &when->time);
    when->process = agent::currentProcess();
    return agent::traceSettings(*when);
}

} // namespace

void SetFilePath(const char *logFileName) {
    // Callers select the same log before every line.
    if (logFileName != nullptr && t_log != nullptr && std::strcmp(logFileName, agent::traceLogName(*t_log)) == 0)
        return;
    agent::TraceLogFile *const log = agent::traceLogNamed(logFileName);
    if (log != nullptr)
        t_log = log;
}

void TraceLog(int level, const char *tag, const char *functionName, int sourceLine, const char *format, ...) {
    agent::TraceLogFile *const log = t_log;
    if (log == nullptr)
        return;
    const int error = errno;
    agent::TraceMoment when = {};
    const agent::TraceSettings settings = settingsNow(&when);
    if (level != 0 || settings.normal) {
        (void)clock_gettime(CLOCK_REALTIME, &when.time);
        when.thread = agent::currentThread(when.process);
        agent::TraceLine line;
        errno = error; // the text may ask for it with %m
        va_list arguments;
        va_start(arguments, format);
        agent::composeTrace(line, when, {level, tag, functionName, sourceLine}, format, arguments);
        va_end(arguments);
        agent::writeTrace(*log, settings, when, line);
    }
    errno = error;
}

int TraceWanted(int level) {
    const int error = errno;
    agent::TraceMoment when = {};
    const bool wanted = settingsNow(&when).normal || level != 0;
    errno = error;
    return wanted ? 1 : 0;
}
