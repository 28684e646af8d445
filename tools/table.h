// The table of file systems, and what else commands print.
#ifndef OXT_TOOL_TABLE_H
#define OXT_TOOL_TABLE_H

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "json.h"

namespace oxttool {

struct Look {
    bool json = false, raw = false, pairs = false; // none of them: for people
    bool headings = true;
    Unit unit = Unit::Human;
    std::vector<std::string> columns; // by the names of their JSON members; none: the usual ones
    std::string sort;                 // such a name, or "worst"; empty: in the order of the mount table
    std::string machine, machineFile; // name and file of a described machine; empty: this one

    // Of the output, see adaptToOutput.
    bool colour = false;
    bool blocks = false;   // it can show block characters
    std::size_t width = 0; // of the terminal; 0: as wide as it takes
};

// Colours and a width on a terminal, unless NO_COLOR is set to something; block characters where the locale has them.
void adaptToOutput(Look &look, FILE *out);

// The line that says of which described machine an output is.
std::string machineLabel(const Look &look);

// The colour sequence for a free-space status, and the one that ends it; empty when the look has no colours.
const char *colourOf(std::int64_t status, const Look &look);
const char *colourEnd(const Look &look);

// By a column or by "worst": fatal first, and then the smallest share of free space.
void sortFileSystems(std::vector<FileSystem> &all, const std::string &by);

// The rows of the table for people, or as raw text or pairs.
std::string tableOf(const std::vector<FileSystem> &all, const Look &look);
// {"unit": ..., "filesystems": ...}, with the members and in the order of the look.
Json jsonOf(std::vector<FileSystem> all, const Look &look);
// On the standard output, in the look's form and order.
void printFileSystems(std::vector<FileSystem> all, const Look &look);

// A name and a value on each line.
using Field = std::pair<std::string, std::string>;
void printRecord(const std::vector<Field> &fields);
// All that is known of one, for people.
std::vector<Field> fieldsOf(const FileSystem &fs, const Look &look);

// An object that says in a member of its own when it is of a described machine; else without members.
Json labelled(const Look &look);
// On the standard output, indented and labelled.
void printJson(const Json &json, const Look &look);

} // namespace oxttool

#endif
