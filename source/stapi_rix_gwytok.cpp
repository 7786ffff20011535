// Gateway tokens: opening, verifying and deleting connections, also under a thread that has one in use.
#include "stapi_rix_gwytok.h"

#include "stapi_rix_diag.h"
#include "stapi_rix_flowarea.h"
#include "stapi_rix_gwycon.h"
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
    requestLock(&gtlLock);
    token->connStatus = connStatus;
    releaseLock(&gtlLock);
}

void setResultSetBuffer(Internal_GatewayToken_t *token, char *buffer, int bufferLen)
{
    requestLock(&gtlLock);
    token->resultSetBuf = buffer;
    token->resultSetBufLen = bufferLen;
    releaseLock(&gtlLock);
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
    token->inUse = true;
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
    ReasonCodes reasons = {};
    const int statsCallRc = statProtocolVer(token, &reasons);
    if (statsCallRc == 0) return STAPI_OK;
    EVENT(2042, "stapi_rix_gwytok.createGatewayToken Removing GatewayToken %p due to comms failure %d\n", ptr(token),
          statsCallRc);
    return mapExchangeFailure(statsCallRc, reasons);
}

static void traceOpened(const RIX_GatewayToken_t *gwTokPtr, const Internal_GatewayToken_t *token)
{
    if (!traceOn(Line::event)) return;
    char formattedToken[FORMATTED_TOKEN_SIZE];
    requestLock(&gtlLock);
    formatGatewayToken(token, formattedToken);
    releaseLock(&gtlLock);
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
    if (rc != STAPI_OK) return removeGatewayTokenInUse(&token) == STAPI_OK ? rc : STAPI_COMMS_FAILURE;
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
    pid_t currentPid;
    pthread_t currentTid;
    getPidTid(&currentPid, &currentTid);
    if (token->owningPid != currentPid) {
        EXC(2032, "stapi_rix_gwytok.verifyGatewayToken PID mismatch: currentPid=%d, owningPid=%d\n", currentPid,
            token->owningPid);
        return STAPI_WRONG_PROCESS;
    }
    if (compareTids(currentTid, token->owningTid) == 0) {
        EXC(2033, "stapi_rix_gwytok.verifyGatewayToken TID mismatch: currentTid=%d, owningTid=%d\n",
            narrowTid(currentTid), narrowTid(token->owningTid));
        return STAPI_WRONG_THREAD;
    }
    return STAPI_OK;
}

// All under the lock: without it another thread may release the token.
int verifyGatewayToken(Internal_GatewayToken_t *gwTokPtr)
{
    ENTRY(2006, "stapi_rix_gwytok.verifyGatewayToken(&gwTokPtr=%p)\n", ptr(gwTokPtr));
    int rc;
    requestLock(&gtlLock);
    const int findRc = findGatewayToken(gwTokPtr, nullptr);
    if (findRc == GTL_FOUND) {
        rc = verifyOwner(gwTokPtr);
        if (rc == STAPI_OK) gwTokPtr->inUse = true;
    } else {
        rc = STAPI_GATEWAY_TOKEN_NOT_FOUND;
        EXC(2007, "stapi_rix_gwytok.verifyGatewayToken(&gwTokPtr=%p) Gateway token not found - findRc=%d\n",
            ptr(gwTokPtr), findRc);
    }
    releaseLock(&gtlLock);
    EXIT(2008, "stapi_rix_gwytok.verifyGatewayToken(&gwTokPtr=%p) rc=%d\n", ptr(gwTokPtr), rc);
    return rc;
}

// Nobody is left who could be answered.
static void dropAreasOfLast()
{
    requestLock(&gtlLock);
    const bool last = gtListHeadPtr == nullptr;
    releaseLock(&gtlLock);
    if (last) dropKeptAreas();
}

// The token is off the list and in nobody else's use. takeLeave: by the close flow, which waits for the gateway.
// gwTokPtr: the variable that held it, which is named in the trace and not touched.
static void releaseToken(Internal_GatewayToken_t *token, const RIX_GatewayToken_t *gwTokPtr, bool takeLeave)
{
    if (token->socketDescriptor >= 0) {
        const int closeRc = takeLeave ? closeConnection(&token->socketDescriptor) : close(token->socketDescriptor);
        token->connStatus = closeRc != 0 ? 3 : 4;
    }
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
    free(token);
    DEBUG(2011, "stapi_rix_gwytok.deleteGatewayToken(&gwTokPtr=%p) Freed gateway token(%p) \n", ptr(gwTokPtr),
          ptr(record));
    dropAreasOfLast();
}

static bool isOwnedByCaller(const Internal_GatewayToken_t *token)
{
    pid_t currentPid;
    pthread_t currentTid;
    getPidTid(&currentPid, &currentTid);
    return token->owningPid == currentPid && compareTids(currentTid, token->owningTid) != 0;
}

// Takes the token off the list (gtlLock is held). If another thread has it in use, that thread is woken and has to
// release the token: the result is true then.
static bool takeOffList(Internal_GatewayToken_t *token, Internal_GatewayToken_t *parentToken)
{
    unchainGatewayToken(token, parentToken);
    if (!token->inUse || isOwnedByCaller(token)) return false;
    token->closed = true;
    shutSocket(&token->socketDescriptor); // under the lock, which the user needs to close it
    return true;
}

int endGatewayTokenUse(Internal_GatewayToken_t *gwTokPtr)
{
    requestLock(&gtlLock);
    const bool closed = gwTokPtr->closed;
    if (!closed) gwTokPtr->inUse = false;
    releaseLock(&gtlLock);
    return closed ? STAPI_COMMS_FAILURE : STAPI_OK;
}

