// Result sets in memory: the writers of their words, and the walks of the iterators' workers.
#include "gateway_fixture.h"
#include "stapi_rix_flowarea.h"
#include "stapi_rix_impl.h"
#include "stapi_rix_resultsetbuffer.h"
#include "unit_support.h"

#include <algorithm>
#include <sys/mman.h>

using namespace rixstats;
using namespace unit;
using apitest::Walk;

namespace {

TEST(ResultSetWriters, WriteThePackedFormatAtAnyAddress)
{
    for (size_t start = 0; start < 4; start++) {
        char area[64] = {};
        char *cursor = area + start;
        addPlatformChars(&cursor, STAT_SET_EYECATCHER, 8);
        addInteger(&cursor, -2);
        addChars(&cursor, "s1zz", 2);
        addIdStr(&cursor, "abc");
        addIdStr(&cursor, "");
        addTerminator(cursor);
        const std::string expected = "RIXSTSET" + word(-2) + "s1" + counted("abc") + word(0) + TERMINATOR;
        EXPECT_EQ(std::string(area + start, expected.size()), expected);
    }
    int isTerminator = -1;
    for (const int other : {0x0E0F0E0E, 0x0F0F0E0F, 0x0E0E0E0F}) {
        EXPECT_EQ(checkTerminator(word(other).data(), &isTerminator), STAPI_OK);
        EXPECT_EQ(isTerminator, 0) << std::hex << other;
    }
    RIX_ResultSetToken_t token = nullptr;
    EXPECT_EQ(createResultSet(&token, "RIXRSROB", 0x8889), STAPI_BAD_RESULT_SET_OWNER);
}

// Of statistics: walks of identifiers are the same but for the value.
TEST(ResultSetWalk, DeliversEveryElementAndItemByFirstOrNextAlike)
{
    const std::pair<std::string, Walk> cases[] = {
        {"", {}},
        {word(0), {}},
        {word(4) + counted("zz") + word(-1) + counted("q1") + word(0) + word(2) + counted("ab") + counted("42") +
             counted("xyz") + counted("") + counted("") + word(7) + word(1) + counted("") + counted("v") +
             counted("last") + word(-200),
         {"zz(-1)", "q1(0) ab=42", "q1(0) xyz=", "(7) =v", "last(-200)"}},
        {word(3) + counted("n1") + word(0) + word(0) + counted("q") + word(0) + word(1) + counted("a") + counted("1") +
             counted("n2") + word(3) + word(0),
         {"n1(0) =", "q(0) a=1", "n2(3) ="}},
    };
    for (const auto &[content, expected] : cases) {
        const auto buffer = exactCopy("RIXSTSET" + content + TERMINATOR); // a read past its end is seen
        Internal_ResultSetToken_t set = {};
        set.rsBuffPtr = set.cursor = buffer.get();
        for (const auto first : {getNextStatInternal, getFirstStatInternal, getFirstStatInternal})
            EXPECT_EQ(apitest::walk<RIX_StatData_t>(&set, first, getNextStatInternal), expected);
    }
}

// Pages of the storage that take memory; -1 where it does not belong to the process any more.
std::ptrdiff_t touchedPages(const char *storage, size_t size)
{
    const uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE)), start = reinterpret_cast<uintptr_t>(storage);
    std::vector<unsigned char> pages(size / page + 2);
    void *const first = reinterpret_cast<void *>(start - start % page);
    if (mincore(first, start % page + size, pages.data()) != 0) return -1;
    return std::count_if(pages.begin(), pages.end(), [](unsigned char state) { return (state & 1) != 0; });
}

constexpr int LARGE_AREA = 29 << 20; // an allocator may keep so much

TEST(ResultSetArea, CopyTakesTheMemoryOfTheResultSetNotOfTheArea)
{
    const std::string content = "RIXSTSET" + word(1) + counted("e") + word(0) + word(0) + TERMINATOR + "behind it";
    Internal_ResultSetToken_t large = {};
    large.owner = OWNER_USER;
    large.rsBuffLen = LARGE_AREA;
    large.rsBuffPtr = growResultSetArea(newResultSetArea(64), LARGE_AREA);
    memset(large.rsBuffPtr, 'x', LARGE_AREA); // of an earlier answer
    content.copy(large.rsBuffPtr, content.size());
    setResultSetLength(large.rsBuffPtr, static_cast<int>(content.size()) - 9);
    Internal_ResultSetToken_t *copy = nullptr, *ofCopy = nullptr;
    ASSERT_EQ(copyResultSet(&large, &copy), STAPI_OK);
    ASSERT_EQ(copyResultSet(copy, &ofCopy), STAPI_OK);
    EXPECT_EQ(ofCopy->rsBuffLen, LARGE_AREA);
    EXPECT_EQ(touchedPages(ofCopy->rsBuffPtr, LARGE_AREA), 1);
    EXPECT_EQ(std::string(ofCopy->rsBuffPtr, content.size()), content); // a storage dump shows the rest of a line
    EXPECT_EQ(freeResultSet(&copy), STAPI_OK);
    EXPECT_EQ(freeResultSet(&ofCopy), STAPI_OK);
    freeResultSetArea(large.rsBuffPtr);
}

// An allocator keeps memory of a size that has come before.
TEST(ResultSetArea, LargeOnesAndThoseOfLargeRepliesGoBackToTheSystemEachTime)
{
    for (int i = 0; i < 3; i++) {
        char *const reply = newReplyArea(LARGE_AREA);
        memset(reply, 'x', LARGE_AREA);
        freeFlowArea(reply);
        EXPECT_EQ(touchedPages(reply, LARGE_AREA), -1);
        char *const resultSet = growResultSetArea(growResultSetArea(newResultSetArea(64), LARGE_AREA / 2), LARGE_AREA);
        memset(resultSet, 'x', LARGE_AREA);
        freeResultSetArea(resultSet);
        EXPECT_EQ(touchedPages(resultSet, LARGE_AREA), -1);
    }
}

} // namespace
