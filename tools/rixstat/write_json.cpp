// JSON: one document for each sample on a line of its own, or one object for each row.
#include "number.h"
#include "text.h"
#include "writer.h"

#include <nlohmann/json.hpp>

#include <cstdlib>

namespace rixstat {
namespace {

using Json = nlohmann::ordered_json;

constexpr int exactDigits = 15; // of a decimal that survives as a double, as which most readers take a number
constexpr std::int64_t largestExact = (std::int64_t{1} << 53) - 1;

// A number that JSON readers would round is left a text.
Json numberOf(const std::string &cell)
{
    const std::optional<Number> number = parseNumber(cell);
    if (!number) return printable(cell);
    if (number->integer && std::abs(*number->integer) <= largestExact && cell != "-0") return *number->integer;
    const size_t digits = cell.size() - (cell[0] == '-' ? 1 : 0) - (number->decimals > 0 ? 1 : 0);
    return digits <= exactDigits ? Json(number->value) : Json(cell);
}

Json cellOf(const Row &row, Field field)
{
    const std::string &cell = row[field];
    if (!cell.empty()) return infoOf(field).number ? numberOf(cell) : Json(printable(cell));
    const bool emptyValue = field == fieldValue && !row.failed && !row[fieldId].empty();
    return emptyValue ? Json("") : Json(nullptr);
}

Json objectOf(const Document &document, const Row &row, bool withTime)
{
    Json object = Json::object();
    for (const Field field : document.fields)
        if (withTime || field != fieldTime) object[infoOf(field).name] = cellOf(row, field);
    return object;
}

class JsonWriter : public Writer
{
public:
    std::string write(const Document &document) override
    {
        Json json = {{"command", document.command},
                     {"time", document.time},
                     {"host", printable(document.host)},
                     {"port", document.port}};
        if (!document.gap.empty()) json["gap"] = document.gap;
        Json items = Json::array();
        for (const Row &row : document.rows)
            items.push_back(objectOf(document, row, false));
        json["items"] = std::move(items);
        return json.dump() + "\n";
    }
};

class NdjsonWriter : public Writer
{
public:
    std::string write(const Document &document) override
    {
        std::string text;
        for (const Row &row : document.gap.empty() ? document.rows : gapRows(document))
            text += objectOf(document, row, true).dump() + "\n";
        return text;
    }
};

} // namespace

std::unique_ptr<Writer> makeJsonWriter(const WriterOptions &)
{
    return std::make_unique<JsonWriter>();
}

std::unique_ptr<Writer> makeNdjsonWriter(const WriterOptions &)
{
    return std::make_unique<NdjsonWriter>();
}

} // namespace rixstat
