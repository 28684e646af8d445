// The commands that tell what the provider sees: why it lists, measures and monitors a mount or does not, and the whole
// machine as a file. Neither touches the agent's directory or needs the provider that is at work.
#ifndef OXT_TOOL_WHY_H
#define OXT_TOOL_WHY_H

#include "options.h"

namespace oxttool {

Exit whyCommand(const Options &options);
Exit recordCommand(const Options &options);

} // namespace oxttool

#endif
