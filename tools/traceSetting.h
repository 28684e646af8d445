// The settings file of the trace stand-in, as far as a command changes it.
#ifndef OXT_TOOL_TRACESETTING_H
#define OXT_TOOL_TRACESETTING_H

#include <string>

namespace oxttool {

// The text of the file with normal lines switched "on" or "off"; everything else stays. Pure.
std::string withNormalLines(const std::string &text, const std::string &value);

// Does that to `root`log/svtrace.conf, which it replaces as a whole. Throws an environment failure.
void writeTraceSetting(const std::string &root, const std::string &value);

} // namespace oxttool

#endif
