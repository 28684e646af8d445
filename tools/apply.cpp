#include "apply.h"

#include <cstdio>

#include "asking.h"
#include "fsSetting.h"
#include "rules.h"
#include "settings.h"
#include "shownText.h"

namespace oxttool {

namespace {

using oxthost::ServiceMode;

std::string ruleOf(const Change &change) {
    return change.line > 0 ? "by the rule in line " + std::to_string(change.line) : "as no rule names it any more";
}

void printChanges(const std::vector<Change> &changes, const Look &look) {
    Json all = Json::array();
    for (const Change &change : changes) {
        const std::size_t setting = change.setting;
        if (look.json)
            all.push_back({{"mountpoint", change.mountPoint},
                           {"setting", kSettingOf[setting].member},
                           {"old", jsonOfSetting(setting, change.from, look.unit)},
                           {"new", jsonOfSetting(setting, change.to, look.unit)},
                           {"line", change.line > 0 ? Json(change.line) : Json()}});
        else
            std::printf("%s: %s %s -> %s, %s\n", printable(change.mountPoint).c_str(), kSettingOf[setting].word,
                        shownSetting(setting, change.from, look.unit).c_str(),
                        shownSetting(setting, change.to, look.unit).c_str(), ruleOf(change).c_str());
    }
    if (look.json)
        printJson({{"unit", wordOf(look.unit)}, {"changes", std::move(all)}}, look);
}

} // namespace

Exit applyCommand(const Options &options) {
    const bool own = options.settingsFile.empty();
    const Settings settings = readSettings(own ? settingsPath() : options.settingsFile, true);
    const auto session = openSession(options.hosting, ServiceMode::off());
    const std::vector<FileSystem> before = fileSystemsOf(*session);
    std::vector<Change> changes = allChanges(settings.rules, before);
    if (!options.dryRun) {
        // A running monitor keeps to its file as it read it: it has to know this one first.
        if (own)
            session->reload();
        for (const Change &planned : allChanges(settings.rules, fileSystemsOf(*session)))
            change(*session, planned.index, planned.setting, planned.to);
        changes = changesBetween(before, fileSystemsOf(*session), settings.rules);
    }
    session->close();
    printChanges(changes, options.look);
    return Exit::Ok;
}

} // namespace oxttool
