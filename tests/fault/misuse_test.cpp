// Callers that are mistaken in ways that can be seen: they get a code, and nothing is touched.
#include "faults.h"

using namespace apitest;

namespace {

using MisuseTest = GatewayTest;

TEST_F(MisuseTest, NullInAnyPositionAndALongHostNameAreRefusedAndChangeNothing)
{
    open();
    const int port = simulator->port();
    const std::string longName(10000, 'h');
    const RIX_ResultSetToken_t rs = ask(kStats);
    const Walk expected = readStats(rs);
    simulator->clearRequests();
    const long blocks = fault::usedBlocks();
    char unset = 0;
    char *text = &unset;
    RIX_GatewayToken_t token = nullptr;
    RIX_ResultSetToken_t set = nullptr;
    for (const int level : {0, 5}) { // then with a trace that shows all arguments and cannot be written
        EXPECT_TRUE(setAPITraceFile("/dev/full") == STAPI_OK && setAPITraceLevel(level) == STAPI_OK);
        for (const int wrong : {-1, 6, INT32_MIN, INT32_MAX})
            EXPECT_EQ(-104, setAPITraceLevel(wrong));
        int unchanged = -1;
        EXPECT_TRUE(getAPITraceLevel(&unchanged) == STAPI_OK && unchanged == level);
        EXPECT_EQ(-109, getStatsAPIVersion(nullptr));
        EXPECT_EQ(-108, openGatewayConnection(port, nullptr, &text));
        EXPECT_EQ(-105, openGatewayConnection(port, &token, nullptr));
        EXPECT_EQ(-133, openRemoteGatewayConnection(nullptr, port, &token, &text));
        EXPECT_EQ(-132, openRemoteGatewayConnection(longName.c_str(), port, &token, &text));
        EXPECT_EQ(-108, closeGatewayConnection(nullptr));
        EXPECT_EQ(-100, closeGatewayConnection(&token));
        for (const Query &query : kQueries) {
            EXPECT_EQ(-100, query.ask(nullptr, nullptr, nullptr));
            EXPECT_EQ(query.hasText ? -126 : -125, query.ask(gateway, nullptr, nullptr));
        }
        EXPECT_TRUE(getFirstId(nullptr, nullptr) == -127 && getNextId(rs, nullptr) == -128);
        EXPECT_TRUE(getNextStat(nullptr, nullptr) == -127 && getFirstStat(rs, nullptr) == -129);
        EXPECT_EQ(-127, getIdQuery(nullptr, &text));
        EXPECT_EQ(-109, getIdQuery(rs, nullptr));
        EXPECT_EQ(-127, copyResultSet(nullptr, &set));
        EXPECT_EQ(-125, copyResultSet(rs, nullptr));
        EXPECT_EQ(-125, freeResultSet(nullptr));
        EXPECT_EQ(-127, freeResultSet(&set));
        EXPECT_EQ(-127, dumpResultSet(nullptr));
        EXPECT_EQ(-109, getAPITraceLevel(nullptr));
        EXPECT_EQ(expected, readStats(rs));
    }
    EXPECT_TRUE(simulator->requests().empty());
    EXPECT_EQ(blocks, fault::usedBlocks());
    EXPECT_TRUE(text == &unset && token == nullptr && set == nullptr);
}

} // namespace
