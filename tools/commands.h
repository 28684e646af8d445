// The commands that ask once and end. Each throws Failure.
#ifndef OXT_TOOL_COMMANDS_H
#define OXT_TOOL_COMMANDS_H

#include <functional>
#include <string>

#include "options.h"

namespace oxttool {

Exit listCommand(const Options &options);
Exit getCommand(const Options &options);
Exit totalCommand(const Options &options);
Exit threadCommand(const Options &options);
Exit callCommand(const Options &options);

// Prints metrics, or puts them into the output file. When they cannot be had, that file says that no monitor is up: it
// must not go on saying what was true once.
void deliverMetrics(const Options &options, const std::function<std::string()> &text);

} // namespace oxttool

#endif
