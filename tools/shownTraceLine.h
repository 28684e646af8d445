// A line of the trace log as users read it.
#ifndef OXT_TOOL_SHOWNTRACELINE_H
#define OXT_TOOL_SHOWNTRACELINE_H

#include <string>

#include "table.h"

namespace oxttool {

// The line for people, coloured by level where the look has colours; or as a JSON object on one line.
std::string shownTraceLine(const std::string &line, const Look &look);

} // namespace oxttool

#endif
