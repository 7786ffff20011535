// The six query calls: one body, a row for what each differs in, and a shell with its own texts.
#include "stapi_rix_call.h"
#include "stapi_rix_diag.h"
#include "stapi_rix_gwytok.h"
#include "stapi_rix_impl.h"
#include "stapi_rix_statquery.h"

#include <cstdlib>
#include <cstring>

using namespace rixstats;

typedef struct _QueryCall
{
    const char *name;
    const char *subject;                                  // what is being got, for the EVENT line
    int (*commsAll)(int, char **, int *);                 // of a call without a query text
    int (*commsByIds)(int, char **, int *, const char *); // of a call with one
    int allPoint, byIdsPoint; // of the EVENT line of such a call; 0 in one of the other kind
    int resultPoint, noBufferPoint, removePoint;
    int bufferPoint; // of a line with the buffer's address; 0: the call has none
} QueryCall;

// getStatIds and getStats share the point of their EVENT lines. clang-format would spread the table over the screen.
// clang-format off
static const QueryCall RESOURCE_GROUP_IDS = {"getResourceGroupIds", "Getting Resource Group Ids",
                                             commsResourceGroupsIds, nullptr, 1128, 0, 1010, 1012, 1013, 1011};
static const QueryCall STAT_IDS_BY_GROUP = {"getStatIdsByStatGroupId", "Getting Stat Ids for Stat Group Ids",
                                            nullptr, commsStatIdsByStatGroupId, 0, 1129, 1016, 1017, 1018, 0};
static const QueryCall STAT_IDS = {"getStatIds", "Getting Stat Ids from the Gateway",
                                   commsStatIds, nullptr, 1130, 0, 1021, 1022, 1023, 0};
static const QueryCall STATS = {"getStats", "Getting all Stats from the Gateway Daemon",
                                commsStats, nullptr, 1130, 0, 1026, 1027, 1028, 0};
static const QueryCall STATS_BY_ID = {"getStatsByStatId", "Getting Stats for Stat Ids",
                                      nullptr, commsStatsByStatId, 0, 1131, 1031, 1032, 1033, 0};
static const QueryCall STATS_BY_GROUP = {"getStatsByStatGroupId", "Getting Stats for Stat Group Ids",
                                         nullptr, commsStatsByStatGroupId, 0, 1132, 1036, 1037, 1038, 0};
// clang-format on

// query: null for a call without a query text.
static int exchange(const QueryCall &call, int socketDescriptor, const char *query, char **buffer, int *bufferLen)
{
    if (query == nullptr) {
        EVENT(call.allPoint, "API.%s %s\n", call.name, call.subject);
        // Checked before: a call with a query text has one. NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage)
        return call.commsAll(socketDescriptor, buffer, bufferLen);
    }
    EVENT(call.byIdsPoint, "API.%s %s %s\n", call.name, call.subject, query);
    return call.commsByIds(socketDescriptor, buffer, bufferLen, query);
}

// The exchange may have moved the buffer; the walk starts over, whatever came of it.
static void rewindOnto(Internal_ResultSetToken_t *rs, const Internal_GatewayToken_t *gwTok)
{
    rs->owner = OWNER_LIBRARY;
    rs->rsBuffPtr = gwTok->resultSetBuf;
    rs->rsBuffLen = gwTok->resultSetBufLen;
    rs->cursor = rs->rsBuffPtr;
    rs->queryIndex = 0;
}

static int fillResultSet(const QueryCall &call, Internal_GatewayToken_t *gwTok, const char *query)
{
    Internal_ResultSetToken_t *rs = gwTok->connRSPtr;
    if (gwTok->resultSetBuf == nullptr) {
        EXC(call.noBufferPoint, "API.%s(gwTok=%p) resultSetBuf is NULL. Connection may have gone.\n", call.name,
            ptr(gwTok));
        return STAPI_NO_RESULT_SET_BUFFER;
    }
    if (query != nullptr) {
        if (dup2ASCIIString(query, &rs->queryString) != 0) return STAPI_NO_MEMORY;
        query = rs->queryString;
    }
    char *buffer = gwTok->resultSetBuf;
    int bufferLen = gwTok->resultSetBufLen;
    const int rc = exchange(call, gwTok->socketDescriptor, query, &buffer, &bufferLen);
    setResultSetBuffer(gwTok, buffer, bufferLen);
    DEBUG(call.resultPoint, "API.%s() result set pointer (%p)\n", call.name, ptr(rs));
    if (call.bufferPoint != 0)
        DEBUG(call.bufferPoint, "API.%s() result set buffer (%p)\n", call.name, ptr(gwTok->resultSetBuf));
    rewindOnto(rs, gwTok);
    return rc;
}

