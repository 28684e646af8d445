// The command line.
#ifndef OXT_TOOL_OPTIONS_H
#define OXT_TOOL_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "failure.h"
#include "session.h"
#include "table.h"

namespace oxttool {

struct Options {
    Look look;
    Hosting hosting;
    Exit (*command)(const Options &) = nullptr;
    bool wantsMetrics() const { return format == "prometheus"; }
    bool isForPeople() const { return !look.json && !look.raw && !look.pairs && !wantsMetrics(); }
    // What the command was given; empty where it takes no such thing.
    std::string target;               // what means a file system, see target.h
    std::vector<std::string> targets; // the same, several
    std::string value;
    std::string className, method;
    std::vector<std::string> arguments; // of call: name=text
    std::string cycle;                  // seconds
    std::string seconds;                // that watch runs
    std::vector<std::string> listen;    // addresses of watch
    std::string settingsFile;           // of watch and apply
    std::string format;                 // "table", "json" or "prometheus"
    std::string outputFile;             // the file for metrics; empty: the standard output
    std::string columns;                // of the table, as they were given
    std::string warning, critical;      // of check, amounts
    std::string file;                   // of save
    std::string lines;                  // of log
    std::string machine;                // the file of a described one; empty: this machine
    bool follow = false, failuresOnly = false;
    std::string trace;   // of log: "on" or "off"
    bool dryRun = false; // of apply
};

// Nothing when only help or the version was asked for, which is printed then. Throws a usage failure.
std::optional<Options> parseOptions(int argc, const char *const *argv);

} // namespace oxttool

#endif
