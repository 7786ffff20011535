// The iterators: four public calls and their workers, which walk a result-set buffer item by item. The read position
// lives in the result-set token; an item's pointers point into the buffer. One body serves the first-item workers, one
// the next-item workers; a row and the fields of the caller's record tell identifiers from statistics.
//
// A step of a walk takes a few nanoseconds, and its dozen trace points would take half as much again while they are
// off. So a next-item call looks at the trace level once, and while it is off runs the same body without a row.
#include "stapi_rix_call.h"
#include "stapi_rix_diag.h"
#include "stapi_rix_impl.h"
#include "stapi_rix_owner.h"
#include "stapi_rix_resultsetbuffer.h"

using namespace rixstats;

namespace {

typedef struct _Worker
{
    const char *name;
    const char *firstCall; // the public call that starts such a walk
    const char *record;    // the name of the worker's record argument
    const char *length;    // the name of the item's length
    const char *item;      // what the worker retrieves
    int freshPoint, headerPoint, cachePoint, failedPoint, itemPoint, endPoint, successPoint; // 0: it has no such line
} Worker;

// clang-format off
const Worker FIRST_ID = {"getFirstIdInternal", "getFirstId", "idDataPtr", "idLen", "first Id",
                         0, 1045, 0, 1046, 1047, 1048, 1137};
const Worker NEXT_ID = {"getNextIdInternal", "getFirstId", "idDataPtr", "idLen", "the next Id",
                        1052, 1053, 0, 1054, 1055, 1056, 1138};
const Worker FIRST_STAT = {"getFirstStatInternal", "getFirstStat", "statDataPtr", "statIdLen", "first stat",
                           0, 1060, 1061, 0, 0, 1062, 1139};
const Worker NEXT_STAT = {"getNextStatInternal", "getFirstStat", "statDataPtr", "statIdLen", "the next stat",
                          1066, 1067, 0, 1068, 1069, 1070, 1140};
// clang-format on

// Where the parts of an item go in the caller's record. Identifiers have no value.
typedef struct _RecordFields
{
    const void *record;
    char *eyecatcher;
    char **queryElementPtr;
    int *queryElementLen, *queryElementRC;
    int *idLen;
    char **idPtr;
    int *valueLen;
    char **valuePtr;
} RecordFields;

RecordFields fieldsOf(RIX_IdData_t *data)
{
    return {data,
            data->eyecatcher,
            &data->queryElementPtr,
            &data->queryElementLen,
            &data->queryElementRC,
            &data->idLen,
            &data->idPtr,
            nullptr,
            nullptr};
}

RecordFields fieldsOf(RIX_StatData_t *data)
{
    return {data,
            data->eyecatcher,
            &data->queryElementPtr,
            &data->queryElementLen,
            &data->queryElementRC,
            &data->statIdLen,
            &data->statIdPtr,
            &data->statValueLen,
            &data->statValuePtr};
}

// What the bodies below are given is the row of the worker whose trace lines they write, or null.
#define STEP_INLINE inline __attribute__((always_inline))

STEP_INLINE bool atTerminator(const Worker *worker, const char *cursor)
{
    if (worker == nullptr) return wordAt(cursor) == RESULT_SET_TERMINATOR;
    int isTerminator = 0;
    checkTerminator(cursor, &isTerminator);
    return isTerminator != 0;
}

int takeWord(char **cursor)
{
    const int word = wordAt(*cursor);
    *cursor += sizeof word;
    return word;
}

void takeText(char **cursor, int *length, char **text)
{
    *length = takeWord(cursor);
    *text = *cursor;
    *cursor += *length;
}

void elementUsedUp(Internal_ResultSetToken_t *rs)
{
    rs->elementResultIndex = 0;
    rs->queryIndex++;
}

void tellHeader(const Worker &worker, const Internal_ResultSetToken_t *rs, const RecordFields &fields,
                const char *cursor)
{
    DEBUG(worker.headerPoint,
          "stapi_rix_impl.%s Processing query header %d of %d. Resultset=%p, Datacursor=%p, queryElementLen=%d, "
          "queryElementPtr=%p, queryElementRC=%d\n",
          worker.name, rs->queryIndex, rs->queryCount, ptr(rs), ptr(cursor), rs->cacheElementLen,
          ptr(rs->cacheElementPtr), rs->cacheElementRC);
    if (worker.cachePoint != 0)
        DEBUG(worker.cachePoint,
              "stapi_rix_impl.%s Caching new query element details. Resultset=%p, Datacursor=%p, queryElementLen=%d, "
              "queryElementPtr=%p, queryElementRC=%d\n",
              worker.name, ptr(rs), ptr(cursor), rs->cacheElementLen, ptr(rs->cacheElementPtr), rs->cacheElementRC);
    if (rs->cacheElementRC < 0 && worker.failedPoint != 0)
        EVENT(worker.failedPoint, "stapi_rix_impl.%s(rsPtr=%p,%s=%p) Found negative queryElementRC(%d)\n", worker.name,
              ptr(rs), worker.record, ptr(fields.record), rs->cacheElementRC);
}

// Reads an element's header into the token. False if the element failed: it has no results then.
STEP_INLINE bool readHeader(const Worker *worker, Internal_ResultSetToken_t *rs, const RecordFields &fields,
                            char **cursor)
{
    takeText(cursor, &rs->cacheElementLen, &rs->cacheElementPtr);
    rs->cacheElementRC = takeWord(cursor);
    if (worker != nullptr) tellHeader(*worker, rs, fields, *cursor);
    if (rs->cacheElementRC < 0) {
        elementUsedUp(rs);
        return false;
    }
    rs->elementResultCount = takeWord(cursor);
    rs->elementResultIndex = 1;
    return true;
}

// An element without results is delivered too, as one item of length 0.
STEP_INLINE void readItem(const Worker *worker, Internal_ResultSetToken_t *rs, const RecordFields &fields,
                          char **cursor)
{
    if (rs->elementResultCount == 0) {
        *fields.idLen = 0;
        *fields.idPtr = *cursor;
        if (fields.valueLen != nullptr) {
            *fields.valueLen = 0;
            *fields.valuePtr = *cursor;
        }
    } else {
        takeText(cursor, fields.idLen, fields.idPtr);
        if (worker != nullptr && worker->itemPoint != 0)
            DEBUG(
                worker->itemPoint,
                "stapi_rix_impl.%s Processing queryIndex=%d, elementResultIndex=%d. Resultset=%p, dataCursor=%p, %s=%d\n",
                worker->name, rs->queryIndex, rs->elementResultIndex, ptr(rs), ptr(*cursor), worker->length,
                *fields.idLen);
        if (fields.valueLen != nullptr) takeText(cursor, fields.valueLen, fields.valuePtr);
    }
    if (++rs->elementResultIndex > rs->elementResultCount) {
        elementUsedUp(rs);
        if (worker != nullptr)
            DEBUG(worker->endPoint, "stapi_rix_impl.%s End of subset queryIndex=%d. Resultset=%p\n", worker->name,
                  rs->queryIndex, ptr(rs));
    }
}

// Hands out the element that is being read and, unless it failed, its next item.
STEP_INLINE int deliver(const Worker *worker, Internal_ResultSetToken_t *rs, const RecordFields &fields, char *cursor)
{
    // The calls have checked that there is a record. NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker)
    memcpy(fields.eyecatcher, rs->rsBuffPtr, EYECATCHER_SIZE);
    const bool readable = rs->elementResultIndex != 0 || readHeader(worker, rs, fields, &cursor);
    *fields.queryElementPtr = rs->cacheElementPtr;
    *fields.queryElementLen = rs->cacheElementLen;
    *fields.queryElementRC = rs->cacheElementRC;
    if (readable) readItem(worker, rs, fields, &cursor);
    setCursor(rs, cursor);
    if (worker != nullptr)
        EVENT(worker->successPoint, "stapi_rix_impl.%s Successfully retrieved %s from resultset %p\n", worker->name,
              worker->item, ptr(rs));
    return STAPI_OK;
}

// A set without elements is an end at once: the word behind its count is not taken for an element's length.
int firstItem(const Worker &worker, Internal_ResultSetToken_t *rs, const RecordFields &fields)
{
    memcpy(fields.eyecatcher, rs->rsBuffPtr, EYECATCHER_SIZE);
    char *cursor = rs->rsBuffPtr + EYECATCHER_SIZE;
    if (atTerminator(&worker, cursor)) return STAPI_END_OF_RESULTS;
    const int queryCount = takeWord(&cursor);
    if (queryCount == 0) return STAPI_END_OF_RESULTS;
    rs->queryCount = queryCount;
    rs->queryIndex = 1;
    rs->elementResultIndex = 0;
    return deliver(&worker, rs, fields, cursor);
}

STEP_INLINE int nextItem(const Worker *worker, Internal_ResultSetToken_t *rs, const RecordFields &fields)
{
    char *cursor = rs->cursor;
    if (rs->queryIndex == 0) {
        // As above. NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker)
        memcpy(fields.eyecatcher, rs->rsBuffPtr, EYECATCHER_SIZE);
        cursor = rs->rsBuffPtr + EYECATCHER_SIZE;
        if (worker != nullptr)
            DEBUG(worker->freshPoint, "stapi_rix_impl.%s No %s() called on Resultset=%p. Datacursor=%p\n", worker->name,
                  worker->firstCall, ptr(rs), ptr(cursor));
        // A set that holds nothing but its eyecatcher ends at the count's place; the walk stays there.
        if (wordAt(cursor) != RESULT_SET_TERMINATOR) rs->queryCount = takeWord(&cursor);
        rs->queryIndex = 1;
        rs->elementResultIndex = 0;
        setCursor(rs, cursor);
    }
    if (atTerminator(worker, cursor)) return STAPI_END_OF_RESULTS;
    return deliver(worker, rs, fields, cursor);
}

__attribute__((noinline)) int toldNextItem(const Worker &worker, Internal_ResultSetToken_t *rs,
                                           const RecordFields &fields)
{
    return nextItem(&worker, rs, fields);
}

// Nothing is traced, and no check of a next-item call would fail.
STEP_INLINE bool isPlainStep(const Internal_ResultSetToken_t *rs, const void *record, const char *eyecatcher)
{
    return !traceOn(Line::exc) && rs != nullptr && record != nullptr && hasEyecatcher(rs->rsBuffPtr, eyecatcher) &&
           (rs->owner != OWNER_LIBRARY || isOwnedByCaller(rs->owningPid, rs->owningTid));
}

} // namespace

