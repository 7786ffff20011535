// Bad weather that a monitor may live in: signals, replies in pieces, thousands of open files, long runs.
#include "faults.h"

#include <netinet/in.h>
#include <signal.h>
#include <sys/time.h>

using namespace apitest;
using namespace rixgwsim;
using fault::kQueries;

namespace {

class WeatherTest : public GatewayTest
{
protected:
    // What the queries of a connection's whole life answer.
    std::vector<Walk> answers(std::initializer_list<fault::Query> queries = {kQueries[0], kQueries[2], kQueries[3]})
    {
        std::vector<Walk> walks;
        if (const int rc = connect(); rc != STAPI_OK) return {{"open " + std::to_string(rc)}};
        highest = std::max<int>(highest, gateway->socketDescriptor);
        for (const fault::Query &query : queries) {
            RIX_ResultSetToken_t resultSet = nullptr;
            EXPECT_EQ(STAPI_OK, query.ask(gateway, &resultSet));
            if (resultSet != nullptr) walks.push_back(query.read(resultSet));
        }
        EXPECT_EQ(STAPI_OK, closeGatewayConnection(&gateway));
        return walks;
    }

    int highest = 0; // descriptor used so far
};

volatile sig_atomic_t signalsHandled = 0;

TEST_F(WeatherTest, StormOfSignalsChangesNoAnswer)
{
    start();
    const std::vector<Walk> calm = answers();
    Faults slow;
    slow.delay = std::chrono::milliseconds(3);
    slow.pieceSize = 1;
    simulator->setFaults(slow);
    struct sigaction action = {}, before = {};
    action.sa_handler = [](int) { signalsHandled = signalsHandled + 1; };
    sigaction(SIGALRM, &action, &before); // without SA_RESTART
    const itimerval storm = {{0, 200}, {0, 200}};
    setitimer(ITIMER_REAL, &storm, nullptr); // it is the process's first thread that signals go to
    EXPECT_EQ(calm, answers());
    alarm(40); // of the same timer
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_LT(200, signalsHandled);
}

TEST_F(WeatherTest, RepliesSplitAnywhereGiveTheSameAnswer)
{
    start();
    const std::vector<Walk> whole = {{"Busy(0) Busy=7", "nosuch(-1)"}};
    const Bytes data = writeCallData(ReplyKind::statistics, {{"Busy", 0, {{"Busy", "7"}}}, {"nosuch", -1, {}}}, {});
    Faults pieces; // two of them from half of the longest reply's length on
    for (pieces.pieceSize = 1; pieces.pieceSize <= 34 + 9 + data.size(); ++pieces.pieceSize) {
        simulator->setFaults(pieces);
        ASSERT_EQ(whole, answers({kQueries[4]})) << "in pieces of " << pieces.pieceSize;
    }
}

TEST_F(WeatherTest, ThousandsOfOpenFilesAreNoObstacle)
{
    start();
    const std::vector<Walk> expected = answers();
    waitUntilIdle(); // the low descriptors are all to be taken
    for (const int count : {1100, 5000}) {
        const fault::OpenFiles files(static_cast<rlim_t>(count));
        if (!files.allowed) GTEST_SKIP() << count << " open files are not allowed here";
        EXPECT_EQ(expected, answers());
        EXPECT_LT(count, highest);
        waitUntilIdle();
    }
}

TEST_F(WeatherTest, ThousandConnectionsGoodAndFailedLeaveNothing)
{
    start();
    const std::ptrdiff_t descriptors = countDescriptors();
    long blocks = 0;
    for (int cycle = 0; cycle < 1000; ++cycle) {
        if (cycle == 20) blocks = fault::liveBlocks;
        const int kind = cycle % 10; // dropped after so many flows, refused, good
        Faults faults;
        if (kind < 8) faults.dropAfterFlows = kind;
        if (kind == 8) faults.authRc = 7;
        simulator->setFaults(faults);
        const bool opened = connect() == STAPI_OK;
        EXPECT_EQ(kind >= 5 && kind != 8, opened) << kind;
        if (!opened) continue;
        RIX_ResultSetToken_t resultSet = nullptr;
        EXPECT_EQ(kind >= 7, getStats(gateway, &resultSet) == STAPI_OK) << kind;
        EXPECT_EQ(kind >= 7, closeGatewayConnection(&gateway) == STAPI_OK) << kind;
    }
    waitUntilIdle();
    EXPECT_EQ(descriptors, countDescriptors());
    EXPECT_EQ(blocks, fault::liveBlocks);
}

// Takes a minute: run by hand with --gtest_also_run_disabled_tests.
TEST_F(WeatherTest, DISABLED_ConnectThatIsNeverAnsweredTimesOut)
{
    alarm(100);
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(0, bind(listener, reinterpret_cast<sockaddr *>(&address), size));
    ASSERT_EQ(0, getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size));
    ASSERT_EQ(0, listen(listener, 0));
    std::vector<int> callers; // nobody accepts them, and the queue is full after the first
    for (int i = 0; i < 8; ++i) {
        callers.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
        ::connect(callers.back(), reinterpret_cast<sockaddr *>(&address), sizeof address);
    }
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(STAPI_CONNECT_TIMED_OUT, openGatewayConnection(ntohs(address.sin_port), &gateway, &version));
    EXPECT_NEAR(60, std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count(), 2);
    for (const int caller : callers)
        close(caller);
    close(listener);
}

} // namespace
