#include "table.h"

#include <langinfo.h>
#include <libsmartcols.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>

#include "outlook.h"

namespace oxttool {

namespace {

constexpr std::uint64_t kBarCells = 10;

using TablePtr = std::unique_ptr<libscols_table, decltype(&scols_unref_table)>;

// libsmartcols fails for want of memory only.
void check(int result) {
    if (result != 0)
        throw std::bad_alloc();
}

TablePtr newTable(FILE *out, const Look &look) {
    TablePtr table(scols_new_table(), &scols_unref_table);
    if (!table)
        throw std::bad_alloc();
    check(scols_table_set_stream(table.get(), out));
    check(scols_table_enable_colors(table.get(), look.colour));
    return table;
}

void addColumn(libscols_table *table, const char *name, int flags) {
    if (!scols_table_new_column(table, name, 0, flags))
        throw std::bad_alloc();
}

libscols_line *newLine(libscols_table *table) {
    libscols_line *line = scols_table_new_line(table, nullptr);
    if (!line)
        throw std::bad_alloc();
    return line;
}

void setCell(libscols_line *line, std::size_t column, const std::string &text, const char *colour = "") {
    check(scols_line_set_data(line, column, text.c_str()));
    if (*colour != '\0')
        check(scols_cell_set_color(scols_line_get_cell(line, column), colour));
}

std::string bar(std::uint64_t percent, const Look &look) {
    const std::uint64_t full = (percent * kBarCells + 50) / 100;
    std::string text;
    for (std::uint64_t i = 0; i < kBarCells; ++i)
        text += i < full ? (look.blocks ? "\u2588" : "#") : (look.blocks ? "\u2591" : ".");
    const std::string number = std::to_string(percent);
    return text + std::string(number.size() < 3 ? 4 - number.size() : 1, ' ') + number + "%";
}

std::string space(std::uint64_t mib, bool known, const Look &look) {
    return known ? formatSpace(mib, look.unit) : "-";
}

// The columns of the table of file systems. They show "-" for what was not measured or is not in force.
struct Column {
    const char *name;
    int flags;
    bool coloured;
    std::string (*text)(const FileSystem &, const Look &);
};
constexpr Column kColumns[] = {
    {"INDEX", SCOLS_FL_RIGHT, false, [](const FileSystem &fs, const Look &) { return fs.index; }},
    {"DEVICE", 0, false, [](const FileSystem &fs, const Look &) { return fs.device; }},
    {"MOUNTPOINT", SCOLS_FL_WRAP, false, [](const FileSystem &fs, const Look &) { return fs.mountPoint; }},
    {"TYPE", 0, false, [](const FileSystem &fs, const Look &) { return fs.type; }},
    {"DRIVE", 0, false, [](const FileSystem &fs, const Look &) { return std::string(driveName(fs.driveType)); }},
    {"SIZE", SCOLS_FL_RIGHT, false,
     [](const FileSystem &fs, const Look &look) { return space(fs.sizeMiB, fs.isMeasured(), look); }},
    {"FREE", SCOLS_FL_RIGHT, false,
     [](const FileSystem &fs, const Look &look) { return space(fs.freeMiB, fs.isMeasured(), look); }},
    {"USED", 0, true,
     [](const FileSystem &fs, const Look &look) {
         return fs.isMeasured() ? bar((1000 - fs.freePermille() + 5) / 10, look) : std::string("-");
     }},
    {"WARNING", SCOLS_FL_RIGHT, false,
     [](const FileSystem &fs, const Look &look) { return space(fs.warningMiB, fs.monitored == 1, look); }},
    {"FATAL", SCOLS_FL_RIGHT, false,
     [](const FileSystem &fs, const Look &look) { return space(fs.fatalMiB, fs.monitored == 1, look); }},
    {"STATUS", 0, true, [](const FileSystem &fs, const Look &) { return std::string(statusName(fs.status)); }},
};

// Of a running monitor alone: nobody else knows how the free space has changed.
constexpr Column kForecastColumn = {"FULL IN", SCOLS_FL_RIGHT, false, [](const FileSystem &fs, const Look &) {
                                        const bool known = fs.outlook && fs.outlook->forecast;
                                        return known ? spokenTime(fs.outlook->forecast->secondsToFull)
                                                     : std::string("-");
                                    }};

} // namespace

void adaptToOutput(Look &look, FILE *out) {
    const char *noColour = std::getenv("NO_COLOR");
    const char *terminal = std::getenv("TERM");
    look.colour = isatty(fileno(out)) && !(noColour && *noColour) && terminal && std::strcmp(terminal, "dumb") != 0;
    look.blocks = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

const char *colourOf(std::int64_t status, const Look &look) {
    constexpr const char *colours[] = {"", "\033[32m", "\033[33m", "\033[1;31m"};
    return look.colour && status >= 0 && status < 4 ? colours[status] : "";
}

const char *colourEnd(const Look &look) {
    return look.colour ? "\033[0m" : "";
}

void printFileSystems(FILE *out, const std::vector<FileSystem> &all, const Look &look) {
    const TablePtr table = newTable(out, look);
    std::vector<Column> columns(std::begin(kColumns), std::end(kColumns));
    if (std::any_of(all.begin(), all.end(), [](const FileSystem &fs) { return fs.outlook && fs.outlook->forecast; }))
        columns.push_back(kForecastColumn);
    for (const Column &column : columns)
        addColumn(table.get(), column.name, column.flags);
    for (const FileSystem &fs : all) {
        libscols_line *line = newLine(table.get());
        std::size_t cell = 0;
        for (const Column &column : columns)
            setCell(line, cell++, column.text(fs, look), column.coloured ? colourOf(fs.status, look) : "");
    }
    check(scols_print_table(table.get()));
}

void printRecord(FILE *out, const std::vector<Field> &fields, const Look &look) {
    const TablePtr table = newTable(out, look);
    check(scols_table_enable_noheadings(table.get(), 1));
    addColumn(table.get(), "name", 0);
    addColumn(table.get(), "value", SCOLS_FL_WRAP);
    for (const Field &field : fields) {
        libscols_line *line = newLine(table.get());
        setCell(line, 0, field.name);
        setCell(line, 1, field.value);
    }
    check(scols_print_table(table.get()));
}

void printJson(const Json &json) {
    std::printf("%s\n", textOf(json, 3).c_str());
}

} // namespace oxttool
