// The command that does once what a monitor's rules do always.
#ifndef OXT_TOOL_APPLY_H
#define OXT_TOOL_APPLY_H

#include "options.h"

namespace oxttool {

Exit applyCommand(const Options &options);

} // namespace oxttool

#endif
