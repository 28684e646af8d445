#include "options.h"

#include <CLI/CLI.hpp>

#include "apply.h"
#include "commands.h"
#include "inspect.h"
#include "log.h"
#include "settings.h"
#include "watch.h"

namespace oxttool {

namespace {

constexpr const char *kAbout =
    "Shows and sets what the file-system monitor keeps. Where a provider is at work, its records are shown; else each\n"
    "call hosts the provider inside its own process, asks it, and lets it save and clean up.";

constexpr const char *kFooter = R"(Options may stand before or behind the command.

Examples:
  oxtfsctl list                     all file systems
  oxtfsctl get /home --json         one, with every property
  oxtfsctl warn /home 15%           warn at 15 % of the size left
  oxtfsctl fatal 3 512M             fatal at 512 MiB left
  oxtfsctl monitor /scratch off
  oxtfsctl config --cycle 30
  oxtfsctl watch --for 600          monitor for ten minutes in service mode
  oxtfsctl peek                     what a provider at work keeps
  oxtfsctl save                     what was saved last
  oxtfsctl log --follow --failures
  oxtfsctl call OXT_FileSystem SetWarningThreshold Index=3 WarningThreshold=512

Exit codes: 0 done; 1 the provider refused or failed; 2 the command line is wrong; 3 the provider cannot be hosted here
(library, agent directory, another provider at work), there is nothing to look at, or the output cannot be written.)";

constexpr const char *kCommandFooter = "'oxtfsctl --help' shows the options that every command takes.";

// What several commands take, each with its meaning.

void takeTarget(CLI::App &command, Options &options) {
    command.add_option("target", options.target, "Index or mount point of the file system")
        ->required()
        ->type_name("INDEX|MOUNTPOINT");
}

void takeFormat(CLI::App &command, Options &options) {
    command
        .add_option("--format", options.format,
                    "A table, JSON as with --json, or metrics in bytes for the node exporter's textfile collector")
        ->check(CLI::IsMember({"table", "json", "prometheus"}));
}

void takeThreshold(CLI::App &command, Options &options) {
    command.add_option("value", options.value, "MiB (512), a unit (512M, 20G, 1T) or a share of the size (10%)")
        ->required()
        ->type_name("VALUE");
}

// What one command takes.

void takeCycle(CLI::App &command, Options &options) {
    command.add_option("--cycle", options.cycle, "The new cycle in seconds, 10 to 3600")->type_name("SECONDS");
}

void takeSwitch(CLI::App &command, Options &options) {
    command.add_option("switch", options.value, "on or off")->required()->check(CLI::IsMember({"on", "off"}));
}

void takeAction(CLI::App &command, Options &options) {
    command.add_option("action", options.value, "start, stop or status")
        ->required()
        ->check(CLI::IsMember({"start", "stop", "status"}));
}

void takeWatching(CLI::App &command, Options &options) {
    command.add_option("--cycle", options.cycle, "Set the cycle first; it stays set")->type_name("SECONDS");
    command.add_option("--for", options.seconds, "End after so many seconds")->type_name("SECONDS");
    command.add_option("--listen", options.listen, "Serve metrics and a page for browsers there, read-only")
        ->type_name("ADDRESS:PORT");
    command.add_option("--settings", options.settingsFile, "The settings file (default: " + settingsPath() + ")")
        ->type_name("FILE");
}

void takeCall(CLI::App &command, Options &options) {
    command.add_option("class", options.className)->required()->type_name("CLASS");
    command.add_option("method", options.method)->required()->type_name("METHOD");
    command.add_option("arguments", options.arguments, "Input arguments")->type_name("NAME=TEXT");
}

void takeFile(CLI::App &command, Options &options) {
    command.add_option("file", options.file, "The file (default: the provider's)")->type_name("FILE");
}

void takeSettings(CLI::App &command, Options &options) {
    command.add_option("file", options.settingsFile, "The settings file (default: " + settingsPath() + ")")
        ->type_name("FILE");
    command.add_flag("--dry-run", options.dryRun, "Show what would change, and change nothing");
}

void takeLines(CLI::App &command, Options &options) {
    command.add_flag("-f,--follow", options.follow, "Go on with what is written, until Ctrl-C");
    command.add_option("-n,--lines", options.lines, "So many lines at first (default: 10)")->type_name("N");
    command.add_flag("--failures", options.failuresOnly, "Failures alone");
    command.add_option("--trace", options.trace, "Switch the lines of normal flow on or off, and show nothing")
        ->check(CLI::IsMember({"on", "off"}));
}

// A command is a row here and a function: what it takes beside the options of every command, and what ends its help.
using Take = void (*)(CLI::App &command, Options &options);
struct Command {
    const char *name, *about;
    Exit (*run)(const Options &);
    Take takes[2];
    const char *footer;
};
constexpr Command kCommands[] = {
    {"list", "Show all file systems", listCommand, {takeFormat}, kCommandFooter},
    {"get", "Show every property of one file system", getCommand, {takeTarget}, kCommandFooter},
    {"config", "Show the monitoring cycle, or set it", configCommand, {takeCycle}, kCommandFooter},
    {"total", "Show the number of file systems", totalCommand, {}, kCommandFooter},
    {"monitor",
     "Switch the monitoring of a file system on or off",
     monitorCommand,
     {takeTarget, takeSwitch},
     kCommandFooter},
    {"warn",
     "Set the free space at which a file system's status becomes warning",
     warnCommand,
     {takeTarget, takeThreshold},
     kCommandFooter},
    {"fatal",
     "Set the free space at which a file system's status becomes fatal",
     fatalCommand,
     {takeTarget, takeThreshold},
     kCommandFooter},
    {"thread",
     "Start, stop or show the monitoring thread",
     threadCommand,
     {takeAction},
     "The thread lives in the process that hosts the provider, so it ends with this command;\n"
     "'oxtfsctl watch' keeps it."},
    {"watch",
     "Monitor in service mode until Ctrl-C",
     watchCommand,
     {takeWatching},
     "The file systems are shown after each pass, alerts as they come. On a terminal the table is drawn\n"
     "anew; elsewhere each of them is a line."},
    {"apply",
     "Set what the rules of the settings file say",
     applyCommand,
     {takeSettings},
     "What was set by hand is replaced, too. What changed is shown; nothing is when all is as the rules say."},
    {"call", "Call any method of any class and show the answer", callCommand, {takeCall}, kCommandFooter},
    {"peek",
     "Show what a provider at work keeps, without asking it",
     peekCommand,
     {takeFormat},
     "The records are read from its shared memory. 'oxtfsctl list' measures by itself instead, where no\n"
     "provider is at work."},
    {"save",
     "Show a save file, and what is wrong with it",
     saveCommand,
     {takeFile},
     "Exit codes: 0 the provider would load it; 1 it would reject it and start with a fresh inventory."},
    {"log", "Show the end of the trace log", logCommand, {takeLines}, "With --json each line is an object of its own."},
};

void addCommand(CLI::App &app, Options &options, const Command &command) {
    CLI::App *added = app.add_subcommand(command.name, command.about);
    added->callback([&options, &command] { options.command = command.run; });
    added->footer(command.footer);
    for (const Take take : command.takes)
        if (take)
            take(*added, options);
}

void addGlobalOptions(CLI::App &app, Options &options) {
    app.add_flag("--json", options.look.json, "Write JSON; sizes are in MiB, or in bytes with --bytes");
    auto *bytes = app.add_flag_callback(
        "-b,--bytes", [&options] { options.look.unit = Unit::Bytes; }, "Sizes in bytes");
    app.add_flag_callback(
           "-m,--mib", [&options] { options.look.unit = Unit::MiB; }, "Sizes in MiB")
        ->excludes(bytes);
    app.add_option("--library", options.hosting.library,
                   "The provider's library (default: the one installed with this)")
        ->type_name("PATH");
    app.add_option("--namespace", options.hosting.nameSpace, "The namespace of requests")->capture_default_str();
    app.add_option_function<std::string>(
           "--service-mode",
           [&options](const std::string &text) { options.hosting.serviceMode = parseServiceMode(text); },
           "What the agent says about its service mode (default: off; on for thread and watch)")
        ->type_name("on|off|fail|BYTE");
    app.add_option_function<std::string>(
           "--flavour",
           [&options](const std::string &text) {
               options.hosting.flavour = text == "sfcb" ? oxthost::Flavour::Sfcb : oxthost::Flavour::Standard;
           },
           "Whose manners the hosting has where object managers differ (default: sfcb)")
        ->check(CLI::IsMember({"sfcb", "standard"}));
    app.add_flag("--direct", options.hosting.direct, "Host a provider, whoever else could be asked");
    app.add_flag("--force", options.hosting.force, "Host one even beside a provider at work; settings may be lost");
}

void checkFormat(Options &options) {
    if (options.look.json && !options.format.empty() && options.format != "json")
        throw Failure(Exit::Usage, "--json and --format " + options.format + " exclude each other.");
    options.look.json |= options.format == "json";
}

} // namespace

std::optional<Options> parseOptions(int argc, const char *const *argv) {
    Options options;
    CLI::App app(kAbout, "oxtfsctl");
    app.set_version_flag("--version", OXT_TOOL_VERSION);
    app.footer(kFooter);
    app.fallthrough();
    app.require_subcommand(1);
    addGlobalOptions(app, options);
    for (const Command &command : kCommands)
        addCommand(app, options, command);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &problem) {
        if (problem.get_exit_code() != 0)
            throw Failure(Exit::Usage, std::string(problem.what()) + "\n'oxtfsctl --help' shows how it is used.");
        app.exit(problem);
        return std::nullopt;
    }
    checkFormat(options);
    return options;
}

} // namespace oxttool
