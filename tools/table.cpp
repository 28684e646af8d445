#include "table.h"

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "columns.h"
#include "grid.h"
#include "outlook.h"
#include "rules.h"

namespace oxttool {

namespace {

constexpr std::size_t kNarrowest = 20; // a terminal that says less does not know

// The worst has the least: fatal before warning before normal, then the smallest share of free space.
std::pair<int, unsigned> badnessOf(const FileSystem &fs) {
    constexpr int ranks[] = {4, 2, 1, 0}; // not monitored, normal, warning, fatal
    return {fs.status >= 0 && fs.status < 4 ? ranks[fs.status] : 3, fs.isMeasured() ? fs.freePermille() : 1000};
}

} // namespace

void adaptToOutput(Look &look, FILE *out) {
    look.blocks = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
    if (!isatty(fileno(out)))
        return;
    const char *noColour = std::getenv("NO_COLOR");
    const char *terminal = std::getenv("TERM");
    look.colour = !(noColour && *noColour) && terminal && std::strcmp(terminal, "dumb") != 0;
    winsize size = {};
    if (ioctl(fileno(out), TIOCGWINSZ, &size) == 0 && size.ws_col >= kNarrowest)
        look.width = size.ws_col;
}

std::string machineLabel(const Look &look) {
    return "Described machine " + look.machine + " (" + look.machineFile + "), not this one.";
}

const char *colourOf(std::int64_t status, const Look &look) {
    constexpr const char *colours[] = {"", "\033[32m", "\033[33m", "\033[1;31m"};
    return look.colour && status >= 0 && status < 4 ? colours[status] : "";
}

const char *colourEnd(const Look &look) {
    return look.colour ? "\033[0m" : "";
}

void sortFileSystems(std::vector<FileSystem> &all, const std::string &by) {
    if (by == "worst") {
        std::stable_sort(all.begin(), all.end(),
                         [](const FileSystem &a, const FileSystem &b) { return badnessOf(a) < badnessOf(b); });
    } else if (!by.empty()) {
        std::vector<std::pair<Json, FileSystem>> keyed;
        for (FileSystem &fs : all)
            keyed.emplace_back(jsonOf(fs, Unit::MiB).value(by, Json()), std::move(fs));
        std::stable_sort(keyed.begin(), keyed.end(), [](const auto &a, const auto &b) {
            return !a.first.is_null() && (b.first.is_null() || a.first < b.first); // what was not measured is last
        });
        for (std::size_t i = 0; i < all.size(); ++i)
            all[i] = std::move(keyed[i].second);
    }
}

std::string tableOf(const std::vector<FileSystem> &all, const Look &look) {
    const std::vector<const Column *> columns = columnsOf(look, all);
    std::vector<GridColumn> grid;
    for (const Column *column : columns) // who asks for a column, gets it
        grid.push_back({look.pairs ? variableOf(*column) : column->heading, column->right, column->least,
                        look.columns.empty() ? column->leaves : 0});
    std::vector<Row> rows;
    rows.reserve(all.size());
    for (const FileSystem &fs : all) {
        Row &row = rows.emplace_back();
        row.reserve(columns.size());
        for (const Column *column : columns)
            row.push_back({column->text(fs, look), column->coloured ? colourOf(fs.status, look) : ""});
    }
    if (look.raw)
        return rawGrid(grid, rows, look.headings);
    if (look.pairs)
        return pairsGrid(grid, rows);
    return alignedGrid(std::move(grid), std::move(rows), {look.headings, look.width, colourEnd(look)});
}

Json jsonOf(std::vector<FileSystem> all, const Look &look) {
    sortFileSystems(all, look.sort);
    Json json = jsonOf(all, look.unit);
    if (look.columns.empty())
        return json;
    for (Json &fs : json.at("filesystems")) {
        Json chosen = Json::object();
        for (const std::string &member : look.columns)
            if (fs.contains(member))
                chosen[member] = fs.at(member);
        fs = std::move(chosen);
    }
    return json;
}

void printFileSystems(std::vector<FileSystem> all, const Look &look) {
    if (look.json) {
        printJson(jsonOf(std::move(all), look), look);
        return;
    }
    sortFileSystems(all, look.sort);
    std::fputs(tableOf(all, look).c_str(), stdout);
}

void printRecord(const std::vector<Field> &fields) {
    std::vector<Row> rows;
    for (const auto &[name, value] : fields)
        rows.push_back({{name}, {value}});
    std::fputs(alignedGrid({{}, {}}, std::move(rows), {false}).c_str(), stdout);
}

std::vector<Field> fieldsOf(const FileSystem &fs, const Look &look) {
    // Where a monitor runs, it knows who has set what.
    const auto by = [&fs](std::string Outlook::*origin) {
        const std::string who = fs.outlook ? (*fs.outlook).*origin : kNoRule;
        return who == kNoRule ? "" : ", " + who;
    };
    const auto threshold = [&](std::uint64_t mib, std::uint64_t byDefault, std::string Outlook::*origin) {
        std::string text = formatSpace(mib, look.unit) + " free";
        if (mib == byDefault)
            text += ", the default";
        text += by(origin);
        return fs.monitored == 1 ? text : text + ", not in force";
    };
    std::vector<Field> fields = {{"Mount point", fs.mountPoint},
                                 {"Device", fs.device},
                                 {"Type", fs.type},
                                 {"Drive", driveName(fs.driveType)},
                                 {"Index", fs.index}};
    if (fs.isMeasured()) {
        fields.emplace_back("Size", formatSpace(fs.sizeMiB, look.unit));
        fields.emplace_back("Free", formatSpace(fs.freeMiB, look.unit) + ", " + freePercent(fs) + " of it");
    } else {
        fields.emplace_back("Size", "not measured");
    }
    fields.emplace_back("Warning at", threshold(fs.warningMiB, fs.warningDefaultMiB, &Outlook::warningBy));
    fields.emplace_back("Fatal at", threshold(fs.fatalMiB, fs.fatalDefaultMiB, &Outlook::fatalBy));
    fields.emplace_back("Monitored", (fs.monitored == 1 ? "yes" : "no") + by(&Outlook::monitoredBy));
    if (fs.outlook && fs.outlook->forecast)
        fields.emplace_back("Full in", spokenTime(fs.outlook->forecast->secondsToFull) + ", if it goes on as now");
    fields.emplace_back("Status", statusName(fs.status));
    return fields;
}

Json labelled(const Look &look) {
    Json object = Json::object();
    if (!look.machine.empty())
        object["machine"] = {{"described", true}, {"name", look.machine}, {"file", look.machineFile}};
    return object;
}

void printJson(const Json &json, const Look &look) {
    Json all = labelled(look);
    all.update(json);
    std::printf("%s\n", textOf(all, 3).c_str());
}

} // namespace oxttool
