// A result set in use.
#include "checks.h"
#include "stapi_rix_resultsetbuffer.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace fuzzing {
namespace {

template <class Data>
using Read = int (*)(RIX_ResultSetToken_t, Data *);

constexpr int FIRST_ELEMENT = EYECATCHER_SIZE + 4; // behind the count

// The terminator has to have room behind every text.
void checkText(RIX_ResultSetToken_t rs, const char *text, int length)
{
    require(text != nullptr && length >= 0, "an item's text has a place and a length");
    const std::ptrdiff_t offset = text - rs->rsBuffPtr;
    require(offset >= FIRST_ELEMENT && offset + length <= rs->rsBuffLen - 4, "an item lies inside the result set");
}

void checkItem(RIX_ResultSetToken_t rs, const RIX_IdData_t &data)
{
    checkText(rs, data.idPtr, data.idLen);
}

void checkItem(RIX_ResultSetToken_t rs, const RIX_StatData_t &data)
{
    checkText(rs, data.statIdPtr, data.statIdLen);
    checkText(rs, data.statValuePtr, data.statValueLen);
}

// Returns the number of items.
template <class Data>
int walk(RIX_ResultSetToken_t rs, Read<Data> first, Read<Data> next)
{
    int items = 0;
    Data data;
    int rc = first(rs, &data);
    for (; rc == STAPI_OK; rc = next(rs, &data)) {
        require(memcmp(data.eyecatcher, rs->rsBuffPtr, EYECATCHER_SIZE) == 0, "an item has its eyecatcher");
        checkText(rs, data.queryElementPtr, data.queryElementLen);
        if (data.queryElementRC >= 0) checkItem(rs, data);
        require(++items <= rs->rsBuffLen, "a walk ends"); // an item takes a word at least
    }
    require(rc == STAPI_END_OF_RESULTS, "a walk ends with the end of results");
    require(next(rs, &data) == STAPI_END_OF_RESULTS, "the end of results stays");
    require(rixstats::wordAt(rs->cursor) == rixstats::RESULT_SET_TERMINATOR, "a walk ends at the terminator");
    return items;
}

template <class Data>
void checkSetOf(RIX_ResultSetToken_t rs, Read<Data> first, Read<Data> next)
{
    const int items = walk(rs, next, next);
    require(walk(rs, first, next) == items, "a walk that starts over delivers the same items");
    char *query = nullptr;
    const int rc = getIdQuery(rs, &query);
    require(rc == STAPI_OK || rc == STAPI_NO_IDS_FOR_QUERY, "a query text is made, or there are no identifiers");
    require(rc != STAPI_OK || (*query != '\0' && strlen(query) < QUERY_TEXT_SIZE), "a query text has its bounds");
    RIX_ResultSetToken_t copy = nullptr;
    require(copyResultSet(rs, &copy) == STAPI_OK && copy != nullptr, "a result set can be copied");
    require(walk(copy, next, next) == items, "a copy holds what was copied");
    require(freeResultSet(&copy) == STAPI_OK && copy == nullptr, "a copy can be freed");
}

} // namespace

void checkResultSet(RIX_ResultSetToken_t rs)
{
    // Storage dumps count on it; and a write of a few bytes too many would show here alone.
    const char *spare = rs->rsBuffPtr + rs->rsBuffLen;
    require(std::all_of(spare, spare + RESULT_SET_SPARE, [](char byte) { return byte == 0; }),
            "the spare bytes behind a result set are zero");
    if (rixstats::hasEyecatcher(rs->rsBuffPtr, rixstats::ID_SET_EYECATCHER))
        checkSetOf<RIX_IdData_t>(rs, getFirstId, getNextId);
    else
        checkSetOf<RIX_StatData_t>(rs, getFirstStat, getNextStat);
}

} // namespace fuzzing
