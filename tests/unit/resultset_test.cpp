// Result sets in memory: the writers of their words, and the walks of the iterators' workers.
#include "gateway_fixture.h"
#include "stapi_rix_impl.h"
#include "stapi_rix_resultsetbuffer.h"
#include "unit_support.h"

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
}

TEST(ResultSetWriters, RecogniseTheTerminatorByItsExactValueOnly)
{
    for (const int value : {0x0E0F0E0F, 0x0E0F0E0E, 0x0F0F0E0F, 0x0E0E0E0F, 0x0E0F0F0F}) {
        int isTerminator = -1;
        EXPECT_EQ(checkTerminator(word(value).data(), &isTerminator), STAPI_OK);
        EXPECT_EQ(isTerminator, value == 0x0E0F0E0F ? 1 : 0) << std::hex << value;
    }
}

TEST(ResultSetToken, HasNoUnknownOwner)
{
    RIX_ResultSetToken_t token = nullptr;
    EXPECT_EQ(createResultSet(&token, "RIXRSROB", 0x8889), STAPI_BAD_RESULT_SET_OWNER);
    EXPECT_EQ(token, nullptr);
}

// ---- Walks, of statistics: those of identifiers are the same but for the value

std::string item(const std::string &id, const std::string &value)
{
    return counted(id) + counted(value);
}

// The walked copy ends with the terminator: a read past it is seen.
struct WalkedSet
{
    explicit WalkedSet(const std::string &content) : buffer(exactCopy("RIXSTSET" + content + TERMINATOR))
    {
        token.rsBuffPtr = token.cursor = buffer.get();
    }

    const std::unique_ptr<char[]> buffer;
    Internal_ResultSetToken_t token = {};
};

TEST(ResultSetWalk, DeliversEveryElementAndItemByFirstOrNextAlike)
{
    const std::pair<std::string, Walk> cases[] = {
        {"", {}},
        {word(0), {}},
        {word(4) + counted("zz") + word(-1) + counted("q1") + word(0) + word(2) + item("ab", "42") + item("xyz", "") +
             counted("") + word(7) + word(1) + item("", "v") + counted("last") + word(-200),
         {"zz(-1)", "q1(0) ab=42", "q1(0) xyz=", "(7) =v", "last(-200)"}},
        {word(3) + counted("n1") + word(0) + word(0) + counted("q") + word(0) + word(1) + item("a", "1") +
             counted("n2") + word(3) + word(0),
         {"n1(0) =", "q(0) a=1", "n2(3) ="}},
    };
    for (const auto &[content, expected] : cases) {
        WalkedSet set(content);
        for (const auto first : {getNextStatInternal, getFirstStatInternal, getFirstStatInternal})
            EXPECT_EQ(apitest::walk<RIX_StatData_t>(&set.token, first, getNextStatInternal), expected);
        set.token.queryIndex = 0; // as a query leaves it
        EXPECT_EQ(apitest::walk<RIX_StatData_t>(&set.token, getNextStatInternal, getNextStatInternal), expected);
    }
}

TEST(ResultSetWalk, RepeatsTheElementAndRestartsAtAnyTime)
{
    WalkedSet set(word(1) + counted("q1") + word(0) + word(2) + item("a", "1") + item("b", "2"));
    RIX_StatData_t record = {};
    for (int times = 0; times < 2; times++) {
        EXPECT_EQ(getFirstStatInternal(&set.token, &record), STAPI_OK);
        EXPECT_EQ(apitest::describe(record), "q1(0) a=1");
        EXPECT_EQ(getNextStatInternal(&set.token, &record), STAPI_OK);
        EXPECT_EQ(apitest::describe(record), "q1(0) b=2");
        EXPECT_EQ(record.queryElementPtr, set.buffer.get() + 16);
    }
}

} // namespace
