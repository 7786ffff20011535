// Output forms. Each is a class of its own in a file write_NAME.cpp and a row of the table in writer.cpp.
#ifndef RIXSTAT_WRITER_H
#define RIXSTAT_WRITER_H

#include "document.h"

#include <memory>
#include <string>
#include <vector>

namespace rixstat {

class Writer
{
public:
    virtual ~Writer() = default;
    // The document as a whole, with line ends; what comes first in a run, such as headers, comes with the first one.
    virtual std::string write(const Document &document) = 0;
};

struct WriterOptions
{
    bool headers;
    Field name; // of the command's rows
};

struct Form
{
    const char *name;
    const char *help;
    Fields FieldPlan::*fields; // those that are shown unless --columns says otherwise
    bool fixedFields;          // the form decides which fields it shows
    std::unique_ptr<Writer> (*make)(const WriterOptions &options);
};

const std::vector<Form> &forms();
const Form &formNamed(const std::string &name);

std::unique_ptr<Writer> makeTableWriter(const WriterOptions &options);
std::unique_ptr<Writer> makeWideWriter(const WriterOptions &options);
std::unique_ptr<Writer> makeJsonWriter(const WriterOptions &options);
std::unique_ptr<Writer> makeNdjsonWriter(const WriterOptions &options);
std::unique_ptr<Writer> makeCsvWriter(const WriterOptions &options);
std::unique_ptr<Writer> makeTsvWriter(const WriterOptions &options);
std::unique_ptr<Writer> makePrometheusWriter(const WriterOptions &options);
std::unique_ptr<Writer> makeNameWriter(const WriterOptions &options);

// The row that marks a gap, for the forms that are rows; none where there is no column to mark it in.
std::vector<Row> gapRows(const Document &document);

} // namespace rixstat

#endif // RIXSTAT_WRITER_H
