// The six queries and the walks over their answers.
#include "gateway_fixture.h"

using namespace apitest;
using namespace rixgwsim;
using testing::AnyOf;

namespace {

class QueryTest : public GatewayTest
{
protected:
    // A query that must end its connection, and the handle with it, but not the next connection.
    void expectConnectionEnd(const Query &query, testing::Matcher<int> code, const Faults &faults)
    {
        simulator->setFaults(faults);
        RIX_ResultSetToken_t resultSet = nullptr;
        EXPECT_THAT(query.ask(gateway, "Workers", &resultSet), code) << query.name;
        EXPECT_EQ(nullptr, resultSet);
        EXPECT_EQ(STAPI_GATEWAY_TOKEN_NOT_FOUND, query.ask(gateway, "Workers", &resultSet)) << query.name;
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
        const int noText = query.hasText ? STAPI_NULL_QUERY_STRING : STAPI_NULL_RESULT_SET_PTR;
        EXPECT_EQ(STAPI_NULL_GATEWAY_TOKEN, query.ask(nullptr, nullptr, nullptr));
        EXPECT_EQ(noText, query.ask(unknown, nullptr, nullptr));
        EXPECT_EQ(STAPI_NULL_RESULT_SET_PTR, query.ask(unknown, "x", nullptr));
        EXPECT_EQ(STAPI_GATEWAY_TOKEN_NOT_FOUND, query.ask(unknown, "x", &resultSet));
        EXPECT_EQ(STAPI_WRONG_THREAD, inThread([&] { return query.ask(gateway, "x", &resultSet); }));
        EXPECT_EQ(STAPI_WRONG_PROCESS, inChild([&] { return query.ask(gateway, "x", &resultSet); }));
        char *const buffer = std::exchange(gateway->resultSetBuf, nullptr);
        EXPECT_EQ(STAPI_NO_RESULT_SET_BUFFER, query.ask(gateway, "x", &resultSet));
        gateway->resultSetBuf = buffer;
        EXPECT_EQ(nullptr, resultSet);
        EXPECT_TRUE(simulator->requests().empty());
        EXPECT_FALSE(query.read(ask(query, "Workers")).empty()); // the connection has not suffered
    }
}

TEST_F(QueryTest, EachQueryDeliversWhatTheGatewayHas)
{
    const std::string longest(32765, 'q');
    const Walk values = {"*ALL*(0) Received=48", "*ALL*(0) Refused=2", "*ALL*(0) Busy=7"};
    const std::tuple<Query, std::string, Walk> rows[] = {
        {kGroupIds, "", {"*ALL*(0) Requests", "*ALL*(0) Workers"}},
        {kIds, "", {"*ALL*(0) Received", "*ALL*(0) Refused", "*ALL*(0) Busy"}},
        {kStats, "", values},
        {kIdsByGroup,
         "Workers:nosuch:Requests",
         {"Workers(0) Busy", "nosuch(-1)", "Requests(0) Received", "Requests(0) Refused"}},
        {kStatsById, "Busy:Received", {"Busy(0) Busy=7", "Received(0) Received=48"}},
        {kStatsById, "", values},
        {kStatsByGroup, "nosuch:Requests", {"nosuch(-1)", "Requests(0) Received=48", "Requests(0) Refused=2"}},
        {kStatsById, longest, {longest + "(-1)"}},
    };
    open();
    for (const auto &[query, text, expected] : rows) {
        const RIX_ResultSetToken_t resultSet = ask(query, text);
        EXPECT_EQ(gateway->connRSPtr, resultSet); // the same handle each time
        // A walk may begin with the next item, whatever was walked before.
        EXPECT_TRUE(query.read != readStats || walk<RIX_StatData_t>(resultSet, getNextStat, getNextStat) == expected);
        EXPECT_EQ(expected, query.read(resultSet)) << query.name << " " << text;
        EXPECT_EQ(text, simulator->requests().back().argument);
    }
    RIX_ResultSetToken_t resultSet = nullptr;
    EXPECT_EQ(STAPI_NO_MEMORY, getStatsByStatId(gateway, (longest + "q").c_str(), &resultSet));
}

// wrong: a result set of the other kind; both belong to this thread.
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
    for (const auto read : {getFirstId, getNextId})
        checkIteratorCodes<RIX_IdData_t>(read, ids, stats, STAPI_NULL_ID_DATA_PTR);
    for (const auto read : {getFirstStat, getNextStat})
        checkIteratorCodes<RIX_StatData_t>(read, stats, ids, STAPI_NULL_STAT_DATA_PTR);
}

TEST_F(QueryTest, RefusalsAndLossesEndTheConnection)
{
    const int failed = STAPI_GATEWAY_EXCHANGE_FAILED;
    open();
    for (const Query &query : kQueries) {
        for (const int flow : {6, 7}) { // the initial request, the invocation
            for (const Faults &faults :
                 {refusal(flow, 7), refusal(flow, -4), refusal(flow, 0xF004), refusal(flow, 0, -1)})
                expectConnectionEnd(query, failed, faults);
            expectConnectionEnd(query, STAPI_COMMS_FAILURE, refusal(flow, -1));
            expectConnectionEnd(query, AnyOf(STAPI_COMMS_FAILURE, failed), dropAfter(flow - 1));
            for (const std::size_t sent : {0u, 3u, 30u, 34u, 42u, 45u})
                expectConnectionEnd(query, failed, dropInside(flow, sent));
        }
        expectConnectionEnd(query, failed, refusal(7, 0, 0, true));
        expectConnectionEnd(query, failed, dropInside(7, 60)); // in the call data
    }
}

} // namespace
