// What commands have in common that ask a session about file systems.
#ifndef OXT_TOOL_ASKING_H
#define OXT_TOOL_ASKING_H

#include <vector>

#include "options.h"

namespace oxttool {

std::vector<FileSystem> fileSystemsOf(Session &session);

// Where the answers come from, a grey line for people on the standard error stream; nothing where a program reads.
void saySource(const Session &session, const Options &options);

} // namespace oxttool

#endif
