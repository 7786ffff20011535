#include "catalogue.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

namespace rixgwsim {

namespace {

constexpr double kCounterPulse = 10; // seconds in which a counter's pace is about steady

std::uint64_t mix(std::uint64_t value)
{
    value += 0x9E3779B97F4A7C15;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
    return value ^ (value >> 31);
}

// A number that stands for the statistic in this run. Spelt out, as std::hash may differ from one library to the next.
std::uint64_t streamOf(std::string_view id, std::uint64_t seed)
{
    std::uint64_t hash = 0xCBF29CE484222325;
    for (const char c : id)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    return mix(hash ^ mix(seed));
}

double randomAt(std::uint64_t stream, std::uint64_t step) // 0 to below 1
{
    return static_cast<double>(mix(stream + mix(step)) >> 11) * 0x1p-53;
}

// Runs from one random number to the next, reaching one at each whole position.
double smoothRandom(std::uint64_t stream, double position)
{
    const double whole = std::floor(position);
    const auto step = static_cast<std::uint64_t>(whole);
    const double from = randomAt(stream, step);
    return from + (randomAt(stream, step + 1) - from) * (position - whole);
}

// Events up to a time at `rate` a second, now faster, now slower. It never falls: the random part loses at most 0.8
// of what the steady part gains.
double eventsUntil(std::uint64_t stream, double rate, double seconds)
{
    const double pulses = seconds / kCounterPulse;
    return rate * kCounterPulse * (pulses + 0.8 * smoothRandom(stream, pulses));
}

std::string wholeText(double value)
{
    return std::to_string(static_cast<long long>(value));
}

std::string gaugeText(const Statistic &gauge, std::uint64_t stream, double seconds)
{
    const double value = gauge.low + (gauge.high - gauge.low) * smoothRandom(stream, seconds / gauge.period);
    std::array<char, 400> text = {}; // room for the largest double
    std::snprintf(text.data(), text.size(), "%.*f", gauge.decimals, value);
    const bool minusZero = text[0] == '-' && std::strpbrk(text.data(), "123456789") == nullptr;
    return text.data() + (minusZero ? 1 : 0);
}

std::string intervalText(const Statistic &interval, std::uint64_t stream, double seconds)
{
    const double begin = std::floor(seconds / interval.period) * interval.period;
    return wholeText(eventsUntil(stream, interval.rate, seconds) - eventsUntil(stream, interval.rate, begin));
}

std::string stateText(const Statistic &state, std::uint64_t stream, double seconds)
{
    const auto step = static_cast<std::uint64_t>(seconds / state.period);
    return state.texts.at(static_cast<std::size_t>(mix(stream + mix(step)) % state.texts.size()));
}

std::string dateText(std::chrono::seconds sinceEpoch)
{
    const auto time = static_cast<std::time_t>(sinceEpoch.count());
    std::tm parts = {};
    gmtime_r(&time, &parts);
    std::array<char, 32> text = {};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text.data();
}

} // namespace

std::string statisticValue(const Statistic &statistic, std::uint64_t seed, const GatewayTime &time)
{
    const std::uint64_t stream = streamOf(statistic.id, seed);
    const double seconds = std::chrono::duration<double>(time.uptime).count();
    switch (statistic.kind) {
    case StatisticKind::counter:
        return wholeText(eventsUntil(stream, statistic.rate, seconds));
    case StatisticKind::gauge:
        return gaugeText(statistic, stream, seconds);
    case StatisticKind::interval:
        return intervalText(statistic, stream, seconds);
    case StatisticKind::state:
        return stateText(statistic, stream, seconds);
    case StatisticKind::text:
        return statistic.texts.at(0);
    case StatisticKind::started:
        return dateText(time.startedAt);
    case StatisticKind::uptime:
        return wholeText(seconds);
    }
    return {};
}

} // namespace rixgwsim
