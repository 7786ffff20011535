// Gateway tokens: opening, verifying and deleting connections.
#include "stapi_rix_gwytok.h"

#include "stapi_rix_call.h"
#include "stapi_rix_diag.h"
#include "stapi_rix_flowarea.h"
#include "stapi_rix_gwycon.h"
#include "stapi_rix_owner.h"
#include "stapi_rix_resultsetbuffer.h"
#include "stapi_rix_statcomms.h"
#include "stapi_rix_statquery.h"

#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace rixstats {

static int mapConnectFailure(int connectRc)
{
    switch (connectRc) {
    case CONNECT_HOST_NOT_FOUND:
        return STAPI_HOST_NOT_FOUND;
    case CONNECT_TIMED_OUT:
        return STAPI_CONNECT_TIMED_OUT;
    case CONNECT_REFUSED:
        return STAPI_CONNECTION_REFUSED;
    case CONNECT_UNREACHABLE:
        return STAPI_NETWORK_UNREACHABLE;
    default:
        return STAPI_CONNECT_FAILED;
    }
}

// Fields that another thread may show in a dump change under the lock.
static void setConnStatus(Internal_GatewayToken_t *token, int connStatus)
{
    const Locked list(gtlLock);
    token->connStatus = connStatus;
}

void setResultSetBuffer(Internal_GatewayToken_t *token, char *buffer, int bufferLen)
{
    const Locked list(gtlLock);
    token->resultSetBuf = buffer;
    token->resultSetBufLen = bufferLen;
}

static int openStatsSocket(Internal_GatewayToken_t *gwTokPtr, const char *hostname, int port)
{
    ENTRY(2002, "stapi_rix_gwytok.openStatsSocket(gwTokPtr=%p) Attempting to connect to %s:%d\n", ptr(gwTokPtr),
          textOrNull(hostname), port);
    int rc = STAPI_OK;
    const int connectRc = connectToGateway(port, hostname, &gwTokPtr->socketDescriptor);
    if (connectRc == 0) {
        setConnStatus(gwTokPtr, 1);
        EVENT(2003, "stapi_rix_gwytok.openStatsSocket() Connected to Gateway %s:%u - socketDescriptor(%d)\n",
              textOrNull(hostname), static_cast<unsigned>(port), gwTokPtr->socketDescriptor.load());
    } else {
        setConnStatus(gwTokPtr, 2);
        rc = mapConnectFailure(connectRc);
        EXC(2004, "stapi_rix_gwytok.openStatsSocket() Failed to connect to Gateway %s:%u, connect rc = %d\n",
            textOrNull(hostname), static_cast<unsigned>(port), connectRc);
    }
    EXIT(2005, "stapi_rix_gwytok.openStatsSocket(gwTokPtr=%p, hostname=%s, port=%d) rc=%d\n", ptr(gwTokPtr),
         textOrNull(hostname), port, rc);
    return rc;
}

// Releases a token that has not reached the list.
static void discardToken(Internal_GatewayToken_t *token)
{
    if (token->connRSPtr != nullptr) deleteResultSet(&token->connRSPtr);
    freeResultSetArea(token->resultSetBuf);
    free(token->protocolVersion);
    free(token);
}

// Gives the token its result set, buffer and texts.
static int fillToken(Internal_GatewayToken_t *token, int port)
{
    memcpy(token->eyecatcher, "RIXGWTOK", sizeof token->eyecatcher);
    token->portNumber = static_cast<unsigned>(port);
    token->socketDescriptor = NO_SOCKET;
    token->state = TokenState::busy;
    const int rc = createResultSet(&token->connRSPtr, "RIXRSROB", OWNER_LIBRARY);
    if (rc != STAPI_OK) {
        EXC(2036, "stapi_rix_gwytok.createGatewayToken Creation of resultset failed rc=%d\n", rc);
        return rc;
    }
    getPidTid(&token->owningPid, &token->owningTid);
    // Its absence is found when the version is read.
    token->protocolVersion = static_cast<char *>(calloc(1, PROTOCOL_VERSION_SIZE));
    token->resultSetBuf = newResultSetArea(RESULT_SET_SIZE);
    DEBUG(2040, "stapi_rix_gwytok.createGatewayToken Called malloc for %d bytes. rc=%p\n", RESULT_SET_SIZE,
          ptr(token->resultSetBuf));
    if (token->resultSetBuf == nullptr) {
        EXC(2041, "stapi_rix_gwytok.createGatewayToken Failed to allocate %d bytes.\n", RESULT_SET_SIZE);
        return STAPI_NO_MEMORY;
    }
    token->resultSetBufLen = RESULT_SET_SIZE;
    addTerminator(token->resultSetBuf);
    token->connRSPtr->rsBuffPtr = token->resultSetBuf;
    token->connRSPtr->rsBuffLen = token->resultSetBufLen;
    return STAPI_OK;
}

