// What tests of the exported calls share: a simulated gateway, a connection to it, walks over result sets. Every test
// must leave nothing behind: no connection, no descriptor, no trace setting, no wrong byte sent.
#pragma once

#include "simulator.h"
#include "stapi_rix_gwytok.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

namespace apitest {

// Seconds after which an alarm ends a test that waits for ever; a slow machine must not come near them.
constexpr unsigned kLongestTest = 300;
constexpr int kLongestWait = 60000; // milliseconds, likewise

// A result set from its first item on: "element(code) id=value" each, "element(code)" of one that failed.
using Walk = std::vector<std::string>;

inline std::string textOf(const char *text, int length)
{
    return {text, static_cast<std::size_t>(length)};
}

inline std::string itemOf(const RIX_IdData_t &data)
{
    return textOf(data.idPtr, data.idLen);
}
inline std::string itemOf(const RIX_StatData_t &data)
{
    return textOf(data.statIdPtr, data.statIdLen) + "=" + textOf(data.statValuePtr, data.statValueLen);
}
template <class Data>
std::string describe(const Data &data)
{
    EXPECT_EQ(sizeof data == sizeof(RIX_IdData_t) ? "RIXIDSET" : "RIXSTSET", textOf(data.eyecatcher, 8));
    const std::string element = textOf(data.queryElementPtr, data.queryElementLen);
    const std::string head = element + "(" + std::to_string(data.queryElementRC) + ")";
    return data.queryElementRC < 0 ? head : head + " " + itemOf(data);
}

template <class Data>
std::string itemFields(const Data &data)
{
    const std::size_t start = offsetof(Data, queryElementRC) + sizeof data.queryElementRC;
    return {reinterpret_cast<const char *>(&data) + start, sizeof data - start};
}

template <class Data, class First, class Next>
Walk walk(RIX_ResultSetToken_t resultSet, First first, Next next)
{
    Walk items;
    Data data;
    memset(&data, 'b', sizeof data);
    int rc = first(resultSet, &data);
    for (; rc == STAPI_OK && items.size() < 10000; rc = next(resultSet, &data)) {
        items.push_back(describe(data));
        EXPECT_TRUE(data.queryElementRC >= 0 || itemFields(data) == std::string(itemFields(data).size(), 'b'));
        memset(&data, 'b', sizeof data);
    }
    EXPECT_EQ(STAPI_END_OF_RESULTS, rc);
    EXPECT_EQ(STAPI_END_OF_RESULTS, next(resultSet, &data)) << "the end of a walk does not stay";
    return items;
}
inline Walk readIds(RIX_ResultSetToken_t ids)
{
    return walk<RIX_IdData_t>(ids, getFirstId, getNextId);
}
inline Walk readStats(RIX_ResultSetToken_t stats)
{
    return walk<RIX_StatData_t>(stats, getFirstStat, getNextStat);
}

// What the call returns in another thread, and in a forked child.
template <class Call>
int inThread(Call call)
{
    int rc = 0;
    std::thread([&] { rc = call(); }).join();
    return rc;
}
template <class Call>
int inChild(Call call)
{
    const pid_t child = fork();
    if (child == 0) _exit(-call());
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status));
    return -WEXITSTATUS(status);
}

inline std::ptrdiff_t countDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// The six queries; ask() leaves the text aside where a query has none.
struct Query
{
    const char *name;
    bool hasText;
    int (*ask)(RIX_GatewayToken_t, const char *text, RIX_ResultSetToken_t *);
    Walk (*read)(RIX_ResultSetToken_t);
};
template <int (*call)(RIX_GatewayToken_t, RIX_ResultSetToken_t *)>
int withoutText(RIX_GatewayToken_t token, const char *, RIX_ResultSetToken_t *resultSet)
{
    return call(token, resultSet);
}
inline const Query kGroupIds = {"getResourceGroupIds", false, withoutText<getResourceGroupIds>, readIds};
inline const Query kIds = {"getStatIds", false, withoutText<getStatIds>, readIds};
inline const Query kStats = {"getStats", false, withoutText<getStats>, readStats};
inline const Query kIdsByGroup = {"getStatIdsByStatGroupId", true, getStatIdsByStatGroupId, readIds};
inline const Query kStatsById = {"getStatsByStatId", true, getStatsByStatId, readStats};
inline const Query kStatsByGroup = {"getStatsByStatGroupId", true, getStatsByStatGroupId, readStats};
inline const Query kQueries[] = {kGroupIds, kIds, kStats, kIdsByGroup, kStatsById, kStatsByGroup};

