// Rows of cells as text: aligned for people, and fitted to a terminal; or for programs.
//
// What people read is printable: each byte that is not shows as \xHH. A column that finds no room leaves, or shortens
// its texts in the middle; which may, and in which order, is the column's own.
#ifndef OXT_TOOL_GRID_H
#define OXT_TOOL_GRID_H

#include <cstddef>
#include <string>
#include <vector>

namespace oxttool {

struct GridColumn {
    std::string heading;
    bool right = false;  // aligned to the right
    unsigned least = 0;  // cells to which a text may be shortened; 0: never
    unsigned leaves = 0; // the greatest leaves first where the terminal is narrow; 0: never
};

struct Cell {
    std::string text;
    const char *colour = ""; // a sequence for the terminal that is written before the text
    std::size_t cells = 0;   // of a terminal; filled in where columns are aligned
};

using Row = std::vector<Cell>;

struct GridLook {
    bool headings = true;
    std::size_t width = 0; // of the terminal; 0: as wide as it takes
    const char *colourEnd = "";
};

// Each row ends in a line feed, and so do the headings.
std::string alignedGrid(std::vector<GridColumn> columns, std::vector<Row> rows, const GridLook &look);
// One blank between the cells; in them, a blank or backslash shows as \xHH, too.
std::string rawGrid(const std::vector<GridColumn> &columns, const std::vector<Row> &rows, bool headings);
// HEADING="text" for each cell; what a shell would expand shows as \xHH, too.
std::string pairsGrid(const std::vector<GridColumn> &columns, const std::vector<Row> &rows);

// Of a printable text, in the columns of a terminal.
std::size_t cellsOf(const std::string &text);
// Its beginning and its end around an ellipsis, at most so many cells.
std::string shortened(const std::string &text, std::size_t cells);

} // namespace oxttool

#endif