namespace rixstats {

int getFirstIdInternal(Internal_ResultSetToken_t *rs, RIX_IdData_t *idData)
{
    ENTRY(1043, "stapi_rix_impl.getFirstIdInternal(rsPtr=%p,idDataPtr=%p)\n", ptr(rs), ptr(idData));
    const int rixStatRc = firstItem(FIRST_ID, rs, fieldsOf(idData));
    EXIT(1049, "stapi_rix_impl.getFirstIdInternal() endOfResults=%d rixStatRc=%d\n",
         rixStatRc == STAPI_END_OF_RESULTS ? 1 : 0, rixStatRc);
    return rixStatRc;
}

int getNextIdInternal(Internal_ResultSetToken_t *rs, RIX_IdData_t *idData)
{
    ENTRY(1050, "stapi_rix_impl.getNextIdInternal(rsPtr=%p,idDataPtr=%p)\n", ptr(rs), ptr(idData));
    const int rixStatRc = toldNextItem(NEXT_ID, rs, fieldsOf(idData));
    EXIT(1057, "stapi_rix_impl.getNextIdInternal() rc=%d\n", rixStatRc);
    return rixStatRc;
}

int getFirstStatInternal(Internal_ResultSetToken_t *rs, RIX_StatData_t *statData)
{
    ENTRY(1058, "stapi_rix_impl.getFirstStatInternal(rsPtr=%p,statDataPtr=%p)\n", ptr(rs), ptr(statData));
    const int rixStatRc = firstItem(FIRST_STAT, rs, fieldsOf(statData));
    EXIT(1063, "stapi_rix_impl.getFirstStatInternal() last=%d rc=%d\n", rixStatRc == STAPI_END_OF_RESULTS ? 1 : 0,
         rixStatRc);
    return rixStatRc;
}

int getNextStatInternal(Internal_ResultSetToken_t *rs, RIX_StatData_t *statData)
{
    ENTRY(1064, "stapi_rix_impl.getNextStatInternal(rsPtr=%p,statDataPtr=%p)\n", ptr(rs), ptr(statData));
    const int rixStatRc = toldNextItem(NEXT_STAT, rs, fieldsOf(statData));
    EXIT(1071, "stapi_rix_impl.getNextStatInternal() rc=%d\n", rixStatRc);
    return rixStatRc;
}

} // namespace rixstats