static int allocateChained(Internal_GatewayToken_t **newToken, int port)
{
    const int size = static_cast<int>(sizeof(Internal_GatewayToken_t));
    Internal_GatewayToken_t *token = static_cast<Internal_GatewayToken_t *>(calloc(1, sizeof *token));
    DEBUG(2038, "stapi_rix_gwytok.createGatewayToken Called malloc for %d bytes. rc=%p\n", size, ptr(token));
    if (token == nullptr) {
        EXC(2039, "stapi_rix_gwytok.createGatewayToken Failed to allocate %d bytes\n", size);
        return STAPI_NO_MEMORY;
    }
    int rc = fillToken(token, port);
    if (rc == STAPI_OK) rc = chainGatewayToken(token);
    if (rc != STAPI_OK)
        discardToken(token);
    else
        *newToken = token;
    return rc;
}

static int readVersion(Internal_GatewayToken_t *token)
{
    noteStep(RIX_STEP_VERSION);
    ReasonCodes reasons = {};
    const int statsCallRc = statProtocolVer(token, &reasons);
    if (statsCallRc == 0) return STAPI_OK;
    noteReasons(statsCallRc, reasons);
    EVENT(2042, "stapi_rix_gwytok.createGatewayToken Removing GatewayToken %p due to comms failure %d\n", ptr(token),
          statsCallRc);
    return mapExchangeFailure(statsCallRc, reasons);
}

static void traceOpened(const RIX_GatewayToken_t *gwTokPtr, const Internal_GatewayToken_t *token)
{
    if (!traceOn(Line::event)) return;
    char formattedToken[FORMATTED_TOKEN_SIZE];
    {
        const Locked list(gtlLock);
        formatGatewayToken(token, formattedToken);
    }
    EVENT(2033, "stapi_rix_gwytok.createGatewayToken(&gwTokPtr=%p) %s\n", ptr(gwTokPtr), formattedToken);
}

// The token is on the list before it is connected, so that a failure ends in an ordinary deletion.
static int openConnection(const RIX_GatewayToken_t *gwTokPtr, const char *hostname, int port,
                          Internal_GatewayToken_t **newToken)
{
    Internal_GatewayToken_t *token = nullptr;
    int rc = allocateChained(&token, port);
    if (rc != STAPI_OK) return rc;
    rc = openStatsSocket(token, hostname, port);
    if (rc == STAPI_OK) rc = readVersion(token);
    if (rc != STAPI_OK) {
        if (callState.limitReached) rc = STAPI_TIME_LIMIT_REACHED; // rather than what came of it
        return removeGatewayTokenInUse(&token) == STAPI_OK ? rc : STAPI_COMMS_FAILURE;
    }
    traceOpened(gwTokPtr, token);
    *newToken = token;
    return STAPI_OK;
}

int createGatewayToken(const RIX_GatewayToken_t *gwTokPtr, const char *hostname, int port,
                       Internal_GatewayToken_t **newToken)
{
    ENTRY(2000, "stapi_rix_gwytok.createGatewayToken(&gwTokPtr=%p,port=%d)\n", ptr(gwTokPtr), port);
    const int rc = openConnection(gwTokPtr, hostname, port, newToken);
    EXIT(2001, "stapi_rix_gwytok.createGatewayToken(&gwTokPtr=%p,port=%d) rc=%d\n", ptr(gwTokPtr), port, rc);
    return rc;
}

static int verifyOwner(const Internal_GatewayToken_t *token)
{
    const int rc = ownershipOf(token->owningPid, token->owningTid);
    if (rc == STAPI_WRONG_PROCESS)
        EXC(2032, "stapi_rix_gwytok.verifyGatewayToken PID mismatch: currentPid=%d, owningPid=%d\n", currentPid(),
            token->owningPid);
    else if (rc == STAPI_WRONG_THREAD)
        EXC(2033, "stapi_rix_gwytok.verifyGatewayToken TID mismatch: currentTid=%d, owningTid=%d\n",
            narrowTid(pthread_self()), narrowTid(token->owningTid));
    return rc;
}

// All under the lock: without it another thread may release the token.
static int findAndUse(Internal_GatewayToken_t *gwTokPtr)
{
    const Locked list(gtlLock);
    const int findRc = findGatewayToken(gwTokPtr, nullptr);
    if (findRc != GTL_FOUND) {
        EXC(2007, "stapi_rix_gwytok.verifyGatewayToken(&gwTokPtr=%p) Gateway token not found - findRc=%d\n",
            ptr(gwTokPtr), findRc);
        return STAPI_GATEWAY_TOKEN_NOT_FOUND;
    }
    const int rc = verifyOwner(gwTokPtr);
    if (rc == STAPI_OK) beginUse(gwTokPtr);
    return rc;
}

