// What the benchmarks ask a gateway for. Identifiers and values differ in length as a gateway's do, and with the seed,
// so that nothing can be tuned to one size.
#pragma once

#include "catalogue.h"
#include "rixstats.h"

#include <cstdint>
#include <string>

namespace rixbench {

enum class Query
{
    stats,      // getStats()
    namedStats, // getStatsByStatId(), all statistics by name
    ids         // getStatIds()
};

struct Load
{
    Query query = Query::stats;
    int items = 100;
    int valueBytes = 0; // about so many in each value; 0: numbers and words, as a gateway's
};

std::uint64_t seed(); // of everything made in this run: from the environment's RIXBENCH_SEED, or 1

rixgwsim::Catalogue makeCatalogue(const Load &load);

// The text to query with: empty, or all statistics of the catalogue.
std::string queryText(const Load &load, const rixgwsim::Catalogue &catalogue);

int ask(Query query, RIX_GatewayToken_t gateway, const char *text, RIX_ResultSetToken_t *resultSet);

// Ends the program with a message if something that a figure rests on does not hold.
[[noreturn]] void fail(const char *what);
inline void require(bool holds, const char *what)
{
    if (!holds) fail(what);
}

} // namespace rixbench
