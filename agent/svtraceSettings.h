// The settings of the trace log: <agent directory>log/svtrace.conf, read again about once a second while lines are
// written.
//
// The values are atomics that any thread reads; one thread at a time, chosen without waiting, reads the file.
#ifndef SVTRACE_SETTINGS_H
#define SVTRACE_SETTINGS_H

#include "svtraceLine.h"

#include <cstdint>

namespace agent {

constexpr char kTraceSettingsName[] = "svtrace.conf";

struct TraceSettings {
    bool normal;           // lines of level 0 are written
    std::int64_t maxBytes; // of one log file, newest or older
    std::int64_t capacity; // beyond which this process writes nothing: maxBytes, or less when its own limit is lower
    int files;             // of one log, the newest included
};

// The settings in force. A missing or unreadable file and a value that is not understood leave the
// defaults: normal lines written, four files of 5 MB.
TraceSettings traceSettings(const TraceMoment &now);

} // namespace agent

#endif
