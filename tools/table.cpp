#include "table.h"

#include <langinfo.h>
#include <libsmartcols.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>

#include <nlohmann/json.hpp>

namespace oxttool {

namespace {

constexpr std::uint64_t kBarCells = 10;
constexpr int kJsonTypes[] = {SCOLS_JSON_STRING, SCOLS_JSON_NUMBER, SCOLS_JSON_BOOLEAN}; // by Field::Kind

using TablePtr = std::unique_ptr<libscols_table, decltype(&scols_unref_table)>;

// libsmartcols fails for want of memory only.
void check(int result) {
    if (result != 0)
        throw std::bad_alloc();
}

TablePtr newTable(FILE *out, const std::string &name, const Look &look) {
    TablePtr table(scols_new_table(), &scols_unref_table);
    if (!table)
        throw std::bad_alloc();
    check(scols_table_set_stream(table.get(), out));
    check(scols_table_set_name(table.get(), name.c_str()));
    check(scols_table_enable_json(table.get(), look.json));
    check(scols_table_enable_colors(table.get(), look.colour));
    return table;
}

// JSON over a described machine says so in a member of its own.
void print(libscols_table *table, FILE *out, const Look &look) {
    if (!look.json || look.machine.empty())
        return check(scols_print_table(table));
    char *text = nullptr;
    check(scols_print_table_to_string(table, &text));
    const std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
    nlohmann::ordered_json all = {
        {"machine", {{"described", true}, {"name", asUtf8(look.machine)}, {"file", asUtf8(look.machineFile)}}}};
    all.update(nlohmann::ordered_json::parse(text));
    std::fprintf(out, "%s\n", all.dump(3).c_str());
}

void addColumn(libscols_table *table, const std::string &name, int flags, int jsonType) {
    libscols_column *column = scols_table_new_column(table, name.c_str(), 0, flags);
    if (!column)
        throw std::bad_alloc();
    check(scols_column_set_json_type(column, jsonType));
}

void setCell(libscols_line *line, std::size_t column, const std::string &text, const Look &look,
             const char *colour = "") {
    check(scols_line_set_data(line, column, (look.json ? asUtf8(text) : text).c_str()));
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
    if (look.json)
        return formatSpace(mib, look.jsonUnit());
    return known ? formatSpace(mib, look.unit) : "-";
}

// The columns of the table of file systems. Rows of people show "-" for what was not measured or is not in force.
struct Column {
    const char *name;
    int flags;
    int jsonType;
    bool jsonOnly;
    bool coloured;
    std::string (*text)(const FileSystem &, const Look &);
};
constexpr int kNumber = SCOLS_JSON_NUMBER;
constexpr Column kColumns[] = {
    {"INDEX", SCOLS_FL_RIGHT, kNumber, false, false, [](const FileSystem &fs, const Look &) { return fs.index; }},
    {"DEVICE", 0, SCOLS_JSON_STRING, false, false, [](const FileSystem &fs, const Look &) { return fs.device; }},
    {"MOUNTPOINT", SCOLS_FL_WRAP, SCOLS_JSON_STRING, false, false,
     [](const FileSystem &fs, const Look &) { return fs.mountPoint; }},
    {"TYPE", 0, SCOLS_JSON_STRING, false, false, [](const FileSystem &fs, const Look &) { return fs.type; }},
    {"DRIVE", 0, SCOLS_JSON_STRING, false, false,
     [](const FileSystem &fs, const Look &) { return std::string(driveName(fs.driveType)); }},
    {"SIZE", SCOLS_FL_RIGHT, kNumber, false, false,
     [](const FileSystem &fs, const Look &look) { return space(fs.sizeMiB, fs.sizeMiB != 0, look); }},
    {"FREE", SCOLS_FL_RIGHT, kNumber, false, false,
     [](const FileSystem &fs, const Look &look) { return space(fs.freeMiB, fs.sizeMiB != 0, look); }},
    {"USED", 0, kNumber, false, true,
     [](const FileSystem &fs, const Look &look) {
         if (look.json)
             return std::to_string(fs.usedPercent());
         return fs.sizeMiB != 0 ? bar(fs.usedPercent(), look) : std::string("-");
     }},
    {"MONITORED", 0, SCOLS_JSON_BOOLEAN, true, false,
     [](const FileSystem &fs, const Look &) { return std::string(fs.monitored == 1 ? "1" : "0"); }},
    {"WARNING", SCOLS_FL_RIGHT, kNumber, false, false,
     [](const FileSystem &fs, const Look &look) { return space(fs.warningMiB, fs.monitored == 1, look); }},
    {"FATAL", SCOLS_FL_RIGHT, kNumber, false, false,
     [](const FileSystem &fs, const Look &look) { return space(fs.fatalMiB, fs.monitored == 1, look); }},
    {"STATUS", 0, SCOLS_JSON_STRING, false, true,
     [](const FileSystem &fs, const Look &) { return std::string(statusName(fs.status)); }},
};

} // namespace

void adaptToOutput(Look &look, FILE *out) {
    const char *noColour = std::getenv("NO_COLOR");
    const char *terminal = std::getenv("TERM");
    look.colour = isatty(fileno(out)) && !(noColour && *noColour) && terminal && std::strcmp(terminal, "dumb") != 0;
    look.blocks = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
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

void printFileSystems(FILE *out, const std::vector<FileSystem> &all, const Look &look) {
    const TablePtr table = newTable(out, "filesystems", look);
    for (const Column &column : kColumns)
        if (look.json || !column.jsonOnly)
            addColumn(table.get(), column.name, column.flags, column.jsonType);
    for (const FileSystem &fs : all) {
        libscols_line *line = scols_table_new_line(table.get(), nullptr);
        if (!line)
            throw std::bad_alloc();
        std::size_t cell = 0;
        for (const Column &column : kColumns)
            if (look.json || !column.jsonOnly)
                setCell(line, cell++, column.text(fs, look), look, column.coloured ? colourOf(fs.status, look) : "");
    }
    print(table.get(), out, look);
}

void printRows(FILE *out, const std::string &name, const std::vector<Heading> &headings,
               const std::vector<std::vector<std::string>> &rows, const Look &look) {
    const TablePtr table = newTable(out, name, look);
    for (const Heading &heading : headings)
        if (look.json || !heading.jsonOnly)
            addColumn(table.get(), heading.name,
                      (heading.right ? SCOLS_FL_RIGHT : 0) | (heading.wrapped ? SCOLS_FL_WRAP : 0),
                      kJsonTypes[heading.kind]);
    for (const std::vector<std::string> &row : rows) {
        libscols_line *line = scols_table_new_line(table.get(), nullptr);
        if (!line)
            throw std::bad_alloc();
        std::size_t cell = 0;
        for (std::size_t i = 0; i < headings.size(); ++i)
            if (look.json || !headings[i].jsonOnly)
                setCell(line, cell++, row[i], look);
    }
    print(table.get(), out, look);
}

void printRecord(FILE *out, const std::string &name, const std::vector<Field> &fields, const Look &look) {
    const TablePtr table = newTable(out, name, look);
    if (!look.json) {
        check(scols_table_enable_noheadings(table.get(), 1));
        addColumn(table.get(), "name", 0, SCOLS_JSON_STRING);
        addColumn(table.get(), "value", SCOLS_FL_WRAP, SCOLS_JSON_STRING);
    }
    for (std::size_t i = 0; look.json && i < fields.size(); ++i) // all columns come before the first line
        addColumn(table.get(), fields[i].name, 0, kJsonTypes[fields[i].kind]);
    libscols_line *line = nullptr;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (!look.json || i == 0)
            line = scols_table_new_line(table.get(), nullptr);
        if (!line)
            throw std::bad_alloc();
        setCell(line, look.json ? i : 0, look.json ? fields[i].raw : fields[i].name, look);
        if (!look.json)
            setCell(line, 1, fields[i].shown, look);
    }
    print(table.get(), out, look);
}

} // namespace oxttool
