// Result sets in memory: the writers of their words, the tokens, and the walks of the iterators' workers.
#include "stapi_rix_impl.h"
#include "stapi_rix_resultsetbuffer.h"
#include "unit_support.h"

#include <gmock/gmock.h>
#include <thread>
#include <vector>

using namespace rixstats;
using namespace unit;
using testing::ElementsAre;

namespace {

// ---- Writers

TEST(ResultSetWriters, WriteThePackedFormatAtAnyAddress)
{
    for (size_t start = 0; start < 4; start++) {
        char area[128] = {};
        char *const first = area + start;
        char *cursor = first;
        EXPECT_EQ(addTerminator(first), STAPI_OK);
        EXPECT_EQ(addPlatformChars(&cursor, STAT_SET_EYECATCHER, 8), STAPI_OK);
        for (const int value : {2, -1, 0x01020304})
            EXPECT_EQ(addInteger(&cursor, value), STAPI_OK);
        EXPECT_EQ(addChars(&cursor, "s1zz", 2), STAPI_OK);
        EXPECT_EQ(addChars(&cursor, nullptr, 0), STAPI_OK);
        EXPECT_EQ(addIdStr(&cursor, "abc"), STAPI_OK);
        cursor[4] = 'Z';
        EXPECT_EQ(addIdStr(&cursor, ""), STAPI_OK);
        EXPECT_EQ(*cursor, '\0');
        EXPECT_EQ(addTerminator(cursor), STAPI_OK);
        const std::string expected = "RIXSTSET" + word(2) + word(-1) + word(0x01020304) + "s1" + counted("abc") +
                                     word(0) + TERMINATOR + std::string(8, '\0');
        EXPECT_EQ(std::string(first, expected.size()), expected);
    }
}

TEST(ResultSetWriters, RecogniseTheTerminatorByItsExactValueOnly)
{
    for (const int value : {0x0E0F0E0F, 0, 0x0F0E0F0E, 0x0E0F0E0E, 0x0F0F0E0F, 0x0E0E0E0F, 0x0E0F0F0F}) {
        int isTerminator = -1;
        EXPECT_EQ(checkTerminator(word(value).data(), &isTerminator), STAPI_OK);
        EXPECT_EQ(isTerminator, value == 0x0E0F0E0F ? 1 : 0) << std::hex << value;
    }
}

TEST(ResultSetWriters, RefuseNullPointersAndTouchNothing)
{
    char *none = nullptr;
    char text[] = "untouched";
    char *cursor = text;
    int isTerminator = 7;
    EXPECT_EQ(addInteger(&none, 1), STAPI_NULL_ARGUMENT);
    EXPECT_EQ(addChars(&none, text, 3), STAPI_NULL_ARGUMENT);
    EXPECT_EQ(addPlatformChars(&none, text, 3), STAPI_NULL_ARGUMENT);
    EXPECT_EQ(addIdStr(&none, text), STAPI_NULL_ARGUMENT);
    EXPECT_EQ(addIdStr(nullptr, text), STAPI_NULL_ARGUMENT);
    EXPECT_EQ(addIdStr(&cursor, nullptr), STAPI_NULL_ARGUMENT);
    EXPECT_EQ(addTerminator(nullptr), STAPI_NULL_ARGUMENT);
    EXPECT_EQ(checkTerminator(nullptr, &isTerminator), STAPI_NULL_ARGUMENT);
    EXPECT_EQ(checkTerminator(text, nullptr), STAPI_NULL_ARGUMENT);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(cursor, text);
    EXPECT_STREQ(text, "untouched");
    EXPECT_EQ(isTerminator, 7);
}

// ---- Tokens

TEST(ResultSetToken, IsCreatedForKnownOwnersAndDeletedWithItsTexts)
{
    RIX_ResultSetToken_t token = nullptr;
    EXPECT_EQ(createResultSet(nullptr, "RIXRSROB", OWNER_LIBRARY), STAPI_NULL_ARGUMENT);
    EXPECT_EQ(createResultSet(&token, nullptr, OWNER_LIBRARY), STAPI_NULL_ARGUMENT);
    for (const int owner : {0, 0x8889, -1})
        EXPECT_EQ(createResultSet(&token, "RIXRSROB", owner), STAPI_BAD_RESULT_SET_OWNER);
    EXPECT_EQ(token, nullptr);

    for (const int owner : {OWNER_LIBRARY, OWNER_USER}) {
        ASSERT_EQ(createResultSet(&token, owner == OWNER_LIBRARY ? "RIXRSROB" : "RIXRSUSR", owner), STAPI_OK);
        EXPECT_EQ(std::string(token->eyecatcher, 8), owner == OWNER_LIBRARY ? "RIXRSROB" : "RIXRSUSR");
        EXPECT_EQ(token->owner, owner);
        EXPECT_EQ(token->queryIndex, 0);
        EXPECT_EQ(token->queryString, nullptr);
        EXPECT_EQ(std::string(token->validatedQueryPtr, QUERY_TEXT_SIZE), std::string(32000, '\0'));
        token->queryString = strdup("a:b");
        EXPECT_EQ(deleteResultSet(&token), STAPI_OK);
        EXPECT_EQ(token, nullptr);
    }
    EXPECT_EQ(deleteResultSet(nullptr), STAPI_NULL_RESULT_SET_PTR);
    EXPECT_EQ(deleteResultSet(&token), STAPI_NULL_RESULT_SET_TOKEN);
}

TEST(ResultSetToken, BelongsToTheProcessAndThreadThatCreatedIt)
{
    RIX_ResultSetToken_t token = nullptr;
    ASSERT_EQ(createResultSet(&token, "RIXRSROB", OWNER_LIBRARY), STAPI_OK);
    EXPECT_EQ(verifyAPIResultSetTokenOwner(token), STAPI_OK);
    int rc = 0;
    std::thread([&] { rc = verifyAPIResultSetTokenOwner(token); }).join();
    EXPECT_EQ(rc, STAPI_WRONG_THREAD);
    token->owningPid++;
    std::thread([&] { rc = verifyAPIResultSetTokenOwner(token); }).join();
    EXPECT_EQ(rc, STAPI_WRONG_PROCESS); // tested before the thread
    deleteResultSet(&token);
}

// ---- Walks

struct Ids
{
    typedef RIX_IdData_t Record;
    static constexpr const char *EYECATCHER = "RIXIDSET";
    static constexpr auto first = getFirstIdInternal;
    static constexpr auto next = getNextIdInternal;
    static std::string item(const std::string &id, const std::string &) { return counted(id); }
    static std::string text(const Record &r)
    {
        EXPECT_NE(r.idPtr, nullptr);
        return std::string(r.idPtr, static_cast<size_t>(r.idLen));
    }
    static std::string shown(const std::string &id, const std::string &) { return id; }
};

struct Stats
{
    typedef RIX_StatData_t Record;
    static constexpr const char *EYECATCHER = "RIXSTSET";
    static constexpr auto first = getFirstStatInternal;
    static constexpr auto next = getNextStatInternal;
    static std::string item(const std::string &id, const std::string &value) { return counted(id) + counted(value); }
    static std::string text(const Record &r)
    {
        EXPECT_TRUE(r.statIdPtr != nullptr && r.statValuePtr != nullptr);
        return shown(std::string(r.statIdPtr, static_cast<size_t>(r.statIdLen)),
                     std::string(r.statValuePtr, static_cast<size_t>(r.statValueLen)));
    }
    static std::string shown(const std::string &id, const std::string &value) { return id + "=" + value; }
};

template <typename Kind>
class ResultSetWalk : public testing::Test
{
protected:
    typedef typename Kind::Record Record;
    typedef int (*Step)(Internal_ResultSetToken_t *, Record *);

