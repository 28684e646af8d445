// The command that shows the trace log, and follows it.
#ifndef OXT_TOOL_LOG_H
#define OXT_TOOL_LOG_H

#include "options.h"

namespace oxttool {

Exit logCommand(const Options &options);

} // namespace oxttool

#endif
