#include "commandTable.h"

#include <CLI/CLI.hpp>

#include "apply.h"
#include "change.h"
#include "check.h"
#include "columns.h"
#include "commands.h"
#include "inspect.h"
#include "log.h"
#include "settings.h"
#include "values.h"
#include "watch.h"
#include "why.h"

namespace oxttool {

namespace {

constexpr const char *kTargetHelp = "TARGET is an index, a mount point, a device, or any file or directory on it.";

// What several commands take.

void takeTarget(CLI::App &command, Options &options) {
    command.add_option("TARGET", options.target, "The file system")->required()->type_name("");
}

void takeTargets(CLI::App &command, Options &options) {
    command.add_option("TARGET", options.targets, "Only these file systems")->type_name("");
}

void takeFormat(CLI::App &command, Options &options) {
    command.add_option("--format", options.format, "table, json, or prometheus: metrics in bytes")
        ->check(CLI::IsMember({"table", "json", "prometheus"}))
        ->type_name("FORMAT");
    command.add_option("--output-file", options.outputFile, "Put the metrics into FILE, whole or not at all")
        ->type_name("FILE");
}

void takeTable(CLI::App &command, Options &options) {
    command.add_option("-o,--output", options.columns, "Columns to show, or +COLUMN to add")->type_name("COLUMNS");
    command.add_flag("--sort{worst}", options.look.sort, "Worst first, or by a column: --sort=free")
        ->type_name("[=COLUMN]");
    command.add_flag_callback(
        "-n,--noheadings", [&options] { options.look.headings = false; }, "Show no headings");
    command.add_flag("-r,--raw", options.look.raw, "Columns with one blank in between");
    command.add_flag("-P,--pairs", options.look.pairs, "NAME=\"value\" pairs");
    command.footer(command.get_footer() + "\n" + columnHelp());
}

void takeThreshold(CLI::App &command, Options &options) {
    command.add_option("AMOUNT", options.value, "Free space: 512M, 20G, 1T, 10% of the size")
        ->required()
        ->type_name("");
}

// What one command takes.

void takeCycle(CLI::App &command, Options &options) {
    command.add_option("--cycle", options.cycle, "New cycle in seconds, " + cycleRange())->type_name("SECONDS");
}

void takeSwitch(CLI::App &command, Options &options) {
    command.add_option("SWITCH", options.value, "on or off")
        ->required()
        ->check(CLI::IsMember({"on", "off"}))
        ->type_name("");
}

void takeAction(CLI::App &command, Options &options) {
    command.add_option("ACTION", options.value, "start, stop or status")
        ->required()
        ->check(CLI::IsMember({"start", "stop", "status"}))
        ->type_name("");
}

void takeLimits(CLI::App &command, Options &options) {
    command.add_option("--warning,-w", options.warning, "Judge by this free space instead")->type_name("AMOUNT");
    command.add_option("--critical,-c", options.critical, "Judge by this free space instead")->type_name("AMOUNT");
}

void takeWatching(CLI::App &command, Options &options) {
    command.add_option("--cycle", options.cycle, "Set the cycle first, " + cycleRange() + " s; it is kept")
        ->type_name("SECONDS");
    command.add_option("--for", options.seconds, "Stop after this many seconds")->type_name("SECONDS");
    command.add_option("--listen", options.listen, "Serve metrics and a page for browsers there")
        ->type_name("ADDRESS:PORT");
    command.add_option("--settings", options.settingsFile, "Settings file (default: " + settingsPath() + ")")
        ->type_name("FILE");
}

void takeCall(CLI::App &command, Options &options) {
    command.add_option("CLASS", options.className, "CIM class, for example OXT_FileSystem")->required()->type_name("");
    command.add_option("METHOD", options.method, "Its method; upper and lower case matter")->required()->type_name("");
    command.add_option("ARGUMENT", options.arguments, "Of the method, NAME=VALUE each")->type_name("");
}

void takeFile(CLI::App &command, Options &options) {
    command.add_option("FILE", options.file, "Save file (default: the provider's)")->type_name("");
}

void takeSettings(CLI::App &command, Options &options) {
    command.add_option("FILE", options.settingsFile, "Settings file (default: " + settingsPath() + ")")->type_name("");
    command.add_flag("--dry-run", options.dryRun, "Show what would change, and change nothing");
}

void takeLines(CLI::App &command, Options &options) {
    command.add_flag("-f,--follow", options.follow, "Keep showing new lines until Ctrl-C");
    command.add_option("-n,--lines", options.lines, "Lines to show first (default: 10)")->type_name("N");
    command.add_flag("--failures", options.failuresOnly, "Show only failures");
    command.add_option("--trace", options.trace, "Switch the lines of normal flow, and show nothing")
        ->check(CLI::IsMember({"on", "off"}))
        ->type_name("on|off");
}

void takeMount(CLI::App &command, Options &options) {
    command.add_option("MOUNTPOINT", options.target, "Only what is mounted there")->type_name("");
}

void takeTopic(CLI::App &command, Options &options) {
    command.add_option("COMMAND", options.value, "The command to explain")->type_name("");
}

} // namespace

void takeJson(CLI::App &command, Options &options) {
    command.add_flag("-J,--json", options.look.json, "Write JSON");
}

void takeUnits(CLI::App &command, Options &options) {
    const auto set = [&options](Unit unit) {
        if (options.look.unit != Unit::Human && options.look.unit != unit)
            throw Failure(Exit::Usage, "--bytes cannot be combined with --mib.");
        options.look.unit = unit;
    };
    command.add_flag_callback(
        "-b,--bytes", [set] { set(Unit::Bytes); }, "Sizes in bytes");
    command.add_flag_callback(
        "-m,--mib", [set] { set(Unit::MiB); }, "Sizes in MiB");
}

const Command kCommands[kCommandCount] = {
    {"list",
     "Show file systems: free space, thresholds, status",
     listCommand,
     {takeTargets, takeTable, takeFormat, takeJson, takeUnits},
     kTargetHelp},
    {"get", "Show all about one file system", getCommand, {takeTarget, takeTable, takeJson, takeUnits}, kTargetHelp},
    {"check",
     "Answer a monitoring system: a line, exit code 0 to 3",
     checkCommand,
     {takeTargets, takeLimits},
     "Exit codes: 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN, by the provider's status of\n"
     "the monitored file systems or of those that are named.\n"
     "AMOUNT is free space: 512M, 20G, 1T, 10% of the size."},
    {"warn",
     "Set at how much free space the status becomes warning",
     warnCommand,
     {takeTarget, takeThreshold, takeJson, takeUnits},
     kTargetHelp},
    {"fatal",
     "Set at how much free space the status becomes fatal",
     fatalCommand,
     {takeTarget, takeThreshold, takeJson, takeUnits},
     kTargetHelp},
    {"monitor",
     "Switch the monitoring of a file system on or off",
     monitorCommand,
     {takeTarget, takeSwitch, takeJson, takeUnits},
     kTargetHelp},
    {"config", "Show or set the monitoring cycle", configCommand, {takeCycle, takeJson}, ""},
    {"watch",
     "Monitor in service mode until Ctrl-C",
     watchCommand,
     {takeWatching, takeJson, takeUnits},
     "Shows all file systems after each pass, and alerts as they are sent: on a\n"
     "terminal as a table that is redrawn (q ends, s sorts, arrows scroll), otherwise\n"
     "each as a line, with --json as an object on a line."},
    {"apply",
     "Set what the rules of the settings file say",
     applyCommand,
     {takeSettings, takeJson, takeUnits},
     "What was set by hand is replaced, too. Only what changed is shown."},
    {"total", "Show the number of file systems", totalCommand, {takeJson}, ""},
    {"thread",
     "Start, stop or show the monitoring thread",
     threadCommand,
     {takeAction, takeJson},
     "The thread lives in the process that loads the provider, so it ends with this\n"
     "command. 'oxtfsctl watch' keeps it."},
    {"peek",
     "Show the records of a running provider",
     peekCommand,
     {takeTable, takeFormat, takeJson, takeUnits},
     "They are read from its shared memory, without asking it."},
    {"save",
     "Show a save file, and what is wrong with it",
     saveCommand,
     {takeFile, takeJson, takeUnits},
     "Exit codes: 0 the provider would load it; 1 it would start with defaults."},
    {"log",
     "Show the end of the trace log",
     logCommand,
     {takeLines, takeJson},
     "With --json each line is an object of its own."},
    {"why",
     "Tell why each mount is monitored or not",
     whyCommand,
     {takeMount, takeJson, takeUnits},
     "The answer is the provider's own: it looks at this machine once more, without\n"
     "the agent's directory, and its steps are told."},
    {"record",
     "Write this machine down, for --machine",
     recordCommand,
     {},
     "The file is in the format of oxtfs-machine(5). It names devices and mount points\n"
     "and nothing of what is in them."},
    {"call", "Call any method of any class and show the answer", callCommand, {takeCall, takeJson}, ""},
    {"help", "Explain a command", nullptr, {takeTopic}, ""},
};

} // namespace oxttool
