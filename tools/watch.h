// The command that stays: it hosts the provider in service mode with its monitoring thread, shows the file systems
// after each pass and the alerts as they come, and ends on a signal, after its time, or when the output is gone.
#ifndef OXT_TOOL_WATCH_H
#define OXT_TOOL_WATCH_H

#include "options.h"

namespace oxttool {

Exit watchCommand(const Options &options);

} // namespace oxttool

#endif
