// The result-set calls: a result set turned into a query text, copied, freed, dumped.
#include "stapi_rix_call.h"
#include "stapi_rix_diag.h"
#include "stapi_rix_impl.h"
#include "stapi_rix_resultsetbuffer.h"

#include <cstdlib>
#include <cstring>

using namespace rixstats;

static bool hasContent(const Internal_ResultSetToken_t *rs)
{
    return hasEyecatcher(rs->rsBuffPtr, ID_SET_EYECATCHER) || hasEyecatcher(rs->rsBuffPtr, STAT_SET_EYECATCHER);
}

// ---- getIdQuery

typedef struct _QueryText
{
    char *text; // QUERY_TEXT_SIZE bytes, zero-filled
    int length;
    int goodIdCount;
} QueryText;

// An identifier that does not fit is left out; a shorter one behind it may still be taken. One that holds a zero byte
// ends there.
static void appendId(QueryText *query, const char *id, int idLen)
{
    if (idLen + query->length + 1 >= QUERY_TEXT_SIZE) return;
    if (query->goodIdCount > 0) query->text[query->length++] = ':';
    const size_t taken = strnlen(id, static_cast<size_t>(idLen));
    memcpy(query->text + query->length, id, taken);
    query->length += static_cast<int>(taken);
    query->goodIdCount++;
}

static bool countsForQuery(const Internal_ResultSetToken_t *rs, int queryElementRC)
{
    return queryElementRC == 0 && rs->elementResultCount != 0;
}

static void collectIds(Internal_ResultSetToken_t *rs, QueryText *query)
{
    if (hasEyecatcher(rs->rsBuffPtr, ID_SET_EYECATCHER)) {
        RIX_IdData_t item;
        for (int rc = getFirstIdInternal(rs, &item); rc == STAPI_OK; rc = getNextIdInternal(rs, &item))
            if (countsForQuery(rs, item.queryElementRC)) appendId(query, item.idPtr, item.idLen);
    } else {
        RIX_StatData_t item;
        for (int rc = getFirstStatInternal(rs, &item); rc == STAPI_OK; rc = getNextStatInternal(rs, &item))
            if (countsForQuery(rs, item.queryElementRC)) appendId(query, item.statIdPtr, item.statIdLen);
    }
}

static int checkForQuery(RIX_ResultSetToken_t rsPtr, char **idQueryStringPtr)
{
    const int rc = firstMissing({{rsPtr, STAPI_NULL_RESULT_SET_TOKEN}, {idQueryStringPtr, STAPI_NULL_OUTPUT_PTR}});
    if (rc != STAPI_OK) return rc;
    if (!hasContent(rsPtr)) {
        EXC(1041, "API.getIdQuery Resultset does not contain recognised content\n");
        return STAPI_UNRECOGNISED_CONTENT;
    }
    return checkOwner(rsPtr);
}

static int buildQuery(Internal_ResultSetToken_t *rs, QueryText *query, char **idQueryStringPtr)
{
    collectIds(rs, query);
    if (query->length == 0) return STAPI_NO_IDS_FOR_QUERY;
    memcpy(rs->validatedQueryPtr, query->text, QUERY_TEXT_SIZE); // zeros behind the text, as callers may know it
    *idQueryStringPtr = rs->validatedQueryPtr;
    EVENT(1141, "API.getIdQuery Created query string %s from results in result set token %p\n", rs->validatedQueryPtr,
          ptr(rs));
    return STAPI_OK;
}

int getIdQuery(RIX_ResultSetToken_t rsPtr, char **idQueryStringPtr)
{
    const LocalCall call;
    int rc = stapiInit();
    ENTRY(1040, "API.getIdQuery(rsPtr=%p,idQueryStringPtr=%p)\n", ptr(rsPtr), ptr(idQueryStringPtr));
    // Allocated before anything is checked, and whatever the initialisation said: its failure decides the code.
    QueryText query = {static_cast<char *>(calloc(1, QUERY_TEXT_SIZE)), 0, 0};
    if (query.text == nullptr) rc = STAPI_NO_MEMORY;
    if (rc == STAPI_OK) rc = checkForQuery(rsPtr, idQueryStringPtr);
    if (rc == STAPI_OK) rc = buildQuery(rsPtr, &query, idQueryStringPtr);
    free(query.text);
    EXIT(1042, "API.getIdQuery(rsPtr=%p) goodIdCount=%d rc=%d\n", ptr(rsPtr), query.goodIdCount, rc);
    return call.end(rc);
}

// ---- copyResultSet

static int checkForCopy(RIX_ResultSetToken_t srcRs, RIX_ResultSetToken_t *tarRsPtr)
{
    const int rc = firstMissing({{srcRs, STAPI_NULL_RESULT_SET_TOKEN}, {tarRsPtr, STAPI_NULL_RESULT_SET_PTR}});
    if (rc != STAPI_OK) return rc;
    if (srcRs->rsBuffPtr == nullptr) {
        EXC(1073, "API.copyResultSet(srcRs=%p) resultSetBuf is NULL - no data to copy\n", ptr(srcRs));
        return STAPI_NO_RESULT_SET_BUFFER;
    }
    if (!hasContent(srcRs)) {
        EXC(1074, "API.copyResultSet Resultset does not contain recognised content\n");
        return STAPI_UNRECOGNISED_CONTENT;
    }
    return checkOwner(srcRs);
}

