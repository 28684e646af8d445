#include "change.h"

#include <algorithm>
#include <cstdio>

#include "asking.h"
#include "fsSetting.h"
#include "instances.h"
#include "shownText.h"
#include "target.h"

namespace oxttool {

namespace {

using oxthost::ServiceMode;

void printChange(FsSettingId setting, const FileSystem &was, const FileSystem &is, const Look &look) {
    const FsSetting &known = kSettingOf[setting];
    if (look.json) {
        const Json before = jsonOf(was, look.unit), after = jsonOf(is, look.unit);
        printJson({{"unit", wordOf(look.unit)},
                   {"change",
                    {{"index", after.at("index")},
                     {"mountpoint", after.at("mountpoint")},
                     {"setting", known.member},
                     {"old", before.at(known.member)},
                     {"new", after.at(known.member)},
                     {"oldstatus", before.at("status")},
                     {"newstatus", after.at("status")}}}},
                  look);
        return;
    }
    const std::string before = shownSetting(setting, known.now(was), look.unit),
                      after = shownSetting(setting, known.now(is), look.unit);
    std::printf("%s: %s %s%s, status %s%s%s%s%s\n", printable(is.mountPoint).c_str(), known.word,
                before == after ? "" : (before + " -> ").c_str(),
                (before == after ? "is already " + after : after).c_str(),
                was.status != is.status ? statusName(was.status) : "", was.status != is.status ? " -> " : "",
                colourOf(is.status, look), statusName(is.status), colourEnd(look));
}

// The provider accepts settings for every mount of a device, and takes those of the first one at its next pass.
Failure unchanged(FsSettingId setting, const FileSystem &fs, const std::vector<FileSystem> &all,
                  const Options &options) {
    const std::string value = shownSetting(setting, kSettingOf[setting].now(fs), options.look.unit);
    const std::string problem =
        "the " + std::string(kSettingOf[setting].word) + " of " + printable(fs.mountPoint) + " is still " + value;
    const auto first =
        std::find_if(all.begin(), all.end(), [&fs](const FileSystem &other) { return other.device == fs.device; });
    if (first == all.end() || first->mountPoint == fs.mountPoint)
        return {Exit::Refused, problem + ".\nThe provider accepted the change and did not make it."};
    const std::string counts = printable(first->mountPoint);
    const std::string help = std::string(".\nUse: oxtfsctl ") + kSettingOf[setting].command + " ";
    return {Exit::Refused, problem + ": " + printable(fs.device) + " is mounted on " + counts +
                               " first, and that one's settings count" + help + shellWord(first->mountPoint) + " " +
                               options.value};
}

// `wanted` tells the value from the file system.
template <class Wanted> Exit change(const Options &options, FsSettingId setting, const Wanted &wanted) {
    checkTarget(options.target);
    const auto session = openSession(options.hosting, ServiceMode::off());
    const FileSystem was = findOne(fileSystemsOf(*session), options.target);
    const std::uint64_t value = wanted(was);
    change(*session, was.index, setting, value);
    const std::vector<FileSystem> all = fileSystemsOf(*session);
    session->close();
    const FileSystem is = findOne(all, was.index);
    if (kSettingOf[setting].now(is) != value)
        throw unchanged(setting, is, all, options);
    printChange(setting, was, is, options.look);
    saySource(*session, options);
    return Exit::Ok;
}

Exit changeThreshold(const Options &options, FsSettingId setting) {
    const Amount amount = parseAmount(options.value);
    return change(options, setting, [&](const FileSystem &fs) {
        const std::uint64_t mib = amount.of(fs.sizeMiB);
        const std::string understood = "'" + options.value + "' means " + std::to_string(mib) + " MiB";
        if (amount.bare && fs.isMeasured() && mib < fs.sizeMiB / 100)
            throw Failure(Exit::Usage, understood + ", which is less than 1% of " + printable(fs.mountPoint) + " (" +
                                           formatSpace(fs.sizeMiB, Unit::Human) + ").\nWrite " + options.value +
                                           "M if it is meant, or another unit: " + options.value + "G, " +
                                           options.value + "%.");
        if (amount.bare && options.isForPeople())
            std::fprintf(stderr, "oxtfsctl: %s.\n", understood.c_str());
        return mib;
    });
}

std::string secondsOf(unsigned seconds) {
    return std::to_string(seconds) + " s";
}

} // namespace

Exit monitorCommand(const Options &options) {
    return change(options, kMonitoring,
                  [&options](const FileSystem &) { return std::uint64_t(options.value == "on" ? 1 : 0); });
}

Exit warnCommand(const Options &options) {
    return changeThreshold(options, kWarning);
}

Exit fatalCommand(const Options &options) {
    return changeThreshold(options, kFatal);
}

Exit configCommand(const Options &options) {
    const bool sets = !options.cycle.empty();
    const unsigned wanted = sets ? parseCycle(options.cycle) : 0;
    const auto session = openSession(options.hosting, ServiceMode::off());
    const Cycle was = cycleOf(session->get(kConfigClass));
    if (sets)
        session->invoke(kConfigClass, "SetMonitorCycle", {{"MonitorCycle", std::to_string(wanted)}});
    const Cycle is = cycleOf(session->get(kConfigClass));
    session->close();
    if (sets && is.seconds != wanted)
        throw Failure(Exit::Refused, "the cycle is still " + secondsOf(is.seconds) +
                                         ".\nThe provider accepted the change and did not make it.");
    if (options.look.json)
        printJson({{"config", jsonOf(is)}}, options.look);
    else if (sets)
        std::printf("Cycle: %s%s\n", was.seconds == is.seconds ? "" : (secondsOf(was.seconds) + " -> ").c_str(),
                    secondsOf(is.seconds).c_str());
    else
        std::printf("Cycle: %s (%u to %u, default %u)\n", secondsOf(is.seconds).c_str(), is.least, is.greatest,
                    is.standard);
    saySource(*session, options);
    return Exit::Ok;
}

} // namespace oxttool