// Two groups of statistics whose values never change.
inline rixgwsim::Options smallOptions()
{
    const auto constant = [](const char *id, const char *value) {
        rixgwsim::Statistic statistic;
        statistic.id = id;
        statistic.texts = {value};
        return statistic;
    };
    rixgwsim::Options options;
    options.catalogue.groups = {{"Requests", {constant("Received", "48"), constant("Refused", "2")}},
                                {"Workers", {constant("Busy", "7")}}};
    return options;
}

// Refuses from this flow of a connection on.
inline rixgwsim::Faults refusal(int fromFlow, int gatewayRc, int adminRc = 0, bool exceptionFlag = false,
                                int authRc = 0)
{
    return {authRc, gatewayRc, adminRc, exceptionFlag, fromFlow};
}
// Closes the connection inside the reply to this flow.
inline rixgwsim::Faults dropInside(int flow, std::size_t atByte)
{
    rixgwsim::Faults faults;
    faults.dropInsideFlow = flow;
    faults.dropAtByte = atByte;
    return faults;
}
inline rixgwsim::Faults dropAfter(int flows)
{
    rixgwsim::Faults faults;
    faults.dropAfterFlows = flows;
    return faults;
}

class GatewayTest : public testing::Test
{
protected:
    void SetUp() override { alarm(kLongestTest); }

    void TearDown() override
    {
        setAPITraceLevel(0);
        setAPITraceFile("/dev/null"); // only a change of the destination forgets that the header has been written
        setAPITraceFile(nullptr);
        while (closeAllGatewayConnections() == STAPI_GTL_CORRUPT)
            ;
        EXPECT_EQ(nullptr, rixstats::gtListHeadPtr);
        stop();
        EXPECT_EQ(descriptorsBefore, countDescriptors());
        alarm(0);
    }

    void start(rixgwsim::Options options = smallOptions())
    {
        stop();
        simulator = std::make_unique<rixgwsim::Simulator>(std::move(options));
        simulator->start();
    }
    int connect() { return openGatewayConnection(simulator->port(), &gateway, &version); }
    void open(rixgwsim::Options options = smallOptions())
    {
        start(std::move(options));
        if (connect() != STAPI_OK) throw std::runtime_error("cannot open a connection");
    }

    RIX_ResultSetToken_t ask(const Query &query, const std::string &text = "") const
    {
        RIX_ResultSetToken_t resultSet = nullptr;
        EXPECT_EQ(STAPI_OK, query.ask(gateway, text.c_str(), &resultSet)) << query.name;
        return resultSet;
    }

    // The simulator's ends of the connections are descriptors of this process too.
    void waitUntilIdle() const
    {
        for (int i = 0; i < kLongestWait && simulator->openConnections() != 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_EQ(0u, simulator->openConnections());
    }

    std::unique_ptr<rixgwsim::Simulator> simulator;
    RIX_GatewayToken_t gateway = nullptr;
    char *version = nullptr;

private:
    void stop()
    {
        if (!simulator) return;
        closeAllGatewayConnections();
        waitUntilIdle();
        EXPECT_EQ("", simulator->lastProtocolError());
        simulator.reset();
    }

    const std::ptrdiff_t descriptorsBefore = countDescriptors();
};

} // namespace apitest
