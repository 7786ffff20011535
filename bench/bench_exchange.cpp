// Queries, opening and closing, each against the same bytes by the same system calls without the library.
#include "bare_client.h"
#include "benchmarks.h"
#include "client.h"

namespace rixbench {

void query(benchmark::State &state, const Load &load)
{
    Client client(load);
    BareClient bare(prepared(load));
    comparePair(
        state, [&] { client.query(); }, [&] { bare.query(); });
}

void queryAndWalk(benchmark::State &state, const Load &load)
{
    Client client(load);
    BareClient bare(prepared(load));
    const auto queryAndWalk = [&] {
        RIX_StatData_t stat;
        const RIX_ResultSetToken_t stats = client.query();
        int rc = getFirstStat(stats, &stat);
        for (; rc == STAPI_OK; rc = getNextStat(stats, &stat))
            benchmark::DoNotOptimize(stat);
        require(rc == STAPI_END_OF_RESULTS, "a walk failed");
    };
    comparePair(state, queryAndWalk, [&] { bare.query(); });
}

void openAndClose(benchmark::State &state, const Load &load)
{
    const PreparedGateway &gateway = prepared(load);
    const auto openAndClose = [&] {
        RIX_GatewayToken_t token = nullptr;
        char *version = nullptr;
        require(openGatewayConnection(gateway.port(), &token, &version) == STAPI_OK, "cannot open a connection");
        require(closeGatewayConnection(&token) == STAPI_OK, "cannot close a connection");
    };
    comparePair(state, openAndClose, [&] { BareClient bare(gateway); });
}

} // namespace rixbench
