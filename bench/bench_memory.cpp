// What the library does in memory, each against the least that could be done (copying the same bytes, following the
// same pointers) or against the library without its tracing.
#include "benchmarks.h"
#include "client.h"
#include "stapi_rix_tokens.h"

#include <cstdlib>
#include <cstring>
#include <vector>

namespace rixbench {

// ---- Parsing

// The call data of a query's reply: the body behind call type, return code and exception flag.
static Bytes callDataOf(const Load &load)
{
    const Flow &flow = prepared(load).conversation().flows[kGreetingFlows + kQueryFlows - 1];
    const std::size_t skipped = flow.replyHeaderSize + 9;
    return {flow.reply.data + skipped, flow.reply.size - skipped};
}

// Parses the same reply again and again, as a connection does: into an area that stays.
class Parser
{
public:
    Parser(const char *module, const Load &load)
        : library(loadLibrary(module)), identifiers(load.query == Query::ids), reply(callDataOf(load)),
          area(library.newArea(areaSize))
    {
    }
    ~Parser() { library.freeArea(area); }
    Parser(const Parser &) = delete;
    Parser &operator=(const Parser &) = delete;

    void operator()()
    {
        require(library.parse(identifiers, reply.data, static_cast<int>(reply.size), &area, &areaSize) == STAPI_OK,
                "a reply could not be parsed");
    }

private:
    const Library library;
    const int identifiers;
    const Bytes reply;
    int areaSize = RESULT_SET_SIZE;
    char *area;
};

void parsing(benchmark::State &state, const Load &load)
{
    Parser parser(BENCH_TRACED_MODULE, load);
    const Bytes reply = callDataOf(load);
    std::vector<char> copy(reply.size);
    const auto copyBytes = [&] {
        std::memcpy(copy.data(), reply.data, reply.size);
        benchmark::ClobberMemory();
    };
    comparePair(
        state, [&] { parser(); }, copyBytes);
}

void parsingUntraced(benchmark::State &state, const Load &load)
{
    Parser traced(BENCH_TRACED_MODULE, load), untraced(BENCH_UNTRACED_MODULE, load);
    comparePair(
        state, [&] { traced(); }, [&] { untraced(); });
}

// ---- Walking

static void walk(decltype(&getFirstStat) first, decltype(&getNextStat) next, RIX_ResultSetToken_t stats)
{
    RIX_StatData_t stat;
    int rc = first(stats, &stat);
    for (; rc == STAPI_OK; rc = next(stats, &stat))
        benchmark::DoNotOptimize(stat);
    require(rc == STAPI_END_OF_RESULTS, "a walk failed");
}

static char *nextText(char **cursor, int *length)
{
    std::memcpy(length, *cursor, sizeof *length);
    char *text = *cursor + sizeof *length;
    *cursor = text + *length;
    return text;
}

// Over a result set of one element. Fills the same record, and asks nothing.
static void bareWalk(RIX_ResultSetToken_t stats)
{
    RIX_StatData_t stat = {};
    char *cursor = stats->rsBuffPtr + EYECATCHER_SIZE + sizeof stats->queryCount;
    int resultCount = 0;
    stat.queryElementPtr = nextText(&cursor, &stat.queryElementLen);
    std::memcpy(&stat.queryElementRC, cursor, sizeof stat.queryElementRC);
    std::memcpy(&resultCount, cursor + sizeof stat.queryElementRC, sizeof resultCount);
    cursor += sizeof stat.queryElementRC + sizeof resultCount;
    for (int i = 0; i < resultCount; ++i) {
        stat.statIdPtr = nextText(&cursor, &stat.statIdLen);
        stat.statValuePtr = nextText(&cursor, &stat.statValueLen);
        benchmark::DoNotOptimize(stat);
    }
}

void walking(benchmark::State &state, const Load &load)
{
    Client client(load);
    const RIX_ResultSetToken_t stats = client.query();
    comparePair(
        state, [&] { walk(getFirstStat, getNextStat, stats); }, [&] { bareWalk(stats); });
}

// A result set does not mind who walks over it, as long as the process and the thread are those of its connection.
void walkingUntraced(benchmark::State &state, const Load &load)
{
    Client client(load);
    const RIX_ResultSetToken_t stats = client.query();
    const Library traced = loadLibrary(BENCH_TRACED_MODULE), untraced = loadLibrary(BENCH_UNTRACED_MODULE);
    comparePair(
        state, [&] { walk(traced.first, traced.next, stats); }, [&] { walk(untraced.first, untraced.next, stats); });
}

// ---- Result sets as wholes

void copyAndFree(benchmark::State &state, const Load &load)
{
    Client client(load);
    const RIX_ResultSetToken_t stats = client.query();
    const auto copyAndFree = [&] {
        RIX_ResultSetToken_t copy = nullptr;
        require(copyResultSet(stats, &copy) == STAPI_OK, "a result set could not be copied");
        require(freeResultSet(&copy) == STAPI_OK, "a copy could not be freed");
    };
    const std::size_t size = static_cast<std::size_t>(stats->rsBuffLen);
    const auto bareCopyAndFree = [&] {
        void *copy = std::malloc(size);
        benchmark::DoNotOptimize(copy);
        std::memcpy(copy, stats->rsBuffPtr, size);
        benchmark::ClobberMemory();
        std::free(copy);
    };
    comparePair(state, copyAndFree, bareCopyAndFree);
    state.counters["bytes"] = static_cast<double>(size);
}

void idQuery(benchmark::State &state, const Load &load)
{
    Client client(load);
    const RIX_ResultSetToken_t ids = client.query();
    char *text = nullptr;
    const auto makeText = [&] { require(getIdQuery(ids, &text) == STAPI_OK, "no query text could be made"); };
    makeText();
    std::vector<char> copy(std::strlen(text));
    const auto copyText = [&] {
        std::memcpy(copy.data(), text, copy.size());
        benchmark::ClobberMemory();
    };
    comparePair(state, makeText, copyText);
}

} // namespace rixbench
