#include "inspect.h"

#include <cstdio>
#include <ctime>
#include <utility>
#include <vector>

#include "agentDir.h"
#include "commands.h"
#include "json.h"
#include "recordSession.h"
#include "saveFile.h"
#include "segments.h"

namespace oxttool {

namespace {

Json jsonOf(const std::string &path, const SaveFile &save, const Look &look) {
    Json all = {{"save",
                 {{"file", path},
                  {"version", save.version},
                  {"config", save.cycle ? oxttool::jsonOf(*save.cycle) : Json()},
                  {"total", save.total ? Json(*save.total) : Json()},
                  {"loads", save.loads()}}}};
    all.update(oxttool::jsonOf(save.fileSystems, look.unit));
    all["findings"] = Json::array();
    for (const SaveFile::Finding &finding : save.findings)
        all["findings"].push_back({{"severity", finding.rejected ? "rejected" : "odd"}, {"text", finding.text}});
    return all;
}

void printSave(const std::string &path, const SaveFile &save, const Look &look) {
    if (look.json) {
        printJson(jsonOf(path, save, look), look);
        return;
    }
    std::vector<Field> fields = {{"File", path}};
    if (!save.version.empty())
        fields.emplace_back("First line", save.version);
    if (save.cycle)
        fields.emplace_back("Cycle", std::to_string(save.cycle->seconds) + " s");
    if (save.total)
        fields.emplace_back("File systems", std::to_string(*save.total));
    fields.emplace_back("Loads", save.loads() ? "yes" : "no, the provider would start with defaults");
    printRecord(fields);
    if (!save.fileSystems.empty()) {
        std::printf("\n");
        printFileSystems(save.fileSystems, look);
    }
    std::printf("%s", save.findings.empty() ? "" : "\n");
    for (const SaveFile::Finding &finding : save.findings)
        std::printf("%s%s%s: %s\n", colourOf(finding.rejected ? 3 : 2, look), finding.rejected ? "rejected" : "odd",
                    colourEnd(look), finding.text.c_str());
}

} // namespace

Exit peekCommand(const Options &options) {
    if (options.wantsMetrics()) {
        deliverMetrics(options, [] { return metricsOf(readSegments(agentDirectory())); });
        return Exit::Ok;
    }
    const LiveRecords live = readSegments(agentDirectory());
    if (options.look.json) {
        Json all = {{"provider",
                     {{"pid", live.pid},
                      {"process", live.process},
                      {"measured", utcTime(static_cast<std::time_t>(live.measured))},
                      {"overdue", !doubtOf(live).empty()}}},
                    {"config", oxttool::jsonOf(live.cycle)}};
        all.update(oxttool::jsonOf(live.fileSystems, options.look));
        printJson(all, options.look);
    } else {
        if (options.isForPeople())
            std::printf("%s\n\n", sourceOf(live).c_str());
        printFileSystems(live.fileSystems, options.look);
    }
    return Exit::Ok;
}

Exit saveCommand(const Options &options) {
    const std::string path = options.file.empty() ? agentDirectory() + "data/" + kSaveFileName : options.file;
    const SaveFile save = readSaveFile(path);
    printSave(path, save, options.look);
    return save.loads() ? Exit::Ok : Exit::Refused;
}

} // namespace oxttool