// A copy whose buffer could not be allocated has no content either.
static bool holdsIds(const Internal_ResultSetToken_t *rs)
{
    return hasEyecatcher(rs->rsBuffPtr, ID_SET_EYECATCHER);
}
static bool holdsStats(const Internal_ResultSetToken_t *rs)
{
    return hasEyecatcher(rs->rsBuffPtr, STAT_SET_EYECATCHER);
}

int getFirstId(RIX_ResultSetToken_t rsPtr, RIX_IdData_t *idDataPtr)
{
    int rixStatRc = stapiInit();
    ENTRY(1150, "API.getFirstId(rsPtr=%p,idDataPtr=%p)\n", ptr(rsPtr), ptr(idDataPtr));
    if (rixStatRc == STAPI_OK)
        rixStatRc = firstMissing({{rsPtr, STAPI_NULL_RESULT_SET_TOKEN}, {idDataPtr, STAPI_NULL_ID_DATA_PTR}});
    if (rixStatRc == STAPI_OK && !holdsIds(rsPtr)) {
        rixStatRc = STAPI_UNRECOGNISED_CONTENT;
        EXC(1151, "API.getFirstId Resultset does not contain id data\n");
    }
    if (rixStatRc == STAPI_OK) rixStatRc = checkOwner(rsPtr);
    if (rixStatRc == STAPI_OK) rixStatRc = getFirstIdInternal(rsPtr, idDataPtr);
    EXIT(1152, "API.getFirstId() rixStatRc=%d\n", rixStatRc);
    return endOfStep(rixStatRc);
}

