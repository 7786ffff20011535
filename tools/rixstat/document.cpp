#include "document.h"

#include "number.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <optional>
#include <tuple>

namespace rixstat {
namespace {

constexpr FieldInfo infos[fieldsInAll] = {
    {"time", "TIME", false},     {"element", "ELEMENT", false},     {"group", "GROUP", false},
    {"id", "STATISTIC", false},  {"value", "VALUE", true},          {"change", "CHANGE", true},
    {"rate", "RATE/S", true},    {"trend", "TREND", false},         {"note", "NOTE", false},
    {"code", "CODE", true},      {"step", "STEP", false},           {"count", "COUNT", true},
    {"min_ms", "MIN MS", true},  {"mean_ms", "MEAN MS", true},      {"p99_ms", "P99 MS", true},
    {"max_ms", "MAX MS", true},  {"result", "RESULT", false},       {"ms", "MS", true},
    {"detail", "DETAIL", false}, {"component", "COMPONENT", false}, {"version", "VERSION", false},
};

std::string timeNow()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    const time_t seconds = static_cast<time_t>(milliseconds / 1000);
    struct tm parts = {};
    gmtime_r(&seconds, &parts);
    char text[48];
    const size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text + length, sizeof text - length, ".%03dZ", static_cast<int>(milliseconds % 1000));
    return text;
}

// What decides about the order of two cells, the first difference first.
struct SortKey
{
    int kind; // 0 number, 1 text, 2 nothing
    long double number;
    std::string text;
};

SortKey keyOf(const std::string &cell)
{
    if (cell.empty()) return {2, 0, {}};
    if (const std::optional<Number> number = parseNumber(cell))
        return {0, number->integer ? static_cast<long double>(*number->integer) : number->value, {}};
    return {1, 0, cell};
}

bool before(const SortKey &a, const SortKey &b, bool falling)
{
    if (a.kind != b.kind) return a.kind < b.kind;
    const auto order = [](const SortKey &key) { return std::tie(key.number, key.text); };
    return falling ? order(b) < order(a) : order(a) < order(b);
}

} // namespace

const FieldInfo &infoOf(Field field)
{
    return infos[field];
}

Fields availableFields(const FieldPlan &plan)
{
    Fields all;
    for (const Fields *fields : {&plan.data, &plan.wide, &plan.screen, &plan.table})
        for (const Field field : *fields)
            if (std::find(all.begin(), all.end(), field) == all.end()) all.push_back(field);
    return all;
}

Document newDocument(const std::string &command, const Settings &settings, const Fields &fields)
{
    return {command, timeNow(), settings.host, settings.port, fields, {}};
}

void sortRows(std::vector<Row> &rows, Field field, bool falling)
{
    std::vector<std::pair<SortKey, size_t>> keys;
    keys.reserve(rows.size());
    for (size_t i = 0; i < rows.size(); ++i)
        keys.emplace_back(keyOf(rows[i][field]), i);
    std::stable_sort(keys.begin(), keys.end(),
                     [&](const auto &a, const auto &b) { return before(a.first, b.first, falling); });
    std::vector<Row> sorted;
    sorted.reserve(rows.size());
    for (const auto &key : keys)
        sorted.push_back(std::move(rows[key.second]));
    rows = std::move(sorted);
}

} // namespace rixstat
