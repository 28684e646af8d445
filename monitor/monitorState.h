// What a running monitor tells a command over its socket: all that a session asks for, with the exact bytes of names.
// /api/v1/filesystems is for other programs.
#ifndef OXT_MONITOR_MONITORSTATE_H
#define OXT_MONITOR_MONITORSTATE_H

#include <ctime>
#include <string>
#include <vector>

#include "view.h"

namespace oxttool {

struct MonitorState {
    std::vector<FileSystem> fileSystems;
    Cycle cycle;
    double updated = 0;
    unsigned long passes = 0; // that succeeded
    std::string failing;
    std::vector<std::string> alerts;
    int process = 0;
};

// `well`: its passes succeed and none is missing.
std::string stateText(const View &view, bool well);
// Throws an environment failure when it is none: another version's, say.
MonitorState parseState(const std::string &text);

} // namespace oxttool

#endif
