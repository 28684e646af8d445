#include "check.h"

#include <algorithm>
#include <cstdio>
#include <optional>

#include "asking.h"
#include "columns.h"
#include "shownText.h"
#include "target.h"

namespace oxttool {

namespace {

enum Verdict { Ok, Warning, Critical, Unknown };
constexpr const char *kWords[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
constexpr int kSeverity[] = {0, 2, 3, 1}; // what is known to be wrong hides what is not known
constexpr std::size_t kMostNamed = 5;

struct Judged {
    FileSystem fs; // with the thresholds that it was judged by
    Verdict verdict;
};

struct Limits {
    std::optional<Amount> warning, critical;
};

// By the provider's own status, unless the command line has thresholds of its own.
Judged judge(FileSystem fs, const Limits &limits) {
    const bool own = limits.warning || limits.critical;
    if (limits.warning)
        fs.warningMiB = limits.warning->of(fs.sizeMiB);
    if (limits.critical)
        fs.fatalMiB = limits.critical->of(fs.sizeMiB);
    if (own && fs.isMeasured())
        fs.status = fs.freeMiB <= fs.fatalMiB ? 3 : fs.freeMiB <= fs.warningMiB ? 2 : 1;
    constexpr Verdict verdicts[] = {Unknown, Ok, Warning, Critical};
    return {fs, fs.status >= 0 && fs.status < 4 ? verdicts[fs.status] : Unknown};
}

std::string nameOf(const FileSystem &fs) {
    return printable(fs.mountPoint, "|"); // behind which a reader expects the performance data
}

std::string described(const Judged &judged) {
    const FileSystem &fs = judged.fs;
    if (judged.verdict == Unknown)
        return nameOf(fs) + (fs.status == 0 ? " is not monitored" : " was not measured");
    std::string text = nameOf(fs) + " " + freePercent(fs) + " free (" + formatSpace(fs.freeMiB, Unit::Human) + " of " +
                       formatSpace(fs.sizeMiB, Unit::Human);
    if (judged.verdict != Ok)
        text += ", " + std::string(judged.verdict == Critical ? "critical" : "warning") + " at " +
                formatSpace(judged.verdict == Critical ? fs.fatalMiB : fs.warningMiB, Unit::Human);
    return text + ")";
}

// 'label'=value;warning;critical;least;greatest, in bytes: "@0:N" is a range in which the value is bad.
std::string performanceOf(const FileSystem &fs) {
    const auto bytes = [](std::uint64_t mib) { return formatSpace(mib, Unit::Bytes); };
    return "'" + printable(fs.mountPoint, "|'=") + "'=" + bytes(fs.freeMiB) + "B;@0:" + bytes(fs.warningMiB) +
           ";@0:" + bytes(fs.fatalMiB) + ";0;" + bytes(fs.sizeMiB);
}

std::vector<Judged> judgeAll(const std::vector<FileSystem> &all, const Options &options, const Limits &limits) {
    std::vector<Judged> judged;
    for (const std::string &target : options.targets)
        for (const FileSystem &fs : findAll(all, target))
            judged.push_back(judge(fs, limits));
    for (const FileSystem &fs : all)
        if (options.targets.empty() && fs.monitored == 1)
            judged.push_back(judge(fs, limits));
    std::stable_sort(judged.begin(), judged.end(), [](const Judged &a, const Judged &b) {
        return std::make_pair(-kSeverity[a.verdict], a.fs.freePermille()) <
               std::make_pair(-kSeverity[b.verdict], b.fs.freePermille());
    });
    return judged;
}

// The worst come first: those that are not normal, or the one with the least room.
std::string lineOf(const std::vector<Judged> &judged) {
    const auto bad = static_cast<std::size_t>(
        std::count_if(judged.begin(), judged.end(), [](const Judged &one) { return one.verdict != Ok; }));
    const std::size_t named = std::min(std::max<std::size_t>(bad, 1), kMostNamed);
    std::string line;
    for (std::size_t i = 0; i < named; ++i)
        line += (i == 0 ? "" : ", ") + described(judged[i]);
    if (bad > named)
        line += ", and " + std::to_string(bad - named) + " more";
    if (judged.size() > 1 && bad == 0)
        line = std::to_string(judged.size()) + " file systems, least free: " + line;
    else if (judged.size() > bad && bad > 0)
        line += "; " + std::to_string(judged.size() - bad) + " normal";
    std::string performance;
    for (const Judged &one : judged)
        if (one.fs.isMeasured())
            performance += " " + performanceOf(one.fs);
    return line + (performance.empty() ? "" : " |" + performance);
}

Verdict answer(const Options &options, std::string &line) {
    Limits limits;
    if (!options.warning.empty())
        limits.warning = parseAmount(options.warning);
    if (!options.critical.empty())
        limits.critical = parseAmount(options.critical);
    const auto session = openSession(options.hosting, oxthost::ServiceMode::off());
    const std::vector<FileSystem> all = fileSystemsOf(*session);
    session->close();
    line = session->doubt(); // what nobody looks at any more is not OK
    if (!line.empty())
        return Unknown;
    const std::vector<Judged> judged = judgeAll(all, options, limits);
    line = judged.empty() ? "no file system is monitored" : lineOf(judged);
    return judged.empty() ? Unknown : judged.front().verdict;
}

} // namespace

Exit checkCommand(const Options &options) {
    Verdict verdict = Unknown;
    std::string line;
    try {
        verdict = answer(options, line);
    } catch (const std::exception &problem) {
        verdict = Unknown;
        line = problem.what();
        line = line.substr(0, line.find('\n')); // the advice follows on further lines
    }
    std::printf("OXTFS %s - %s\n", kWords[verdict], line.c_str());
    return static_cast<Exit>(verdict);
}

} // namespace oxttool
