// A line of the trace log, as the agent's trace stand-in writes it: time, process, thread, level, function and source
// line, text. All pure.
#ifndef OXT_MONITOR_TRACELINE_H
#define OXT_MONITOR_TRACELINE_H

#include <string>

namespace oxttool {

struct TraceLine {
    bool parsed = false; // else there is only the text: the agent's own library has a form of its own
    std::string time, function;
    int process = 0, thread = 0, level = 0, sourceLine = 0;
    std::string text;

    // The provider marks the begin of every request at the level of failures, too: the words make the difference.
    bool isFailure() const;

    static constexpr int kNormalLevel = 0;
    static constexpr int kFailureLevel = 3;
};

TraceLine parseTraceLine(const std::string &line);

} // namespace oxttool

#endif
