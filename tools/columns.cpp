#include "columns.h"

#include <algorithm>
#include <cctype>

#include "failure.h"
#include "outlook.h"
#include "shownText.h"

namespace oxttool {

namespace {

constexpr std::uint64_t kBarCells = 10;

std::string space(std::uint64_t mib, bool known, const Look &look) {
    return known ? formatSpace(mib, look.unit) : "-";
}

// What is not free, from the left, with a mark where each threshold lies.
std::string bar(const FileSystem &fs, const Look &look) {
    if (!fs.isMeasured())
        return "";
    const auto cellOf = [&fs](std::uint64_t freeMiB) {
        return (fs.sizeMiB - std::min(freeMiB, fs.sizeMiB)) * kBarCells / fs.sizeMiB;
    };
    const auto mark = [&](std::uint64_t threshold) { return std::min(cellOf(threshold), kBarCells - 1); };
    std::uint64_t fatal = kBarCells, warning = kBarCells;
    if (fs.monitored == 1) {
        fatal = mark(fs.fatalMiB);
        warning = mark(fs.warningMiB);
        if (warning == fatal && warning > 0) // both show
            --warning;
    }
    std::string text;
    for (std::uint64_t i = 0; i < kBarCells; ++i)
        if (i == warning || i == fatal)
            text += look.blocks ? "\u2503" : "|";
        else
            text += i < cellOf(fs.freeMiB) ? (look.blocks ? "\u2588" : "#") : (look.blocks ? "\u2591" : ".");
    return text;
}

std::string fullIn(const FileSystem &fs, const Look &) {
    return fs.outlook && fs.outlook->forecast ? spokenTime(fs.outlook->forecast->secondsToFull) : "-";
}

constexpr Column kColumns[] = {
    {"index", "INDEX", "place in the mount table", Use::Usual, true, false, 0, 6,
     [](const FileSystem &fs, const Look &) { return fs.index; }},
    {"device", "DEVICE", "device", Use::Usual, false, false, 12, 5,
     [](const FileSystem &fs, const Look &) { return fs.device; }},
    {"mountpoint", "MOUNTPOINT", "where it is mounted", Use::Usual, false, false, 20, 0,
     [](const FileSystem &fs, const Look &) { return fs.mountPoint; }},
    {"type", "TYPE", "ext2, ext3, ext4, xfs or others", Use::Usual, false, false, 0, 8,
     [](const FileSystem &fs, const Look &) { return fs.type; }},
    {"drive", "DRIVE", "fixed, removable, optical, ramdisk or unknown", Use::Usual, false, false, 0, 9,
     [](const FileSystem &fs, const Look &) { return std::string(driveName(fs.driveType)); }},
    {"size", "SIZE", "size", Use::Usual, true, false, 0, 2,
     [](const FileSystem &fs, const Look &look) { return space(fs.sizeMiB, fs.isMeasured(), look); }},
    {"free", "FREE", "free space, for ordinary users", Use::Usual, true, false, 0, 1,
     [](const FileSystem &fs, const Look &look) { return space(fs.freeMiB, fs.isMeasured(), look); }},
    {"freepercent", "FREE%", "the share of the size that is free", Use::Usual, true, true, 0, 0,
     [](const FileSystem &fs, const Look &) { return freePercent(fs); }},
    {"bar", "", "what is in use, and where the thresholds lie", Use::ForPeople, false, true, 0, 7, bar},
    {"monitored", "MONITORED", "yes or no", Use::OnRequest, false, false, 0, 0,
     [](const FileSystem &fs, const Look &) { return std::string(fs.monitored == 1 ? "yes" : "no"); }},
    {"warning", "WARNING", "warning at or below so much free space", Use::Usual, true, false, 0, 4,
     [](const FileSystem &fs, const Look &look) { return space(fs.warningMiB, fs.monitored == 1, look); }},
    {"warningdefault", "WARNINGDEFAULT", "its default", Use::OnRequest, true, false, 0, 0,
     [](const FileSystem &fs, const Look &look) { return space(fs.warningDefaultMiB, fs.isMeasured(), look); }},
    {"fatal", "FATAL", "fatal at or below so much free space", Use::Usual, true, false, 0, 3,
     [](const FileSystem &fs, const Look &look) { return space(fs.fatalMiB, fs.monitored == 1, look); }},
    {"fataldefault", "FATALDEFAULT", "its default", Use::OnRequest, true, false, 0, 0,
     [](const FileSystem &fs, const Look &look) { return space(fs.fatalDefaultMiB, fs.isMeasured(), look); }},
    {"fullseconds", "FULLIN", "the time left at its present rate, where a monitor runs", Use::Foretold, true, false, 0,
     0, fullIn},
    {"status", "STATUS", "normal, warning, fatal, not monitored, unknown", Use::Usual, false, true, 0, 0,
     [](const FileSystem &fs, const Look &) { return std::string(statusName(fs.status)); }},
};

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// What -o calls a column: its heading, or where that is none its member's name.
std::string nameOf(const Column &column) {
    return *column.heading == '\0' ? variableOf(column) : column.heading;
}

const Column &columnNamed(const std::string &name) {
    for (const Column &column : kColumns)
        if (lower(name) == column.member || lower(name) == lower(nameOf(column)))
            return column;
    std::string all;
    for (const Column &column : kColumns)
        all += (all.empty() ? "" : ", ") + nameOf(column);
    throw Failure(Exit::Usage, "unknown column '" + printable(name) + "'.\nThe columns are " + all + ".");
}

} // namespace

std::vector<const Column *> columnsOf(const Look &look, const std::vector<FileSystem> &all) {
    std::vector<const Column *> columns;
    for (const std::string &member : look.columns)
        columns.push_back(&columnNamed(member));
    if (!columns.empty())
        return columns;
    const bool forPeople = !look.raw && !look.pairs;
    const bool foretold =
        std::any_of(all.begin(), all.end(), [](const FileSystem &fs) { return fs.outlook && fs.outlook->forecast; });
    for (const Column &column : kColumns)
        if (column.use == Use::Usual || (column.use == Use::ForPeople && forPeople) ||
            (column.use == Use::Foretold && forPeople && foretold))
            columns.push_back(&column);
    return columns;
}

std::string variableOf(const Column &column) {
    std::string name = column.member;
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return name;
}

std::string freePercent(const FileSystem &fs) {
    if (!fs.isMeasured())
        return "-";
    const std::string tenth = fs.freePermille() < 100 ? "." + std::to_string(fs.freePermille() % 10) : "";
    return std::to_string(fs.freePermille() / 10) + tenth + "%";
}

std::vector<std::string> parseColumns(const std::string &text) {
    std::vector<std::string> members;
    const bool adds = !text.empty() && text.front() == '+';
    for (const Column &column : kColumns)
        if (adds && column.use < Use::Foretold)
            members.emplace_back(column.member);
    for (std::size_t begin = adds ? 1 : 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        members.emplace_back(columnNamed(text.substr(begin, end - begin)).member);
        begin = end + 1;
    }
    return members;
}

std::string parseSort(const std::string &text) {
    return lower(text) == "worst" ? "worst" : columnNamed(text).member;
}

std::string columnHelp() {
    std::string help = "Columns for -o and --sort:\n";
    for (const Column &column : kColumns) {
        const std::string name = nameOf(column);
        help += "  " + name + std::string(name.size() < 16 ? 16 - name.size() : 1, ' ') + column.about + "\n";
    }
    return help;
}

} // namespace oxttool
