#include "oxtTrace.h"

#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <initializer_list>
#include <pthread.h>
#include <syslog.h>
#include <unistd.h>

#include "oxtPaths.h"
#include "oxtWait.h"

std::atomic<const void *> g_Func[OXT_FUNC_SLOTS] = {
    nullptr, "libsvtrace.so", "SetFilePath",   nullptr,          "TraceLog",
    nullptr, nullptr,         "libsvalert.so", "SendIndication", nullptr,
};
char g_logfnm[16];
std::atomic<unsigned> g_linesLeft{0};

namespace {

typedef void (*SetFilePathFunction)(const char *);
typedef int (*SendIndicationFunction)(Info);
typedef int (*TraceWantedFunction)(int level);

constexpr unsigned LINES_UNASKED = 64;

pthread_mutex_t bindMutex = PTHREAD_MUTEX_INITIALIZER; // one thread at a time changes the binding
std::atomic<int> inside{0};                            // threads that may be executing a library's code
std::atomic<const void *> traceWanted{nullptr};        // the trace library's optional entry

const char *nameIn(OxtFuncSlot slot) {
    return static_cast<const char *>(g_Func[slot].load());
}

// The code pointer in a slot. Sequentially consistent like the count of those inside: either the closing thread sees
// this thread inside, or this thread sees the emptied slot.
template <typename Function> Function functionIn(OxtFuncSlot slot) {
    return reinterpret_cast<Function>(const_cast<void *>(g_Func[slot].load()));
}

int bindLibrary(OxtFuncSlot handleSlot, OxtFuncSlot nameSlot) {
    void *handle = LoadLibrary(nameIn(nameSlot));
    if (handle == nullptr)
        return -1;
    if (g_Func[handleSlot].exchange(handle) == handle)
        dlclose(handle); // bound before: one reference is enough, or FinishProcess would not unload it
    return 0;
}

int bindSymbol(OxtFuncSlot functionSlot, OxtFuncSlot handleSlot, OxtFuncSlot nameSlot) {
    void *function = GetProcAddress(const_cast<void *>(g_Func[handleSlot].load()), nameIn(nameSlot));
    g_Func[functionSlot].store(function);
    return function != nullptr ? 0 : -1;
}

// The chain of the binding in its order; null when complete, else what failed.
const char *bindAll() {
    if (bindLibrary(OXT_FUNC_TRACE_HANDLE, OXT_FUNC_TRACE_LIBRARY) != 0)
        return "dlopen(libsvtrace.so) Failure!!";
    if (bindSymbol(OXT_FUNC_SETFILEPATH, OXT_FUNC_TRACE_HANDLE, OXT_FUNC_SETFILEPATH_NAME) != 0)
        return "dlsym(libsvtrace.so SetFilePath()) Failure!!";
    if (bindSymbol(OXT_FUNC_TRACELOG, OXT_FUNC_TRACE_HANDLE, OXT_FUNC_TRACELOG_NAME) != 0)
        return "dlsym(libsvtrace.so TraceLog()) Failure!!";
    if (bindLibrary(OXT_FUNC_ALERT_HANDLE, OXT_FUNC_ALERT_LIBRARY) != 0)
        return "dlopen(libsvalert.so) Failure!!";
    if (bindSymbol(OXT_FUNC_SENDINDICATION, OXT_FUNC_ALERT_HANDLE, OXT_FUNC_SENDINDICATION_NAME) != 0)
        return "dlsym(libsvalert.so SendIndication()) Failure!!";
    return nullptr;
}

// Looks for what a trace library need not have; without it, every line is wanted.
void bindOptional() {
    traceWanted.store(GetProcAddress(const_cast<void *>(g_Func[OXT_FUNC_TRACE_HANDLE].load()), "TraceWanted"));
    g_linesLeft.store(0);
}

// The caller counts as inside.
void askWanted() {
    const int error = errno;
    const void *entry = traceWanted.load();
    const auto wanted = reinterpret_cast<TraceWantedFunction>(const_cast<void *>(entry));
    g_linesLeft.store(wanted == nullptr || wanted(OXT_TRACE_NORMAL) != 0 ? 0 : 1, std::memory_order_relaxed);
    errno = error;
}

bool isComplete() {
    for (const OxtFuncSlot slot : {OXT_FUNC_TRACE_HANDLE, OXT_FUNC_SETFILEPATH, OXT_FUNC_TRACELOG,
                                   OXT_FUNC_ALERT_HANDLE, OXT_FUNC_SENDINDICATION})
        if (g_Func[slot].load() == nullptr)
            return false;
    return true;
}

// True once no thread is inside a library.
bool waitUntilEmpty() {
    for (int wait = 0; inside.load() != 0; ++wait) {
        if (wait == OXT_WAIT_TRIES)
            return false;
        usleep(OXT_WAIT_MICROS);
    }
    return true;
}

// Empties a library's slots (its handle's is the first), waits until nobody can be inside and closes it. A library
// that cannot be closed gets its slots back.
void closeLibrary(const OxtFuncSlot *slots, size_t count) {
    const void *kept[3] = {};
    if (g_Func[slots[0]].load() == nullptr)
        return;
    for (size_t i = 0; i < count; ++i)
        kept[i] = g_Func[slots[i]].exchange(nullptr);
    if (waitUntilEmpty() && dlclose(const_cast<void *>(kept[0])) == 0)
        return;
    for (size_t i = 0; i < count; ++i)
        g_Func[slots[i]].store(kept[i]);
}

} // namespace