int verifyGatewayToken(Internal_GatewayToken_t *gwTokPtr)
{
    ENTRY(2006, "stapi_rix_gwytok.verifyGatewayToken(&gwTokPtr=%p)\n", ptr(gwTokPtr));
    const int rc = findAndUse(gwTokPtr);
    EXIT(2008, "stapi_rix_gwytok.verifyGatewayToken(&gwTokPtr=%p) rc=%d\n", ptr(gwTokPtr), rc);
    return rc;
}

// ---- Deleting

// Without a connection there are no flows that could use the kept areas.
static void dropAreasOfLast()
{
    bool last;
    {
        const Locked list(gtlLock);
        last = gtListHeadPtr == nullptr;
    }
    if (last) dropKeptAreas();
}

// How a connection ends.
enum class Farewell
{
    closeFlow, // with the exchange that tells the gateway, for whose answer it waits
    none
};

static void endSocket(Internal_GatewayToken_t *token, Farewell farewell)
{
    if (token->socketDescriptor < 0) return;
    // What is inherited belongs to the parent process, too, which goes on to speak on it.
    const bool speaks = farewell == Farewell::closeFlow && !isInherited(token);
    const int closeRc = speaks ? closeConnection(&token->socketDescriptor) : close(token->socketDescriptor);
    token->connStatus = closeRc != 0 ? 3 : 4;
}

// The token is in state closing, and the calling thread's to release. gwTokPtr: the variable that held it, which is
// named in the trace and not touched.
static void releaseToken(Internal_GatewayToken_t *token, const RIX_GatewayToken_t *gwTokPtr, Farewell farewell)
{
    const RIX_Failure_t reason = callState.present; // a failure of the close must not hide the one that led to it
    endSocket(token, farewell);
    callState.present = reason;
    const int deleteRc = deleteResultSet(&token->connRSPtr);
    if (deleteRc != STAPI_OK)
        EXC(2037, "stapi_rix_gwytok.deleteGatewayToken Unable to delete ResultSet. rc=%d\n", deleteRc);
    if (token->resultSetBuf != nullptr) {
        DEBUG(2043, "stapi_rix_gwytok.deleteGatewayToken About to free resultSetBuffer (%p)\n",
              ptr(token->resultSetBuf));
        freeResultSetArea(token->resultSetBuf);
    }
    if (token->protocolVersion != nullptr) {
        DEBUG(2044, "stapi_rix_gwytok.deleteGatewayToken About to free protocolVersion String (%p)\n",
              ptr(token->protocolVersion));
        free(token->protocolVersion);
    }
    const uintptr_t record = addressNumber(token);
    DEBUG(2010, "stapi_rix_gwytok.deleteGatewayToken(&gwTokPtr=%p) Free gateway token(%p) \n", ptr(gwTokPtr),
          ptr(record));
    restToken(token);
    DEBUG(2011, "stapi_rix_gwytok.deleteGatewayToken(&gwTokPtr=%p) Freed gateway token(%p) \n", ptr(gwTokPtr),
          ptr(record));
    dropAreasOfLast();
}

// Sets the handle to null before anybody can notice that the connection has ended: its owner may open the next one into
// the same variable. *toRelease stays null if the thread that uses the token has to release it.
static int takeListed(RIX_GatewayToken_t *gwTokPtr, Internal_GatewayToken_t **toRelease)
{
    Internal_GatewayToken_t *const token = *gwTokPtr; // read once, for the same reason
    if (token == nullptr) return STAPI_NULL_GATEWAY_TOKEN;
    Internal_GatewayToken_t *parentToken = nullptr;
    const Locked list(gtlLock);
    if (findGatewayToken(token, &parentToken) != GTL_FOUND) return STAPI_GATEWAY_TOKEN_NOT_FOUND;
    *gwTokPtr = nullptr;
    if (takeOffList(token, parentToken)) *toRelease = token;
    return STAPI_OK;
}

static int takeUnlisted(RIX_GatewayToken_t *gwTokPtr, Internal_GatewayToken_t **toRelease)
{
    *toRelease = *gwTokPtr;
    *gwTokPtr = nullptr;
    return *toRelease != nullptr ? STAPI_OK : STAPI_NULL_GATEWAY_TOKEN;
}

