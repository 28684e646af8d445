#include "inspect.h"

#include <cstdio>
#include <ctime>
#include <utility>
#include <vector>

#include "agentDir.h"
#include "json.h"
#include "prometheus.h"
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
        printJson(jsonOf(path, save, look));
        return;
    }
    std::vector<Field> fields = {{"file", path}, {"version", save.version}};
    if (save.cycle) {
        const std::pair<const char *, unsigned> cycles[] = {{"MonitorCycle", save.cycle->seconds},
                                                            {"MonitorCycleMin", save.cycle->least},
                                                            {"MonitorCycleMax", save.cycle->greatest},
                                                            {"MonitorCycleDefault", save.cycle->standard}};
        for (const auto &[name, seconds] : cycles)
            fields.push_back({name, std::to_string(seconds) + " seconds"});
    }
    if (save.total)
        fields.push_back({"FileSystemTotalNumber", std::to_string(*save.total)});
    fields.push_back({"loads", save.loads() ? "yes" : "no: the provider would start with a fresh inventory"});
    printRecord(stdout, fields, look);
    if (!save.fileSystems.empty()) {
        std::printf("\n");
        printFileSystems(stdout, save.fileSystems, look);
    }
    std::printf("%s", save.findings.empty() ? "" : "\n");
    for (const SaveFile::Finding &finding : save.findings)
        std::printf("%s%s%s: %s\n", colourOf(finding.rejected ? 3 : 2, look), finding.rejected ? "rejected" : "odd",
                    colourEnd(look), finding.text.c_str());
}

} // namespace

Exit peekCommand(const Options &options) {
    const LiveRecords live = readSegments(agentDirectory());
    const std::string measured = utcTime(static_cast<std::time_t>(live.measured));
    if (options.wantsMetrics()) {
        std::fputs(prometheusText({live.fileSystems, live.cycle.seconds, live.measured}).c_str(), stdout);
    } else if (options.look.json) {
        Json all = {{"provider", {{"pid", live.pid}, {"process", live.process}, {"measured", measured}}},
                    {"config", oxttool::jsonOf(live.cycle)}};
        all.update(oxttool::jsonOf(live.fileSystems, options.look.unit));
        printJson(all);
    } else {
        const std::string who = live.process.empty() ? "" : " (" + live.process + ")";
        std::printf("Kept by process %d%s, last looked at %s, every %u s.\n\n", static_cast<int>(live.pid), who.c_str(),
                    measured.c_str(), live.cycle.seconds);
        printFileSystems(stdout, live.fileSystems, options.look);
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
