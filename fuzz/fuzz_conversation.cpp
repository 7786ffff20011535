// Fuzz target: whatever the peer of a connection answers, the connection is opened, queried and closed, or refused by a
// code; nothing of it is left afterwards. The input is told of in scripted_socket.h.
#include "require.h"
#include "result_set_check.h"
#include "scripted_socket.h"
#include "stapi_rix_gwytok.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <iterator>

using namespace fuzzing;

constexpr int HEADER_SIZE = 29; // of a reply, without the request name

// Sets the body length in each header to the bytes up to the next one. Without it nearly every mutation that changes
// the length of a reply is one that cuts the conversation off there.
static void repairLengths(uint8_t *begin, uint8_t *end)
{
    static const uint8_t EYECATCHER[] = {'G', 'a', 't', 'e'};
    const auto findHeader = [=](uint8_t *from) {
        return std::search(from, end, std::begin(EYECATCHER), std::end(EYECATCHER));
    };
    uint8_t *header = findHeader(begin);
    while (end - header > HEADER_SIZE) {
        const int nameLength = header[23]; // the low byte is enough
        if (end - header < HEADER_SIZE + nameLength) return;
        uint8_t *const body = header + HEADER_SIZE + nameLength;
        header = findHeader(body);
        const uint32_t length = static_cast<uint32_t>(header - body);
        for (int i = 1; i <= 4; i++)
            body[-i] = static_cast<uint8_t>(length >> 8 * (i - 1));
    }
}

extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t maxSize);

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t maxSize, unsigned seed)
{
    const size_t mutated = LLVMFuzzerMutate(data, size, maxSize);
    if (mutated > CONTROL_SIZE && seed % 4 != 0) repairLengths(data + CONTROL_SIZE, data + mutated);
    return mutated;
}

static bool isOneOf(int rc, std::initializer_list<int> codes)
{
    return std::find(codes.begin(), codes.end(), rc) != codes.end();
}

static bool open(RIX_GatewayToken_t *gateway)
{
    char *version = nullptr;
    const int rc = openGatewayConnection(2980, gateway, &version);
    if (rc == STAPI_OK) {
        require(version != nullptr && strlen(version) < PROTOCOL_VERSION_SIZE, "a connection has its version");
        return true;
    }
    require(isOneOf(rc, {STAPI_COMMS_FAILURE, STAPI_NO_MEMORY, STAPI_CONNECT_FAILED, STAPI_GATEWAY_EXCHANGE_FAILED}),
            "an open that fails says so by its codes");
    require(*gateway == nullptr && version == nullptr, "an open that fails hands nothing out");
    return false;
}

// What a query brought, and whether the connection goes on.
static bool use(RIX_GatewayToken_t gateway, int rc, RIX_ResultSetToken_t resultSet, bool dumped)
{
    if (rc == STAPI_OK) {
        require(resultSet != nullptr, "a query has its result set");
        checkResultSet(resultSet);
        if (dumped) require(dumpResultSet(resultSet) == STAPI_OK && dumpState() == STAPI_OK, "a query can be dumped");
        return true;
    }
    require(isOneOf(rc, {STAPI_COMMS_FAILURE, STAPI_GATEWAY_EXCHANGE_FAILED}), "a query that fails says so");
    require(resultSet == nullptr, "a query that fails hands nothing out");
    require(getStats(gateway, &resultSet) == STAPI_GATEWAY_TOKEN_NOT_FOUND, "a query that fails ends the connection");
    return false;
}

// Queries statistics, then identifiers.
static bool useConnection(RIX_GatewayToken_t gateway, bool named, bool dumped)
{
    RIX_ResultSetToken_t stats = nullptr;
    RIX_ResultSetToken_t ids = nullptr;
    int rc = named ? getStatsByStatId(gateway, "Requests_Received:Nonsense", &stats) : getStats(gateway, &stats);
    if (!use(gateway, rc, stats, dumped)) return false;
    rc = named ? getStatIdsByStatGroupId(gateway, "Requests", &ids) : getStatIds(gateway, &ids);
    return use(gateway, rc, ids, dumped);
}

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    require(setAPITraceFile("/dev/null") == STAPI_OK, "the trace goes nowhere");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < CONTROL_SIZE) return 0;
    const bool named = (data[0] & NAMED) != 0;
    const bool traced = (data[0] & TRACED) == TRACED;
    setAPITraceLevel(traced ? 4 : 0);
    startScript(data, size);
    RIX_GatewayToken_t gateway = nullptr;
    if (open(&gateway) && useConnection(gateway, named, traced) && !named)
        require(closeGatewayConnection(&gateway) == STAPI_OK && gateway == nullptr, "a connection can be closed");
    require(closeAllGatewayConnections() == STAPI_OK, "all connections can be closed");
    require(rixstats::gtListHeadPtr == nullptr, "no connection is left");
    require(socketClosed(), "no socket is left");
    return 0;
}
