// Callers that are mistaken in ways that can be seen: they get a code, and nothing is touched.
#include "faults.h"

using namespace apitest;

namespace {

class MisuseTest : public GatewayTest
{
protected:
    RIX_ResultSetToken_t ask()
    {
        RIX_ResultSetToken_t resultSet = nullptr;
        EXPECT_EQ(STAPI_OK, getStats(gateway, &resultSet));
        return resultSet;
    }
};

TEST_F(MisuseTest, NullInAnyPositionIsRefusedAndChangesNothing)
{
    open();
    const int port = simulator->port();
    const RIX_ResultSetToken_t stats = ask();
    const Walk expected = readStats(stats);
    char unset = 0;
    char *text = &unset;
    auto *token = reinterpret_cast<RIX_GatewayToken_t>(&unset);
    auto *resultSet = reinterpret_cast<RIX_ResultSetToken_t>(&unset);
    RIX_GatewayToken_t noToken = nullptr;
    RIX_ResultSetToken_t noResultSet = nullptr;
    RIX_IdData_t id = {{}, &unset, 1, 2, 3, &unset};
    RIX_StatData_t stat = {{}, &unset, 1, 2, 3, &unset, 4, &unset};
    const std::pair<int, std::function<int()>> rows[] = {
        {-109, [&] { return getStatsAPIVersion(nullptr); }},
        {-108, [&] { return openGatewayConnection(port, nullptr, &text); }},
        {-105, [&] { return openGatewayConnection(port, &token, nullptr); }},
        {-133, [&] { return openRemoteGatewayConnection(nullptr, port, &token, &text); }},
        {-108, [&] { return openRemoteGatewayConnection("127.0.0.1", port, nullptr, &text); }},
        {-105, [&] { return openRemoteGatewayConnection("127.0.0.1", port, &token, nullptr); }},
        {-108, [&] { return closeGatewayConnection(nullptr); }},
        {-100, [&] { return closeGatewayConnection(&noToken); }},
        {-100, [&] { return getResourceGroupIds(nullptr, &resultSet); }},
        {-125, [&] { return getResourceGroupIds(gateway, nullptr); }},
        {-100, [&] { return getStatIdsByStatGroupId(nullptr, "Workers", &resultSet); }},
        {-126, [&] { return getStatIdsByStatGroupId(gateway, nullptr, &resultSet); }},
        {-125, [&] { return getStatIdsByStatGroupId(gateway, "Workers", nullptr); }},
        {-100, [&] { return getStatIds(nullptr, &resultSet); }},
        {-125, [&] { return getStatIds(gateway, nullptr); }},
        {-100, [&] { return getStats(nullptr, &resultSet); }},
        {-125, [&] { return getStats(gateway, nullptr); }},
        {-100, [&] { return getStatsByStatId(nullptr, "Busy", &resultSet); }},
        {-126, [&] { return getStatsByStatId(gateway, nullptr, &resultSet); }},
        {-125, [&] { return getStatsByStatId(gateway, "Busy", nullptr); }},
        {-100, [&] { return getStatsByStatGroupId(nullptr, "Workers", &resultSet); }},
        {-126, [&] { return getStatsByStatGroupId(gateway, nullptr, &resultSet); }},
        {-125, [&] { return getStatsByStatGroupId(gateway, "Workers", nullptr); }},
        {-127, [&] { return getFirstId(nullptr, &id); }},
        {-128, [&] { return getFirstId(stats, nullptr); }},
        {-127, [&] { return getNextId(nullptr, &id); }},
        {-128, [&] { return getNextId(stats, nullptr); }},
        {-127, [&] { return getFirstStat(nullptr, &stat); }},
        {-129, [&] { return getFirstStat(stats, nullptr); }},
        {-127, [&] { return getNextStat(nullptr, &stat); }},
        {-129, [&] { return getNextStat(stats, nullptr); }},
        {-127, [&] { return getIdQuery(nullptr, &text); }},
        {-109, [&] { return getIdQuery(stats, nullptr); }},
        {-127, [&] { return copyResultSet(nullptr, &resultSet); }},
        {-125, [&] { return copyResultSet(stats, nullptr); }},
        {-125, [&] { return freeResultSet(nullptr); }},
        {-127, [&] { return freeResultSet(&noResultSet); }},
        {-127, [&] { return dumpResultSet(nullptr); }},
        {-109, [&] { return getAPITraceLevel(nullptr); }},
    };
    simulator->clearRequests();
    ASSERT_EQ(STAPI_OK, setAPITraceFile("/dev/null"));
    for (const int level : {0, 5}) { // the trace shows the arguments, null or not
        ASSERT_EQ(STAPI_OK, setAPITraceLevel(level));
        for (const auto &row : rows)
            EXPECT_EQ(row.first, row.second()) << "row " << &row - rows << " at trace level " << level;
    }
    EXPECT_TRUE(text == &unset && token == reinterpret_cast<RIX_GatewayToken_t>(&unset));
    EXPECT_TRUE(resultSet == reinterpret_cast<RIX_ResultSetToken_t>(&unset) && noToken == nullptr && noResultSet == nullptr);
    EXPECT_TRUE(id.queryElementPtr == &unset && id.idPtr == &unset && id.queryElementLen + id.queryElementRC + id.idLen == 6);
    EXPECT_TRUE(stat.queryElementPtr == &unset && stat.statIdPtr == &unset && stat.statValuePtr == &unset);
    EXPECT_TRUE(simulator->requests().empty());
    EXPECT_EQ(expected, readStats(stats));
    EXPECT_EQ(expected, readStats(ask()));
}

TEST_F(MisuseTest, OverlongTextsAreRefused)
{
    open();
    simulator->clearRequests();
    const RIX_ResultSetToken_t stats = gateway->connRSPtr;
    RIX_ResultSetToken_t resultSet = nullptr;
    for (const std::size_t length : {32766u, 32767u, 65535u, 65536u, 65543u, 10000000u}) { // 16 bits tell it to a gateway
        const std::string query(length, 'q');
        EXPECT_EQ(STAPI_NO_MEMORY, getStatsByStatId(gateway, query.c_str(), &resultSet)) << length;
        EXPECT_EQ(STAPI_NO_MEMORY, getStatsByStatGroupId(gateway, query.c_str(), &resultSet)) << length;
        EXPECT_EQ(STAPI_NO_MEMORY, getStatIdsByStatGroupId(gateway, query.c_str(), &resultSet)) << length;
    }
    EXPECT_EQ(nullptr, resultSet);
    EXPECT_TRUE(simulator->requests().empty());

    RIX_GatewayToken_t none = nullptr;
    char *noVersion = nullptr;
    ASSERT_EQ(STAPI_OK, setAPITraceFile("/dev/null"));
    for (const int level : {0, 4}) { // which shows the host's name
        ASSERT_EQ(STAPI_OK, setAPITraceLevel(level));
        for (const std::string &host : {std::string(10000, 'h'), std::string(300, '1'), std::string(5000, '.')})
            EXPECT_EQ(STAPI_HOST_NOT_FOUND, openRemoteGatewayConnection(host.c_str(), simulator->port(), &none, &noVersion));
        EXPECT_TRUE(none == nullptr && noVersion == nullptr);
        for (const std::size_t length : {1024u, 1025u, 4096u, 100000u}) {
            const std::string name = std::string(length - 8, '/') + "dev/null"; // shorter, it would be opened
            EXPECT_EQ(STAPI_TRACE_FILE_OPEN_FAILED, setAPITraceFile(name.c_str())) << length;
        }
    }
    EXPECT_EQ(3u, readStats(ask()).size());
    EXPECT_EQ(stats, gateway->connRSPtr);
}

TEST_F(MisuseTest, TraceThatCannotBeWrittenHindersNothing)
{
    ASSERT_EQ(STAPI_OK, setAPITraceFile("/dev/full"));
    ASSERT_EQ(STAPI_OK, setAPITraceLevel(5));
    open();
    const RIX_ResultSetToken_t stats = ask();
    EXPECT_EQ(STAPI_OK, dumpResultSet(stats));
    EXPECT_EQ(STAPI_OK, dumpState());
    EXPECT_EQ(3u, readStats(stats).size());
    EXPECT_EQ(STAPI_OK, closeGatewayConnection(&gateway));
}

TEST_F(MisuseTest, ForkedChildIsRefusedItsParentsHandlesAndHasItsOwn)
{
    open();
    const RIX_ResultSetToken_t stats = ask();
    const auto rcOfChild = [&] {
        RIX_ResultSetToken_t resultSet = nullptr;
        RIX_GatewayToken_t own = nullptr;
        char *ownVersion = nullptr;
        int rc = getStats(gateway, &resultSet);
        if (rc != STAPI_WRONG_PROCESS) return rc;
        rc = openGatewayConnection(simulator->port(), &own, &ownVersion);
        if (rc == STAPI_OK) rc = getStats(own, &resultSet);
        if (rc == STAPI_OK && readStats(resultSet).size() != 3) rc = -1;
        return rc == STAPI_OK ? closeGatewayConnection(&own) : rc;
    };
    EXPECT_EQ(STAPI_OK, inChild(rcOfChild));
    EXPECT_EQ(3u, readStats(stats).size());
    EXPECT_EQ(3u, readStats(ask()).size()); // the parent's connection has not suffered
}

} // namespace
