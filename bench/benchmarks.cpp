// The program of all benchmarks. run.py starts it for one benchmark at a time, so that each finds a heap as a program
// has it that does nothing else.
#include "benchmarks.h"

#include <cstdlib>

using namespace rixbench;

struct Row
{
    const char *name; // by which run.py knows it
    Benchmark *function;
    Query query;
    std::vector<int> items;
    int valueBytes;
};

static const Row kRows[] = {
    {"stats", query, Query::stats, {10, 100, 1000, 10000}, 0},
    {"ids", query, Query::ids, {10, 100, 1000, 10000}, 0},
    {"named", query, Query::namedStats, {10, 100, 1000}, 0}, // more names are longer than a query's text can be
    {"long", query, Query::stats, {10, 100, 1000}, 3000},
    {"stats_and_walk", queryAndWalk, Query::stats, {100}, 0},
    {"open_and_close", openAndClose, Query::stats, {10}, 0},
    {"parse", parsing, Query::stats, {100, 1000, 10000}, 0},
    {"parse_long", parsing, Query::stats, {100}, 3000},
    {"parse_ids", parsing, Query::ids, {1000}, 0},
    {"walk", walking, Query::stats, {100, 1000, 10000}, 0},
    {"trace_parse", parsingUntraced, Query::stats, {1000}, 0},
    {"trace_walk", walkingUntraced, Query::stats, {1000}, 0},
    {"copy", copyAndFree, Query::stats, {10000}, 0},
    {"id_query", idQuery, Query::ids, {1000}, 0},
};

int main(int argc, char **argv)
{
    for (const Row &row : kRows)
        for (const int items : row.items) {
            const std::string name = std::string(row.name) + '/' + std::to_string(items);
            benchmark::RegisterBenchmark(name.c_str(), row.function, Load{row.query, items, row.valueBytes})
                ->UseManualTime();
        }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return EXIT_FAILURE;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}
