// Tables: for people, and a wide one with all there is to know.
#include "table.h"
#include "writer.h"

namespace rixstat {
namespace {

class TableWriter : public Writer
{
public:
    TableWriter(const WriterOptions &options, bool thousands) : headerDue(options.headers), table(thousands) {}

    std::string write(const Document &document) override
    {
        std::string text;
        const std::vector<Row> &rows = document.gap.empty() ? document.rows : gapRows(document);
        for (const std::string &line : table.lines(document, rows, headerDue))
            text += line + "\n";
        headerDue = false;
        return text;
    }

private:
    bool headerDue;
    Table table;
};

} // namespace

std::unique_ptr<Writer> makeTableWriter(const WriterOptions &options)
{
    return std::make_unique<TableWriter>(options, true);
}

std::unique_ptr<Writer> makeWideWriter(const WriterOptions &options)
{
    return std::make_unique<TableWriter>(options, false);
}

} // namespace rixstat