void *LoadLibrary(const char *fileName) {
    if (fileName == nullptr)
        return nullptr;
    char path[512];
    const int length = snprintf(path, sizeof path, "%slib/%s", OXT_AGENT_DIR, fileName);
    if (length < 0 || static_cast<size_t>(length) >= sizeof path)
        return nullptr;
    return dlopen(path, RTLD_LAZY);
}

void *GetProcAddress(void *handle, const char *symbol) {
    return handle != nullptr && symbol != nullptr ? dlsym(handle, symbol) : nullptr;
}

int InitProcess(const char *logFileName) {
    pthread_mutex_lock(&bindMutex);
    // Every caller passes the same name: it is written once, before the first line can be traced, and then only read.
    if (logFileName != nullptr && strncmp(g_logfnm, logFileName, sizeof g_logfnm - 1) != 0)
        snprintf(g_logfnm, sizeof g_logfnm, "%s", logFileName);
    const char *failure = nullptr;
    if (!isComplete()) {
        failure = bindAll();
        bindOptional();
    }
    pthread_mutex_unlock(&bindMutex);
    if (failure == nullptr)
        return 0;
    syslog(LOG_ERR, "%s", failure);
    return -1;
}

void FinishProcess() {
    constexpr OxtFuncSlot alert[] = {OXT_FUNC_ALERT_HANDLE, OXT_FUNC_SENDINDICATION};
    constexpr OxtFuncSlot trace[] = {OXT_FUNC_TRACE_HANDLE, OXT_FUNC_SETFILEPATH, OXT_FUNC_TRACELOG};
    pthread_mutex_lock(&bindMutex);
    traceWanted.store(nullptr); // before the library's own slots: whoever enters now does not find it
    closeLibrary(alert, sizeof alert / sizeof *alert);
    closeLibrary(trace, sizeof trace / sizeof *trace);
    bindOptional(); // of a library that could not be closed
    pthread_mutex_unlock(&bindMutex);
}

bool oxtTraceAsk() {
    const unsigned left = g_linesLeft.load(std::memory_order_relaxed);
    if (left == 0)
        return true;
    if (left < LINES_UNASKED) { // two threads may count one line: it is no matter
        g_linesLeft.store(left + 1, std::memory_order_relaxed);
        return false;
    }
    inside.fetch_add(1);
    askWanted();
    inside.fetch_sub(1);
    return g_linesLeft.load(std::memory_order_relaxed) == 0;
}

OxtTraceLog oxtTraceBegin() {
    inside.fetch_add(1);
    if (traceWanted.load(std::memory_order_relaxed) != nullptr)
        askWanted();
    if (const auto setFilePath = functionIn<SetFilePathFunction>(OXT_FUNC_SETFILEPATH))
        setFilePath(g_logfnm);
    return functionIn<OxtTraceLog>(OXT_FUNC_TRACELOG);
}

void oxtTraceEnd() {
    inside.fetch_sub(1);
}

int OXTSendIndication(const char *sourceName, unsigned int eventID, int eventType, unsigned int method,
                      int numOfStrings, char **strings) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(sourceName != nullptr, -1, "_OUT_ Param(svnm) Failure!!");
    OXT_REQUIRE(eventType >= 0, -1, "_OUT_ Param(evType) Failure!!");
    OXT_REQUIRE(method >= 1 && method <= 3, -1, "_OUT_ Param(method) Failure!!");
    OXT_REQUIRE(numOfStrings >= 0, -1, "_OUT_ Param(paramCnt) Failure!!");

    Info info = {};
    info.version = 0;
    info.method = static_cast<int>(method);
    info.sourceName = sourceName;
    info.eventID = eventID;
    info.eventType = eventType;
    info.numOfStrings = numOfStrings;
    info.strings = strings;
    OXT_TRACE("-> Info.version=[%d]", info.version);
    OXT_TRACE("-> Info.method=[%d]", info.method);
    OXT_TRACE("-> Info.sourceName=[%s]", info.sourceName);
    OXT_TRACE("-> Info.eventID=[0x%08x]", info.eventID);
    OXT_TRACE("-> Info.eventType=[%d]", info.eventType);
    OXT_TRACE("-> Info.numOfStrings=[%d]", info.numOfStrings);
    OXT_TRACE("-> Info.strings=[%p]", static_cast<void *>(info.strings));

    // Without the alert library (the trace library alone may be bound) an alert is a failed send.
    inside.fetch_add(1);
    const auto sendIndication = functionIn<SendIndicationFunction>(OXT_FUNC_SENDINDICATION);
    const int ret = sendIndication != nullptr && sendIndication(info) == 0 ? 0 : -1;
    inside.fetch_sub(1);
    OXT_TRACE("_OUT_ ret=[%d]", ret);
    return ret;
}