// Takes a token that the walk limit of the list keeps from being found off it, if it is on the list at all.
static void unchainAnywhere(const Internal_GatewayToken_t *token)
{
    Internal_GatewayToken_t *parent = gtListHeadPtr;
    while (parent != nullptr && parent->nextGwyTokPtr != token)
        parent = parent->nextGwyTokPtr;
    if (parent != nullptr) unchainGatewayToken(token, parent);
}

int removeGatewayTokenInUse(RIX_GatewayToken_t *gwTokPtr)
{
    if (deleteGatewayToken(gwTokPtr, 1) == STAPI_OK) return STAPI_OK;
    // Not found: closed by another thread meanwhile, or too far down the list.
    Internal_GatewayToken_t *const token = *gwTokPtr;
    requestLock(&gtlLock);
    const bool closed = token->closed; // in use, so there is one. NOLINT(clang-analyzer-core.NullDereference)
    if (!closed) unchainAnywhere(token);
    releaseLock(&gtlLock);
    *gwTokPtr = nullptr;
    releaseToken(token, gwTokPtr, !closed);
    return closed ? STAPI_COMMS_FAILURE : STAPI_OK;
}

// Sets the handle to null before anybody can notice that the connection has ended: its owner may open the next one into
// the same variable. *toRelease stays null if the thread that uses the token has to release it.
static int takeListed(Internal_GatewayToken_t *token, RIX_GatewayToken_t *gwTokPtr, Internal_GatewayToken_t **toRelease)
{
    Internal_GatewayToken_t *parentToken = nullptr;
    requestLock(&gtlLock);
    const bool found = findGatewayToken(token, &parentToken) == GTL_FOUND;
    if (found) {
        *gwTokPtr = nullptr;
        if (!takeOffList(token, parentToken)) *toRelease = token;
    }
    releaseLock(&gtlLock);
    return found ? STAPI_OK : STAPI_GATEWAY_TOKEN_NOT_FOUND;
}

static int takeToken(RIX_GatewayToken_t *gwTokPtr, int lockRequired, Internal_GatewayToken_t **toRelease)
{
    if (gwTokPtr == nullptr) return STAPI_NULL_GATEWAY_TOKEN_PTR;
    Internal_GatewayToken_t *const token = *gwTokPtr; // read once: see takeListed()
    if (token == nullptr) return STAPI_NULL_GATEWAY_TOKEN;
    if (lockRequired == 1) return takeListed(token, gwTokPtr, toRelease);
    *gwTokPtr = nullptr;
    *toRelease = token;
    return STAPI_OK;
}

int deleteGatewayToken(RIX_GatewayToken_t *gwTokPtr, int lockRequired)
{
    ENTRY(2009, "stapi_rix_gwytok.deleteGatewayToken(&gwTokPtr=%p,lockRequired=%d)\n", ptr(gwTokPtr), lockRequired);
    Internal_GatewayToken_t *toRelease = nullptr;
    const int rc = takeToken(gwTokPtr, lockRequired, &toRelease);
    if (toRelease != nullptr) releaseToken(toRelease, gwTokPtr, true);
    EXIT(2012, "stapi_rix_gwytok.deleteGatewayToken(&gwTokPtr=%p,lockRequired=%d) rc=%d\n", ptr(gwTokPtr), lockRequired,
         rc);
    return rc;
}

static void traceEntry(const Internal_GatewayToken_t *indexToken, int count)
{
    if (!traceOn(Line::event)) return;
    char formattedToken[FORMATTED_TOKEN_SIZE];
    formatGatewayToken(indexToken, formattedToken);
    EVENT(2034, "stapi_rix_gwytok.deleteGatewayTokens(indexToken=%p) GTL entry %4.4d: %s\n", ptr(indexToken), count,
          formattedToken);
}

// Takes the head off the list (gtlLock is held) and deletes it with the lock released, so that a gateway which is slow
// to answer delays nobody else.
static void deleteHead(int count)
{
    Internal_GatewayToken_t *indexToken = gtListHeadPtr;
    traceEntry(indexToken, count);
    if (takeOffList(indexToken, nullptr)) return;
    releaseLock(&gtlLock);
    deleteGatewayToken(&indexToken, 0);
    requestLock(&gtlLock);
}

// Whether the head of the list (gtlLock is held) was there when the token of that number had been chained last: what is
// opened while others are being closed comes behind them and stays.
static bool isHeadUpTo(uint32_t number)
{
    return gtListHeadPtr != nullptr && static_cast<int32_t>(gtListHeadPtr->number - number) <= 0;
}

int deleteGatewayTokens()
{
    ENTRY(2013, "stapi_rix_gwytok.deleteGatewayTokens()\n");
    int rc = 0;
    int count = 0;
    requestLock(&gtlLock);
    if (gtListHeadPtr == nullptr) {
        EVENT(2035, "stapi_rix_gwytok.deleteGatewayTokens() GTL is EMPTY\n");
        rc = GTL_EMPTY;
    } else {
        const uint32_t last = gtlLastNumber;
        while (isHeadUpTo(last) && count < GTL_WALK_LIMIT)
            deleteHead(++count);
        if (count == GTL_WALK_LIMIT) { // also when that many were all there were
            EXC(2014, "stapi_rix_gwytok.deleteGatewayTokens() GTL iteration has hit RUNAWAY limit %d.....\n", count);
            rc = GTL_RUNAWAY;
        }
    }
    releaseLock(&gtlLock);
    EXIT(2015, "stapi_rix_gwytok.deleteGatewayTokens() Entries deleted=%d rc=%d\n", count, rc);
    return rc;
}

} // namespace rixstats
