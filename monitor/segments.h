// The records of a provider at work, read from its three shared-memory segments without its help.
//
// The provider overwrites a segment with one copy and without a lock that others know, and replaces the one of the file
// systems when their number changes. It attaches a segment for no longer than a copy takes, and the kernel keeps who
// attached or detached last: a copy during which nobody else was or came is exact.
#ifndef OXT_MONITOR_SEGMENTS_H
#define OXT_MONITOR_SEGMENTS_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "records.h"

namespace oxttool {

struct Segments {
    enum State { Complete, NoDataYet, Disagreeing, WrongSize };
    State state = NoDataYet;
    std::string problem; // empty when complete
    Cycle cycle;
    std::vector<FileSystem> fileSystems;
};

// Pure: what the bytes of the three segments say together, whatever they are. An empty `fileSystems` is no segment.
Segments parseSegments(ByteView config, ByteView total, ByteView fileSystems);

struct LiveRecords {
    Cycle cycle;
    std::vector<FileSystem> fileSystems;
    pid_t pid = 0;       // of the process that made the segments; 0 when it cannot be told from here
    std::string process; // its name; empty when it cannot be told
    double measured = 0; // seconds since the epoch: when its last pass was saved, or the segments were made
};

// No pass has ended for two cycles and half a minute: no thread monitors there, or it hangs. Outside service mode,
// where only requests measure, that is so until the next one.
bool isOverdue(const LiveRecords &records, double now); // seconds since the epoch

// The records under the key files of `root`work/. Attaches for reading only, creates nothing, and tries again for at
// most `patience` while they are being written or replaced. Throws an environment failure that says what to do when no
// provider is at work there or its records cannot be had.
LiveRecords readSegments(const std::string &root, std::chrono::milliseconds patience = std::chrono::milliseconds(2000));

} // namespace oxttool

#endif
