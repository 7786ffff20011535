#include "result_set_check.h"

#include "require.h"
#include "stapi_rix_resultsetbuffer.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

namespace fuzzing {
namespace {

// What a walk delivered: each item's result, and place and length of its texts. The places count from the start of the
// buffer, so that a result set and its copy compare equal.
using Items = std::vector<std::ptrdiff_t>;

constexpr int FIRST_ELEMENT = EYECATCHER_SIZE + 4; // behind the count

// What identifiers and statistics differ in.
template <class Data>
struct Kind
{
    const char *eyecatcher;
    std::size_t itemFields; // where they start: they stay as they were where an element failed
    int (*first)(RIX_ResultSetToken_t, Data *);
    int (*next)(RIX_ResultSetToken_t, Data *);
};
constexpr Kind<RIX_IdData_t> IDS = {rixstats::ID_SET_EYECATCHER, offsetof(RIX_IdData_t, idLen), getFirstId, getNextId};
constexpr Kind<RIX_StatData_t> STATS = {rixstats::STAT_SET_EYECATCHER, offsetof(RIX_StatData_t, statIdLen),
                                        getFirstStat, getNextStat};

// The terminator has to have room behind every text.
void addText(Items &items, RIX_ResultSetToken_t rs, const char *text, int length)
{
    require(text != nullptr && length >= 0, "an item's text has a place and a length");
    const std::ptrdiff_t offset = text - rs->rsBuffPtr;
    require(offset >= FIRST_ELEMENT && offset + length <= rs->rsBuffLen - 4, "an item lies inside the result set");
    items.insert(items.end(), {offset, length});
}

void addItemTexts(Items &items, RIX_ResultSetToken_t rs, const RIX_IdData_t &data)
{
    addText(items, rs, data.idPtr, data.idLen);
}

void addItemTexts(Items &items, RIX_ResultSetToken_t rs, const RIX_StatData_t &data)
{
    addText(items, rs, data.statIdPtr, data.statIdLen);
    addText(items, rs, data.statValuePtr, data.statValueLen);
}

template <class Data>
bool isBlank(const Data &data, std::size_t from)
{
    const char *bytes = reinterpret_cast<const char *>(&data);
    return std::all_of(bytes + from, bytes + sizeof data, [](char byte) { return byte == 'b'; });
}

template <class Data>
Items walk(const Kind<Data> &kind, RIX_ResultSetToken_t rs, int (*read)(RIX_ResultSetToken_t, Data *))
{
    Items items;
    const std::size_t mostNumbers = static_cast<std::size_t>(rs->rsBuffLen) * 2; // an item takes a word at least
    Data data;
    memset(&data, 'b', sizeof data);
    int rc = read(rs, &data);
    for (; rc == STAPI_OK; rc = kind.next(rs, &data)) {
        require(memcmp(data.eyecatcher, kind.eyecatcher, EYECATCHER_SIZE) == 0, "an item has its eyecatcher");
        items.push_back(data.queryElementRC);
        addText(items, rs, data.queryElementPtr, data.queryElementLen);
        if (data.queryElementRC >= 0)
            addItemTexts(items, rs, data);
        else
            require(isBlank(data, kind.itemFields), "the item fields of an element that failed stay as they were");
        require(items.size() <= mostNumbers, "a walk ends");
        memset(&data, 'b', sizeof data);
    }
    require(rc == STAPI_END_OF_RESULTS, "a walk ends with the end of results");
    require(isBlank(data, kind.itemFields), "the end of results delivers nothing");
    require(kind.next(rs, &data) == STAPI_END_OF_RESULTS, "the end of results stays");
    return items;
}

void checkQueryText(RIX_ResultSetToken_t rs)
{
    char *query = nullptr;
    const int rc = getIdQuery(rs, &query);
    if (rc == STAPI_OK)
        require(query != nullptr && *query != '\0' && strlen(query) < QUERY_TEXT_SIZE, "a query text has its bounds");
    else
        require(rc == STAPI_NO_IDS_FOR_QUERY && query == nullptr, "a query text is made, or there are no identifiers");
}

template <class Data>
void checkSetOf(const Kind<Data> &kind, RIX_ResultSetToken_t rs)
{
    const Items items = walk(kind, rs, kind.next);
    const std::ptrdiff_t end = rs->cursor - rs->rsBuffPtr;
    require(end >= FIRST_ELEMENT && end <= rs->rsBuffLen - 4, "a walk ends inside the result set");
    require(rixstats::wordAt(rs->cursor) == rixstats::RESULT_SET_TERMINATOR, "a walk ends at the terminator");
    require(walk(kind, rs, kind.first) == items, "a walk that starts over delivers the same items");
    checkQueryText(rs);
    RIX_ResultSetToken_t copy = nullptr;
    require(copyResultSet(rs, &copy) == STAPI_OK && copy != nullptr, "a result set can be copied");
    require(copy->rsBuffPtr != rs->rsBuffPtr, "a copy has a buffer of its own");
    require(walk(kind, copy, kind.next) == items, "a copy holds what was copied");
    require(freeResultSet(&copy) == STAPI_OK && copy == nullptr, "a copy can be freed");
}

} // namespace

void checkResultSet(RIX_ResultSetToken_t rs)
{
    // Storage dumps count on it; and a write of a few bytes too many would show here alone.
    const char *spare = rs->rsBuffPtr + rs->rsBuffLen;
    require(std::all_of(spare, spare + RESULT_SET_SPARE, [](char byte) { return byte == 0; }),
            "the spare bytes behind a result set are zero");
    RIX_IdData_t id;
    RIX_StatData_t stat;
    if (rixstats::hasEyecatcher(rs->rsBuffPtr, IDS.eyecatcher)) {
        require(getFirstStat(rs, &stat) == STAPI_UNRECOGNISED_CONTENT, "identifiers are not read as statistics");
        checkSetOf(IDS, rs);
    } else {
        require(getFirstId(rs, &id) == STAPI_UNRECOGNISED_CONTENT, "statistics are not read as identifiers");
        checkSetOf(STATS, rs);
    }
}

} // namespace fuzzing
