// The six queries and the walks over their answers.
#include "gateway_fixture.h"

using namespace apitest;
using namespace rixgwsim;
using testing::AnyOf;

namespace {

struct Query
{
    const char *name;
    int (*all)(RIX_GatewayToken_t, RIX_ResultSetToken_t *);                 // of these two
    int (*byIds)(RIX_GatewayToken_t, const char *, RIX_ResultSetToken_t *); // one is set
    const char *action;
    Walk (*read)(RIX_ResultSetToken_t);

    int call(RIX_GatewayToken_t token, const char *text, RIX_ResultSetToken_t *out) const
    {
        return all != nullptr ? all(token, out) : byIds(token, text, out);
    }
};

const Query kGroupIds = {"getResourceGroupIds", getResourceGroupIds, nullptr, "RESOURCE_GROUPS", readIds};
const Query kIds = {"getStatIds", getStatIds, nullptr, "STAT_IDS", readIds};
const Query kStats = {"getStats", getStats, nullptr, "GET_STATS", readStats};
const Query kIdsByGroup = {"getStatIdsByStatGroupId", nullptr, getStatIdsByStatGroupId, "STAT_IDS", readIds};
const Query kStatsById = {"getStatsByStatId", nullptr, getStatsByStatId, "GET_STATS", readStats};
const Query kStatsByGroup = {"getStatsByStatGroupId", nullptr, getStatsByStatGroupId, "GET_STATS", readStats};
const Query kQueries[] = {kGroupIds, kIds, kStats, kIdsByGroup, kStatsById, kStatsByGroup};

class QueryTest : public GatewayTest
{
protected:
    RIX_ResultSetToken_t ask(const Query &query, const std::string &text = "") const
    {
        RIX_ResultSetToken_t resultSet = nullptr;
        EXPECT_EQ(STAPI_OK, query.call(gateway, text.c_str(), &resultSet)) << query.name;
        return resultSet;
    }
    Walk answer(const Query &query, const std::string &text = "") const { return query.read(ask(query, text)); }

