#include <algorithm>
#include <clocale>
#include <cstdio>
#include <exception>
#include <malloc.h>
#include <optional>

#include "diagnosis.h"
#include "hostedMachine.h"
#include "options.h"
#include "shownText.h"
#include "why.h"

namespace {

using namespace oxttool;

// Says before anything else that it is not this machine: as a remark where the output has a format of its own. JSON
// says it in itself.
void printLabel(const Options &options) {
    const bool remark = options.wantsMetrics() || options.command == recordCommand;
    if (!options.look.json)
        std::printf("%s\n", printable((remark ? "# " : "") + machineLabel(options.look)).c_str());
}

Exit run(Options options) {
    std::optional<HostedMachine> machine;
    if (!options.machine.empty()) {
        oxtmachine::Machine described = machineOfFile(options.machine);
        options.look.machine = described.name;
        options.look.machineFile = options.machine;
        machine.emplace(std::move(described));
        options.hosting = machine->over(options.hosting);
        printLabel(options);
    }
    try {
        return options.command(options);
    } catch (const Failure &failure) {
        const Failure reason = explained(failure, options);
        if (!machine)
            throw reason;
        std::string text = reason.what();
        if (reason.unexplained)
            text.erase(std::min(text.find('\n'), text.size())); // the rest names this machine's log
        throw Failure(reason.exitCode, "on the described machine " + printable(options.look.machine) + ": " + text);
    }
}

// The provider takes and frees megabytes several times in a command over many file systems. The allocator would give
// them back to the kernel each time and take them anew, page by page: over 1,000 a third of the command's time.
void keepFreedMemory() {
    constexpr int bytes = 32 * 1024 * 1024; // the most that mallopt(3) promises to take
    (void)mallopt(M_MMAP_THRESHOLD, bytes);
    (void)mallopt(M_TRIM_THRESHOLD, bytes);
}

} // namespace

int main(int argc, char **argv) {
    keepFreedMemory();
    std::setlocale(LC_CTYPE, "");
    auto result = oxttool::Exit::Ok;
    try {
        if (auto options = oxttool::parseOptions(argc, argv)) {
            oxttool::adaptToOutput(options->look, stdout);
            result = run(*options);
        }
    } catch (const oxttool::Failure &failure) {
        std::fprintf(stderr, "oxtfsctl: %s\n", failure.what());
        result = failure.exitCode;
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "oxtfsctl: %s\n", problem.what());
        result = oxttool::Exit::Environment;
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        std::perror("oxtfsctl: the output cannot be written");
        result = oxttool::Exit::Environment;
    }
    return static_cast<int>(result);
}
