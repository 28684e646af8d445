// The commands of the command line, a row each.
#ifndef OXT_TOOL_COMMANDTABLE_H
#define OXT_TOOL_COMMANDTABLE_H

#include "options.h"

namespace CLI {
class App;
}

namespace oxttool {

// Adds options and arguments to a command, or to the command line as a whole, that end up in `options`.
using Take = void (*)(CLI::App &command, Options &options);

// A new command is a row and a function: what it takes beside the options of every command, and what ends its help.
struct Command {
    const char *name, *about;
    Exit (*run)(const Options &);
    Take takes[5];
    const char *footer;
};

inline constexpr std::size_t kCommandCount = 18;
extern const Command kCommands[kCommandCount];

// What several commands take; before the command, too.
void takeJson(CLI::App &command, Options &options);
void takeUnits(CLI::App &command, Options &options);

} // namespace oxttool

#endif