int deleteGatewayToken(RIX_GatewayToken_t *gwTokPtr, int lockRequired)
{
    ENTRY(2009, "stapi_rix_gwytok.deleteGatewayToken(&gwTokPtr=%p,lockRequired=%d)\n", ptr(gwTokPtr), lockRequired);
    Internal_GatewayToken_t *toRelease = nullptr;
    int rc = STAPI_NULL_GATEWAY_TOKEN_PTR;
    if (gwTokPtr != nullptr)
        rc = lockRequired == 1 ? takeListed(gwTokPtr, &toRelease) : takeUnlisted(gwTokPtr, &toRelease);
    if (toRelease != nullptr) releaseToken(toRelease, gwTokPtr, Farewell::closeFlow);
    EXIT(2012, "stapi_rix_gwytok.deleteGatewayToken(&gwTokPtr=%p,lockRequired=%d) rc=%d\n", ptr(gwTokPtr), lockRequired,
         rc);
    return rc;
}

// Whether a failed call says good-bye to the gateway. Without a time limit it always tries, even on a socket that never
// connected, where the send fails at once. With a limit the send would wait for such a socket, so there is no good-bye.
static Farewell farewellAfterFailure()
{
    const bool connected = callState.present.step > RIX_STEP_CONNECT;
    return callState.limitReached || (hasDeadline() && !connected) ? Farewell::none : Farewell::closeFlow;
}

// Traces the lines of deleteGatewayToken(), by which support people know a removal.
int removeGatewayTokenInUse(RIX_GatewayToken_t *gwTokPtr)
{
    ENTRY(2009, "stapi_rix_gwytok.deleteGatewayToken(&gwTokPtr=%p,lockRequired=%d)\n", ptr(gwTokPtr), 1);
    Internal_GatewayToken_t *const token = *gwTokPtr;
    bool wasOrphaned;
    {
        const Locked list(gtlLock);
        wasOrphaned = takeBack(token);
    }
    *gwTokPtr = nullptr;
    if (wasOrphaned) noteErrno(RIX_CLOSED_BY_THREAD);
    releaseToken(token, gwTokPtr, wasOrphaned ? Farewell::none : farewellAfterFailure());
    EXIT(2012, "stapi_rix_gwytok.deleteGatewayToken(&gwTokPtr=%p,lockRequired=%d) rc=%d\n", ptr(gwTokPtr), 1, STAPI_OK);
    return wasOrphaned ? STAPI_COMMS_FAILURE : STAPI_OK;
}

static void traceEntry(const Internal_GatewayToken_t *indexToken, int count)
{
    if (!traceOn(Line::event)) return;
    char formattedToken[FORMATTED_TOKEN_SIZE];
    formatGatewayToken(indexToken, formattedToken);
    EVENT(2034, "stapi_rix_gwytok.deleteGatewayTokens(indexToken=%p) GTL entry %4.4d: %s\n", ptr(indexToken), count,
          formattedToken);
}

// Takes up to GTL_WALK_LIMIT tokens off the list and returns how many. taken[i] is the token at position i of the list if
// the calling thread has to release it; null if another thread does.
static int takeAllListed(Internal_GatewayToken_t **taken)
{
    int count = 0;
    while (gtListHeadPtr != nullptr && count < GTL_WALK_LIMIT) {
        Internal_GatewayToken_t *const token = gtListHeadPtr;
        if (isBusyElsewhere(token)) traceEntry(token, count + 1); // before its owner is woken, who releases it
        taken[count++] = takeOffList(token, nullptr) ? token : nullptr;
    }
    return count;
}

int deleteGatewayTokens()
{
    ENTRY(2013, "stapi_rix_gwytok.deleteGatewayTokens()\n");
    noteStep(RIX_STEP_CLOSE);
    int rc = 0;
    int count;
    Internal_GatewayToken_t *taken[GTL_WALK_LIMIT];
    {
        const Locked list(gtlLock);
        if (gtListHeadPtr == nullptr) {
            EVENT(2035, "stapi_rix_gwytok.deleteGatewayTokens() GTL is EMPTY\n");
            rc = GTL_EMPTY;
        }
        count = takeAllListed(taken);
    }
    // All handles are refused from here on. The good-byes follow one after another; nobody else waits for a slow gateway.
    for (int i = 0; i < count; i++) {
        if (taken[i] == nullptr) continue;
        traceEntry(taken[i], i + 1);
        deleteGatewayToken(&taken[i], 0);
    }
    if (count == GTL_WALK_LIMIT) { // also when that many were all there were
        EXC(2014, "stapi_rix_gwytok.deleteGatewayTokens() GTL iteration has hit RUNAWAY limit %d.....\n", count);
        rc = GTL_RUNAWAY;
    }
    EXIT(2015, "stapi_rix_gwytok.deleteGatewayTokens() Entries deleted=%d rc=%d\n", count, rc);
    return rc;
}

} // namespace rixstats
