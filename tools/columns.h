// The columns of the table of file systems, and how the command line names them.
#ifndef OXT_TOOL_COLUMNS_H
#define OXT_TOOL_COLUMNS_H

#include <string>
#include <vector>

#include "fileSystem.h"
#include "grid.h"
#include "table.h"

namespace oxttool {

// Its texts show "-" for what was not measured or is not in force.
// ForPeople: usual, but not where a program reads. Foretold: the same, and only while one of the file systems has it.
enum class Use { Usual, ForPeople, Foretold, OnRequest };
struct Column {
    const char *member; // of the JSON object
    const char *heading, *about;
    Use use;
    bool right, coloured;
    unsigned least, leaves; // in a narrow terminal, see GridColumn
    std::string (*text)(const FileSystem &, const Look &);
};

// Those of the look, in its order.
std::vector<const Column *> columnsOf(const Look &look, const std::vector<FileSystem> &all);
// The member's name as a shell can take it for a variable.
std::string variableOf(const Column &column);

// "A,b" or "+C", which adds to the usual columns, as the names of JSON members; throws a usage failure that lists the
// columns.
std::vector<std::string> parseColumns(const std::string &text);
// What --sort takes: a column, or "worst".
std::string parseSort(const std::string &text);
// The columns, for --help.
std::string columnHelp();

// The share that is free, "-" when it was not measured.
std::string freePercent(const FileSystem &fs);

} // namespace oxttool

#endif
