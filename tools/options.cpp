#include "options.h"

#include <CLI/CLI.hpp>

#include "commands.h"
#include "inspect.h"
#include "log.h"
#include "watch.h"
#include "why.h"

namespace oxttool {

namespace {

constexpr const char *kAbout =
    "Shows and sets what the file-system monitor keeps. Each call hosts the provider inside its own process,\n"
    "asks it, and lets it save and clean up; peek, save and log host none. No object manager takes part.";

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
  oxtfsctl why /home                what decided whether it is monitored
  oxtfsctl record >here.toml        this machine as a file
  oxtfsctl --machine here.toml list
  oxtfsctl call OXT_FileSystem SetWarningThreshold Index=3 WarningThreshold=512

Exit codes: 0 done; 1 the provider refused or failed; 2 the command line is wrong; 3 the provider cannot be hosted here
(library, agent directory, another provider at work), there is nothing to look at, or the output cannot be written;
4 no mounted file system qualifies; 5 there is no shared memory for the provider.)";

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
    app.add_flag("--force", options.hosting.force, "Go on although a provider is at work here");
    app.add_option("--machine", options.machine,
                   "Host the provider over the machine that a file describes instead of this one")
        ->type_name("FILE");
}

CLI::App *addCommand(CLI::App &app, Options &options, const char *name, const char *about,
                     Exit (*command)(const Options &)) {
    auto *sub = app.add_subcommand(name, about);
    sub->callback([&options, command] { options.command = command; });
    sub->footer("'oxtfsctl --help' shows the options that every command takes.");
    return sub;
}

void addTarget(CLI::App *sub, Options &options) {
    sub->add_option("target", options.target, "Index or mount point of the file system")
        ->required()
        ->type_name("INDEX|MOUNTPOINT");
}

void addFormat(CLI::App *sub, Options &options) {
    sub->add_option("--format", options.format,
                    "A table, JSON as with --json, or metrics in bytes for the node exporter's textfile collector")
        ->check(CLI::IsMember({"table", "json", "prometheus"}));
}

void checkFormat(Options &options) {
    if (options.look.json && !options.format.empty() && options.format != "json")
        throw Failure(Exit::Usage, "--json and --format " + options.format + " exclude each other.");
    options.look.json |= options.format == "json";
}

// A described machine has a provider of its own, and nothing of this one's files and shared memory.
void checkMachine(const Options &options) {
    if (options.machine.empty())
        return;
    for (const auto looksHere : {peekCommand, saveCommand, logCommand})
        if (options.command == looksHere)
            throw Failure(Exit::Usage, "peek, save and log look at what this machine has: leave --machine out.");
    if (!options.hosting.library.empty())
        throw Failure(Exit::Usage, "--machine hosts a provider of its own: leave --library out.");
}

// The commands that look without a provider of their own.
void addInspection(CLI::App &app, Options &options) {
    auto *peek = addCommand(app, options, "peek", "Show what a provider at work keeps, without asking it", peekCommand);
    peek->footer("The records are read from its shared memory. 'oxtfsctl list' measures by itself instead, where no\n"
                 "provider is at work.");
    addFormat(peek, options);

    addCommand(app, options, "why", "Tell why mounts are monitored or not", whyCommand)
        ->add_option("mount", options.target, "Mount point (default: all mounts)")
        ->type_name("MOUNTPOINT");
    addCommand(app, options, "record", "Write this machine down, for --machine", recordCommand)
        ->footer("The file is in the format that oxtfs-machine(5) tells. It names devices and mount points.");

    auto *save = addCommand(app, options, "save", "Show a save file, and what is wrong with it", saveCommand);
    save->add_option("file", options.file, "The file (default: the provider's)")->type_name("FILE");
    save->footer("Exit codes: 0 the provider would load it; 1 it would reject it and start with a fresh inventory.");

    auto *log = addCommand(app, options, "log", "Show the end of the trace log", logCommand);
    log->add_flag("-f,--follow", options.follow, "Go on with what is written, until Ctrl-C");
    log->add_option("-n,--lines", options.lines, "So many lines at first (default: 10)")->type_name("N");
    log->add_flag("--failures", options.failuresOnly, "Failures alone");
    log->footer("With --json each line is an object of its own.");
}

void addCommands(CLI::App &app, Options &options) {
    addFormat(addCommand(app, options, "list", "Show all file systems", listCommand), options);
    addTarget(addCommand(app, options, "get", "Show every property of one file system", getCommand), options);

    addCommand(app, options, "config", "Show the monitoring cycle, or set it", configCommand)
        ->add_option("--cycle", options.cycle, "The new cycle in seconds, 10 to 3600")
        ->type_name("SECONDS");
    addCommand(app, options, "total", "Show the number of file systems", totalCommand);

    auto *monitor =
        addCommand(app, options, "monitor", "Switch the monitoring of a file system on or off", monitorCommand);
    addTarget(monitor, options);
    monitor->add_option("switch", options.value, "on or off")->required()->check(CLI::IsMember({"on", "off"}));

    const struct {
        const char *name, *about;
        Exit (*command)(const Options &);
    } thresholds[] = {{"warn", "Set the free space at which a file system's status becomes warning", warnCommand},
                      {"fatal", "Set the free space at which a file system's status becomes fatal", fatalCommand}};
    for (const auto &row : thresholds) {
        auto *threshold = addCommand(app, options, row.name, row.about, row.command);
        addTarget(threshold, options);
        threshold->add_option("value", options.value, "MiB (512), a unit (512M, 20G, 1T) or a share of the size (10%)")
            ->required()
            ->type_name("VALUE");
    }
    auto *thread = addCommand(app, options, "thread", "Start, stop or show the monitoring thread", threadCommand);
    thread->footer("The thread lives in the process that hosts the provider, so it ends with this command;\n"
                   "'oxtfsctl watch' keeps it.");
    thread->add_option("action", options.value, "start, stop or status")
        ->required()
        ->check(CLI::IsMember({"start", "stop", "status"}));

    auto *watch = addCommand(app, options, "watch", "Monitor in service mode until Ctrl-C", watchCommand);
    watch->footer("The file systems are shown after each pass, alerts as they come. On a terminal the table is drawn\n"
                  "anew; elsewhere each of them is a line.");
    watch->add_option("--cycle", options.cycle, "Set the cycle first; it stays set")->type_name("SECONDS");
    watch->add_option("--for", options.seconds, "End after so many seconds")->type_name("SECONDS");

    auto *call = addCommand(app, options, "call", "Call any method of any class and show the answer", callCommand);
    call->add_option("class", options.className)->required()->type_name("CLASS");
    call->add_option("method", options.method)->required()->type_name("METHOD");
    call->add_option("arguments", options.arguments, "Input arguments")->type_name("NAME=TEXT");
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
    addCommands(app, options);
    addInspection(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &problem) {
        if (problem.get_exit_code() != 0)
            throw Failure(Exit::Usage, std::string(problem.what()) + "\n'oxtfsctl --help' shows how it is used.");
        app.exit(problem);
        return std::nullopt;
    }
    checkFormat(options);
    checkMachine(options);
    return options;
}

} // namespace oxttool