// The call with its lines and checks. Apart from the quick step below, which then needs no room for what it keeps.
static __attribute__((noinline)) int nextIdInFull(RIX_ResultSetToken_t rsPtr, RIX_IdData_t *idDataPtr)
{
    int rc = stapiInit();
    ENTRY(1153, "API.getNextId(rsPtr=%p,idDataPtr=%p)\n", ptr(rsPtr), ptr(idDataPtr));
    if (rc == STAPI_OK) rc = firstMissing({{rsPtr, STAPI_NULL_RESULT_SET_TOKEN}, {idDataPtr, STAPI_NULL_ID_DATA_PTR}});
    if (rc == STAPI_OK && !holdsIds(rsPtr)) {
        rc = STAPI_UNRECOGNISED_CONTENT;
        EXC(1154, "API.getNextId Resultset does not contain id data\n");
    }
    if (rc == STAPI_OK) rc = checkOwner(rsPtr);
    if (rc == STAPI_OK) rc = getNextIdInternal(rsPtr, idDataPtr);
    EXIT(1155, "API.getNextId() rc=%d\n", rc);
    return endOfStep(rc);
}

int getNextId(RIX_ResultSetToken_t rsPtr, RIX_IdData_t *idDataPtr)
{
    if (!isPlainStep(rsPtr, idDataPtr, ID_SET_EYECATCHER)) return nextIdInFull(rsPtr, idDataPtr);
    return nextItem(nullptr, rsPtr, fieldsOf(idDataPtr));
}

int getFirstStat(RIX_ResultSetToken_t rsPtr, RIX_StatData_t *statDataPtr)
{
    int rc = stapiInit();
    ENTRY(1156, "API.getFirstStat(rsPtr=%p,statDataPtr=%p)\n", ptr(rsPtr), ptr(statDataPtr));
    if (rc == STAPI_OK)
        rc = firstMissing({{rsPtr, STAPI_NULL_RESULT_SET_TOKEN}, {statDataPtr, STAPI_NULL_STAT_DATA_PTR}});
    if (rc == STAPI_OK && !holdsStats(rsPtr)) {
        rc = STAPI_UNRECOGNISED_CONTENT;
        EXC(1157, "API.getFirstStat Resultset does not contain statistics\n");
    }
    if (rc == STAPI_OK) rc = checkOwner(rsPtr);
    if (rc == STAPI_OK) rc = getFirstStatInternal(rsPtr, statDataPtr);
    EXIT(1158, "API.getFirstStat() rc=%d\n", rc);
    return endOfStep(rc);
}

// As nextIdInFull().
static __attribute__((noinline)) int nextStatInFull(RIX_ResultSetToken_t rsPtr, RIX_StatData_t *statDataPtr)
{
    int rc = stapiInit();
    ENTRY(1159, "API.getNextStat(rsPtr=%p,statDataPtr=%p)\n", ptr(rsPtr), ptr(statDataPtr));
    if (rc == STAPI_OK)
        rc = firstMissing({{rsPtr, STAPI_NULL_RESULT_SET_TOKEN}, {statDataPtr, STAPI_NULL_STAT_DATA_PTR}});
    if (rc == STAPI_OK && !holdsStats(rsPtr)) {
        rc = STAPI_UNRECOGNISED_CONTENT;
        EXC(1160, "API.getNextStat Resultset does not contain statistics\n");
    }
    if (rc == STAPI_OK) rc = checkOwner(rsPtr);
    if (rc == STAPI_OK) rc = getNextStatInternal(rsPtr, statDataPtr);
    EXIT(1161, "API.getNextStat() rc=%d\n", rc);
    return endOfStep(rc);
}

int getNextStat(RIX_ResultSetToken_t rsPtr, RIX_StatData_t *statDataPtr)
{
    if (!isPlainStep(rsPtr, statDataPtr, STAT_SET_EYECATCHER)) return nextStatInFull(rsPtr, statDataPtr);
    return nextItem(nullptr, rsPtr, fieldsOf(statDataPtr));
}
