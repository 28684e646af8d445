#include "why.h"

#include <algorithm>
#include <optional>

#include "description.h"
#include "diagnosis.h"

namespace oxttool {

namespace {

// A discovery of the machine of a file, which is in place then, or of this one.
Discovery discoverFor(const Options &options) {
    std::optional<HostedMachine> here;
    if (options.machine.empty())
        here.emplace(thisMachine());
    return discover(here ? here->over(options.hosting) : options.hosting);
}

// "block 254:0" to "254"; empty for what is no device.
std::string majorOf(const std::string &node) {
    const std::size_t space = node.find(' ');
    return space != std::string::npos ? node.substr(space + 1, node.find(':') - space - 1) : "";
}

std::string orDash(const std::string &text, const Look &look) {
    return text.empty() && !look.json ? "-" : text;
}

void printVerdicts(const std::vector<Verdict> &verdicts, const Look &look) {
    constexpr auto text = Field::Text, number = Field::Number;
    const std::vector<Heading> headings = {
        {"MOUNTPOINT", text, false, true, false}, {"DEVICE", text, false, false, false},
        {"TYPE", text, false, false, false},      {"NODE", text, false, false, false},
        {"MAJOR", number, false, false, true},    {"DRIVER", text, false, false, false},
        {"DRIVE", text, false, false, true},      {"SIZE", number, true, false, false},
        {"FREE", number, true, false, false},     {"VERDICT", text, false, false, false},
        {"RULE", text, false, false, true},       {"REASON", text, false, true, false}};
    std::vector<std::vector<std::string>> rows;
    for (const Verdict &verdict : verdicts) {
        const bool measured = verdict.degree >= Degree::Measured;
        const auto space = [&](std::uint64_t mib) {
            return measured || look.json ? formatSpace(mib, look.json ? look.jsonUnit() : look.unit) : "-";
        };
        rows.push_back({verdict.mountPoint, verdict.device, verdict.type, orDash(verdict.node, look),
                        majorOf(verdict.node), orDash(verdict.driver, look), driveName(verdict.driveType),
                        space(verdict.sizeMiB), space(verdict.freeMiB), degreeName(verdict.degree),
                        ruleName(verdict.rule), verdict.reason});
    }
    printRows(stdout, "mounts", headings, rows, look);
}

// The mount that holds a path: the one with the longest directory above it.
std::string holderOf(const std::string &path, const std::vector<Verdict> &verdicts) {
    std::string longest;
    for (const Verdict &verdict : verdicts) {
        const std::string dir = verdict.mountPoint == "/" ? "/" : verdict.mountPoint + "/";
        if (path.compare(0, dir.size(), dir) == 0 && verdict.mountPoint.size() > longest.size())
            longest = verdict.mountPoint;
    }
    return longest;
}

// Those on one directory; throws a refusal when there is none.
std::vector<Verdict> only(const std::string &target, const std::vector<Verdict> &verdicts) {
    std::string dir = target;
    while (dir.size() > 1 && dir.back() == '/')
        dir.pop_back();
    std::vector<Verdict> chosen;
    std::copy_if(verdicts.begin(), verdicts.end(), std::back_inserter(chosen),
                 [&](const Verdict &verdict) { return verdict.mountPoint == dir; });
    if (!chosen.empty())
        return chosen;
    const std::string holder = holderOf(dir, verdicts);
    throw Failure(Exit::Refused, "nothing is mounted on '" + printable(target) + "'.\n" +
                                     (holder.empty() ? "'oxtfsctl why' shows all mounts."
                                                     : "It lies in the file system on '" + printable(holder) + "'."));
}

} // namespace

Exit whyCommand(const Options &options) {
    const Discovery found = discoverFor(options);
    if (found.verdicts.empty())
        throw Failure(Exit::NoFileSystem, nothingListed(found));
    std::vector<Verdict> verdicts = found.verdicts;
    if (!options.target.empty())
        verdicts = only(options.target, verdicts);
    // What counts stands above the many that a system mounts for itself.
    std::stable_partition(verdicts.begin(), verdicts.end(),
                          [](const Verdict &verdict) { return verdict.degree != Degree::NotListed; });
    printVerdicts(verdicts, options.look);
    return Exit::Ok;
}

Exit recordCommand(const Options &options) {
    const Discovery found = discoverFor(options);
    std::printf("# A machine as 'oxtfsctl record' found it: 'oxtfsctl --machine FILE list' shows its file systems.\n"
                "# oxtfs-machine(5) tells the format.\n%s",
                oxtmachine::writeMachine(found.machine).c_str());
    return Exit::Ok;
}

} // namespace oxttool
