// Many threads: first calls at once, closing under a thread that waits, a silent gateway that delays nobody else, and
// everybody tracing to one file. Meant for the thread sanitizer as much as for its own expectations.
#include "gateway_fixture.h"

#include "rixstats_ext.h"

#include <atomic>
#include <cstdlib>
#include <future>
#include <regex>

namespace {

using namespace apitest;

void expectClosedUnderneath(int rc)
{
    EXPECT_TRUE(rc == STAPI_COMMS_FAILURE || rc == STAPI_GATEWAY_EXCHANGE_FAILED) << rc;
}

class Threads : public GatewayTest
{
protected:
    // A gateway that reads every request but answers none from the given flow of a connection on.
    void startSilentFrom(int firstSilentFlow)
    {
        rixgwsim::Options options = smallOptions();
        options.wholeReply = [firstSilentFlow](int flow, const rixgwsim::Bytes &) {
            return flow < firstSilentFlow ? std::nullopt : std::optional(rixgwsim::Bytes{});
        };
        start(options);
    }

    void waitForRequests(std::size_t count) const
    {
        for (int i = 0; i < kLongestWait && simulator->requests().size() < count; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ASSERT_EQ(count, simulator->requests().size());
    }

    // Opens a connection and queries it while the gateway is silent; the other thread closes by the given call.
    template <class Close>
    void queryInterruptedBy(Close close)
    {
        startSilentFrom(6);
        std::thread user([&] {
            if (connect() != STAPI_OK) return;
            RIX_GatewayToken_t handle = gateway;
            RIX_ResultSetToken_t rs = nullptr;
            expectClosedUnderneath(getStats(handle, &rs));
            EXPECT_EQ(STAPI_GATEWAY_TOKEN_NOT_FOUND, getStats(handle, &rs));
            EXPECT_EQ(nullptr, rs);
        });
        waitForRequests(6); // the query's first request has arrived and stays without an answer
        EXPECT_EQ(STAPI_OK, close());
        user.join();
        EXPECT_EQ(nullptr, rixstats::gtListHeadPtr);
    }
};

TEST_F(Threads, FirstCallsAtTheSameMoment)
{
    // In a child, for which the library may be new: where each test runs in a process of its own, it is.
    EXPECT_EQ(0, inChild([] {
                  std::atomic<int> ready{0}, failed{0};
                  std::vector<std::thread> threads;
                  for (int i = 0; i < 16; i++)
                      threads.emplace_back([&] {
                          ++ready;
                          while (ready < 16)
                              std::this_thread::yield();
                          int level = -1;
                          if (getAPITraceLevel(&level) != STAPI_OK || level != 0) ++failed;
                      });
                  for (std::thread &thread : threads)
                      thread.join();
                  return -failed;
              }));
}

TEST_F(Threads, ClosingOneOrAllConnectionsEndsTheQueryThatWaits)
{
    queryInterruptedBy([this] { return closeGatewayConnection(&gateway); });
    EXPECT_EQ(nullptr, gateway);
    queryInterruptedBy([] { return closeAllGatewayConnections(); });
}

TEST_F(Threads, ClosingAllConnectionsEndsAnOpeningAtEachFlow)
{
    for (int flow = 1; flow <= 5; flow++) {
        SCOPED_TRACE(flow);
        startSilentFrom(flow);
        std::thread opener([&] { expectClosedUnderneath(connect()); });
        waitForRequests(static_cast<std::size_t>(flow));
        EXPECT_EQ(STAPI_OK, closeAllGatewayConnections());
        opener.join();
        EXPECT_EQ(nullptr, rixstats::gtListHeadPtr);
    }
}

TEST_F(Threads, ASilentGatewayDelaysOnlyTheThreadThatClosesItsConnection)
{
    std::promise<void> end;
    std::atomic<bool> silent{true}, closed{false};
    rixgwsim::Options options = smallOptions();
    options.wholeReply = [&, waited = end.get_future().share()](int flow, const rixgwsim::Bytes &) {
        if (flow == 6 && silent.exchange(false)) waited.wait(); // the first good-bye
        return std::optional<rixgwsim::Bytes>();
    };
    start(options);
    ASSERT_EQ(STAPI_OK, connect()); // the one that is waited for
    ASSERT_EQ(STAPI_OK, connect());
    RIX_GatewayToken_t second = gateway;
    std::thread closer([&] {
        EXPECT_EQ(STAPI_OK, closeAllGatewayConnections());
        closed = true;
    });
    waitForRequests(11);
    EXPECT_EQ(STAPI_GATEWAY_TOKEN_NOT_FOUND, closeGatewayConnection(&second)) << "taken already, closed later";
    EXPECT_EQ(STAPI_OK, connect()); // too late to be among all
    EXPECT_EQ(STAPI_OK, setAPITraceFile("/dev/null"));
    EXPECT_EQ(STAPI_OK, dumpState());
    EXPECT_FALSE(closed);
    end.set_value();
    closer.join();
    EXPECT_FALSE(readStats(ask(kStats)).empty());
}

// Watchdogs that close whatever handle they saw last, however late, beside owners with time limits of their own, at a
// gateway that is slow now and then. Whoever opened a connection since is not met: its queries fail only if its own
// handle was closed.
TEST_F(Threads, SixtyFourOwnersAndTheirWatchdogs)
{
    rixgwsim::Options options = smallOptions();
    options.recordRequests = false;
    options.scenario.rules = {{{1, 0, 7}, {}, {2, 0, 3}, rixgwsim::FaultKind::delay, 40}};
    start(options);
    constexpr int OWNERS = 64;
    struct Slot
    {
        std::atomic<RIX_GatewayToken_t> handle{nullptr};
        std::atomic<bool> closed{false};
    } slots[OWNERS];
    std::atomic<bool> end{false};
    std::atomic<int> strangersMet{0};
    std::vector<std::thread> owners, watchdogs;
    for (Slot &slot : slots)
        owners.emplace_back([&] {
            EXPECT_EQ(STAPI_OK, rixSetTimeLimit(20));
            for (int round = 0; round < 12; round++) {
                RIX_GatewayToken_t own = nullptr;
                char *text = nullptr;
                if (openGatewayConnection(simulator->port(), &own, &text) != STAPI_OK) continue; // a busy machine
                slot.closed = false;
                slot.handle = own;
                RIX_ResultSetToken_t stats = nullptr;
                int rc = STAPI_OK;
                for (int query = 0; query < 8 && rc == STAPI_OK; query++)
                    rc = getStats(own, &stats);
                if (rc != STAPI_OK && rc != STAPI_TIME_LIMIT_REACHED && !slot.closed) ++strangersMet;
                closeGatewayConnection(&own);
            }
        });
    for (int i = 0; i < 4; i++)
        watchdogs.emplace_back([&, i] {
            for (int step = i; !end; step++) {
                Slot &slot = slots[step % OWNERS];
                RIX_GatewayToken_t late = slot.handle;
                std::this_thread::sleep_for(std::chrono::microseconds(200));
                if (late == nullptr) continue;
                if (slot.handle == late) slot.closed = true; // before the owner can notice
                closeGatewayConnection(&late);
            }
        });
    for (std::thread &owner : owners)
        owner.join();
    end = true;
    for (std::thread &watchdog : watchdogs)
        watchdog.join();
    EXPECT_EQ(0, strangersMet);
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

void useConnection(int port)
{
    RIX_GatewayToken_t handle = nullptr;
    char *text = nullptr;
    ASSERT_EQ(STAPI_OK, openGatewayConnection(port, &handle, &text));
    for (const Query &query : {kStats, kStatsById}) {
        RIX_ResultSetToken_t rs = nullptr, copy = nullptr;
        ASSERT_EQ(STAPI_OK, query.ask(handle, "Busy:Nobody:Requests", &rs));
        ASSERT_EQ(query.hasText ? 4u : 3u, readStats(rs).size());
        ASSERT_EQ(STAPI_OK, copyResultSet(rs, &copy));
        ASSERT_EQ(STAPI_OK, dumpResultSet(copy));
        ASSERT_EQ(STAPI_OK, freeResultSet(&copy));
    }
    ASSERT_EQ(STAPI_OK, closeGatewayConnection(&handle));
}

TEST_F(Threads, SixtyFourConnectionsTraceToOneFileWhileItsLevelAndDestinationChange)
{
    start();
    char traceFile[] = "/tmp/rixstats-trace-XXXXXX";
    ::close(mkstemp(traceFile));
    std::atomic<bool> done{false};
    std::thread switcher([&] {
        for (int i = 0; i < 100 || !done; i++) { // often enough to fill the file alone
            EXPECT_EQ(STAPI_OK, setAPITraceLevel(i % 6));
            EXPECT_EQ(STAPI_OK, setAPITraceFile(i / 7 % 2 == 0 ? traceFile : "/dev/null"));
            EXPECT_EQ(STAPI_OK, dumpState());
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
    std::vector<std::thread> users;
    for (int i = 0; i < 64; i++)
        users.emplace_back(useConnection, simulator->port());
    for (std::thread &user : users)
        user.join();
    done = true;
    switcher.join();
    EXPECT_GT(countWholeLines(traceFile), 100); // how many of the users is a matter of time
    unlink(traceFile);
}

} // namespace
