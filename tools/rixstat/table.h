// Rows laid out in columns, for people: numbers end below each other, texts begin below each other. Widths never shrink
// from one document to the next, so that nothing shifts while values change.
#ifndef RIXSTAT_TABLE_H
#define RIXSTAT_TABLE_H

#include "document.h"

#include <string>
#include <vector>

namespace rixstat {

class Table
{
public:
    explicit Table(bool groupThousands) : thousands(groupThousands) {}

    // On a screen of this width: long cells are cut, columns that find no room are left out, values that have changed
    // are put into bold type where that is wanted.
    void fitTo(size_t width, bool bold);

    // One line for each of the rows, which belong to the document or are made from it, without line ends; before them
    // the header line, if wanted.
    std::vector<std::string> lines(const Document &document, const std::vector<Row> &rows, bool header);

private:
    struct Cell
    {
        std::string text;
        bool right; // ends where the numbers of its column end
    };
    using Cells = std::vector<Cell>;
    struct Column
    {
        size_t numbers = 0; // width of the numbers, and of the header of a column of numbers
        size_t all = 0;
        size_t shown = 0; // 0: left out
    };

    Cell cellOf(const Row &row, Field field) const;
    Cells cellsOf(const Document &document, const Row &row) const;
    void widen(const Fields &fields, const Cells &cells);
    size_t narrowestIds(const Fields &fields) const;
    void share(const Fields &fields);
    std::string placed(const Column &column, const Cell &cell) const;
    std::string line(const Fields &fields, const Cells &cells, bool changed) const;

    const bool thousands;
    bool fitting = false;
    bool emphasise = false;
    size_t screenWidth = 0;
    std::vector<Column> columns;
};

} // namespace rixstat

#endif // RIXSTAT_TABLE_H
