// Fuzz target: whatever the peer of a connection answers, the connection is opened, queried and closed, or refused by a
// code; nothing of it is left afterwards. The input is told of in scripted_socket.h.
#include "checks.h"
#include "scripted_socket.h"
#include "stapi_rix_gwytok.h"

#include <algorithm>
#include <cstring>
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

static bool isLoss(int rc)
{
    return rc == STAPI_COMMS_FAILURE || rc == STAPI_GATEWAY_EXCHANGE_FAILED;
}

// A gateway's own result in the authorisation may be one of the numbers that mean these inside the library.
static bool isNoConnection(int rc)
{
    return rc == STAPI_CONNECT_FAILED || rc == STAPI_HOST_NOT_FOUND || rc == STAPI_CONNECT_TIMED_OUT ||
           rc == STAPI_CONNECTION_REFUSED || rc == STAPI_NETWORK_UNREACHABLE;
}

static bool open(RIX_GatewayToken_t *gateway)
{
    char *version = nullptr;
    const int rc = openGatewayConnection(2980, gateway, &version);
    if (rc == STAPI_OK) {
        require(version != nullptr && strlen(version) < PROTOCOL_VERSION_SIZE, "a connection has its version");
        return true;
    }
    require(isLoss(rc) || rc == STAPI_NO_MEMORY || isNoConnection(rc), "an open that fails says so");
    require(*gateway == nullptr && version == nullptr, "an open that fails hands nothing out");
    return false;
}

// Returns whether the connection goes on.
static bool query(RIX_GatewayToken_t gateway, int (*ask)(RIX_GatewayToken_t, RIX_ResultSetToken_t *), bool dumped)
{
    RIX_ResultSetToken_t resultSet = nullptr;
    const int rc = ask(gateway, &resultSet);
    if (rc == STAPI_OK) {
        require(resultSet != nullptr, "a query has its result set");
        checkResultSet(resultSet);
        if (dumped) require(dumpResultSet(resultSet) == STAPI_OK && dumpState() == STAPI_OK, "a query can be dumped");
        return true;
    }
    require(isLoss(rc) && resultSet == nullptr, "a query that fails says so and hands nothing out");
    require(ask(gateway, &resultSet) == STAPI_GATEWAY_TOKEN_NOT_FOUND, "a query that fails ends the connection");
    return false;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < CONTROL_SIZE) return 0;
    const bool traced = (data[0] & TRACED) == TRACED;
    require(!traced || setAPITraceFile("/dev/null") == STAPI_OK, "the trace goes nowhere");
    setAPITraceLevel(traced ? 4 : 0);
    startScript(data, size);
    RIX_GatewayToken_t gateway = nullptr;
    if (open(&gateway) && query(gateway, getStats, traced) && query(gateway, getStatIds, traced))
        require(closeGatewayConnection(&gateway) == STAPI_OK && gateway == nullptr, "a connection can be closed");
    require(closeAllGatewayConnections() == STAPI_OK, "all connections can be closed");
    require(rixstats::gtListHeadPtr == nullptr && socketClosed(), "no connection and no socket is left");
    return 0;
}
