// Many threads: first calls at once, closing under a thread that waits, a silent gateway that delays nobody else, and
// everybody tracing to one file. Meant for the thread sanitizer as much as for its own expectations.
#include "gateway_fixture.h"

#include <atomic>
#include <cstdlib>
#include <regex>

namespace {

using namespace apitest;

bool isClosedUnderneath(int rc)
{
    return rc == STAPI_COMMS_FAILURE || rc == STAPI_GATEWAY_EXCHANGE_FAILED;
}

class Threads : public GatewayTest
{
protected:
    // A gateway that reads every request but answers none from the given flow of a connection on.
    static rixgwsim::Options silentFrom(int firstSilentFlow)
    {
        rixgwsim::Options options = smallOptions();
        options.wholeReply = [firstSilentFlow](int flow, const rixgwsim::Bytes &) -> std::optional<rixgwsim::Bytes> {
            if (flow < firstSilentFlow) return std::nullopt;
            return rixgwsim::Bytes{};
        };
        return options;
    }

    void waitForRequests(std::size_t count) const
    {
        for (int i = 0; i < 10000 && simulator->requests().size() < count; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ASSERT_EQ(count, simulator->requests().size());
    }

    static int dumpToNowhere()
    {
        setAPITraceFile("/dev/null");
        const int rc = dumpState();
        setAPITraceFile(nullptr);
        return rc;
    }

    // Opens a connection and queries it while the gateway is silent; the other thread closes by the given call.
    template <class Close>
    void queryInterruptedBy(Close close)
    {
        start(silentFrom(6));
        std::atomic<bool> opened{false};
        std::atomic<int> queryRc{1}, nextRc{1};
        std::thread user([&] {
            if (connect() != STAPI_OK) return;
            RIX_GatewayToken_t handle = gateway;
            opened = true;
            RIX_ResultSetToken_t rs = nullptr;
            queryRc = getStats(handle, &rs);
            nextRc = getStats(handle, &rs);
            EXPECT_EQ(nullptr, rs);
        });
        waitForRequests(6); // the query's first request has arrived and stays without an answer
        EXPECT_TRUE(opened);
        EXPECT_EQ(STAPI_OK, close());
        user.join();
        EXPECT_TRUE(isClosedUnderneath(queryRc)) << queryRc;
        EXPECT_EQ(STAPI_GATEWAY_TOKEN_NOT_FOUND, nextRc);
        EXPECT_EQ(nullptr, rixstats::gtListHeadPtr);
    }
};

TEST_F(Threads, FirstCallsAtTheSameMoment)
{
    // In a child, for which the library may be new: where each test runs in a process of its own, it is.
    const int failures = inChild([] {
        std::atomic<int> ready{0}, failed{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 16; i++)
            threads.emplace_back([&] {
                ++ready;
                while (ready < 16)
                    std::this_thread::yield();
                char *text = nullptr;
                int level = -1;
                if (getStatsAPIVersion(&text) != STAPI_OK || std::string("1_1_0_1") != text) ++failed;
                if (getAPITraceLevel(&level) != STAPI_OK || level != 0) ++failed;
            });
        for (std::thread &thread : threads)
            thread.join();
        return -failed;
    });
    EXPECT_EQ(0, failures);
}

TEST_F(Threads, ClosingOneConnectionEndsTheQueryThatWaitsOnIt)
{
    queryInterruptedBy([this] {
        const int rc = closeGatewayConnection(&gateway);
        EXPECT_EQ(nullptr, gateway);
        return rc;
    });
}

TEST_F(Threads, ClosingAllConnectionsEndsTheQueryThatWaits)
{
    queryInterruptedBy([] { return closeAllGatewayConnections(); });
}

TEST_F(Threads, ClosingAllConnectionsEndsAnOpeningAtEachFlow)
{
    for (int flow = 1; flow <= 5; flow++) {
        SCOPED_TRACE(flow);
        start(silentFrom(flow));
        int rc = 1;
        gateway = nullptr;
        std::thread opener([&] { rc = connect(); });
        waitForRequests(static_cast<std::size_t>(flow));
        EXPECT_EQ(STAPI_OK, closeAllGatewayConnections());
        opener.join();
        EXPECT_TRUE(isClosedUnderneath(rc)) << rc;
        EXPECT_EQ(nullptr, gateway);
        EXPECT_EQ(nullptr, rixstats::gtListHeadPtr);
    }
}

TEST_F(Threads, ASilentGatewayDelaysOnlyTheThreadThatClosesIt)
{
    open();
    rixgwsim::Simulator silent(smallOptions());
    silent.start();
    RIX_GatewayToken_t muted = nullptr;
    ASSERT_EQ(STAPI_OK, openGatewayConnection(silent.port(), &muted, &version));
    const std::size_t before = silent.requests().size();
    rixgwsim::Faults faults;
    faults.delay = std::chrono::seconds(30); // longer than the test takes
    silent.setFaults(faults);

    std::atomic<bool> closed{false};
    std::thread closer([&] {
        EXPECT_EQ(STAPI_OK, closeGatewayConnection(&muted));
        closed = true;
    });
    for (int i = 0; i < 10000 && silent.requests().size() == before; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));

