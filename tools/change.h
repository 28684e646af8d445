// The commands that change a setting. Each tells what it changed, and fails when the provider accepted it and the
// setting is another all the same; each throws Failure.
#ifndef OXT_TOOL_CHANGE_H
#define OXT_TOOL_CHANGE_H

#include "options.h"

namespace oxttool {

Exit monitorCommand(const Options &options);
Exit warnCommand(const Options &options);
Exit fatalCommand(const Options &options);
Exit configCommand(const Options &options); // shows the cycle, too

} // namespace oxttool

#endif