    // What follows the eyecatcher. The copy ends with the terminator: a read past it is seen.
    void fill(const std::string &content)
    {
        buffer = exactCopy(Kind::EYECATCHER + content + TERMINATOR);
        token = Internal_ResultSetToken_t();
        token.rsBuffPtr = token.cursor = buffer.get();
    }

    // One step as a text: the code if it is not 0, else element, its result and, unless that is negative, the item. What
    // is not delivered stays as it was.
    std::string step(Step call)
    {
        Record before;
        memset(&before, 'u', sizeof before);
        record = before;
        const int rc = call(&token, &record);
        size_t kept = sizeof record; // where what is not delivered begins
        if (rc != STAPI_OK)
            kept = sizeof record.eyecatcher;
        else if (record.queryElementRC < 0)
            kept = offsetof(Record, queryElementRC) + sizeof(int);
        const auto tail = [kept](const Record &r) {
            return std::string(reinterpret_cast<const char *>(&r) + kept, sizeof r - kept);
        };
        EXPECT_EQ(tail(record), tail(before));
        if (rc != STAPI_OK) return std::to_string(rc);
        EXPECT_EQ(std::string(record.eyecatcher, 8), Kind::EYECATCHER);
        const std::string element = std::string(record.queryElementPtr, static_cast<size_t>(record.queryElementLen)) +
                                    " " + std::to_string(record.queryElementRC);
        return record.queryElementRC < 0 ? element : element + " " + Kind::text(record);
    }

