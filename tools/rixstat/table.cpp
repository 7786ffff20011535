#include "table.h"

#include "number.h"
#include "text.h"

#include <algorithm>
#include <optional>

namespace rixstat {
namespace {

// Longer cells stand out of their column rather than push all others to the right.
constexpr size_t widestColumn = 60;
constexpr size_t widestNumber = 24;
// On a screen texts are cut to these, but for ids and times; numbers are whole, or not there.
constexpr size_t widestOnScreen = 15;
constexpr size_t narrowestId = 24; // and less where that leaves room for a value
constexpr size_t leastId = 8;

constexpr size_t between = 2;

// What these fill sooner or later is kept free from the start, so that nothing shifts when they do.
struct LeastWidth
{
    Field field;
    size_t width;
};

constexpr LeastWidth leastWidths[] = {{fieldChange, 9}, {fieldRate, 9}, {fieldTrend, 7}};
constexpr size_t leastValue = 12; // on a screen

size_t leastWidth(Field field, bool fitting)
{
    for (const LeastWidth &least : leastWidths)
        if (least.field == field) return least.width;
    return fitting && field == fieldValue ? leastValue : 0;
}

constexpr char nothing[] = "-"; // in place of an empty text, which could not be seen

size_t positionOf(const Fields &fields, Field field)
{
    return static_cast<size_t>(std::find(fields.begin(), fields.end(), field) - fields.begin());
}

std::string padded(const std::string &text, size_t width, bool right)
{
    const std::string blanks(width - std::min(width, displayWidth(text)), ' ');
    return right ? blanks + text : text + blanks;
}

// The larger width, unless the text is too long to count.
size_t widened(size_t width, size_t own, size_t limit)
{
    return own > limit ? width : std::max(width, own);
}

// Rates have the decimals that a reader can use.
std::string forPeople(Field field, const std::string &text)
{
    const std::optional<Number> number = parseNumber(text);
    if (field != fieldRate || !number) return withThousands(text);
    return withThousands(fixed(number->value, number->value >= 1000 ? 0 : number->value >= 10 ? 1 : 2));
}

} // namespace

void Table::fitTo(size_t width, bool bold)
{
    fitting = true;
    screenWidth = width;
    emphasise = bold;
}

Table::Cell Table::cellOf(const Row &row, Field field) const
{
    const std::string &text = row[field];
    const bool numbers = infoOf(field).number;
    if (text.empty()) return {field == fieldTrend ? "" : nothing, numbers};
    if (!numbers || !parseNumber(text)) return {printable(text), false};
    return {thousands ? forPeople(field, text) : text, true};
}

// A failed element names itself and its code, whatever the columns are. What keeps a change from being told, such as a
// restart, takes its place where there is no column for notes.
Table::Cells Table::cellsOf(const Document &document, const Row &row) const
{
    const Fields &fields = document.fields;
    Cells cells;
    for (const Field field : fields)
        cells.push_back(cellOf(row, field));
    const auto at = [&](Field field) { return positionOf(fields, field); };
    if (at(fieldChange) < cells.size() && at(fieldNote) == cells.size() && !row[fieldNote].empty())
        cells[at(fieldChange)] = {row[fieldNote], true};
    if (!row.failed) return cells;
    const Cell failed = {"failed: code " + row[fieldCode], false};
    if (at(fieldElement) == cells.size())
        cells[fields.front() == fieldTime && fields.size() > 1 ? 1 : 0] = {printable(row[fieldElement]), false};
    if (at(fieldValue) < cells.size())
        cells[at(fieldValue)] = failed;
    else if (at(fieldId) < cells.size() && at(fieldElement) < cells.size())
        cells[at(fieldId)] = failed;
    else
        cells.push_back(failed);
    return cells;
}

void Table::widen(const Fields &fields, const Cells &cells)
{
    columns.resize(fields.size());
    for (size_t i = 0; i < fields.size(); ++i) {
        const size_t width = displayWidth(cells[i].text);
        const size_t least = leastWidth(fields[i], fitting);
        if (cells[i].right) columns[i].numbers = std::max(least, widened(columns[i].numbers, width, widestNumber));
        columns[i].all = std::max({least, widened(columns[i].all, width, widestColumn), columns[i].numbers});
    }
}

// How far the ids give way: so far that the value has room beside them, if that can be.
size_t Table::narrowestIds(const Fields &fields) const
{
    const size_t id = positionOf(fields, fieldId), value = positionOf(fields, fieldValue);
    if (id == fields.size() || value == fields.size()) return narrowestId;
    size_t others = 0; // up to the later of the two
    for (size_t i = 0; i <= std::max(id, value); ++i)
        others += i == id ? 0 : columns[i].shown + between;
    return others + leastId > screenWidth ? narrowestId : std::min(narrowestId, screenWidth - others);
}

// Decides what each column gets of the screen: the ids give way, then the last columns go.
void Table::share(const Fields &fields)
{
    size_t total = 0, id = 0;
    for (size_t i = 0; i < fields.size(); ++i) {
        Column &column = columns[i];
        const bool whole =
            fields[i] == fieldId || fields[i] == fieldElement || fields[i] == fieldGroup || fields[i] == fieldTime;
        if (fields[i] == fieldId) id = i;
        column.shown = fitting && !whole ? std::max(column.numbers, std::min(column.all, widestOnScreen)) : column.all;
        total += column.shown + (i > 0 ? between : 0);
    }
    if (!fitting || total <= screenWidth) return;
    const size_t spare = columns[id].shown - std::min(columns[id].shown, narrowestIds(fields));
    const size_t taken = std::min(spare, total - screenWidth);
    columns[id].shown -= taken;
    total -= taken;
    for (size_t i = fields.size() - 1; i > 0 && total > screenWidth; --i) {
        total -= columns[i].shown + between;
        columns[i].shown = 0;
    }
    columns[0].shown = std::min(columns[0].shown, screenWidth);
}

std::string Table::placed(const Column &column, const Cell &cell) const
{
    const std::string shown = fitting ? cut(cell.text, column.shown) : cell.text;
    const size_t width = fitting ? std::min(column.numbers, column.shown) : column.numbers;
    const std::string number = cell.right ? padded(shown, width, true) : shown;
    return padded(number, column.shown, false);
}

std::string Table::line(const Fields &fields, const Cells &cells, bool changed) const
{
    std::string text;
    for (size_t i = 0; i < cells.size(); ++i) {
        const bool extra = i >= fields.size(); // what a failed element says where no column is fit for it
        if (extra ? fitting : columns[i].shown == 0) continue;
        if (i > 0) text.append(between, ' ');
        const bool bold = !extra && changed && emphasise && fields[i] == fieldValue;
        if (bold) text += "\033[1m";
        text += extra ? cells[i].text : placed(columns[i], cells[i]);
        if (bold) text += "\033[0m";
    }
    const size_t end = text.find_last_not_of(' ');
    return end == std::string::npos ? "" : text.substr(0, end + 1);
}

std::vector<std::string> Table::lines(const Document &document, const std::vector<Row> &rows, bool header)
{
    std::vector<Cells> all(1);
    for (const Field field : document.fields)
        all[0].push_back({infoOf(field).header, infoOf(field).number});
    for (const Row &row : rows)
        all.push_back(cellsOf(document, row));
    for (const Cells &cells : all)
        widen(document.fields, cells);
    share(document.fields);
    std::vector<std::string> lines;
    for (size_t i = header ? 0 : 1; i < all.size(); ++i)
        lines.push_back(line(document.fields, all[i], i > 0 && rows[i - 1].changed));
    return lines;
}

} // namespace rixstat
