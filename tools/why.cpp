#include "why.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <sstream>

#include "description.h"
#include "diagnosis.h"
#include "grid.h"
#include "shownText.h"

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

std::string orDash(const std::string &text) {
    return text.empty() ? "-" : text;
}

void printTable(const std::vector<Verdict> &verdicts, const Look &look) {
    const auto space = [&look](const Verdict &verdict, std::uint64_t mib) {
        return verdict.degree >= Degree::Measured ? formatSpace(mib, look.unit) : "-";
    };
    std::vector<Row> rows;
    for (const Verdict &verdict : verdicts)
        rows.push_back({{verdict.mountPoint},
                        {verdict.device},
                        {verdict.type},
                        {orDash(verdict.node)},
                        {orDash(verdict.driver)},
                        {space(verdict, verdict.sizeMiB)},
                        {space(verdict, verdict.freeMiB)},
                        {degreeName(verdict.degree)},
                        {verdict.reason}});
    const std::vector<GridColumn> columns = {
        {"MOUNTPOINT", false, 12}, {"DEVICE", false, 10, 4}, {"TYPE", false, 0, 3}, {"NODE", false, 0, 5},
        {"DRIVER", false, 0, 6},   {"SIZE", true, 0, 7},     {"FREE", true, 0, 8},  {"VERDICT"},
        {"REASON", false, 20}};
    std::fputs(alignedGrid(columns, std::move(rows), {true, look.width, ""}).c_str(), stdout);
}

Json jsonOf(const Verdict &verdict, Unit unit) {
    const auto text = [](const std::string &value) { return value.empty() ? Json() : Json(value); };
    const bool measured = verdict.degree >= Degree::Measured;
    const std::string major = majorOf(verdict.node);
    return {{"mountpoint", verdict.mountPoint},
            {"device", verdict.device},
            {"type", verdict.type},
            {"node", text(verdict.node)},
            {"major", major.empty() ? Json() : Json(std::stoul(major))},
            {"driver", text(verdict.driver)},
            {"drive", driveName(verdict.driveType)},
            {"size", measured ? jsonOfSpace(verdict.sizeMiB, unit) : Json()},
            {"free", measured ? jsonOfSpace(verdict.freeMiB, unit) : Json()},
            {"verdict", degreeName(verdict.degree)},
            {"rule", ruleName(verdict.rule)},
            {"reason", verdict.reason}};
}

void printVerdicts(const std::vector<Verdict> &verdicts, const Look &look) {
    if (!look.json)
        return printTable(verdicts, look);
    Json mounts = Json::array();
    for (const Verdict &verdict : verdicts)
        mounts.push_back(jsonOf(verdict, look.unit));
    printJson({{"unit", wordOf(look.unit)}, {"mounts", std::move(mounts)}}, look);
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
                "# oxtfs-machine(5) tells the format.\n");
    // What would steer a terminal becomes an octal escape of the format. No other backslash stands in a line of it.
    std::istringstream lines(oxtmachine::writeMachine(found.machine));
    for (std::string line; std::getline(lines, line);) {
        const bool named = line.find(" = '") != std::string::npos;
        std::string text = named ? printableUtf8(line) : line;
        for (std::size_t at = 0; named && (at = text.find("\\x", at)) != std::string::npos; at += 4) {
            char octal[8];
            std::snprintf(octal, sizeof octal, "\\%03lo", std::stoul(text.substr(at + 2, 2), nullptr, 16));
            text.replace(at, 4, octal);
        }
        std::printf("%s\n", text.c_str());
    }
    return Exit::Ok;
}

} // namespace oxttool
