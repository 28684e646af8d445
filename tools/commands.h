// The commands that ask once and end. Each throws Failure.
#ifndef OXT_TOOL_COMMANDS_H
#define OXT_TOOL_COMMANDS_H

#include "options.h"

namespace oxttool {

Exit listCommand(const Options &options);
Exit getCommand(const Options &options);
Exit totalCommand(const Options &options);
Exit threadCommand(const Options &options);
Exit callCommand(const Options &options);

} // namespace oxttool

#endif
