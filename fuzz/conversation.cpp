#include "conversation.h"

#include "require.h"
#include "result_set_check.h"
#include "stapi_rix_gwytok.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>

namespace fuzzing {

static bool isOneOf(int rc, std::initializer_list<int> codes)
{
    return std::find(codes.begin(), codes.end(), rc) != codes.end();
}

static bool open(int port, RIX_GatewayToken_t *gateway)
{
    char *version = nullptr;
    const int rc = openGatewayConnection(port, gateway, &version);
    if (rc == STAPI_OK) {
        require(version != nullptr && strlen(version) < PROTOCOL_VERSION_SIZE, "a connection has its version");
        return true;
    }
    require(isOneOf(rc, {STAPI_COMMS_FAILURE, STAPI_NO_MEMORY, STAPI_CONNECT_FAILED, STAPI_GATEWAY_EXCHANGE_FAILED,
                         STAPI_HOST_NOT_FOUND, STAPI_CONNECT_TIMED_OUT, STAPI_CONNECTION_REFUSED,
                         STAPI_NETWORK_UNREACHABLE}),
            "an open that fails says so by its codes");
    require(*gateway == nullptr && version == nullptr, "an open that fails hands nothing out");
    return false;
}

template <class Query>
static bool query(RIX_GatewayToken_t gateway, bool dumped, Query ask)
{
    RIX_ResultSetToken_t resultSet = nullptr;
    const int rc = ask(&resultSet);
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

void converse(const Conversation &conversation, int port)
{
    RIX_GatewayToken_t gateway = nullptr;
    const auto askStats = [&](RIX_ResultSetToken_t *rs) {
        return conversation.named ? getStatsByStatId(gateway, "Requests_Received:Nonsense", rs) : getStats(gateway, rs);
    };
    const auto askIds = [&](RIX_ResultSetToken_t *rs) {
        return conversation.named ? getStatIdsByStatGroupId(gateway, "Requests", rs) : getStatIds(gateway, rs);
    };
    const bool alive = open(port, &gateway) && query(gateway, conversation.dumped, askStats) &&
                       query(gateway, conversation.dumped, askIds);
    if (alive && !conversation.named)
        require(closeGatewayConnection(&gateway) == STAPI_OK && gateway == nullptr, "a connection can be closed");
    require(closeAllGatewayConnections() == STAPI_OK, "all connections can be closed");
    require(rixstats::gtListHeadPtr == nullptr, "no connection is left");
}

} // namespace fuzzing
