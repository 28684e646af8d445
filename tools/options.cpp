#include "options.h"

#include <algorithm>
#include <cstring>
#include <iostream>

#include <CLI/CLI.hpp>

#include "columns.h"
#include "commandTable.h"
#include "inspect.h"
#include "log.h"
#include "shownText.h"

namespace oxttool {

namespace {

constexpr std::size_t kHelpColumn = 27;

constexpr const char *kAbout = "Shows the monitored file systems and changes their settings. It asks the\n"
                               "provider that is at work here; where none is, it loads one into its own process\n"
                               "for the time of the command.";

constexpr const char *kFooter = R"(Options may be given before or after the command.

Examples:
  oxtfsctl list --sort              all file systems, the worst first
  oxtfsctl get .                    the one that this directory is on
  oxtfsctl warn /home 15%           warn when 15 % of the size are free
  oxtfsctl fatal /dev/sdb1 2G       fatal when 2 GiB are free
  oxtfsctl check /home              for a monitoring system
  oxtfsctl watch --for 600          monitor for ten minutes
  oxtfsctl list -o MOUNTPOINT,FREE  two columns
  oxtfsctl log --follow --failures
  oxtfsctl why /home                what decided whether it is monitored
  oxtfsctl record >here.toml        this machine as a file
  oxtfsctl --machine here.toml list

Exit codes: 0 success; 1 the provider rejected the request or failed; 2 usage
error; 3 the provider cannot be reached or loaded here, there is nothing to
show, or the output cannot be written; 4 no mounted file system qualifies;
5 the system has no shared memory for the provider. Those of check differ.)";

// Help as readers of man pages know it: "-b, --bytes", and the values of an option only where they are its own words.
// Versions of the library differ in how they fill lines and what they call the parts; ours is the same with each.
class HelpFormat : public CLI::Formatter {
  public:
    HelpFormat() { label("SUBCOMMAND", "COMMAND"); }

    std::string make_help(const CLI::App *app, std::string name, CLI::AppFormatMode mode) const override {
        std::string usage = make_usage(app, name);
        usage.erase(usage.find_last_not_of('\n') + 1);
        usage.replace(0, usage.find(name), "Usage: ");
        const std::string footer = app->get_footer();
        return app->get_description() + "\n" + usage + "\n" + make_positionals(app) + make_groups(app, mode) +
               make_subcommands(app, mode) + "\n" + (footer.empty() ? "" : footer + "\n");
    }
    std::string make_group(std::string, bool isPositional, std::vector<const CLI::Option *> options) const override {
        std::string text = isPositional ? "\nArguments:\n" : "\nOptions:\n";
        for (const CLI::Option *option : options)
            text += make_option(option, isPositional);
        return text;
    }
    std::string make_option(const CLI::Option *option, bool isPositional) const override {
        return inColumns(make_option_name(option, isPositional) + make_option_opts(option), option->get_description());
    }
    std::string make_subcommand(const CLI::App *command) const override {
        return inColumns(command->get_name(), command->get_description());
    }
    std::string make_option_name(const CLI::Option *option, bool isPositional) const override {
        if (isPositional)
            return CLI::Formatter::make_option_name(option, true);
        std::string name;
        for (const std::string &letter : option->get_snames())
            name += "-" + letter + ", ";
        return (name.empty() ? "    " : name) + "--" + option->get_lnames().front();
    }
    std::string make_option_opts(const CLI::Option *option) const override {
        const std::string type = option->get_type_name().substr(0, option->get_type_name().find(':'));
        const bool needsBlank = !type.empty() && type.front() != '[';
        return option->get_positional() ? "" : (needsBlank ? " " : "") + type;
    }