// Of an exchange: the connection cannot be used any more.
static bool isBroken(int rc)
{
    return rc == STAPI_COMMS_FAILURE || rc == STAPI_GATEWAY_EXCHANGE_FAILED || rc == STAPI_TIME_LIMIT_REACHED;
}

// The work of a query call behind its argument checks. query: null for a call without a query text. gwTokPtr: the
// call's own copy of the handle, null after the connection was removed; the caller's stays as it is and is refused from
// now on. shownQuery: where a call that shows its text at the end gets a copy of it, made while the connection is in
// use; null in it if nothing is traced, or there was no memory.
static int runQuery(const QueryCall &call, RIX_GatewayToken_t *gwTokPtr, const char *query, RIX_ResultSetToken_t *rsPtr,
                    char **shownQuery = nullptr)
{
    int rc = verifyGatewayToken(*gwTokPtr);
    if (rc != STAPI_OK) return rc;
    if (shownQuery != nullptr && traceOn(Line::exit)) *shownQuery = strdup(query);
    rc = fillResultSet(call, *gwTokPtr, query);
    if (callState.limitReached) rc = STAPI_TIME_LIMIT_REACHED; // rather than what came of it
    const RIX_ResultSetToken_t rs = (*gwTokPtr)->connRSPtr;
    if (!isBroken(rc) && endGatewayTokenUse(*gwTokPtr) != STAPI_OK) rc = STAPI_COMMS_FAILURE;
    if (isBroken(rc)) {
        EVENT(call.removePoint, "API.%s Removing GatewayToken %p due to comms failure %d\n", call.name, ptr(*gwTokPtr),
              rc);
        removeGatewayTokenInUse(gwTokPtr);
    } else if (rc == STAPI_OK) {
        *rsPtr = rs;
    }
    return rc;
}

int getResourceGroupIds(RIX_GatewayToken_t gwTok, RIX_ResultSetToken_t *resGrpIdRSPtr)
{
    const GatewayCall call;
    int rc = stapiInit();
    ENTRY(1009, "API.getResourceGroupIds(gwTok=%p resGrpIdRSPtr=%p)\n", ptr(gwTok), ptr(resGrpIdRSPtr));
    if (rc == STAPI_OK)
        rc = firstMissing({{gwTok, STAPI_NULL_GATEWAY_TOKEN}, {resGrpIdRSPtr, STAPI_NULL_RESULT_SET_PTR}});
    if (rc == STAPI_OK) rc = runQuery(RESOURCE_GROUP_IDS, &gwTok, nullptr, resGrpIdRSPtr);
    EXIT(1014, "API.getResourceGroupIds() rc=%d\n", rc);
    return call.end(rc);
}

int getStatIdsByStatGroupId(RIX_GatewayToken_t gwTok, const char *providerIdsPtr, RIX_ResultSetToken_t *statIdRSPtr)
{
    const GatewayCall call;
    int rc = stapiInit();
    ENTRY(1015, "API.getStatIdsByStatGroupId(gwTok=%p,providerIdsPtr=%p,statIdRsPtr=%p)\n", ptr(gwTok),
          ptr(providerIdsPtr), ptr(statIdRSPtr));
    char *query = nullptr;
    if (rc == STAPI_OK)
        rc = firstMissing({{gwTok, STAPI_NULL_GATEWAY_TOKEN},
                           {providerIdsPtr, STAPI_NULL_QUERY_STRING},
                           {statIdRSPtr, STAPI_NULL_RESULT_SET_PTR}});
    if (rc == STAPI_OK) rc = runQuery(STAT_IDS_BY_GROUP, &gwTok, providerIdsPtr, statIdRSPtr, &query);
    if (query == nullptr && traceOn(Line::exit)) query = copyUnlessGone(providerIdsPtr);
    EXIT(1019, "API.getStatIdsByStatGroupId(gwTok=%p,query=%s,rs=%p) rc=%d\n", ptr(gwTok), textOrNull(query),
         ptr(statIdRSPtr), rc);
    free(query);
    return call.end(rc);
}

