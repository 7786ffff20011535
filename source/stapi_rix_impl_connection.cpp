// The connection calls: opening and closing connections to gateways. The work is done by the Gateway Token List.
#include "stapi_rix_call.h"
#include "stapi_rix_diag.h"
#include "stapi_rix_gwytok.h"
#include "stapi_rix_impl.h"

#include <cstdlib>

using namespace rixstats;

static const char LOCAL_HOST[] = "127.0.0.1";

// Gives the caller a copy of the version text and keeps the same copy in the token, which releases it.
static int handOutVersion(Internal_GatewayToken_t *token, char **protocolVersionPtr)
{
    if (token->protocolVersion == nullptr) { // not by the present way of opening, which fails without the text
        EXC(1002, "API.openRemoteGatewayConnection(gwTokPtr=0x%p) New gateway token has NULL protocolVersion pointer\n",
            ptr(token));
        *protocolVersionPtr = nullptr;
        return STAPI_OK;
    }
    char *copy = nullptr;
    if (dup2NativeString(token->protocolVersion, protocolVersionPtr, &copy) != 0) return STAPI_NO_MEMORY;
    free(token->protocolVersion);
    token->protocolVersion = copy;
    EVENT(1001, "API.openRemoteGatewayConnection(&protoColVersion=0x%p) created String for proto@0x%p\n",
          ptr(protocolVersionPtr), ptr(copy));
    return STAPI_OK;
}

// The connection is in use until here: another thread that closes all connections leaves its release to this one.
static int finishOpening(RIX_GatewayToken_t *gwTokPtr, char **protocolVersionPtr)
{
    int rc = handOutVersion(*gwTokPtr, protocolVersionPtr);
    if (rc == STAPI_OK) {
        rc = endGatewayTokenUse(*gwTokPtr);
        if (rc != STAPI_OK) *protocolVersionPtr = nullptr; // goes with the connection
    }
    if (rc != STAPI_OK) removeGatewayTokenInUse(gwTokPtr);
    return rc;
}

// An opening without its frame.
static int openRemote(const char *hostname, int port, RIX_GatewayToken_t *gwTokPtr, char **protocolVersionPtr)
{
    int rc = stapiInit();
    ENTRY(1142, "API.openRemoteGatewayConnection(hostname=%s, port=%d, &gwTokPtr=0x%p, &protoColVersion=0x%p\n",
          textOrNull(hostname), port, ptr(gwTokPtr), ptr(protocolVersionPtr));
    if (rc == STAPI_OK && (port < 1 || port > 65535)) rc = STAPI_BAD_PORT;
    if (rc == STAPI_OK)
        rc = firstMissing({{gwTokPtr, STAPI_NULL_GATEWAY_TOKEN_PTR},
                           {protocolVersionPtr, STAPI_NULL_PROTOCOL_VERSION_PTR},
                           {hostname, STAPI_NULL_HOSTNAME}});
    RIX_GatewayToken_t token = nullptr; // the caller's variable is written last: another thread may close by it
    if (rc == STAPI_OK) rc = createGatewayToken(gwTokPtr, hostname, port, &token);
    if (token != nullptr) {
        rc = finishOpening(&token, protocolVersionPtr);
        *gwTokPtr = token;
    }
    EXIT(1003, "API.openRemoteGatewayConnection(port=%d) rc=%d\n", port, rc);
    return rc;
}

int openRemoteGatewayConnection(const char *hostname, int port, RIX_GatewayToken_t *gwTokPtr, char **protocolVersionPtr)
{
    const GatewayCall call;
    return call.end(openRemote(hostname, port, gwTokPtr, protocolVersionPtr));
}

int openGatewayConnection(int port, RIX_GatewayToken_t *gwTokPtr, char **protocolVersionPtr)
{
    const GatewayCall call;
    stapiInit(); // as every call does; its result is honoured below
    ENTRY(1000, "API.openGatewayConnection(port=%d, &gwTokPtr=0x%p, &protoColVersion=0x%p\n", port, ptr(gwTokPtr),
          ptr(protocolVersionPtr));
    const int rc = openRemote(LOCAL_HOST, port, gwTokPtr, protocolVersionPtr);
    EXIT(1003, "API.openGatewayConnection(port=%d) rc=%d\n", port, rc);
    return call.end(rc);
}

int closeGatewayConnection(RIX_GatewayToken_t *gwTokPtr)
{
    const GatewayCall call;
    int rc = stapiInit();
    ENTRY(1004, "API.closeGatewayConnection(&gwTokPtr=%p)\n", ptr(gwTokPtr));
    if (rc == STAPI_OK && gwTokPtr == nullptr) {
        rc = STAPI_NULL_GATEWAY_TOKEN_PTR;
        EXC(1005, "API.closeGatewayConnection(&gwTokPtr=%p) Null gateway token Pointer\n", ptr(gwTokPtr));
    } else if (rc == STAPI_OK && *gwTokPtr == nullptr) {
        rc = STAPI_NULL_GATEWAY_TOKEN;
        EXC(1005, "API.closeGatewayConnection(gwTokPtr=%p) Null gateway token\n", ptr(*gwTokPtr));
    }
    if (rc == STAPI_OK) {
        const uintptr_t token = addressNumber(*gwTokPtr);
        rc = deleteGatewayToken(gwTokPtr, 1);
        // Written whether or not there was a connection to close.
        EVENT(1133, "API.closeGatewayConnection Closed Gateway connection for token %p\n", ptr(token));
    }
    EXIT(1006, "API.closeGatewayConnection(&gwTokPtrPtr=%p) rc=%d\n", ptr(gwTokPtr), rc);
    return call.end(rc);
}

int closeAllGatewayConnections()
{
    const GatewayCall call;
    int rc = stapiInit();
    int gwyTokRc = 0;
    ENTRY(1007, "API.closeAllGatewayConnections()\n");
    if (rc == STAPI_OK) {
        gwyTokRc = deleteGatewayTokens();
        if (gwyTokRc == GTL_RUNAWAY) rc = STAPI_GTL_CORRUPT;
        EVENT(1134, "API.closeAllGatewayConnections Closed all Gateway connections\n");
    }
    EXIT(1008, "API.closeAllGatewayConnections() gwyTokRc=%d, rc=%d\n", gwyTokRc, rc);
    return call.end(rc);
}
