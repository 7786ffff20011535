#include "series.h"

#include "number.h"
#include "text.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace rixstat {
namespace {

constexpr size_t trendWidth = 7;

void keep(std::vector<double> &numbers, double number)
{
    numbers.push_back(number);
    if (numbers.size() > trendWidth) numbers.erase(numbers.begin());
}

} // namespace

void Series::compare(History &history, Row &row, Clock::time_point when)
{
    const std::optional<Number> now = parseNumber(row[fieldValue]), before = parseNumber(history.value);
    row.changed = row[fieldValue] != history.value;
    if (!now || !before) return;
    const double seconds = std::chrono::duration<double>(when - history.when).count();
    const double rise = distance(*now, *before);
    if (!std::isfinite(rise)) return;
    const bool fell = rise < 0;
    if (fell && (now->value < 0 || now->value > before->value / 2)) history.gauge = true;
    if (fell && !history.gauge) {
        row[fieldNote] = "restarted";
        return;
    }
    row[fieldChange] = difference(*now, *before);
    if (fell || seconds <= 0) return;
    const double rate = rise / seconds;
    row[fieldRate] = fixed(rate, 3);
    keep(history.rates, rate);
}

// Of a gauge its values between their extremes, of anything else its rate above zero.
std::string Series::trendOf(const History &history, bool utf8)
{
    if (!history.gauge) return sparkline(history.rates, 0, utf8);
    return sparkline(history.values, *std::min_element(history.values.begin(), history.values.end()), utf8);
}

void Series::follow(std::vector<Row> &rows, Clock::time_point when)
{
    const bool utf8 = speaksUtf8();
    for (Row &row : rows) {
        if (row.failed || row[fieldId].empty()) continue;
        const auto [place, fresh] = histories.try_emplace(row[fieldElement] + '\0' + row[fieldId]);
        History &history = place->second;
        if (!fresh && history.when == when) {
            row = history.told;
            continue;
        }
        if (!fresh) compare(history, row, when);
        if (const std::optional<Number> number = parseNumber(row[fieldValue])) keep(history.values, number->value);
        row[fieldTrend] = trendOf(history, utf8);
        history.value = row[fieldValue];
        history.when = when;
        history.told = row;
    }
}

std::string sparkline(const std::vector<double> &numbers, double base, bool utf8)
{
    static constexpr const char *blocks[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    static constexpr const char *plain[] = {"_", ".", "-", "~", "=", "+", "*", "#"};
    std::string line;
    for (const double number : numbers) {
        const double range = *std::max_element(numbers.begin(), numbers.end()) - base;
        const double share = range > 0 ? (number - base) / range : 0;
        const size_t level = std::min<size_t>(7, static_cast<size_t>(share * 8));
        line += utf8 ? blocks[level] : plain[level];
    }
    return line;
}

} // namespace rixstat
