// Result-set tokens: the records behind the callers' result-set handles.
#include "stapi_rix_diag.h"
#include "stapi_rix_diag_output.h"
#include "stapi_rix_owner.h"
#include "stapi_rix_resultsetbuffer.h"

#include <cstdlib>

namespace rixstats {

// A zeroed record; null if there is no memory.
static Internal_ResultSetToken_t *allocateToken()
{
    const int size = static_cast<int>(sizeof(Internal_ResultSetToken_t));
    Internal_ResultSetToken_t *token = static_cast<Internal_ResultSetToken_t *>(calloc(1, sizeof *token));
    DEBUG(2128, "stapi_rix_resultsetbuffer.createResultSet Called malloc for %d bytes. rc=%p\n", size, ptr(token));
    if (token == nullptr) {
        EXC(2129, "stapi_rix_resultsetbuffer.createResultSet Failed to allocate %d bytes\n", size);
        return nullptr;
    }
    return token;
}

// An empty text. Until a query is built, nobody is shown the area: its pages stay untouched, and cost a connection
// nothing.
static char *allocateQueryText()
{
    char *text = static_cast<char *>(malloc(QUERY_TEXT_SIZE));
    DEBUG(2130, "stapi_rix_resultsetbuffer.createResultSet Called malloc for %d bytes. rc=%p\n", QUERY_TEXT_SIZE,
          ptr(text));
    // Names the size of the record, not that of the text area, on purpose.
    if (text != nullptr)
        *text = '\0';
    else
        EXC(2131, "stapi_rix_resultsetbuffer.createResultSet Failed to allocate %d bytes\n",
            static_cast<int>(sizeof(Internal_ResultSetToken_t)));
    return text;
}

static int newToken(RIX_ResultSetToken_t *newRsTokPtr, const char *eyecatcher, int owner)
{
    Internal_ResultSetToken_t *token = allocateToken();
    if (token == nullptr) {
        *newRsTokPtr = nullptr;
        return STAPI_NO_MEMORY;
    }
    token->validatedQueryPtr = allocateQueryText();
    if (token->validatedQueryPtr == nullptr) {
        free(token);
        return STAPI_NO_MEMORY;
    }
    memcpy(token->eyecatcher, eyecatcher, strnlen(eyecatcher, EYECATCHER_SIZE));
    token->owner = owner;
    if (owner == OWNER_LIBRARY) getPidTid(&token->owningPid, &token->owningTid);
    *newRsTokPtr = token;
    return STAPI_OK;
}

int createResultSet(RIX_ResultSetToken_t *newRsTokPtr, const char *eyecatcher, int owner)
{
    int rixStatRc;
    ENTRY(2127, "stapi_rix_resultsetbuffer.createResultSet(&newRsTokPtr=%p,eyecatcher=%p,owner=%X)\n", ptr(newRsTokPtr),
          ptr(eyecatcher), static_cast<unsigned>(owner));
    if (newRsTokPtr == nullptr || eyecatcher == nullptr)
        rixStatRc = STAPI_NULL_ARGUMENT;
    else if (owner != OWNER_LIBRARY && owner != OWNER_USER)
        rixStatRc = STAPI_BAD_RESULT_SET_OWNER;
    else
        rixStatRc = newToken(newRsTokPtr, eyecatcher, owner);
    EXIT(2132, "stapi_rix_resultsetbuffer.createResultSet(&newRsTokPtr=%p,eyecatcher=%p,owner=%X) rc=%d\n",
         ptr(newRsTokPtr), ptr(eyecatcher), static_cast<unsigned>(owner), rixStatRc);
    return rixStatRc;
}

static void releaseToken(RIX_ResultSetToken_t *rsPtr)
{
    Internal_ResultSetToken_t *token = *rsPtr;
    if (token->validatedQueryPtr != nullptr) {
        const uintptr_t text = addressNumber(token->validatedQueryPtr);
        DEBUG(2134, "stapi_rix_resultsetbuffer.deleteResultSet Free result set verifiedQueryString(%p)\n", ptr(text));
        free(token->validatedQueryPtr);
        DEBUG(2135, "stapi_rix_resultsetbuffer.deleteResultSet Freed result set token(%p)\n", ptr(text));
    }
    free(token->queryString);
    const uintptr_t record = addressNumber(token);
    DEBUG(2136, "stapi_rix_resultsetbuffer.deleteResultSet Free result set token(%p)\n", ptr(record));
    free(token);
    DEBUG(2137, "stapi_rix_resultsetbuffer.deleteResultSet Freed result set token(%p)\n", ptr(record));
    *rsPtr = nullptr;
}

int deleteResultSet(RIX_ResultSetToken_t *rsPtr)
{
    int rixStatRc = STAPI_OK;
    ENTRY(2133, "stapi_rix_resultsetbuffer.deleteResultSet(&rsPtr=%p)\n", ptr(rsPtr));
    if (rsPtr == nullptr)
        rixStatRc = STAPI_NULL_RESULT_SET_PTR;
    else if (*rsPtr == nullptr)
        rixStatRc = STAPI_NULL_RESULT_SET_TOKEN;
    else
        releaseToken(rsPtr);
    EXIT(2138, "stapi_rix_resultsetbuffer.deleteResultSet(&rsPtr=%p) rc=%d\n", ptr(rsPtr), rixStatRc);
    return rixStatRc;
}

// traceLock is held.
static int writeDump(const Internal_ResultSetToken_t *rsPtr)
{
    const QuietOutput quiet;
    printOutput(statAPITraceHandle, "Dump of ResultSet(%p) owner(%x) head(%p) next(%p)\n%s\n", ptr(rsPtr),
                static_cast<unsigned>(rsPtr->owner), ptr(rsPtr->rsBuffPtr), ptr(rsPtr->cursor), dumpRuler);
    const int dumped = traceOutStorage(rsPtr->rsBuffPtr, 0, RESULT_SET_TERMINATOR, DUMP_WIDTH, 0);
    printOutput(statAPITraceHandle, "%s\n", dumpRuler);
    return dumped;
}

int dumpResultSetInternal(const Internal_ResultSetToken_t *rsPtr)
{
    int rixStatRc = STAPI_OK;
    int bytesDumped = 0;
    ENTRY(2139, "stapi_rix_resultsetbuffer.dumpResultSetInternal(rsPtr=%p)\n", ptr(rsPtr));
    if (rsPtr == nullptr) {
        rixStatRc = STAPI_NULL_ARGUMENT;
    } else {
        requestLock(&traceLock);
        bytesDumped = writeDump(rsPtr);
        releaseLock(&traceLock);
    }
    EXIT(2140, "stapi_rix_resultsetbuffer.dumpResultSetInternal(rsPtr=%p) bytes dumped=%d rc=%d\n", ptr(rsPtr),
         bytesDumped, rixStatRc);
    return rixStatRc;
}

int verifyAPIResultSetTokenOwner(const Internal_ResultSetToken_t *rsPtr)
{
    ENTRY(2141, "stapi_rix_resultsetbuffer.verifyAPIResultSetToken(rsPtr=%p)\n", ptr(rsPtr));
    const int rixStatRc = ownershipOf(rsPtr->owningPid, rsPtr->owningTid);
    if (rixStatRc == STAPI_WRONG_PROCESS)
        EXC(2142, "stapi_rix_resultsetbuffer.verifyAPIResultSetToken PID mismatch: currentPid=%x, owningPid=%x\n",
            static_cast<unsigned>(currentPid()), static_cast<unsigned>(rsPtr->owningPid));
    else if (rixStatRc == STAPI_WRONG_THREAD)
        EXC(2143, "stapi_rix_resultsetbuffer.verifyAPIResultSetToken TID mismatch: currentTid=%x, owningTid=%x\n",
            static_cast<unsigned>(narrowTid(pthread_self())), static_cast<unsigned>(narrowTid(rsPtr->owningTid)));
    EXIT(2144, "stapi_rix_resultsetbuffer.verifyAPIResultSetToken(rsPtr=%p) rc=%d\n", ptr(rsPtr), rixStatRc);
    return rixStatRc;
}

} // namespace rixstats
