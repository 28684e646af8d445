#include "apply.h"

#include <cstdio>

#include "asking.h"
#include "fsSetting.h"
#include "monitorSession.h"
#include "rules.h"
#include "settings.h"
#include "shownText.h"

namespace oxttool {

namespace {

using oxthost::ServiceMode;

void printChanges(const std::vector<Change> &changes, const Look &look) {
    Json all = Json::array();
    for (const Change &change : changes) {
        const std::size_t setting = change.setting;
        if (look.json)
            all.push_back({{"mountpoint", change.mountPoint},
                           {"setting", kSettingOf[setting].member},
                           {"old", jsonOfSetting(setting, change.from, look.unit)},
                           {"new", jsonOfSetting(setting, change.to, look.unit)},
                           {"line", change.line}});
        else
            std::printf("%s: %s %s -> %s, by the rule in line %d\n", printable(change.mountPoint).c_str(),
                        kSettingOf[setting].word, shownSetting(setting, change.from, look.unit).c_str(),
                        shownSetting(setting, change.to, look.unit).c_str(), change.line);
    }
    if (look.json)
        printJson({{"unit", wordOf(look.unit)}, {"changes", std::move(all)}}, look);
}

} // namespace

Exit applyCommand(const Options &options) {
    const bool own = options.settingsFile.empty();
    const Settings settings = readSettings(own ? settingsPath() : options.settingsFile, true);
    // A running monitor keeps to its file as it read it: it has to know this one first.
    if (const auto monitor = own && !options.dryRun ? MonitorSession::find(options.hosting.root) : nullptr)
        monitor->reload();
    const auto session = openSession(options.hosting, ServiceMode::off());
    const std::vector<Change> changes = allChanges(settings.rules, fileSystemsOf(*session));
    if (!options.dryRun)
        for (const Change &planned : changes)
            change(*session, planned.index, planned.setting, planned.to);
    session->close();
    printChanges(changes, options.look);
    return Exit::Ok;
}

} // namespace oxttool
