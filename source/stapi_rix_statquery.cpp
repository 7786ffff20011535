// The six statistics queries: one body, and a row for what each differs in.
#include "stapi_rix_statquery.h"

#include "stapi_rix_call.h"
#include "stapi_rix_diag.h"
#include "stapi_rix_resultsetbuffer.h"
#include "stapi_rix_statcomms.h"

namespace rixstats {

constexpr int FLOW_CONNECTION_LOST = -1;
constexpr int FLOW_GATEWAY_RC = -4;
constexpr int32_t GATEWAY_CONNECTION_LOST = 0xF004;

int mapExchangeFailure(int commsRc, const ReasonCodes &reasons)
{
    const bool lost =
        commsRc == FLOW_CONNECTION_LOST || (commsRc == FLOW_GATEWAY_RC && reasons.gatewayRc == GATEWAY_CONNECTION_LOST);
    return lost ? STAPI_COMMS_FAILURE : STAPI_GATEWAY_EXCHANGE_FAILED;
}

typedef struct _StatQuery
{
    const char *action;
    const char *dataName; // as its storage dump is announced
    int dataPoint;
} StatQuery;

static const StatQuery RESOURCE_GROUPS_IDS = {STATS_MBEAN_ACTION_RESOURCE_GROUPS,
                                              "stapi_rix_statquery.commsResourceGroupsIds", 2312};
static const StatQuery STAT_IDS_BY_GROUP = {STATS_MBEAN_ACTION_STAT_IDS,
                                            "stapi_rix_statquery.commsStatIdsByStatGroupId", 2313};
static const StatQuery STAT_IDS = {STATS_MBEAN_ACTION_STAT_IDS, "stapi_rix_statquery.commsStatIds", 2314};
static const StatQuery STATS_BY_ID = {STATS_MBEAN_ACTION_GET_STATS, "stapi_rix_statquery.commsStatsByStatId", 2315};
static const StatQuery STATS_BY_GROUP = {STATS_MBEAN_ACTION_GET_STATS, "stapi_rix_statquery.commsStatsByStatGroupId",
                                         2316};
static const StatQuery STATS = {STATS_MBEAN_ACTION_GET_STATS, "stapi_rix_statquery.commsStats", 2317};

// ids: null asks for all.
static int runQuery(const StatQuery &query, int socketDesc, char **buffer, int *bufferLen, const char *ids)
{
    if (*buffer == nullptr) return STAPI_NULL_ARGUMENT;
    noteStep(RIX_STEP_QUERY);
    ReasonCodes reasons = {};
    const int commsRc = ids == nullptr ? statComms(socketDesc, query.action, buffer, bufferLen, &reasons)
                                       : statCommsString(socketDesc, query.action, ids, buffer, bufferLen, &reasons);
    if (commsRc != 0) {
        noteReasons(commsRc, reasons);
        return mapExchangeFailure(commsRc, reasons);
    }
    DATA(query.dataPoint, query.dataName, *buffer, 0, RESULT_SET_TERMINATOR, 0);
    return STAPI_OK;
}

int commsResourceGroupsIds(int socketDesc, char **buffer, int *bufferLen)
{
    ENTRY(2300, "stapi_rix_statquery.commsResourceGroupsIds(socketDesc=%d, *buffer=%p, *bufferLen=%d)\n", socketDesc,
          ptr(*buffer), *bufferLen);
    const int rixStatRc = runQuery(RESOURCE_GROUPS_IDS, socketDesc, buffer, bufferLen, nullptr);
    EXIT(2301, "stapi_rix_statquery.commsResourceGroupsIds(socketDesc=%d, *buffer=%p, *bufferLen=%d) rixstatRc=%d\n",
         socketDesc, ptr(*buffer), *bufferLen, rixStatRc);
    return rixStatRc;
}

int commsStatIdsByStatGroupId(int socketDesc, char **buffer, int *bufferLen, const char *ids)
{
    ENTRY(2302, "stapi_rix_statquery.commsStatIdsByStatGroupId(socketDesc=%d, *buffer=%p, *bufferLen=%d, ids=%p)\n",
          socketDesc, ptr(*buffer), *bufferLen, ptr(ids));
    const int rixStatRc = runQuery(STAT_IDS_BY_GROUP, socketDesc, buffer, bufferLen, ids);
    EXIT(
        2303,
        "stapi_rix_statquery.commsStatIdsByStatGroupId(socketDesc=%d, *buffer=%p, *bufferLen=%d, ids=%p) rixStatRc=%d\n",
        socketDesc, ptr(*buffer), *bufferLen, ptr(ids), rixStatRc);
    return rixStatRc;
}

int commsStatIds(int socketDesc, char **buffer, int *bufferLen)
{
    ENTRY(2304, "stapi_rix_statquery.commsStatIds(socketDesc=%d, *buffer=%p, *bufferLen=%d)\n", socketDesc,
          ptr(*buffer), *bufferLen);
    const int rixStatRc = runQuery(STAT_IDS, socketDesc, buffer, bufferLen, nullptr);
    EXIT(2305, "stapi_rix_statquery.commsStatIds(socketDesc=%d, *buffer=%p, *bufferLen=%d) rixstatRc=%d\n", socketDesc,
         ptr(*buffer), *bufferLen, rixStatRc);
    return rixStatRc;
}

int commsStatsByStatId(int socketDesc, char **buffer, int *bufferLen, const char *ids)
{
    ENTRY(2306, "stapi_rix_statquery.commsStatsByStatId(socketDesc=%d, *buffer=%p, *bufferLen=%d, ids=%p)\n",
          socketDesc, ptr(*buffer), *bufferLen, ptr(ids));
    const int rixStatRc = runQuery(STATS_BY_ID, socketDesc, buffer, bufferLen, ids);
    EXIT(2307,
         "stapi_rix_statquery.commsStatsByStatId(socketDesc=%d, *buffer=%p, *bufferLen=%d, ids=%p) rixStatRc=%d\n",
         socketDesc, ptr(*buffer), *bufferLen, ptr(ids), rixStatRc);
    return rixStatRc;
}

// Its lines lack "=%d" after "*bufferLen" on purpose, so that the length stands in the place of ids.
int commsStatsByStatGroupId(int socketDesc, char **buffer, int *bufferLen, const char *ids)
{
    ENTRY(2308, "stapi_rix_statquery.commsStatsByStatGroupId(socketDesc=%d, *buffer=%p, *bufferLen, ids=%p)\n",
          socketDesc, ptr(*buffer), ptr(static_cast<uintptr_t>(*bufferLen)));
    const int rixStatRc = runQuery(STATS_BY_GROUP, socketDesc, buffer, bufferLen, ids);
    EXIT(2309,
         "stapi_rix_statquery.commsStatsByStatGroupId(socketDesc=%d, *buffer=%p, *bufferLen, ids=%p) rixStatRc=%d\n",
         socketDesc, ptr(*buffer), ptr(static_cast<uintptr_t>(*bufferLen)), rixStatRc);
    return rixStatRc;
}

int commsStats(int socketDesc, char **buffer, int *bufferLen)
{
    ENTRY(2310, "stapi_rix_statquery.commsStats(socketDesc=%d, *buffer=%p, *bufferLen=%d)\n", socketDesc, ptr(*buffer),
          *bufferLen);
    const int rixStatRc = runQuery(STATS, socketDesc, buffer, bufferLen, nullptr);
    EXIT(2311, "stapi_rix_statquery.commsStats(socketDesc=%d, *buffer=%p, *bufferLen=%d) rixstatRc=%d\n", socketDesc,
         ptr(*buffer), *bufferLen, rixStatRc);
    return rixStatRc;
}

} // namespace rixstats
