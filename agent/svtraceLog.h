// The open trace logs of this process: writing lines, noticing what became of the files, rotating them.
//
// At most kTraceLogs logs, each known by its name and kept until the process ends. Writers take no lock. About once a
// second, or when a log has grown, one of the writing threads looks after the file (svtraceWatch.h): it is opened anew
// when it was moved or deleted, and rotated when it is full. A descriptor is replaced in place (dup3), never closed
// under a writer.
#ifndef SVTRACE_LOG_H
#define SVTRACE_LOG_H

#include "svtraceLine.h"
#include "svtraceSettings.h"

#include <cstddef>

namespace agent {

constexpr std::size_t kTraceLogs = 8;
constexpr std::size_t kTraceNameRoom = 64; // with the terminating zero

struct TraceLogFile;

// The log of that name, entered in the table when it is new; null when the name is refused or the table is full.
TraceLogFile *traceLogNamed(const char *name);

// The log's name.
const char *traceLogName(const TraceLogFile &log);

// Appends a line, preceded by one that tells about lines lost before; a line that cannot be written is counted.
void writeTrace(TraceLogFile &log, const TraceSettings &settings, const TraceMoment &when, const TraceLine &line);

} // namespace agent

#endif
