#include "inspect.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include <nlohmann/json.hpp>

#include "agentDir.h"
#include "prometheus.h"
#include "saveFile.h"
#include "segments.h"

namespace oxttool {

namespace {

using json = nlohmann::ordered_json;

// What one of the printing functions of table.h writes as JSON.
json jsonOf(const std::function<void(FILE *)> &print) {
    char *text = nullptr;
    std::size_t size = 0;
    FILE *out = open_memstream(&text, &size);
    if (!out)
        throw std::bad_alloc();
    const auto close = [&out] { std::fclose(std::exchange(out, nullptr)); };
    try {
        print(out);
    } catch (...) {
        close();
        std::free(text);
        throw;
    }
    close();
    const std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
    return json::parse(text, text + size);
}

void print(const json &all) {
    std::printf("%s\n", all.dump(3).c_str());
}

json tables(const std::string &name, const std::vector<Field> &fields, const std::vector<FileSystem> &all,
            const Look &look) {
    json joined = jsonOf([&](FILE *out) { printRecord(out, name, fields, look); });
    joined.update(jsonOf([&](FILE *out) { printFileSystems(out, all, look); }));
    return joined;
}

Field number(const char *name, const std::string &value) {
    return {name, value, value, Field::Number};
}

void printSave(const std::string &path, const SaveFile &save, const Look &look) {
    std::vector<Field> fields = {{"file", path, path}, {"version", save.version, save.version}};
    if (save.cycle) {
        const std::pair<const char *, unsigned> cycles[] = {{"MonitorCycle", save.cycle->seconds},
                                                            {"MonitorCycleMin", save.cycle->least},
                                                            {"MonitorCycleMax", save.cycle->greatest},
                                                            {"MonitorCycleDefault", save.cycle->standard}};
        for (const auto &[name, seconds] : cycles)
            fields.push_back({name, std::to_string(seconds) + " seconds", std::to_string(seconds), Field::Number});
    }
    if (save.total)
        fields.push_back(number("FileSystemTotalNumber", std::to_string(*save.total)));
    fields.push_back({"loads", save.loads() ? "yes" : "no: the provider would start with a fresh inventory",
                      save.loads() ? "1" : "0", Field::Boolean});
    if (look.json) {
        json all = tables("save", fields, save.fileSystems, look);
        all["findings"] = json::array();
        for (const SaveFile::Finding &finding : save.findings)
            all["findings"].push_back({{"severity", finding.rejected ? "rejected" : "odd"}, {"text", finding.text}});
        print(all);
        return;
    }
    printRecord(stdout, "save", fields, look);
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
        print(tables("provider",
                     {number("pid", std::to_string(live.pid)),
                      {"process", "", live.process},
                      number("monitorcycle", std::to_string(live.cycle.seconds)),
                      {"lastupdate", "", measured}},
                     live.fileSystems, options.look));
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