    // A query that must end its connection, and the handle with it, but not the next connection.
    void expectConnectionEnd(const Query &query, testing::Matcher<int> code, const Faults &faults)
    {
        simulator->setFaults(faults);
        RIX_ResultSetToken_t resultSet = nullptr;
        EXPECT_THAT(query.call(gateway, "Workers", &resultSet), code) << query.name;
        EXPECT_EQ(nullptr, resultSet);
        EXPECT_EQ(STAPI_GATEWAY_TOKEN_NOT_FOUND, query.call(gateway, "Workers", &resultSet)) << query.name;
        EXPECT_EQ(STAPI_GATEWAY_TOKEN_NOT_FOUND, closeGatewayConnection(&gateway));
        simulator->setFaults({});
        ASSERT_EQ(STAPI_OK, connect());
    }
};

TEST_F(QueryTest, ArgumentsAreCheckedInOrderBeforeAnythingIsSent)
{
    open();
    auto *const unknown = reinterpret_cast<RIX_GatewayToken_t>(&version);
    for (const Query &query : kQueries) {
        SCOPED_TRACE(query.name);
        simulator->clearRequests();
        RIX_ResultSetToken_t resultSet = nullptr;
        const int noText = query.all != nullptr ? STAPI_NULL_RESULT_SET_PTR : STAPI_NULL_QUERY_STRING;
        EXPECT_EQ(STAPI_NULL_GATEWAY_TOKEN, query.call(nullptr, nullptr, nullptr));
        EXPECT_EQ(noText, query.call(unknown, nullptr, nullptr));
        EXPECT_EQ(STAPI_NULL_RESULT_SET_PTR, query.call(unknown, "x", nullptr));
        EXPECT_EQ(STAPI_GATEWAY_TOKEN_NOT_FOUND, query.call(unknown, "x", &resultSet));
        EXPECT_EQ(STAPI_WRONG_THREAD, inThread([&] { return query.call(gateway, "x", &resultSet); }));
        EXPECT_EQ(STAPI_WRONG_PROCESS, inChild([&] { return query.call(gateway, "x", &resultSet); }));
        char *const buffer = std::exchange(gateway->resultSetBuf, nullptr);
        EXPECT_EQ(STAPI_NO_RESULT_SET_BUFFER, query.call(gateway, "x", &resultSet));
        gateway->resultSetBuf = buffer;
        EXPECT_EQ(nullptr, resultSet);
        EXPECT_TRUE(simulator->requests().empty());
        EXPECT_FALSE(answer(query, "Workers").empty()); // the connection has not suffered
    }
}

TEST_F(QueryTest, EachQueryDeliversWhatTheGatewayHas)
{
    const Walk values = {"*ALL*(0) Received=48", "*ALL*(0) Refused=2", "*ALL*(0) Busy=7"};
    const struct
    {
        const Query &query;
        std::string text;
        Walk expected;
    } rows[] = {
        {kGroupIds, "", {"*ALL*(0) Requests", "*ALL*(0) Workers"}},
        {kIds, "", {"*ALL*(0) Received", "*ALL*(0) Refused", "*ALL*(0) Busy"}},
        {kStats, "", values},
        {kIdsByGroup,
         "Workers:nosuch:Requests",
         {"Workers(0) Busy", "nosuch(-1)", "Requests(0) Received", "Requests(0) Refused"}},
        {kStatsById, "Busy:Received", {"Busy(0) Busy=7", "Received(0) Received=48"}},
        {kStatsById, "", values},
        {kStatsByGroup, "nosuch:Requests", {"nosuch(-1)", "Requests(0) Received=48", "Requests(0) Refused=2"}},
    };
    open();
    for (const auto &[query, text, expected] : rows) {
        const RIX_ResultSetToken_t resultSet = ask(query, text);
        EXPECT_EQ(gateway->connRSPtr, resultSet); // the same handle each time
        EXPECT_EQ(expected, query.read(resultSet)) << query.name << " " << text;
        EXPECT_EQ(query.action, simulator->requests().back().action);
        EXPECT_EQ(text, simulator->requests().back().argument);
    }
}

TEST_F(QueryTest, NextQueryReplacesAndRewindsTheResultSet)
{
    RIX_IdData_t id = {};
    open();
    const RIX_ResultSetToken_t first = ask(kIds);
    EXPECT_EQ(STAPI_OK, getFirstId(first, &id));
    EXPECT_EQ(STAPI_OK, getNextId(first, &id));
    EXPECT_EQ("*ALL*(0) Refused", describe(id));
    ask(kGroupIds);
    EXPECT_EQ(STAPI_OK, getNextId(first, &id)); // a walk may begin with the next item
    EXPECT_EQ("*ALL*(0) Requests", describe(id));
    ask(kStats);
    EXPECT_EQ(STAPI_UNRECOGNISED_CONTENT, getNextId(first, &id));
    EXPECT_EQ(3u, readStats(first).size());
}

template <class Data, class Read>
void checkIteratorCodes(Read read, RIX_ResultSetToken_t right, RIX_ResultSetToken_t wrong, int noData)
{
    Data data = {};
    EXPECT_EQ(STAPI_NULL_RESULT_SET_TOKEN, read(nullptr, nullptr));
    EXPECT_EQ(noData, inThread([=] { return read(wrong, nullptr); }));
    EXPECT_EQ(STAPI_UNRECOGNISED_CONTENT, inThread([&] { return read(wrong, &data); }));
    EXPECT_EQ(STAPI_WRONG_THREAD, inThread([&] { return read(right, &data); }));
    EXPECT_EQ(STAPI_WRONG_PROCESS, inChild([&] { return read(right, &data); }));
    EXPECT_EQ(STAPI_OK, read(right, &data));
}

TEST_F(QueryTest, IteratorArgumentsAreCheckedInOrder)
{
    open();
    const RIX_ResultSetToken_t ids = ask(kIds);
    ASSERT_EQ(STAPI_OK, connect());
    const RIX_ResultSetToken_t stats = ask(kStats);
    checkIteratorCodes<RIX_IdData_t>(getFirstId, ids, stats, STAPI_NULL_ID_DATA_PTR);
    checkIteratorCodes<RIX_IdData_t>(getNextId, ids, stats, STAPI_NULL_ID_DATA_PTR);
    checkIteratorCodes<RIX_StatData_t>(getFirstStat, stats, ids, STAPI_NULL_STAT_DATA_PTR);
    checkIteratorCodes<RIX_StatData_t>(getNextStat, stats, ids, STAPI_NULL_STAT_DATA_PTR);
}

TEST_F(QueryTest, FailedElementLeavesTheItemFieldsAlone)
{
    char before[] = "before";
    RIX_IdData_t id = {{}, nullptr, 0, 0, 6, before};
    RIX_StatData_t stat = {{}, nullptr, 0, 0, 6, before, 6, before};
    open();
    for (const auto read : {getFirstId, getNextId}) {
        EXPECT_EQ(STAPI_OK, read(ask(kIdsByGroup, "nosuch"), &id));
        EXPECT_EQ("nosuch(-1)", describe(id));
        EXPECT_TRUE(id.idLen == 6 && id.idPtr == before);
    }
    for (const auto read : {getFirstStat, getNextStat}) {
        EXPECT_EQ(STAPI_OK, read(ask(kStatsById, "nosuch"), &stat));
        EXPECT_EQ("nosuch(-1)", describe(stat));
        EXPECT_TRUE(stat.statIdLen == 6 && stat.statIdPtr == before && stat.statValueLen == 6 &&
                    stat.statValuePtr == before);
    }
}

TEST_F(QueryTest, LongestQueryTextHas32765Bytes)
{
    open();
    const std::string longest(32765, 'q');
    EXPECT_EQ(Walk{longest + "(-1)"}, answer(kStatsById, longest));
    EXPECT_EQ(longest, simulator->requests().back().argument);
    RIX_ResultSetToken_t resultSet = nullptr;
    EXPECT_EQ(STAPI_NO_MEMORY, getStatsByStatId(gateway, (longest + "q").c_str(), &resultSet));
}

TEST_F(QueryTest, RefusalsAndLossesEndTheConnection)
{
    const int failed = STAPI_GATEWAY_EXCHANGE_FAILED;
    open();
    for (const Query &query : kQueries) {
        for (const int flow : {6, 7}) { // the initial request, the invocation
            SCOPED_TRACE("flow " + std::to_string(flow));
            expectConnectionEnd(query, failed, refusal(flow, 7));
            expectConnectionEnd(query, STAPI_COMMS_FAILURE, refusal(flow, -1));
            expectConnectionEnd(query, failed, refusal(flow, -4));
            expectConnectionEnd(query, failed, refusal(flow, 0xF004));
            expectConnectionEnd(query, failed, refusal(flow, 0, -1));
            expectConnectionEnd(query, AnyOf(STAPI_COMMS_FAILURE, failed), dropAfter(flow - 1));
            for (const std::size_t sent : {0u, 3u, 30u, 34u, 42u, 45u})
                expectConnectionEnd(query, failed, dropInside(flow, sent));
        }
        expectConnectionEnd(query, failed, refusal(7, 0, 0, true));
        expectConnectionEnd(query, failed, dropInside(7, 60)); // in the call data
    }
}

} // namespace
