#include "load.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace rixbench {

std::uint64_t seed()
{
    const char *text = std::getenv("RIXBENCH_SEED");
    return text != nullptr ? std::strtoull(text, nullptr, 10) : 1;
}

namespace {

constexpr int kGroupSize = 25;

class Random
{
public:
    int between(int least, int most)
    {
        return least + static_cast<int>(numbers() % static_cast<unsigned>(most - least + 1));
    }
    double magnitude() { return std::pow(10, between(-2, 5)); }
    std::string word(int least, int most)
    {
        std::string letters(static_cast<std::size_t>(between(least, most)), ' ');
        for (char &letter : letters)
            letter = static_cast<char>('a' + between(0, 25));
        return letters;
    }

private:
    std::mt19937_64 numbers{seed()};
};

} // namespace

static rixgwsim::Statistic makeStatistic(Random &random, const std::string &id, int valueBytes)
{
    rixgwsim::Statistic made;
    made.id = id;
    const int kind = valueBytes > 0 ? 0 : random.between(0, 4);
    if (kind == 0) {
        const int least = valueBytes - valueBytes / 20, most = valueBytes + valueBytes / 20;
        made.texts = {valueBytes > 0 ? random.word(least, most) : random.word(2, 12)};
    } else if (kind == 1) {
        made.kind = rixgwsim::StatisticKind::gauge;
        made.high = random.magnitude();
        made.decimals = random.between(0, 3);
    } else {
        made.kind = rixgwsim::StatisticKind::counter;
        made.rate = random.magnitude();
    }
    return made;
}

rixgwsim::Catalogue makeCatalogue(const Load &load)
{
    Random random;
    rixgwsim::Catalogue catalogue;
    for (int number = 0; number < load.items; ++number) {
        if (number % kGroupSize == 0) catalogue.groups.push_back({"Group" + std::to_string(number / kGroupSize), {}});
        rixgwsim::Group &group = catalogue.groups.back();
        const std::string id = group.id + '_' + random.word(3, 20) + '_' + std::to_string(number);
        group.statistics.push_back(makeStatistic(random, id, load.valueBytes));
    }
    return catalogue;
}

std::string queryText(const Load &load, const rixgwsim::Catalogue &catalogue)
{
    std::string text;
    if (load.query != Query::namedStats) return text;
    for (const rixgwsim::Group &group : catalogue.groups)
        for (const rixgwsim::Statistic &statistic : group.statistics)
            text += (text.empty() ? "" : ":") + statistic.id;
    return text;
}

int ask(Query query, RIX_GatewayToken_t gateway, const char *text, RIX_ResultSetToken_t *resultSet)
{
    switch (query) {
    case Query::stats:
        return getStats(gateway, resultSet);
    case Query::namedStats:
        return getStatsByStatId(gateway, text, resultSet);
    case Query::ids:
        return getStatIds(gateway, resultSet);
    }
    return STAPI_NULL_ARGUMENT;
}

void fail(const char *what)
{
    std::fprintf(stderr, "bench: %s\n", what);
    std::_Exit(EXIT_FAILURE);
}

} // namespace rixbench
