#include "writer.h"

#include <algorithm>
#include <stdexcept>

namespace rixstat {

const std::vector<Form> &forms()
{
    static const std::vector<Form> table = {
        {"table", "aligned columns, for people", &FieldPlan::table, false, makeTableWriter},
        {"wide", "the same with more columns, numbers as they come", &FieldPlan::wide, false, makeWideWriter},
        {"json", "one JSON document a line for each sample", &FieldPlan::data, false, makeJsonWriter},
        {"ndjson", "one JSON object a line for each row", &FieldPlan::data, false, makeNdjsonWriter},
        {"csv", "comma-separated values", &FieldPlan::data, false, makeCsvWriter},
        {"tsv", "tab-separated values", &FieldPlan::data, false, makeTsvWriter},
        {"prom", "Prometheus text", &FieldPlan::prometheus, true, makePrometheusWriter},
        {"name", "the ids alone, one a line", &FieldPlan::data, true, makeNameWriter},
    };
    return table;
}

const Form &formNamed(const std::string &name)
{
    for (const Form &form : forms())
        if (form.name == name) return form;
    throw std::invalid_argument("no output form " + name); // the command line lets none through
}

std::vector<Row> gapRows(const Document &document)
{
    if (std::count(document.fields.begin(), document.fields.end(), fieldNote) == 0) return {};
    Row row;
    row[fieldTime] = document.time;
    row[fieldNote] = "gap";
    return {row};
}

} // namespace rixstat
