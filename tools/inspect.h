// The commands that host no provider and disturb none: they look at what one keeps in shared memory, and at what it has
// saved. Each throws Failure.
#ifndef OXT_TOOL_INSPECT_H
#define OXT_TOOL_INSPECT_H

#include "options.h"

namespace oxttool {

Exit peekCommand(const Options &options);
Exit saveCommand(const Options &options);

} // namespace oxttool

#endif
