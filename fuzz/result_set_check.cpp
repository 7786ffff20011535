#include "result_set_check.h"

#include "require.h"
#include "stapi_rix_resultsetbuffer.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

namespace fuzzing {
namespace {

// A text by its place in the buffer, so that those of a result set and of its copy compare equal.
struct Text
{
    std::ptrdiff_t offset;
    int length;
    bool operator==(const Text &other) const { return offset == other.offset && length == other.length; }
};

struct Item
{
    Text element;
    int code;
    std::vector<Text> texts; // identifier and value; none where the element failed
    bool operator==(const Item &other) const
    {
        return element == other.element && code == other.code && texts == other.texts;
    }
};

constexpr int FIRST_ELEMENT = EYECATCHER_SIZE + 4; // behind the count
constexpr int UNTOUCHED = -77;

// The terminator has to have room behind every text.
Text textInside(RIX_ResultSetToken_t rs, const char *text, int length)
{
    require(text != nullptr && length >= 0, "an item's text has a place and a length");
    const std::ptrdiff_t offset = text - rs->rsBuffPtr;
    require(offset >= FIRST_ELEMENT && offset + length <= rs->rsBuffLen - 4, "an item lies inside the result set");
    return {offset, length};
}

// What identifier and statistics sets differ in.
struct Ids
{
    using Data = RIX_IdData_t;
    static constexpr const char *EYECATCHER = rixstats::ID_SET_EYECATCHER;
    static constexpr auto first = getFirstId, next = getNextId;
    static std::vector<Text> textsOf(RIX_ResultSetToken_t rs, const Data &data)
    {
        return {textInside(rs, data.idPtr, data.idLen)};
    }
    static bool untouched(const Data &data) { return data.idPtr == nullptr && data.idLen == UNTOUCHED; }
    static Data blank()
    {
        Data data = {};
        data.idLen = UNTOUCHED;
        return data;
    }
};

struct Stats
{
    using Data = RIX_StatData_t;
    static constexpr const char *EYECATCHER = rixstats::STAT_SET_EYECATCHER;
    static constexpr auto first = getFirstStat, next = getNextStat;
    static std::vector<Text> textsOf(RIX_ResultSetToken_t rs, const Data &data)
    {
        return {textInside(rs, data.statIdPtr, data.statIdLen), textInside(rs, data.statValuePtr, data.statValueLen)};
    }
    static bool untouched(const Data &data)
    {
        return data.statIdPtr == nullptr && data.statIdLen == UNTOUCHED && data.statValuePtr == nullptr &&
               data.statValueLen == UNTOUCHED;
    }
    static Data blank()
    {
        Data data = {};
        data.statIdLen = data.statValueLen = UNTOUCHED;
        return data;
    }
};

template <class Kind>
Item itemOf(RIX_ResultSetToken_t rs, const typename Kind::Data &data)
{
    require(memcmp(data.eyecatcher, Kind::EYECATCHER, EYECATCHER_SIZE) == 0, "an item has its eyecatcher");
    Item item = {textInside(rs, data.queryElementPtr, data.queryElementLen), data.queryElementRC, {}};
    if (data.queryElementRC >= 0)
        item.texts = Kind::textsOf(rs, data);
    else
        require(Kind::untouched(data), "the item fields of an element that failed stay as they were");
    return item;
}

template <class Kind>
std::vector<Item> walk(RIX_ResultSetToken_t rs, int (*start)(RIX_ResultSetToken_t, typename Kind::Data *))
{
    std::vector<Item> items;
    const std::size_t mostItems = static_cast<std::size_t>(rs->rsBuffLen) / 4; // each takes a word at least
    typename Kind::Data data = Kind::blank();
    int rc = start(rs, &data);
    while (rc == STAPI_OK) {
        items.push_back(itemOf<Kind>(rs, data));
        require(items.size() <= mostItems, "a walk ends");
        data = Kind::blank();
        rc = Kind::next(rs, &data);
    }
    require(rc == STAPI_END_OF_RESULTS, "a walk ends with the end of results");
    require(Kind::untouched(data), "the end of results delivers nothing");
    require(Kind::next(rs, &data) == STAPI_END_OF_RESULTS, "the end of results stays");
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

template <class Kind>
void checkCopy(RIX_ResultSetToken_t rs, const std::vector<Item> &items)
{
    RIX_ResultSetToken_t copy = nullptr;
    require(copyResultSet(rs, &copy) == STAPI_OK && copy != nullptr, "a result set can be copied");
    require(copy->rsBuffPtr != rs->rsBuffPtr, "a copy has a buffer of its own");
    require(walk<Kind>(copy, Kind::next) == items, "a copy holds what was copied");
    require(freeResultSet(&copy) == STAPI_OK && copy == nullptr, "a copy can be freed");
}

template <class Kind>
void checkSetOf(RIX_ResultSetToken_t rs)
{
    const std::vector<Item> items = walk<Kind>(rs, Kind::next);
    const std::ptrdiff_t end = rs->cursor - rs->rsBuffPtr;
    require(end >= FIRST_ELEMENT && end <= rs->rsBuffLen - 4, "a walk ends inside the result set");
    require(rixstats::wordAt(rs->cursor) == rixstats::RESULT_SET_TERMINATOR, "a walk ends at the terminator");
    require(walk<Kind>(rs, Kind::first) == items, "a walk that starts over delivers the same items");
    checkQueryText(rs);
    checkCopy<Kind>(rs, items);
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
    if (rixstats::hasEyecatcher(rs->rsBuffPtr, rixstats::ID_SET_EYECATCHER)) {
        require(getFirstStat(rs, &stat) == STAPI_UNRECOGNISED_CONTENT, "identifiers are not read as statistics");
        checkSetOf<Ids>(rs);
    } else {
        require(getFirstId(rs, &id) == STAPI_UNRECOGNISED_CONTENT, "statistics are not read as identifiers");
        checkSetOf<Stats>(rs);
    }
}

} // namespace fuzzing