    RIX_ResultSetToken_t rs = nullptr;
    EXPECT_EQ(STAPI_OK, getStats(gateway, &rs));
    RIX_GatewayToken_t another = nullptr;
    EXPECT_EQ(STAPI_OK, openGatewayConnection(simulator->port(), &another, &version));
    EXPECT_EQ(STAPI_OK, closeGatewayConnection(&another));
    EXPECT_EQ(STAPI_OK, dumpToNowhere());
    EXPECT_FALSE(closed);
    silent.stop();
    closer.join();
}

// Every line of a trace is whole: a header, a line of the fixed layout, or a line of a dump.
int countWholeLines(const std::string &fileName)
{
    const std::regex layout(
        "\\*\\*\\* .* \\*\\*\\*|"
        "\\d\\d/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d:\\d{3} \\[0x[0-9A-F]{8},0x[0-9A-F]{8}\\] \\[\\d{4}\\] "
        "(\\*EXC\\*|EVENT|ENTRY|EXIT|DEBUG|DATA) +(API|stapi_rix_[a-z]+)\\..*|"
        "0x[0-9A-F]{8,}: [0-9A-F ]{35} : .{0,17}|-{80}|"
        "(rixstats state dump|Gateway Token List|GatwayToken|Dump of ResultSet|The |Total number).*");
    std::ifstream file(fileName);
    int lines = 0;
    for (std::string line; std::getline(file, line); lines++)
        EXPECT_TRUE(std::regex_match(line, layout)) << "line " << lines + 1 << ": " << line;
    return lines;
}

void useConnection(int port, int rounds)
{
    RIX_GatewayToken_t handle = nullptr;
    char *text = nullptr;
    ASSERT_EQ(STAPI_OK, openGatewayConnection(port, &handle, &text));
    for (int i = 0; i < rounds; i++) {
        RIX_ResultSetToken_t rs = nullptr, copy = nullptr;
        ASSERT_EQ(STAPI_OK, i % 2 == 0 ? getStats(handle, &rs) : getStatsByStatId(handle, "Busy:Nobody", &rs));
        RIX_StatData_t item;
        int items = 0;
        for (int rc = getFirstStat(rs, &item); rc == STAPI_OK; rc = getNextStat(rs, &item))
            items++;
        ASSERT_EQ(i % 2 == 0 ? 3 : 2, items);
        ASSERT_EQ(STAPI_OK, copyResultSet(rs, &copy));
        ASSERT_EQ(STAPI_OK, dumpResultSet(copy));
        ASSERT_EQ(STAPI_OK, freeResultSet(&copy));
    }
    ASSERT_EQ(STAPI_OK, closeGatewayConnection(&handle));
}

TEST_F(Threads, SixtyFourConnectionsTraceToOneFileWhileItsLevelAndDestinationChange)
{
    start();
    char traceFiles[2][32] = {"/tmp/rixstats-trace-XXXXXX", "/tmp/rixstats-trace-XXXXXX"};
    for (char *name : traceFiles)
        ::close(mkstemp(name));
    ASSERT_EQ(STAPI_OK, setAPITraceFile(traceFiles[0]));
    ASSERT_EQ(STAPI_OK, setAPITraceLevel(4));

    std::atomic<bool> done{false};
    std::thread switcher([&] {
        for (int i = 0; !done && i < 100000; i++) {
            EXPECT_EQ(STAPI_OK, setAPITraceLevel(i % 6));
            EXPECT_EQ(STAPI_OK, setAPITraceFile(traceFiles[i / 7 % 2]));
            EXPECT_EQ(STAPI_OK, dumpState());
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
    std::vector<std::thread> users;
    for (int i = 0; i < 64; i++)
        users.emplace_back([this] { useConnection(simulator->port(), 2); });
    for (std::thread &user : users)
        user.join();
    done = true;
    switcher.join();
    setAPITraceLevel(0);
    setAPITraceFile(nullptr);
    int lines = 0; // how many come to which file is a matter of time, but dumps are written at any level
    for (const char *name : traceFiles) {
        lines += countWholeLines(name);
        unlink(name);
    }
    EXPECT_GT(lines, 100);
}

} // namespace
