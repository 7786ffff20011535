// Callers that are mistaken in ways that can be seen: they get a code, and nothing is touched.
#include "faults.h"

using namespace apitest;

namespace {

class MisuseTest : public GatewayTest
{
protected:
    RIX_ResultSetToken_t stats()
    {
        RIX_ResultSetToken_t resultSet = nullptr;
        EXPECT_EQ(STAPI_OK, getStats(gateway, &resultSet));
        return resultSet;
    }
    // With the trace off, then with a trace that shows all arguments and cannot be written.
    template <class Calls>
    void traceOffAndOn(Calls calls)
    {
        const long blocks = fault::liveBlocks();
        calls();
        EXPECT_TRUE(setAPITraceFile("/dev/full") == STAPI_OK && setAPITraceLevel(5) == STAPI_OK);
        calls();
        EXPECT_EQ(blocks, fault::liveBlocks());
        EXPECT_EQ(3u, readStats(stats()).size());
    }
};

TEST_F(MisuseTest, NullInAnyPositionIsRefusedAndChangesNothing)
{
    open();
    const int port = simulator->port();
    const RIX_ResultSetToken_t rs = stats();
    const Walk expected = readStats(rs);
    simulator->clearRequests();
    char unset = 0;
    char *text = &unset;
    auto *const noToken = reinterpret_cast<RIX_GatewayToken_t>(&unset);
    auto *const noSet = reinterpret_cast<RIX_ResultSetToken_t>(&unset);
    RIX_GatewayToken_t token = noToken;
    RIX_GatewayToken_t nullToken = nullptr;
    RIX_ResultSetToken_t set = noSet;
    RIX_ResultSetToken_t nullSet = nullptr;
    RIX_IdData_t id = {{}, &unset, 1, 2, 3, &unset};
    RIX_StatData_t stat = {{}, &unset, 1, 2, 3, &unset, 4, &unset};
    traceOffAndOn([&] {
        EXPECT_EQ(-109, getStatsAPIVersion(nullptr));
        EXPECT_EQ(-108, openGatewayConnection(port, nullptr, &text));
        EXPECT_EQ(-105, openGatewayConnection(port, &token, nullptr));
        EXPECT_EQ(-133, openRemoteGatewayConnection(nullptr, port, &token, &text));
        EXPECT_EQ(-108, openRemoteGatewayConnection("127.0.0.1", port, nullptr, &text));
        EXPECT_EQ(-105, openRemoteGatewayConnection("127.0.0.1", port, &token, nullptr));
        EXPECT_EQ(-108, closeGatewayConnection(nullptr));
        EXPECT_EQ(-100, closeGatewayConnection(&nullToken));
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
        EXPECT_EQ(-127, freeResultSet(&nullSet));
        EXPECT_EQ(-127, dumpResultSet(nullptr));
        EXPECT_EQ(-109, getAPITraceLevel(nullptr));
        EXPECT_TRUE(simulator->requests().empty());
        EXPECT_EQ(expected, readStats(rs));
    });
    EXPECT_TRUE(text == &unset && token == noToken && set == noSet && nullToken == nullptr && nullSet == nullptr);
    EXPECT_TRUE(id.queryElementPtr == &unset && id.idPtr == &unset && id.idLen == 3);
    EXPECT_TRUE(stat.queryElementPtr == &unset && stat.statIdPtr == &unset && stat.statValuePtr == &unset);
}

TEST_F(MisuseTest, OverlongTextsAreRefused)
{
    open();
    simulator->clearRequests();
    RIX_GatewayToken_t token = nullptr;
    RIX_ResultSetToken_t set = nullptr;
    traceOffAndOn([&] {
        for (const std::size_t length : {32766u, 32767u, 65535u, 65543u, 10000000u}) { // sent with 16 bits of length
            const std::string text(length, 'q');
            for (const auto ask : {getStatIdsByStatGroupId, getStatsByStatId, getStatsByStatGroupId})
                EXPECT_EQ(STAPI_NO_MEMORY, ask(gateway, text.c_str(), &set)) << length;
        }
        for (const std::string &host : {std::string(10000, 'h'), std::string(300, '1'), std::string(5000, '.')})
            EXPECT_EQ(STAPI_HOST_NOT_FOUND,
                      openRemoteGatewayConnection(host.c_str(), simulator->port(), &token, &version));
        for (const std::size_t length : {1024u, 1025u, 4095u, 100000u}) { // up to 1023 it would be found
            const std::string file = std::string(length - 8, '/') + "dev/null";
            EXPECT_EQ(STAPI_TRACE_FILE_OPEN_FAILED, setAPITraceFile(file.c_str())) << length;
        }
        EXPECT_TRUE(set == nullptr && token == nullptr && version == std::string("2_0"));
        EXPECT_TRUE(simulator->requests().empty());
    });
}

TEST_F(MisuseTest, ForkedChildIsRefusedItsParentsHandlesAndHasItsOwn)
{
    open();
    const RIX_ResultSetToken_t ofParent = stats();
    EXPECT_EQ(STAPI_OK, inChild([&] {
                  RIX_ResultSetToken_t set = nullptr;
                  RIX_GatewayToken_t own = nullptr;
                  if (getStats(gateway, &set) != STAPI_WRONG_PROCESS) return -1;
                  int rc = openGatewayConnection(simulator->port(), &own, &version);
                  if (rc == STAPI_OK) rc = getStats(own, &set);
                  if (rc == STAPI_OK && readStats(set).size() != 3) rc = -2;
                  return rc == STAPI_OK ? closeGatewayConnection(&own) : rc;
              }));
    EXPECT_EQ(3u, readStats(ofParent).size());
    EXPECT_EQ(3u, readStats(stats()).size()); // the parent's connection has not suffered
}

} // namespace
