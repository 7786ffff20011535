// Prometheus text. A statistic is a family of its own, rixstats_ID, of unknown type, with its group and its id as
// labels; one whose value is no number is a label of rixstat_text_info. What the viewer tells itself begins with
// rixstat_.
#include "number.h"
#include "text.h"
#include "writer.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>

namespace rixstat {
namespace {

std::string metricName(const std::string &text)
{
    std::string name = text;
    for (char &c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)) || static_cast<unsigned char>(c) >= 0x80) c = '_';
    return name;
}

// The escapes of label values; all that is not printable has one of ours already, whose backslash is escaped here.
std::string labelValue(const std::string &text)
{
    std::string value;
    for (const char c : printable(text)) {
        if (c == '\\' || c == '"') value += '\\';
        value += c;
    }
    return value;
}

std::string labels(const Row &row, const Fields &fields)
{
    std::string text;
    for (const Field field : fields)
        text += (text.empty() ? "{" : ",") + std::string(infoOf(field).name) + "=\"" + labelValue(row[field]) + "\"";
    return text.empty() ? text : text + "}";
}

// The families of one exposition, in the order in which they came up. What is there already is not added again.
class Exposition
{
public:
    void add(const std::string &family, const std::string &help, const std::string &labelText, const std::string &value)
    {
        const auto [place, fresh] = places.emplace(family, families.size());
        if (fresh) families.push_back("# HELP " + family + " " + help + "\n# TYPE " + family + " untyped\n");
        if (series.insert(family + labelText).second)
            families[place->second] += family + labelText + " " + value + "\n";
    }

    std::string text() const
    {
        std::string all;
        for (const std::string &family : families)
            all += family;
        return all + "# EOF\n"; // tells the samples of one run apart, and a whole one from a part of one
    }

private:
    std::vector<std::string> families;
    std::map<std::string, size_t> places;
    std::set<std::string> series;
};

void addStatistic(Exposition &exposition, const Row &row)
{
    if (parseNumber(row[fieldValue]))
        exposition.add("rixstats_" + metricName(row[fieldId]), "Statistic of the gateway.",
                       labels(row, {fieldGroup, fieldId}), row[fieldValue]);
    else
        exposition.add("rixstat_text_info", "Statistics whose value is a text.",
                       labels(row, {fieldGroup, fieldId, fieldValue}), "1");
}

// What is no statistic: each number is a metric with the texts as its labels; without numbers the texts are all there
// is.
void addOther(Exposition &exposition, const Document &document, const Row &row)
{
    Fields numbers, texts;
    for (const Field field : document.fields)
        (infoOf(field).number ? numbers : texts).push_back(field);
    const std::string prefix = "rixstat_" + document.command + "_";
    for (const Field field : numbers)
        if (parseNumber(row[field]))
            exposition.add(prefix + infoOf(field).name, "Told by rixstat " + document.command + ".", labels(row, texts),
                           row[field]);
    if (numbers.empty())
        exposition.add(prefix + "info", "Told by rixstat " + document.command + ".", labels(row, texts), "1");
}

class PrometheusWriter : public Writer
{
public:
    std::string write(const Document &document) override
    {
        const Fields &fields = document.fields;
        const bool statistics = std::count(fields.begin(), fields.end(), fieldValue) != 0;
        const bool named = std::count(fields.begin(), fields.end(), fieldId) != 0;
        Exposition exposition;
        if (std::count(fields.begin(), fields.end(), fieldGroup) != 0) // else it is not about what a gateway has
            exposition.add("rixstat_up", "Whether the gateway answered.", "", document.gap.empty() ? "1" : "0");
        for (const Row &row : document.rows) {
            if (row.failed)
                exposition.add("rixstat_element_code", "The gateway's codes for what it could not answer.",
                               labels(row, {fieldElement}), row[fieldCode]);
            else if (named && row[fieldId].empty())
                continue; // of an element that has no statistics
            else if (statistics)
                addStatistic(exposition, row);
            else
                addOther(exposition, document, row);
        }
        return exposition.text();
    }
};

} // namespace

std::unique_ptr<Writer> makePrometheusWriter(const WriterOptions &)
{
    return std::make_unique<PrometheusWriter>();
}

} // namespace rixstat
