// Binding of the agent's trace and alert libraries, and the trace call of every function.
//
// The module owns the binding table. It is filled and emptied under a lock of its own and read without one; a library
// is closed only when no thread is inside it, so a trace call that overlaps a clean-up is safe.
//
// The habit: a function traces "_IN_" on entry, a line that begins with "_OUT_" on every exit (a failed step that does
// not end the function may write one of its own before), and each failure at the failure level. Tracing never changes
// errno, so that a caller still finds the code of a failed call behind the lines that its callee wrote.
#ifndef OXT_TRACE_H
#define OXT_TRACE_H

#include <atomic>
#include <cerrno>
#include <cstddef>

// Slots of g_Func. Names are constants, the others are null until InitProcess has found what they stand for.
enum OxtFuncSlot {
    OXT_FUNC_TRACE_HANDLE,
    OXT_FUNC_TRACE_LIBRARY,
    OXT_FUNC_SETFILEPATH_NAME,
    OXT_FUNC_SETFILEPATH,
    OXT_FUNC_TRACELOG_NAME,
    OXT_FUNC_TRACELOG,
    OXT_FUNC_ALERT_HANDLE,
    OXT_FUNC_ALERT_LIBRARY,
    OXT_FUNC_SENDINDICATION_NAME,
    OXT_FUNC_SENDINDICATION,
    OXT_FUNC_SLOTS
};

extern std::atomic<const void *> g_Func[OXT_FUNC_SLOTS];
extern char g_logfnm[16]; // the log's name, handed to SetFilePath before every line; written by InitProcess only

// An alert as the alert library takes it, by value.
struct Info {
    int version; // always 0
    int method;  // 1 to 3
    const char *sourceName;
    unsigned int eventID;
    int eventType;
    int numOfStrings;
    char **strings;
};
static_assert(sizeof(Info) == 40, "the alert library takes 40 bytes");
static_assert(offsetof(Info, version) == 0 && offsetof(Info, method) == 4 && offsetof(Info, sourceName) == 8, "layout");
static_assert(offsetof(Info, eventID) == 16 && offsetof(Info, eventType) == 20, "layout");
static_assert(offsetof(Info, numOfStrings) == 24 && offsetof(Info, strings) == 32, "layout");

// Opens a library of the agent's lib directory (dlopen, RTLD_LAZY). Null when the name is null or it cannot be opened.
void *LoadLibrary(const char *fileName);
// Null when an argument is null or the symbol is missing.
void *GetProcAddress(void *handle, const char *symbol);

// Binds both libraries and sets the log's name. 0 when the binding is complete, else -1 with one syslog line; what was
// found stays bound, and the next call tries again. A name longer than the buffer is cut.
int InitProcess(const char *logFileName);
// Closes both libraries. One that cannot be closed, or that a thread does not leave within 3 seconds, stays bound.
void FinishProcess();

// Sends one alert; the strings must live for the call. 0 when the alert library took it, -1 for a refused argument, a
// missing library or a failed send.
int OXTSendIndication(const char *sourceName, unsigned int eventID, int eventType, unsigned int method,
                      int numOfStrings, char **strings);

constexpr int OXT_TRACE_NORMAL = 0;
constexpr int OXT_TRACE_FAILURE = 3;

typedef void (*OxtTraceLog)(int level, const char *tag, const char *functionName, int sourceLine, const char *format,
                            ...) __attribute__((format(printf, 5, 6)));

// True when a trace library is bound.
inline bool oxtTraceBound() {
    return g_Func[OXT_FUNC_TRACELOG].load(std::memory_order_relaxed) != nullptr ||
           g_Func[OXT_FUNC_SETFILEPATH].load(std::memory_order_relaxed) != nullptr;
}

// A trace library may tell with an entry TraceWanted that its settings switch normal lines off. They are then left out,
// but each 64th: it asks again, and so does each failure's line.
extern std::atomic<unsigned> g_linesLeft; // out since the library was asked; 0 while normal lines are wanted
bool oxtTraceAsk();                       // while they are not: whether this line is

// True when a trace library is bound and wants normal lines. Cheap: ask it before work that only the trace needs.
inline bool oxtTraceOn() {
    return oxtTraceBound() && (g_linesLeft.load(std::memory_order_relaxed) == 0 || oxtTraceAsk());
}
// Selects the log, and keeps the library from being closed until oxtTraceEnd. It counts the thread in even where it
// gives null, because a clean-up came first: so oxtTraceEnd is called in any case.
OxtTraceLog oxtTraceBegin();
void oxtTraceEnd();

// One trace line of the named function. Its arguments are evaluated only when it is written: none may have an effect.
#define OXT_TRACE_LINE(level, function, ...)                                                                           \
    do {                                                                                                               \
        if ((level) == OXT_TRACE_NORMAL ? oxtTraceOn() : oxtTraceBound()) {                                            \
            const int oxtErrno_ = errno;                                                                               \
            if (const OxtTraceLog oxtLog_ = oxtTraceBegin()) {                                                         \
                errno = oxtErrno_;                                                                                     \
                oxtLog_(level, "", function, __LINE__, __VA_ARGS__);                                                   \
            }                                                                                                          \
            oxtTraceEnd();                                                                                             \
            errno = oxtErrno_;                                                                                         \
        }                                                                                                              \
    } while (0)

// The same in the function's own name, and in another's: a body that several functions share traces in the name of its
// caller. It gets the name as its first argument, `function`: C++17 cannot tell who calls, and a name kept beside the
// thread would be the wrong one behind each call of a function that traces for itself.
#define OXT_TRACE(...) OXT_TRACE_AS(__func__, __VA_ARGS__)
#define OXT_TRACE_FAIL(...) OXT_TRACE_FAIL_AS(__func__, __VA_ARGS__)
#define OXT_TRACE_AS(function, ...) OXT_TRACE_LINE(OXT_TRACE_NORMAL, function, __VA_ARGS__)
#define OXT_TRACE_FAIL_AS(function, ...) OXT_TRACE_LINE(OXT_TRACE_FAILURE, function, __VA_ARGS__)

// A failure exit: trace the line and return the value. OXT_REQUIRE does so unless the condition holds.
#define OXT_FAIL(result, ...) OXT_FAIL_AS(__func__, result, __VA_ARGS__)
#define OXT_FAIL_AS(function, result, ...)                                                                             \
    do {                                                                                                               \
        OXT_TRACE_FAIL_AS(function, __VA_ARGS__);                                                                      \
        return result;                                                                                                 \
    } while (0)
#define OXT_REQUIRE(condition, result, ...) OXT_REQUIRE_AS(__func__, condition, result, __VA_ARGS__)
#define OXT_REQUIRE_AS(function, condition, result, ...)                                                               \
    do {                                                                                                               \
        if (!(condition))                                                                                              \
            OXT_FAIL_AS(function, result, __VA_ARGS__);                                                                \
    } while (0)

#endif
