// What commands print: tables for people, JSON for programs.
#ifndef OXT_TOOL_TABLE_H
#define OXT_TOOL_TABLE_H

#include <cstdio>
#include <string>
#include <vector>

#include "json.h"

namespace oxttool {

struct Look {
    bool json = false;
    bool colour = false;
    bool blocks = false; // the output can show block characters
    Unit unit = Unit::Human;
};

// Colours on a terminal unless NO_COLOR is set to something; block characters where the locale has them.
void adaptToOutput(Look &look, FILE *out);

// The colour sequence for a free-space status, and the one that ends it; empty when the look has no colours.
const char *colourOf(std::int64_t status, const Look &look);
const char *colourEnd(const Look &look);

// One row per file system.
void printFileSystems(FILE *out, const std::vector<FileSystem> &all, const Look &look);

struct Field {
    std::string name, value;
};

// One line per field.
void printRecord(FILE *out, const std::vector<Field> &fields, const Look &look);

// On the standard output, indented.
void printJson(const Json &json);

} // namespace oxttool

#endif