    // All steps up to the end, which stays the end.
    std::vector<std::string> walk(Step start)
    {
        std::vector<std::string> steps;
        for (steps.push_back(step(start)); steps.back() != END && steps.size() < 20;)
            steps.push_back(step(Kind::next));
        for (int i = 0; i < 3; i++)
            EXPECT_EQ(step(Kind::next), END);
        return steps;
    }

    const std::string END = "-113";
    std::unique_ptr<char[]> buffer;
    Internal_ResultSetToken_t token = {};
    Record record = {};
};

typedef testing::Types<Ids, Stats> Kinds;
TYPED_TEST_SUITE(ResultSetWalk, Kinds, );

TYPED_TEST(ResultSetWalk, DeliversEveryElementAndItemByFirstOrNextAlike)
{
    const std::string good = word(2) + TypeParam::item("ab", "42") + TypeParam::item("xyz", "");
    this->fill(word(4) + counted("zz") + word(-1) + counted("q1") + word(0) + good + counted("") + word(7) + word(1) +
               TypeParam::item("", "v") + counted("last") + word(-200));
    const auto ab = "q1 0 " + TypeParam::shown("ab", "42"), xyz = "q1 0 " + TypeParam::shown("xyz", "");
    const auto noName = " 7 " + TypeParam::shown("", "v");
    const auto steps = ElementsAre("zz -1", ab, xyz, noName, "last -200", this->END);
    EXPECT_THAT(this->walk(TypeParam::first), steps);
    EXPECT_THAT(this->walk(TypeParam::first), steps);
    this->token.queryIndex = 0; // as a query leaves it
    EXPECT_THAT(this->walk(TypeParam::next), steps);
}

TYPED_TEST(ResultSetWalk, RepeatsTheElementAndRestartsAtAnyTime)
{
    this->fill(word(1) + counted("q1") + word(0) + word(2) + TypeParam::item("a", "1") + TypeParam::item("b", "2"));
    const std::string a = "q1 0 " + TypeParam::shown("a", "1"), b = "q1 0 " + TypeParam::shown("b", "2");
    EXPECT_EQ(this->step(TypeParam::next), a);
    const char *element = this->record.queryElementPtr;
    EXPECT_EQ(element, this->buffer.get() + 16);
    EXPECT_EQ(this->step(TypeParam::first), a);
    EXPECT_EQ(this->step(TypeParam::next), b);
    EXPECT_EQ(this->record.queryElementPtr, element);
    EXPECT_EQ(this->step(TypeParam::first), a);
    EXPECT_THAT(this->walk(TypeParam::next), ElementsAre(b, this->END));
}

TYPED_TEST(ResultSetWalk, OfAnEmptySetEndsAtOnceAndForEver)
{
    for (const std::string &count : {std::string(), word(0)}) {
        this->fill(count);
        EXPECT_EQ(this->step(TypeParam::first), this->END);
        EXPECT_EQ(this->token.queryIndex, 0);
        EXPECT_EQ(this->token.cursor, this->buffer.get());
        EXPECT_THAT(this->walk(TypeParam::next), ElementsAre(this->END));
        EXPECT_THAT(this->walk(TypeParam::first), ElementsAre(this->END));
    }
}

TYPED_TEST(ResultSetWalk, DeliversAnElementWithoutItemsOnceWithLengthZero)
{
    this->fill(word(3) + counted("n1") + word(0) + word(0) + counted("q") + word(0) + word(1) +
               TypeParam::item("a", "1") + counted("n2") + word(3) + word(0));
    const auto steps = ElementsAre("n1 0 " + TypeParam::shown("", ""), "q 0 " + TypeParam::shown("a", "1"),
                                   "n2 3 " + TypeParam::shown("", ""), this->END);
    EXPECT_THAT(this->walk(TypeParam::first), steps);
    this->token.queryIndex = 0;
    EXPECT_THAT(this->walk(TypeParam::next), steps);
}

} // namespace