// Without memory for the buffer the new token stays with the caller, who can free it.
static int copyBuffer(const Internal_ResultSetToken_t *source, Internal_ResultSetToken_t *target)
{
    const int size = source->rsBuffLen;
    target->rsBuffPtr = copyResultSetArea(source->rsBuffPtr);
    DEBUG(1076, "API.copyResultSet Called malloc for %d bytes. rc=%p\n", size, ptr(target->rsBuffPtr));
    if (target->rsBuffPtr == nullptr) {
        EXC(1077, "API.copyResultSet() Malloc failed for %d bytes\n", size);
        return STAPI_NO_MEMORY;
    }
    target->rsBuffLen = size;
    target->cursor = target->rsBuffPtr;
    target->category = source->category;
    EVENT(1135, "API.copyResultSet Copied resultsetbuffer from %p to %p\n", ptr(source->rsBuffPtr),
          ptr(target->rsBuffPtr));
    return STAPI_OK;
}

static int makeCopy(RIX_ResultSetToken_t srcRs, RIX_ResultSetToken_t *tarRsPtr)
{
    // A caller may name the source's own variable as the target: its result set is read through srcRs alone.
    const int rc = createResultSet(tarRsPtr, "RIXRSUSR", OWNER_USER);
    if (rc != STAPI_OK) {
        EXC(1078, "API.copyResultSet() Invalid source resultset rixStatRc=d\n"); // shows no code, on purpose
        return rc;
    }
    EVENT(1075, "API.copyResultSet(srcRs=%p,&tarRsPtr=%p) Created result set token(%p)\n", ptr(srcRs), ptr(tarRsPtr),
          ptr(*tarRsPtr));
    return copyBuffer(srcRs, *tarRsPtr);
}

int copyResultSet(RIX_ResultSetToken_t srcRs, RIX_ResultSetToken_t *tarRsPtr)
{
    const LocalCall call;
    int rc = stapiInit();
    ENTRY(1072, "API.copyResultSet(srcRsPtr=%p,&tarRsPtr=%p)\n", ptr(srcRs), ptr(tarRsPtr));
    if (rc == STAPI_OK) rc = checkForCopy(srcRs, tarRsPtr);
    if (rc == STAPI_OK) rc = makeCopy(srcRs, tarRsPtr);
    EXIT(1079, "API.copyResultSet(srcRs=%p,tarRsPtr=%p) rc=%d\n", ptr(srcRs), ptr(tarRsPtr), rc);
    return call.end(rc);
}

// ---- freeResultSet

static int checkForFree(RIX_ResultSetToken_t *rsPtr)
{
    if (rsPtr == nullptr) {
        EXC(1081, "API.freeResultSet(&rsPtr=%p) Supplied result set pointer is NULL\n", ptr(rsPtr));
        return STAPI_NULL_RESULT_SET_PTR;
    }
    if (*rsPtr == nullptr) {
        EXC(1082, "API.freeResultSet(&rsPtr=%p) Supplied result set token is NULL\n", ptr(rsPtr));
        return STAPI_NULL_RESULT_SET_TOKEN;
    }
    if ((*rsPtr)->owner != OWNER_USER) {
        EXC(1083, "API.freeResultSet(rsPtr=%p) Cannot free result sets with owner=%d\n", ptr(*rsPtr), (*rsPtr)->owner);
        return STAPI_NOT_USER_RESULT_SET;
    }
    return STAPI_OK;
}

static void releaseCopy(RIX_ResultSetToken_t *rsPtr)
{
    Internal_ResultSetToken_t *rs = *rsPtr;
    const uintptr_t record = addressNumber(rs);
    if (rs->rsBuffPtr != nullptr) {
        DEBUG(1085, "API.freeResultSet() free result set buffer storage (%p)\n", ptr(rs->rsBuffPtr));
        freeResultSetArea(rs->rsBuffPtr);
        rs->rsBuffPtr = nullptr;
    } else {
        EXC(1086, "API.freeResultSet(rsPtr=%p) Result set buffer pointer was already null\n", ptr(rs));
    }
    deleteResultSet(rsPtr);
    EVENT(1136, "API.freeResultSetFreed result set %p\n", ptr(record)); // no blank, on purpose
}

int freeResultSet(RIX_ResultSetToken_t *rsPtr)
{
    const LocalCall call;
    int rc = stapiInit();
    ENTRY(1080, "API.freeResultSet(&rsPtr=%p)\n", ptr(rsPtr));
    if (rc == STAPI_OK) rc = checkForFree(rsPtr);
    if (rc == STAPI_OK) releaseCopy(rsPtr);
    EXIT(1087, "API.freeResultSet(&rsPtr=%p) rc=%d\n", ptr(rsPtr), rc);
    return call.end(rc);
}

// ---- dumpResultSet

static int checkForDump(RIX_ResultSetToken_t rsPtr)
{
    if (rsPtr == nullptr) return STAPI_NULL_RESULT_SET_TOKEN;
    if (rsPtr->rsBuffPtr == nullptr) {
        EXC(1103, "API.dumpResultSet(rsPtr=%p) resultSetBuf is NULL - no data to dump\n", ptr(rsPtr));
        return STAPI_NO_RESULT_SET_BUFFER;
    }
    if (!hasContent(rsPtr)) {
        EXC(1104, "API.dumpResultSet Resultset does not contain recognised content\n");
        return STAPI_UNRECOGNISED_CONTENT;
    }
    return checkOwner(rsPtr);
}

int dumpResultSet(RIX_ResultSetToken_t rsPtr)
{
    const LocalCall call;
    int rc = stapiInit();
    ENTRY(1102, "API.dumpResultSet(rsPtr=%p)\n", ptr(rsPtr));
    if (rc == STAPI_OK) rc = checkForDump(rsPtr);
    if (rc == STAPI_OK) dumpResultSetInternal(rsPtr);
    EXIT(1105, "API.dumpResultSet(rsPtr=%p) rc=%d\n", ptr(rsPtr), rc);
    return call.end(rc);
}