  private:
    static std::string inColumns(const std::string &name, const std::string &about) {
        const std::string left = "  " + name;
        const bool fits = left.size() < kHelpColumn;
        return left + (fits ? "" : "\n") + std::string(kHelpColumn - (fits ? left.size() : 0), ' ') + about + "\n";
    }
};

void addCommand(CLI::App &app, Options &options, const Command &command) {
    CLI::App *added = app.add_subcommand(command.name, command.about)->group("Commands");
    added->callback([&options, &command] { options.command = command.run; });
    added->footer(command.footer);
    for (const Take take : command.takes)
        if (take)
            take(*added, options);
}

void addGlobalOptions(CLI::App &app, Options &options) {
    takeJson(app, options);
    takeUnits(app, options);
    app.add_option("--library", options.hosting.library, "Provider library to load")->type_name("PATH");
    app.add_option("--namespace", options.hosting.nameSpace, "CIM namespace that requests name")
        ->capture_default_str()
        ->type_name("NAME");
    app.add_option_function<std::string>(
           "--service-mode",
           [&options](const std::string &text) { options.hosting.serviceMode = parseServiceMode(text); },
           "Service mode to report: on, off; for tests fail, BYTE")
        ->type_name("MODE");
    app.add_option_function<std::string>(
           "--flavour",
           [&options](const std::string &text) {
               options.hosting.flavour = text == "sfcb" ? oxthost::Flavour::Sfcb : oxthost::Flavour::Standard;
           },
           "Behave like sfcb, or strictly by the CMPI standard")
        ->check(CLI::IsMember({"sfcb", "standard"}))
        ->type_name("HOST");
    app.add_flag("--direct", options.hosting.direct, "Load a provider here, whoever else could be asked");
    app.add_flag("--force", options.hosting.force, "Load one even beside another: settings may be lost");
    app.add_option("--machine", options.machine, "Load one over the machine that a file describes")->type_name("FILE");
}

// Letters that have to be added, dropped, changed or swapped with their neighbour to make one word of the other.
std::size_t distance(const std::string &a, const std::string &b) {
    std::vector<std::vector<std::size_t>> steps(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i)
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                steps[i][j] = i + j;
                continue;
            }
            steps[i][j] = std::min(
                {steps[i - 1][j] + 1, steps[i][j - 1] + 1, steps[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
        }
    return steps[a.size()][b.size()];
}

// The known word that somebody may have meant; empty when none is like it.
std::string likely(const std::string &word, const std::vector<std::string> &known) {
    std::string best;
    std::size_t least = std::min<std::size_t>(3, word.size() / 2 + 1); // so many make another word
    for (const std::string &candidate : known)
        if (const std::size_t steps = distance(word, candidate); steps < least) {
            least = steps;
            best = candidate;
        }
    return best;
}

std::vector<std::string> commandNames() {
    std::vector<std::string> names;
    for (const Command &command : kCommands)
        names.emplace_back(command.name);
    return names;
}

std::string helpOn(const CLI::App &app) {
    const auto used = app.get_subcommands();
    const std::string topic = used.empty() || used.front()->get_name() == "help" ? "" : " " + used.front()->get_name();
    return "'oxtfsctl help" + topic + "' shows how it is used.";
}

Failure unknownWord(const std::string &word, const CLI::App &app) {
    const auto used = app.get_subcommands();
    std::vector<std::string> known = commandNames();
    std::string what = used.empty() ? "command" : "argument";
    if (word.size() > 1 && word.front() == '-') {
        what = "option";
        known.clear();
        for (const CLI::App *place : {&app, used.empty() ? &app : used.front()})
            for (const CLI::Option *option : place->get_options())
                for (const std::string &name : option->get_lnames())
                    known.push_back("--" + name);
    } else if (!used.empty()) {
        known.clear();
    }
    const std::string meant = likely(word, known);
    return {Exit::Usage, "unknown " + what + " '" + printable(word) + "'." +
                             (meant.empty() ? "" : " Did you mean '" + meant + "'?") + "\n" + helpOn(app)};
}

// Building a command costs more than parsing it, so only those are built that may be meant.
void addCommands(CLI::App &app, Options &options, int argc, const char *const *argv) {
    const auto given = [&](const char *word) {
        return std::any_of(argv + 1, argv + argc, [word](const char *one) { return std::strcmp(one, word) == 0; });
    };
    const bool help = given("help") || given("-h") || given("--help");
    for (const Command &command : kCommands)
        if (help || given(command.name))
            addCommand(app, options, command);
}

void printHelp(const CLI::App &app, const std::string &topic) {
    if (topic.empty()) { // by the formatter: the application itself would explain the command "help"
        std::cout << app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal);
        return;
    }
    const std::vector<std::string> names = commandNames();
    if (std::find(names.begin(), names.end(), topic) == names.end())
        throw unknownWord(topic, CLI::App());
    std::cout << app.get_subcommand(topic)->help("oxtfsctl");
}

// A described machine has a provider of its own, and nothing of this one's files, settings and shared memory.
void checkMachine(const Options &options) {
    if (options.machine.empty())
        return;
    for (const auto looksHere : {peekCommand, saveCommand, logCommand})
        if (options.command == looksHere)
            throw Failure(Exit::Usage, "peek, save and log look at what this machine has: leave --machine out.");
    if (!options.hosting.library.empty())
        throw Failure(Exit::Usage, "--machine hosts a provider of its own: leave --library out.");
    if (!options.listen.empty())
        throw Failure(Exit::Usage, "nobody else can ask about a described machine: leave --listen out.");
}

void settle(Options &options) {
    Look &look = options.look;
    if (look.json && !options.format.empty() && options.format != "json")
        throw Failure(Exit::Usage, "--json cannot be combined with --format " + options.format + ".");
    look.json |= options.format == "json";
    if (look.json + look.raw + look.pairs + options.wantsMetrics() > 1)
        throw Failure(Exit::Usage, "only one of --json, --raw, --pairs and --format prometheus can be used.");
    if (!options.outputFile.empty() && !options.wantsMetrics())
        throw Failure(Exit::Usage, "--output-file is for metrics: add --format prometheus.");
    if (!options.columns.empty())
        look.columns = parseColumns(options.columns);
    if (!look.sort.empty())
        look.sort = parseSort(look.sort);
    checkMachine(options);
}

// False when there is nothing to run, since help or the version was shown.
bool parse(CLI::App &app, Options &options, int argc, const char *const *argv) {
    app.formatter(std::make_shared<HelpFormat>());
    app.set_help_flag("-h,--help", "Show this help, or that of a command");
    app.set_version_flag("-V,--version", "oxtfsctl " OXT_TOOL_VERSION, "Show the version");
    app.footer(kFooter);
    app.fallthrough();
    app.allow_extras();
    app.require_subcommand(0, 1); // a second command's name may be a file's
    addGlobalOptions(app, options);
    addCommands(app, options, argc, argv);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &problem) {
        if (problem.get_exit_code() != 0)
            throw Failure(Exit::Usage, std::string(problem.what()) + ".\n" + helpOn(app));
        app.exit(problem);
        return false;
    }
    if (const auto odd = app.remaining(true); !odd.empty())
        throw unknownWord(odd.front(), app);
    if (app.get_subcommands().empty())
        throw Failure(Exit::Usage, "no command given.\n'oxtfsctl list' shows the file systems, 'oxtfsctl help' all "
                                   "commands.");
    if (!options.command) {
        printHelp(app, options.value);
        return false;
    }
    settle(options);
    return true;
}

} // namespace

std::optional<Options> parseOptions(int argc, const char *const *argv) {
    Options options;
    CLI::App app(kAbout, "oxtfsctl");
    try {
        return parse(app, options, argc, argv) ? std::optional(options) : std::nullopt;
    } catch (const Failure &failure) {
        if (app.get_subcommands().empty() || app.get_subcommands().front()->get_name() != "check")
            throw;
        throw Failure(Exit::Environment, failure.what()); // to a monitoring system 2 would be CRITICAL
    }
}

} // namespace oxttool
