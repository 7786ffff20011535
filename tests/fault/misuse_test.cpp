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
    RIX_ResultSetToken_t rs = nullptr;
    EXPECT_EQ(STAPI_OK, getStats(gateway, &rs));
    const Walk expected = readStats(rs);
    simulator->clearRequests();
    const long blocks = fault::liveBlocks;
    char unset = 0;
    char *text = &unset;
    RIX_GatewayToken_t token = nullptr;
    RIX_ResultSetToken_t set = nullptr;
    RIX_IdData_t id = {{}, &unset, 1, 2, 3, &unset};
    RIX_StatData_t stat = {{}, &unset, 1, 2, 3, &unset, 4, &unset};
    for (const int level : {0, 5}) { // then with a trace that shows all arguments and cannot be written
        EXPECT_TRUE(setAPITraceFile("/dev/full") == STAPI_OK && setAPITraceLevel(level) == STAPI_OK);
        EXPECT_EQ(-109, getStatsAPIVersion(nullptr));
        EXPECT_EQ(-108, openGatewayConnection(port, nullptr, &text));
        EXPECT_EQ(-105, openGatewayConnection(port, &token, nullptr));
        EXPECT_EQ(-133, openRemoteGatewayConnection(nullptr, port, &token, &text));
        EXPECT_EQ(-108, openRemoteGatewayConnection("127.0.0.1", port, nullptr, &text));
        EXPECT_EQ(-105, openRemoteGatewayConnection("127.0.0.1", port, &token, nullptr));
        EXPECT_EQ(-132, openRemoteGatewayConnection(longName.c_str(), port, &token, &text));
        EXPECT_EQ(-108, closeGatewayConnection(nullptr));
        EXPECT_EQ(-100, closeGatewayConnection(&token));
        for (const auto ask : {getResourceGroupIds, getStatIds, getStats}) {
            EXPECT_EQ(-100, ask(nullptr, &set));
            EXPECT_EQ(-125, ask(gateway, nullptr));
        }
        for (const auto ask : {getStatIdsByStatGroupId, getStatsByStatId, getStatsByStatGroupId}) {
            EXPECT_EQ(-100, ask(nullptr, "Busy", &set));
            EXPECT_EQ(-126, ask(gateway, nullptr, &set));
            EXPECT_EQ(-125, ask(gateway, "Busy", nullptr));
        }
        for (const auto read : {getFirstId, getNextId}) {
            EXPECT_EQ(-127, read(nullptr, &id));
            EXPECT_EQ(-128, read(rs, nullptr));
        }
        for (const auto read : {getFirstStat, getNextStat}) {
            EXPECT_EQ(-127, read(nullptr, &stat));
            EXPECT_EQ(-129, read(rs, nullptr));
        }
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
    EXPECT_EQ(blocks, fault::liveBlocks);
    EXPECT_TRUE(text == &unset && token == nullptr && set == nullptr);
    EXPECT_TRUE(id.queryElementPtr == &unset && id.idPtr == &unset && id.idLen == 3);
    EXPECT_TRUE(stat.queryElementPtr == &unset && stat.statIdPtr == &unset && stat.statValuePtr == &unset);
}

} // namespace
