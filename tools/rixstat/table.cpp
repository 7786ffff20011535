#include "table.h"

#include "text.h"

#include <algorithm>
#include <vector>

namespace rixstat {
namespace {

// Longer cells stand out of their column rather than push all others to the right.
constexpr size_t widestColumn = 60;
constexpr size_t widestNumber = 24;

constexpr char nothing[] = "-"; // in place of an empty text, which could not be seen

using Row = std::vector<std::string>;

std::string cell(const std::string &text)
{
    return text.empty() ? nothing : printable(text);
}

Row headerOf(Content content)
{
    switch (content) {
    case Content::groups:
        return {"GROUP"};
    case Content::ids:
        return {"ELEMENT", "STATISTIC"};
    case Content::values:
        break;
    }
    return {"ELEMENT", "STATISTIC", "VALUE"};
}

// A failed element names itself and its code, whatever the columns are.
Row rowOf(Content content, const Item &item)
{
    if (item.elementCode < 0) {
        const std::string failed = "failed: gateway code " + std::to_string(item.elementCode);
        return content == Content::values ? Row{cell(item.element), nothing, failed} : Row{cell(item.element), failed};
    }
    if (content == Content::groups) return {cell(item.id)};
    if (content == Content::ids) return {cell(item.element), cell(item.id)};
    return {cell(item.element), cell(item.id), cell(item.value)};
}

bool isNumber(const std::string &text)
{
    const size_t start = !text.empty() && text[0] == '-' ? 1 : 0;
    const size_t point = std::min(text.find('.', start), text.size());
    const auto digits = [&](size_t from, size_t to) {
        return from < to && text.find_first_not_of("0123456789", from) >= to;
    };
    return digits(start, point) && (point == text.size() || digits(point + 1, text.size()));
}

std::string padded(const std::string &text, size_t width, bool right)
{
    const std::string blanks(width - std::min(width, displayWidth(text)), ' ');
    return right ? blanks + text : text + blanks;
}

// The larger width, unless the text is too long to count.
size_t widened(size_t width, const std::string &text, size_t limit)
{
    const size_t own = displayWidth(text);
    return own > limit ? width : std::max(width, own);
}

// Numbers of the value column line up at their last digit; texts among them start where the longest number does.
void alignValues(std::vector<Row> &rows)
{
    constexpr size_t value = 2;
    size_t width = 0;
    for (const Row &row : rows)
        if (isNumber(row[value])) width = widened(width, row[value], widestNumber);
    for (Row &row : rows)
        if (isNumber(row[value]) || &row == &rows.front()) // the first is the header
            row[value] = padded(row[value], width, true);
}

std::vector<size_t> columnWidths(const std::vector<Row> &rows)
{
    std::vector<size_t> widths;
    for (const Row &row : rows) {
        if (row.size() > widths.size()) widths.resize(row.size());
        for (size_t column = 0; column < row.size(); ++column)
            widths[column] = widened(widths[column], row[column], widestColumn);
    }
    return widths;
}

std::string lineOf(const Row &row, const std::vector<size_t> &widths)
{
    std::string line;
    for (size_t column = 0; column + 1 < row.size(); ++column)
        line += padded(row[column], widths[column], false) + "  ";
    return line + row.back() + '\n';
}

} // namespace

std::string formatTable(const Answer &answer)
{
    std::vector<Row> rows = {headerOf(answer.content)};
    for (const Item &item : answer.items)
        rows.push_back(rowOf(answer.content, item));
    if (answer.content == Content::values) alignValues(rows);

    const std::vector<size_t> widths = columnWidths(rows);
    std::string text;
    for (const Row &row : rows)
        text += lineOf(row, widths);
    return text;
}

} // namespace rixstat
