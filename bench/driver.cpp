// Does one thing COUNT times, for those who watch from outside what that takes: strace, callgrind, the kernel. What two
// runs of different length differ in is the cost of the thing alone.
//
//   rixbench_driver parse ITEMS COUNT        parses a reply of so many statistics
//   rixbench_driver gateway ITEMS 1          is a simulated gateway until its standard input ends; prints its port
//   rixbench_driver WORK PORT COUNT          with such a gateway:
//       query     getStats()
//       walk      walks over one result set
//       open      opens and closes a connection
//       faults    getStats(); prints the page faults of a query
//       memory    opens COUNT connections, queries each once; prints the bytes that each has made resident
#include "load.h"
#include "query.h"
#include "simulator.h"
#include "stapi_rix_resultsetbuffer.h"
#include "stapi_rix_statcomms.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <sys/resource.h>
#include <unistd.h>

using namespace rixbench;

static RIX_GatewayToken_t openConnection(int port)
{
    RIX_GatewayToken_t gateway = nullptr;
    char *version = nullptr;
    require(openGatewayConnection(port, &gateway, &version) == STAPI_OK, "cannot open a connection");
    return gateway;
}

static RIX_ResultSetToken_t query(RIX_GatewayToken_t gateway)
{
    RIX_ResultSetToken_t stats = nullptr;
    require(getStats(gateway, &stats) == STAPI_OK, "a query failed");
    return stats;
}

static rixgwsim::Options gatewayOptions(int items)
{
    rixgwsim::Options options;
    options.seed = seed();
    options.fixedClock = true;
    options.recordRequests = false;
    options.catalogue = makeCatalogue({Query::stats, items, 0});
    return options;
}

static void gateway(int items, int)
{
    rixgwsim::Simulator simulator(gatewayOptions(items));
    simulator.start();
    std::printf("%d\n", simulator.port());
    std::fflush(stdout);
    while (std::getchar() != EOF)
        ;
    require(simulator.lastProtocolError().empty(), simulator.lastProtocolError().c_str());
}

static void parse(int items, int count)
{
    const rixgwsim::Bytes reply =
        rixgwsim::queryCallData(gatewayOptions(items), rixgwsim::Action::statistics, "", {}, 0);
    int size = RESULT_SET_SIZE;
    char *area = rixstats::newResultSetArea(size);
    for (int i = 0; i < count; ++i)
        require(rixstats::parseStatsData(reinterpret_cast<const char *>(reply.data()), static_cast<int>(reply.size()),
                                         &area, &size) == STAPI_OK,
                "a reply could not be parsed");
    rixstats::freeResultSetArea(area);
}

static void queries(int port, int count)
{
    RIX_GatewayToken_t gateway = openConnection(port);
    for (int i = 0; i < count; ++i)
        query(gateway);
    closeGatewayConnection(&gateway);
}

static void walks(int port, int count)
{
    RIX_GatewayToken_t gateway = openConnection(port);
    const RIX_ResultSetToken_t stats = query(gateway);
    for (int i = 0; i < count; ++i) {
        RIX_StatData_t stat;
        int rc = getFirstStat(stats, &stat);
        while (rc == STAPI_OK)
            rc = getNextStat(stats, &stat);
        require(rc == STAPI_END_OF_RESULTS, "a walk failed");
    }
    closeGatewayConnection(&gateway);
}

static void openings(int port, int count)
{
    for (int i = 0; i < count; ++i) {
        RIX_GatewayToken_t gateway = openConnection(port);
        closeGatewayConnection(&gateway);
    }
}

static long pageFaults()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

static void faults(int port, int count)
{
    RIX_GatewayToken_t gateway = openConnection(port);
    for (int i = 0; i < 20; ++i) // until it has settled
        query(gateway);
    const long before = pageFaults();
    for (int i = 0; i < count; ++i)
        query(gateway);
    std::printf("%.2f\n", static_cast<double>(pageFaults() - before) / count);
    closeGatewayConnection(&gateway);
}

static long residentBytes()
{
    FILE *file = std::fopen("/proc/self/statm", "r");
    long pages = 0;
    require(file != nullptr && std::fscanf(file, "%*d %ld", &pages) == 1, "cannot read the resident size");
    std::fclose(file);
    return pages * sysconf(_SC_PAGESIZE);
}

// The first connection brings in what the process needs once.
static void memory(int port, int count)
{
    query(openConnection(port));
    const long before = residentBytes();
    for (int i = 0; i < count; ++i)
        query(openConnection(port));
    std::printf("%ld\n", (residentBytes() - before) / count);
    closeAllGatewayConnections();
}

int main(int argc, char **argv)
{
    const std::map<std::string, void (*)(int, int)> works = {
        {"gateway", gateway}, {"parse", parse},   {"query", queries}, {"walk", walks},
        {"open", openings},   {"faults", faults}, {"memory", memory}};
    const auto work = argc == 4 ? works.find(argv[1]) : works.end();
    require(work != works.end(), "rixbench_driver: see the top of bench/driver.cpp for what it takes");
    work->second(std::atoi(argv[2]), std::atoi(argv[3]));
    return EXIT_SUCCESS;
}
