// The format of a line in the trace log. No state, no lock.
#ifndef SVTRACE_LINE_H
#define SVTRACE_LINE_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <ctime>

namespace agent {

constexpr std::size_t kTraceLineRoom = 4096; // the longest line, with its newline

// When and by whom a line is written.
struct TraceMoment {
    timespec time; // UTC
    int process;
    int thread;
};

// A line and its newline, without a terminating zero.
struct TraceLine {
    std::size_t length;
    char bytes[1 + kTraceLineRoom]; // a newline, for whoever finds the log's last line torn; then the line
};

// What the caller says about its trace point.
struct TracePoint {
    int level;
    const char *tag;      // may be null
    const char *function; // may be null
    int sourceLine;
};

// Makes the line. A text that is too long ends in a mark; control characters are shown, so that one call is one line
// whatever its arguments hold.
__attribute__((format(printf, 4, 0))) void composeTrace(TraceLine &line, const TraceMoment &when,
                                                        const TracePoint &point, const char *format, va_list arguments);

// Makes the line that tells how many lines could not be written.
void composeDropped(TraceLine &line, const TraceMoment &when, std::uint32_t lines);

} // namespace agent

#endif
