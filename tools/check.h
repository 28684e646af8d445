// The command for monitoring systems: one line with performance data and an exit code of 0 to 3, as the plug-ins of
// Nagios, Icinga and their like answer.
#ifndef OXT_TOOL_CHECK_H
#define OXT_TOOL_CHECK_H

#include "options.h"

namespace oxttool {

// Whatever goes wrong is an answer, too: it throws nothing. The code is a plug-in's: 0 OK, 1 WARNING, 2 CRITICAL,
// 3 UNKNOWN.
Exit checkCommand(const Options &options);

} // namespace oxttool

#endif
