// What the simulated gateway counts and measures: resource groups, their statistics, and how each value follows from
// the seed and the time. A value depends on nothing else, so equal seeds and times give equal values in every run.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace rixgwsim {

// Time as the statistics see it. Both parts come from the simulator's clock.
struct GatewayTime
{
    std::chrono::milliseconds uptime{0}; // since the simulated gateway started
    std::chrono::seconds startedAt{0};   // when that was, since 1970 UTC
};

enum class StatisticKind
{
    counter,  // rises by about `rate` a second, never falls
    gauge,    // moves between `low` and `high`, crossing the range in about `period` seconds
    interval, // like a counter, but starts at 0 again every `period` seconds
    state,    // one of `texts`, chosen anew every `period` seconds
    text,     // texts[0], always
    started,  // date and time of the gateway's start, UTC
    uptime,   // seconds since the gateway's start
};

struct Statistic
{
    std::string id;
    StatisticKind kind = StatisticKind::text;
    double rate = 0;
    double low = 0;
    double high = 0;
    int decimals = 0;   // of a gauge
    double period = 60; // seconds, more than 0
    std::vector<std::string> texts;
};

struct Group
{
    std::string id;
    std::vector<Statistic> statistics;
};

struct Catalogue
{
    std::vector<Group> groups;
};

// Several resource groups with about a hundred statistics, named as GROUP_NAME.
Catalogue builtInCatalogue();

std::string statisticValue(const Statistic &statistic, std::uint64_t seed, const GatewayTime &time);

} // namespace rixgwsim
