// What users read: tables for people, JSON for programs.
#ifndef OXT_TOOL_TABLE_H
#define OXT_TOOL_TABLE_H

#include <cstdio>
#include <string>
#include <vector>

#include "fileSystem.h"
#include "values.h"

namespace oxttool {

struct Look {
    bool json = false;
    bool colour = false;
    bool blocks = false; // the output can show block characters
    Unit unit = Unit::Human;
    std::string machine, machineFile; // name and file of a described machine; empty: this one
    Unit jsonUnit() const { return unit == Unit::Human ? Unit::MiB : unit; }
};

// Colours on a terminal unless NO_COLOR is set to something; block characters where the locale has them.
void adaptToOutput(Look &look, FILE *out);

// The line that says of which described machine an output is.
std::string machineLabel(const Look &look);

// The colour sequence for a free-space status, and the one that ends it; empty when the look has no colours.
const char *colourOf(std::int64_t status, const Look &look);
const char *colourEnd(const Look &look);

// One row per file system. JSON: an array "filesystems", sizes as numbers in MiB (in bytes when the unit is bytes).
void printFileSystems(FILE *out, const std::vector<FileSystem> &all, const Look &look);

// One value of a record: what people see and what programs read.
struct Field {
    enum Kind { Text, Number, Boolean };
    std::string name, shown, raw;
    Kind kind = Text;
};

// A table of other things. JSON: an array `name` of objects.
struct Heading {
    const char *name;
    Field::Kind kind;
    bool right, wrapped, jsonOnly;
};
void printRows(FILE *out, const std::string &name, const std::vector<Heading> &headings,
               const std::vector<std::vector<std::string>> &rows, const Look &look);

// One line per field. JSON: an array `name` with one object.
void printRecord(FILE *out, const std::string &name, const std::vector<Field> &fields, const Look &look);

} // namespace oxttool

#endif
