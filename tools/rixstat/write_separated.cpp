// CSV (RFC 4180, with line feeds) and TSV: a header line, then one line for each row; the columns stay the same all
// run.
#include "text.h"
#include "writer.h"

namespace rixstat {
namespace {

std::string quoted(const std::string &cell)
{
    if (cell.find_first_of(",\"") == std::string::npos) return cell;
    std::string text = "\"";
    for (const char c : cell)
        text += c == '"' ? "\"\"" : std::string(1, c);
    return text + "\"";
}

// Tabulators have been escaped. Some readers take a quote at the start for the beginning of a quoted cell.
std::string unquoted(const std::string &cell)
{
    return cell[0] == '"' ? "\\x22" + cell.substr(1) : cell;
}

class SeparatedWriter : public Writer
{
public:
    SeparatedWriter(const WriterOptions &options, char between, std::string (*howQuoted)(const std::string &))
        : headerDue(options.headers), separator(between), quote(howQuoted)
    {
    }

    std::string write(const Document &document) override
    {
        std::string text;
        if (headerDue) text = line(document.fields, [](Field field) { return std::string(infoOf(field).name); });
        headerDue = false;
        for (const Row &row : document.gap.empty() ? document.rows : gapRows(document))
            text += line(document.fields, [&](Field field) { return quote(printable(row[field])); });
        return text;
    }

private:
    template <typename CellOf>
    std::string line(const Fields &fields, CellOf cellOf) const
    {
        std::string text;
        for (const Field field : fields)
            text += cellOf(field) + separator;
        text.back() = '\n';
        // The only cell of its line is quoted when it is empty: readers pass over lines without anything.
        return text == "\n" && separator == ',' ? "\"\"\n" : text;
    }

    bool headerDue;
    const char separator;
    std::string (*const quote)(const std::string &);
};

} // namespace

std::unique_ptr<Writer> makeCsvWriter(const WriterOptions &options)
{
    return std::make_unique<SeparatedWriter>(options, ',', quoted);
}

std::unique_ptr<Writer> makeTsvWriter(const WriterOptions &options)
{
    return std::make_unique<SeparatedWriter>(options, '\t', unquoted);
}

} // namespace rixstat
