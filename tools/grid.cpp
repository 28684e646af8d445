#include "grid.h"

#include <algorithm>
#include <cwchar>
#include <string_view>

#include "shownText.h"

namespace oxttool {

namespace {

// Of characters that are a cell each and show as themselves, a backslash perhaps not.
bool isPlain(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7F && c != '\\'; });
}

// The bytes of the next character, and its cells.
struct Character {
    std::size_t bytes, cells;
};

Character characterAt(std::string_view rest) {
    const Decoded next = decoded(rest);
    if (next.bytes == 0)
        return {1, 1};
    return {next.bytes, static_cast<std::size_t>(std::max(wcwidth(static_cast<wchar_t>(next.code)), 0))};
}

std::size_t sum(const std::vector<std::size_t> &widths) {
    std::size_t all = widths.empty() ? 0 : widths.size() - 1;
    for (const std::size_t width : widths)
        all += width;
    return all;
}

void removeColumn(std::size_t at, std::vector<GridColumn> &columns, std::vector<Row> &rows,
                  std::vector<std::size_t> &widths) {
    const auto remove = [at](auto &items) { items.erase(items.begin() + static_cast<std::ptrdiff_t>(at)); };
    remove(columns);
    remove(widths);
    for (Row &row : rows)
        remove(row);
}

// Lets columns leave until the rest can be made to fit, and tells how wide each of them is then.
void fit(std::size_t room, std::vector<GridColumn> &columns, std::vector<Row> &rows, std::vector<std::size_t> &widths) {
    const auto leastOf = [&](std::size_t i) {
        return columns[i].least == 0 ? widths[i] : std::min<std::size_t>(widths[i], columns[i].least);
    };
    for (;;) {
        std::vector<std::size_t> least;
        for (std::size_t i = 0; i < columns.size(); ++i)
            least.push_back(leastOf(i));
        const auto next = std::max_element(columns.begin(), columns.end(),
                                           [](const auto &a, const auto &b) { return a.leaves < b.leaves; });
        if (sum(least) <= room || next == columns.end() || next->leaves == 0)
            break;
        removeColumn(static_cast<std::size_t>(next - columns.begin()), columns, rows, widths);
    }
    while (sum(widths) > room) { // the widest that may, gives a cell
        std::size_t widest = columns.size();
        for (std::size_t i = 0; i < columns.size(); ++i)
            if (widths[i] > leastOf(i) && (widest == columns.size() || widths[i] > widths[widest]))
                widest = i;
        if (widest == columns.size())
            break;
        --widths[widest];
    }
}

void append(std::string &line, const Cell &cell, std::size_t width, bool right, bool last, const char *colourEnd) {
    const std::size_t pad = width > cell.cells ? width - cell.cells : 0;
    if (right)
        line.append(pad, ' ');
    line += cell.colour;
    line += cell.text;
    if (*cell.colour != '\0')
        line += colourEnd;
    if (!right && !last)
        line.append(pad, ' ');
    line += last ? '\n' : ' ';
}

} // namespace

std::size_t cellsOf(const std::string &text) {
    if (isPlain(text))
        return text.size();
    std::size_t cells = 0;
    for (std::string_view rest = text; !rest.empty();) {
        const Character next = characterAt(rest);
        cells += next.cells;
        rest.remove_prefix(next.bytes);
    }
    return cells;
}

std::string shortened(const std::string &text, std::size_t cells) {
    const std::size_t all = cellsOf(text);
    if (all <= cells)
        return text;
    const std::string ellipsis = printable("\u2026") == "\u2026" ? "\u2026" : "...";
    const std::size_t kept = cells - std::min(cells, cellsOf(ellipsis)), head = kept / 2, tail = kept - head;
    std::string begin, end;
    std::size_t at = 0;
    for (std::string_view rest = text; !rest.empty();) {
        const Character next = characterAt(rest);
        if (at + next.cells <= head && end.empty())
            begin += rest.substr(0, next.bytes);
        else if (at >= all - tail)
            end += rest.substr(0, next.bytes);
        at += next.cells;
        rest.remove_prefix(next.bytes);
    }
    return begin + ellipsis + end;
}

std::string alignedGrid(std::vector<GridColumn> columns, std::vector<Row> rows, const GridLook &look) {
    std::vector<std::size_t> widths;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        std::size_t widest = look.headings ? columns[i].heading.size() : 0;
        for (Row &row : rows) {
            Cell &cell = row[i];
            if (!isPlain(cell.text))
                cell.text = printable(cell.text);
            cell.cells = cellsOf(cell.text);
            widest = std::max(widest, cell.cells);
        }
        widths.push_back(widest);
    }
    if (look.width != 0)
        fit(look.width, columns, rows, widths);
    std::string text;
    const auto add = [&](const Row &row) {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            Cell shorter;
            if (row[i].cells > widths[i]) {
                const std::string kept = shortened(row[i].text, widths[i]);
                shorter = {kept, row[i].colour, cellsOf(kept)};
            }
            append(text, row[i].cells > widths[i] ? shorter : row[i], widths[i], columns[i].right,
                   i + 1 == columns.size(), look.colourEnd);
        }
    };
    if (look.headings) {
        Row headings;
        for (const GridColumn &column : columns)
            headings.push_back({column.heading, "", cellsOf(column.heading)});
        add(headings);
    }
    for (const Row &row : rows)
        add(row);
    return text;
}

std::string rawGrid(const std::vector<GridColumn> &columns, const std::vector<Row> &rows, bool headings) {
    std::string text;
    for (std::size_t i = 0; headings && i < columns.size(); ++i)
        text += columns[i].heading + (i + 1 == columns.size() ? "\n" : " ");
    for (const Row &row : rows)
        for (std::size_t i = 0; i < row.size(); ++i)
            text += printable(row[i].text, " \\") + (i + 1 == row.size() ? "\n" : " ");
    return text;
}

std::string pairsGrid(const std::vector<GridColumn> &columns, const std::vector<Row> &rows) {
    std::string text;
    for (const Row &row : rows)
        for (std::size_t i = 0; i < row.size(); ++i)
            text += columns[i].heading + "=\"" + printable(row[i].text, "\\\"$`") + "\"" +
                    (i + 1 == row.size() ? "\n" : " ");
    return text;
}

} // namespace oxttool
