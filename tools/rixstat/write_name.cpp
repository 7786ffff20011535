// The ids alone, one a line, ready to be arguments of the next command.
#include "text.h"
#include "writer.h"

namespace rixstat {
namespace {

class NameWriter : public Writer
{
public:
    explicit NameWriter(const WriterOptions &options) : name(options.name) {}

    std::string write(const Document &document) override
    {
        std::string text;
        for (const Row &row : document.rows)
            if (!row[name].empty()) text += printable(row[name]) + "\n";
        return text;
    }

private:
    const Field name;
};

} // namespace

std::unique_ptr<Writer> makeNameWriter(const WriterOptions &options)
{
    return std::make_unique<NameWriter>(options);
}

} // namespace rixstat
