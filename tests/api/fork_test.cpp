// A connection is of the process that opened it, also behind a second fork, and however often the process id has been asked
// for before: each process notices that it is another one.
#include "gateway_fixture.h"

namespace {

using namespace apitest;

class ForkTest : public GatewayTest
{
protected:
    struct Opened
    {
        RIX_GatewayToken_t token;
        RIX_ResultSetToken_t resultSet;
    };
    struct Pair
    {
        Opened ids, stats;
    };

    Opened openAndAsk(const Query &query)
    {
        if (connect() != STAPI_OK) throw std::runtime_error("cannot open a connection");
        return {gateway, ask(query)};
    }
    Pair openPair() { return {openAndAsk(kIds), openAndAsk(kStats)}; }

    // The queries and steps of a walk that do not have the given result.
    static int countUnlike(int expected, const Pair &pair)
    {
        int count = 0;
        RIX_IdData_t id;
        RIX_StatData_t stat;
        for (const auto read : {getFirstId, getNextId})
            count += read(pair.ids.resultSet, &id) != expected;
        for (const auto read : {getFirstStat, getNextStat})
            count += read(pair.stats.resultSet, &stat) != expected;
        for (const Opened &opened : {pair.ids, pair.stats})
            for (const Query &query : kQueries) {
                RIX_ResultSetToken_t resultSet = nullptr;
                count += query.ask(opened.token, "Workers", &resultSet) != expected;
                count += (resultSet != nullptr) != (expected == STAPI_OK);
            }
        // The queries have left results of the other kind.
        askAgain(pair.ids, kIds, expected, &count);
        askAgain(pair.stats, kStats, expected, &count);
        return count;
    }

private:
    static void askAgain(const Opened &connection, const Query &query, int expected, int *count)
    {
        RIX_ResultSetToken_t resultSet = nullptr;
        *count += query.ask(connection.token, "", &resultSet) != expected;
    }
};

TEST_F(ForkTest, NeitherAChildNorItsChildMayUseAConnectionThatWasOpenedBefore)
{
    start();
    const Pair ours = openPair();
    EXPECT_EQ(0, countUnlike(STAPI_OK, ours));
    const int wrong = inChild([&] {
        int count = countUnlike(STAPI_WRONG_PROCESS, ours);
        const Pair childs = openPair();
        count += countUnlike(STAPI_OK, childs) + countUnlike(STAPI_WRONG_PROCESS, ours);
        count -=
            inChild([&] { return -countUnlike(STAPI_WRONG_PROCESS, ours) - countUnlike(STAPI_WRONG_PROCESS, childs); });
        count += countUnlike(STAPI_OK, childs); // another process has not taken them over
        for (RIX_GatewayToken_t token : {childs.ids.token, childs.stats.token})
            count += closeGatewayConnection(&token) != STAPI_OK;
        return -count;
    });
    EXPECT_EQ(0, wrong) << "calls in a child and its child";
    EXPECT_EQ(0, countUnlike(STAPI_OK, ours)) << "the parent's own";
}

} // namespace
