#include "apply.h"

#include <cstdio>

#include "agentDir.h"
#include "instances.h"
#include "json.h"
#include "monitorSession.h"
#include "rules.h"
#include "settings.h"

namespace oxttool {

namespace {

using oxthost::ServiceMode;

constexpr std::size_t kMonitoring = 0; // among the settings; the others are amounts

std::vector<FileSystem> measured(Session &session) {
    std::vector<FileSystem> all;
    for (const oxthost::Instance &instance : session.enumerate(kFileSystemClass))
        all.push_back(fileSystemOf(instance));
    return all;
}

std::string shown(const Change &change, std::uint64_t value, const Look &look) {
    return change.setting == kMonitoring ? value == 1 ? "on" : "off" : formatSpace(value, look.unit);
}

void printChanges(const std::vector<Change> &changes, const Options &options) {
    if (!options.look.json) {
        for (const Change &change : changes)
            std::printf("%s: %s %s -> %s, by the rule in line %d\n", printable(change.mountPoint).c_str(),
                        kSettingOf[change.setting].word, shown(change, change.from, options.look).c_str(),
                        shown(change, change.to, options.look).c_str(), change.line);
        return;
    }
    const bool bytes = options.look.unit == Unit::Bytes;
    constexpr const char *names[] = {"monitored", "warning", "fatal"};
    Json all = Json::array();
    for (const Change &change : changes) {
        const auto value = [&](std::uint64_t amount) {
            return change.setting == kMonitoring ? Json(amount == 1) : Json(bytes ? amount * 1048576 : amount);
        };
        all.push_back({{"mountpoint", change.mountPoint},
                       {"setting", names[change.setting]},
                       {"old", value(change.from)},
                       {"new", value(change.to)},
                       {"line", change.line}});
    }
    std::printf("%s\n", textOf(Json{{"unit", bytes ? "bytes" : "MiB"}, {"changes", std::move(all)}}, 3).c_str());
}

} // namespace

Exit applyCommand(const Options &options) {
    const bool own = options.settingsFile.empty();
    const Settings settings = readSettings(own ? settingsPath() : options.settingsFile, true);
    // A running monitor keeps to its file as it read it: it has to know this one first.
    if (const auto monitor = own && !options.dryRun ? MonitorSession::find(agentDirectory()) : nullptr)
        monitor->reload();
    const auto session = openSession(options.hosting, ServiceMode::off());
    const std::vector<Change> changes = allChanges(settings.rules, measured(*session));
    if (!options.dryRun)
        for (const Change &change : changes)
            session->invoke(
                kFileSystemClass, kSettingOf[change.setting].method,
                {{"Index", change.index}, {kSettingOf[change.setting].property, std::to_string(change.to)}});
    session->close();
    printChanges(changes, options);
    return Exit::Ok;
}

} // namespace oxttool
