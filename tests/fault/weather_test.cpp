// Bad weather that a monitor may live in: signals, replies in pieces, thousands of open files, long runs.
#include "faults.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>

// There is one where the sanitizers are, whose books grow with every call.
extern "C" __attribute__((weak)) void __sanitizer_print_stack_trace();

using namespace apitest;
using namespace rixgwsim;
using fault::Query;

namespace {

class WeatherTest : public GatewayTest
{
protected:
    // What the queries of a connection's whole life answer.
    std::vector<Walk> answers(std::initializer_list<Query> queries)
    {
        std::vector<Walk> walks;
        int rc = connect();
        if (rc == STAPI_OK) highest = std::max<int>(highest, gateway->socketDescriptor);
        for (const Query &query : queries) {
            RIX_ResultSetToken_t resultSet = nullptr;
            if (rc == STAPI_OK) rc = query.ask(gateway, &resultSet);
            if (rc == STAPI_OK) walks.push_back(query.read(resultSet));
        }
        if (rc == STAPI_OK) rc = closeGatewayConnection(&gateway);
        EXPECT_EQ(STAPI_OK, rc);
        return walks;
    }
    std::vector<Walk> answers() { return answers({fault::kQueries[0], fault::kQueries[2], fault::kQueries[3]}); }

    int highest = 0; // descriptor used so far
};

volatile sig_atomic_t signalsHandled = 0;

// Signals this thread every 0.2 ms, in a way that interrupts what it waits for.
class Storm
{
public:
    Storm()
    {
        struct sigaction action = {};
        action.sa_handler = [](int) { signalsHandled = signalsHandled + 1; };
        sigaction(SIGUSR1, &action, &before); // without SA_RESTART
        sigevent event = {};
        event.sigev_notify = SIGEV_THREAD_ID;
        event.sigev_signo = SIGUSR1;
        event._sigev_un._tid = static_cast<pid_t>(syscall(SYS_gettid));
        EXPECT_EQ(0, timer_create(CLOCK_MONOTONIC, &event, &timer));
        const itimerspec period = {{0, 200000}, {0, 200000}};
        EXPECT_EQ(0, timer_settime(timer, 0, &period, nullptr));
    }
    ~Storm()
    {
        timer_delete(timer);
        sigaction(SIGUSR1, &before, nullptr);
    }

private:
    struct sigaction before = {};
    timer_t timer = {};
};

TEST_F(WeatherTest, StormOfSignalsChangesNoAnswer)
{
    start();
    const std::vector<Walk> calm = answers();
    Faults slow;
    slow.delay = std::chrono::milliseconds(3);
    slow.pieceSize = 1;
    simulator->setFaults(slow);
    const Storm storm;
    EXPECT_EQ(calm, answers());
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
        ASSERT_EQ(whole, answers({fault::kQueries[4]})) << "in pieces of " << pieces.pieceSize;
    }
}

TEST_F(WeatherTest, ThousandsOfOpenFilesAreNoObstacle)
{
    start();
    const std::vector<Walk> expected = answers();
    waitUntilIdle(); // the low descriptors are all to be taken
    rlimit before = {};
    getrlimit(RLIMIT_NOFILE, &before);
    std::vector<int> taken = {::open("/dev/null", O_RDONLY)};
    for (const int count : {1100, 5000}) {
        const rlimit raised = {std::max<rlim_t>(before.rlim_cur, static_cast<rlim_t>(count) + 100), before.rlim_max};
        if (setrlimit(RLIMIT_NOFILE, &raised) != 0) break; // not allowed here
        while (static_cast<int>(taken.size()) < count)
            taken.push_back(dup(taken[0]));
        EXPECT_EQ(expected, answers());
        EXPECT_LT(count, highest);
    }
    for (const int descriptor : taken)
        close(descriptor);
    setrlimit(RLIMIT_NOFILE, &before);
    if (taken.size() < 5000) GTEST_SKIP() << "only " << taken.size() << " open files were possible here";
}

// A loopback address with a port of its own.
int bindLoopback(int desc, sockaddr_in &address)
{
    socklen_t size = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(0, bind(desc, reinterpret_cast<sockaddr *>(&address), size));
    EXPECT_EQ(0, getsockname(desc, reinterpret_cast<sockaddr *>(&address), &size));
    return ntohs(address.sin_port);
}

long residentBytes()
{
    long pages[2] = {};
    std::ifstream("/proc/self/statm") >> pages[0] >> pages[1];
    return pages[1] * sysconf(_SC_PAGESIZE);
}

TEST_F(WeatherTest, ThousandConnectionsGoodAndFailedLeaveNothing)
{
    Options options = smallOptions();
    options.recordRequests = false;
    start(options);
    const int unused = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    const int refusedPort = bindLoopback(unused, address);
    const std::ptrdiff_t descriptors = countDescriptors();
    long blocks = 0;
    long resident = 0;
    for (int cycle = 0; cycle < 1000; ++cycle) {
        if (cycle == 200) {
            blocks = fault::liveBlocks();
            resident = residentBytes();
        }
        // Dropped after so many flows; refused by the gateway, then by the system; good.
        const int kind = cycle % 12;
        Faults faults;
        if (kind < 8) faults.dropAfterFlows = kind;
        if (kind == 8) faults.authRc = 7;
        simulator->setFaults(faults);
        const int openRc = openGatewayConnection(kind == 9 ? refusedPort : simulator->port(), &gateway, &version);
        EXPECT_EQ((kind >= 5 && kind < 8) || kind >= 10, openRc == STAPI_OK) << kind;
        if (openRc != STAPI_OK) continue;
        RIX_ResultSetToken_t resultSet = nullptr;
        const int askRc = getStats(gateway, &resultSet);
        EXPECT_EQ(kind >= 7, askRc == STAPI_OK) << kind;
        EXPECT_EQ(askRc == STAPI_OK ? STAPI_OK : STAPI_GATEWAY_TOKEN_NOT_FOUND, closeGatewayConnection(&gateway));
    }
    waitUntilIdle();
    EXPECT_EQ(descriptors, countDescriptors());
    EXPECT_EQ(blocks, fault::liveBlocks());
    if (__sanitizer_print_stack_trace == nullptr) {
        EXPECT_GT(resident + 2000000, residentBytes()); // 800 times a result set alone would be 26 MB
    }
    close(unused);
}

// Takes a minute: run by hand with --gtest_also_run_disabled_tests.
TEST_F(WeatherTest, DISABLED_ConnectThatIsNeverAnsweredTimesOut)
{
    alarm(100);
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    const int port = bindLoopback(listener, address);
    ASSERT_EQ(0, listen(listener, 0));
    std::vector<int> callers; // nobody accepts them: the queue is full when the last one is not connected in time
    for (int ready = 1; ready == 1 && callers.size() < 16;) {
        const int caller = callers.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
        ::connect(caller, reinterpret_cast<sockaddr *>(&address), sizeof address);
        fd_set connected;
        FD_ZERO(&connected);
        FD_SET(caller, &connected);
        timeval timeout = {0, 200000};
        ready = select(caller + 1, nullptr, &connected, nullptr, &timeout);
    }
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(STAPI_CONNECT_TIMED_OUT, openGatewayConnection(port, &gateway, &version));
    EXPECT_NEAR(60, std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count(), 2);
    for (const int caller : callers)
        close(caller);
    close(listener);
}

} // namespace