int getStatIds(RIX_GatewayToken_t gwTok, RIX_ResultSetToken_t *statIdRSPtr)
{
    const GatewayCall call;
    int rc = stapiInit();
    ENTRY(1020, "API.getStatIds(gwTok=%p,rs=%p)\n", ptr(gwTok), ptr(statIdRSPtr));
    if (rc == STAPI_OK)
        rc = firstMissing({{gwTok, STAPI_NULL_GATEWAY_TOKEN}, {statIdRSPtr, STAPI_NULL_RESULT_SET_PTR}});
    if (rc == STAPI_OK) rc = runQuery(STAT_IDS, &gwTok, nullptr, statIdRSPtr);
    EXIT(1024, "API.getStatIds(gwTok=%p,rs=%p) rc=%d\n", ptr(gwTok), ptr(statIdRSPtr), rc);
    return call.end(rc);
}

int getStats(RIX_GatewayToken_t gwTok, RIX_ResultSetToken_t *statRSPtr)
{
    const GatewayCall call;
    int rc = stapiInit();
    ENTRY(1025, "API.getStats(gwTok=%p,statRSPtr=%p)\n", ptr(gwTok), ptr(statRSPtr));
    if (rc == STAPI_OK) rc = firstMissing({{gwTok, STAPI_NULL_GATEWAY_TOKEN}, {statRSPtr, STAPI_NULL_RESULT_SET_PTR}});
    if (rc == STAPI_OK) rc = runQuery(STATS, &gwTok, nullptr, statRSPtr);
    EXIT(1029, "API.getStats(gwTok=%p,rs=%p) rc=%d\n", ptr(gwTok), ptr(statRSPtr), rc);
    return call.end(rc);
}

int getStatsByStatId(RIX_GatewayToken_t gwTok, const char *statIdsPtr, RIX_ResultSetToken_t *statRSPtr)
{
    const GatewayCall call;
    int rc = stapiInit();
    ENTRY(1030, "API.getStatsByStatId(gwTok=%p,statIdsPtr=%p,statRSPtr=%p)\n", ptr(gwTok), ptr(statIdsPtr),
          ptr(statRSPtr));
    if (rc == STAPI_OK)
        rc = firstMissing({{gwTok, STAPI_NULL_GATEWAY_TOKEN},
                           {statIdsPtr, STAPI_NULL_QUERY_STRING},
                           {statRSPtr, STAPI_NULL_RESULT_SET_PTR}});
    if (rc == STAPI_OK) rc = runQuery(STATS_BY_ID, &gwTok, statIdsPtr, statRSPtr);
    EXIT(1034, "API.getStatsByStatId(gwTok=%p,statIdsPtr=%p,statRSPtr=%p) rc=%d\n", ptr(gwTok), ptr(statIdsPtr),
         ptr(statRSPtr), rc);
    return call.end(rc);
}

int getStatsByStatGroupId(RIX_GatewayToken_t gwTok, const char *providerIdPtr, RIX_ResultSetToken_t *statRSPtr)
{
    const GatewayCall call;
    int rc = stapiInit();
    ENTRY(1035, "API.getStatsByStatGroupId(gwTok=%p,providerIdPtr=%p,statRSPtr=%p)\n", ptr(gwTok), ptr(providerIdPtr),
          ptr(statRSPtr));
    if (rc == STAPI_OK)
        rc = firstMissing({{gwTok, STAPI_NULL_GATEWAY_TOKEN},
                           {providerIdPtr, STAPI_NULL_QUERY_STRING},
                           {statRSPtr, STAPI_NULL_RESULT_SET_PTR}});
    if (rc == STAPI_OK) rc = runQuery(STATS_BY_GROUP, &gwTok, providerIdPtr, statRSPtr);
    EXIT(1039, "API.getStatsByStatGroupId(gwTok=%p,providerIdPtr=%p,statRSPtr=%p) rc=%d\n", ptr(gwTok),
         ptr(providerIdPtr), ptr(statRSPtr), rc);
    return call.end(rc);
}
