// The dump of the Gateway Token List: every connection with its result set.
#include "stapi_rix_gwytok.h"

#include "stapi_rix_diag.h"
#include "stapi_rix_diag_output.h"
#include "stapi_rix_resultsetbuffer.h"

namespace rixstats {

static void dumpEntry(const Internal_GatewayToken_t *token, int count)
{
    char formattedToken[FORMATTED_TOKEN_SIZE];
    formatGatewayToken(token, formattedToken);
    printOutput(statAPITraceHandle, "Gateway Token List entry -%4.4d- : %s\n", count, formattedToken);
    const Internal_ResultSetToken_t *resultSet = token->connRSPtr;
    if (token->inUse) { // its buffer may be moving at this moment
        printOutput(statAPITraceHandle, "The gateway token is in use, its ResultSet(%p) is not dumped\n",
                    ptr(resultSet));
    } else if (resultSet != nullptr) {
        printOutput(statAPITraceHandle, "Dump of ResultSet(%p) owner(%s) buffer(%p) cursor(%p)\n%s\n", ptr(resultSet),
                    resultSet->owner == OWNER_LIBRARY ? "API" : "USR", ptr(resultSet->rsBuffPtr),
                    ptr(readCursor(resultSet)), dumpRuler);
        traceOutStorage(resultSet->rsBuffPtr, 0, RESULT_SET_TERMINATOR, DUMP_WIDTH, 0);
        printOutput(statAPITraceHandle, "%s\n", dumpRuler);
    }
}

static int dumpList(int *count)
{
    const QuietOutput quiet;
    printOutput(statAPITraceHandle, "Gateway Token List dump\n%s\n", dumpRuler);
    if (gtListHeadPtr == nullptr) printOutput(statAPITraceHandle, "The Gateway Token List is EMPTY\n");
    for (const Internal_GatewayToken_t *token = gtListHeadPtr; token != nullptr && *count < GTL_WALK_LIMIT;
         token = token->nextGwyTokPtr)
        dumpEntry(token, ++*count);
    if (gtListHeadPtr != nullptr)
        printOutput(statAPITraceHandle, "Total number of Gateway Token List entries=%d\n", *count);
    printOutput(statAPITraceHandle, "%s\n", dumpRuler);
    return gtListHeadPtr == nullptr ? GTL_EMPTY : 0;
}

int dumpGatewayTokens()
{
    ENTRY(2016, "stapi_rix_gwytok.dumpGatewayTokens()\n");
    int count = 0;
    requestLock(&gtlLock);
    requestLock(&traceLock);
    int rc = dumpList(&count);
    releaseLock(&traceLock);
    releaseLock(&gtlLock);
    if (count == GTL_WALK_LIMIT) {
        rc = GTL_RUNAWAY;
        EXC(2017, "stapi_rix_gwytok.dumpGatewayTokens() Gateway Token List iteration has hit RUNAWAY limit %d.....\n",
            count);
    }
    EXIT(2018, "stapi_rix_gwytok.dumpGatewayTokens() List length=%d rc=%d\n", count, rc);
    return rc;
}

} // namespace rixstats
