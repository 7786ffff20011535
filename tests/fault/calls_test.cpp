// Calls of the system that fail while connecting and exchanging, and what the wait for a connect makes of time.
#include "faults.h"

#include <netdb.h>

#include <iostream>

using namespace apitest;
using namespace fault;

namespace {

class CallsDeathTest : public testing::Test
{
protected:
    void expectSweep(const std::string &outcome, std::string_view call, std::initializer_list<int> errors,
                     int times = 1)
    {
        for (const int error : errors) {
            const Sweep swept = sweep(gateway.port, kQueries[3], call, error, times);
            EXPECT_EQ(outcome, swept.outcome) << call << " with " << error;
            points += swept.points;
        }
    }
    ~CallsDeathTest() override { std::cout << "failing calls swept: " << points << "\n"; }

    GatewayProcess gateway;
    int points = 0;
};

TEST_F(CallsDeathTest, EveryFailingCallIsToldByItsCodeAndLeavesNothing)
{
    expectSweep("open -132", "getaddrinfo", {-EAI_NONAME, -EAI_AGAIN, -EAI_FAIL, -EAI_MEMORY, -EAI_SYSTEM});
    // Before the connect no errno counts.
    expectSweep("open -118", "socket", {EMFILE, ENFILE, ENOBUFS, EAFNOSUPPORT, ECONNREFUSED, ENETUNREACH});
    expectSweep("open -118", "setsockopt", {ENOPROTOOPT, EBADF, ECONNREFUSED});
    expectSweep("open -118", "ioctl", {ENOTTY, EBADF});
    expectSweep("open -118, open -135", "ioctl", {ECONNREFUSED}); // the second is part of connecting
    expectSweep("open -118, open -136", "ioctl", {ENETUNREACH});
    for (const char *const connecting : {"connect", "SO_ERROR"}) {
        expectSweep("open -135", connecting, {ECONNREFUSED});
        expectSweep("open -136", connecting, {ENETUNREACH});
        expectSweep("open -118", connecting, {EHOSTUNREACH, ETIMEDOUT, EADDRNOTAVAIL, EACCES, EBADF});
    }
    expectSweep("open -118", "getsockopt", {EBADF, ENOBUFS});
    expectSweep("open -118, open -102, query -102, close 0", "select", {EBADF, EINVAL, ENOMEM});
    expectSweep("open -118, open -102, query -102, close 0", "send",
                {EPIPE, ECONNRESET, EBADF, ENOBUFS, EHOSTUNREACH, 0});
    expectSweep("open -118, open -122, query -122, close 0", "recv",
                {ECONNRESET, ETIMEDOUT, EBADF, ENOMEM, EHOSTUNREACH});
    expectSweep("close 0", "close", {EIO, EINTR});
}

TEST_F(CallsDeathTest, InterruptionsChangeNothing)
{
    for (const char *const call : {"select", "send", "recv"})
        expectSweep("open 0, query 0, close 0", call, {EINTR}, 7);
}

class ConnectWaitTest : public GatewayTest
{
protected:
    ~ConnectWaitTest() override
    {
        connectWait = nullptr;
        clockAhead = 0;
    }
};

// A connect in progress, interrupted after each of these seconds and then without answer: the seconds waited for.
std::vector<int> waitsOf(int port, const std::vector<time_t> &interruptions)
{
    std::vector<int> waits;
    const Wait wait = [&](fd_set *, const timeval &timeout) {
        waits.push_back(static_cast<int>(timeout.tv_sec));
        if (waits.size() > interruptions.size()) return 0;
        clockAhead = interruptions[waits.size() - 1];
        errno = EINTR;
        return -1;
    };
    connectWait = &wait;
    clockAhead = 0;
    char *version = nullptr;
    RIX_GatewayToken_t gateway = nullptr;
    const Injection injection("connect", 1, EINPROGRESS);
    EXPECT_EQ(STAPI_CONNECT_TIMED_OUT, openGatewayConnection(port, &gateway, &version));
    connectWait = nullptr;
    return waits;
}

TEST_F(ConnectWaitTest, LastsSixtySecondsWithoutInterruptionsAndTheRestAfterOne)
{
    start();
    // The whole of a first second does not count as waited for, but one second more is all there is then.
    const std::pair<std::vector<time_t>, std::vector<int>> rows[] = {
        {{}, {60}},      {{10}, {60, 50}}, {{1}, {60, 59}},
        {{59}, {60, 1}}, {{0}, {60, 1}},   {{60}, {60, 1}},
        {{61}, {60, 1}}, {{-5}, {60, 1}},  {{0, 0, 10, 30, 90}, {60, 1, 1, 50, 30, 1}}};
    for (const auto &[interruptions, waits] : rows)
        EXPECT_EQ(waits, waitsOf(simulator->port(), interruptions)) << testing::PrintToString(interruptions);
    EXPECT_EQ(STAPI_OK, connect());
}

TEST_F(ConnectWaitTest, ThatEndsWithAnExceptionAloneCountsAsConnected)
{
    start();
    const Wait wait = [](fd_set *writable, const timeval &) {
        FD_ZERO(writable);
        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // until it is really connected
        return 1;
    };
    connectWait = &wait;
    const Injection injection("SO_ERROR", 1, ECONNREFUSED); // which nobody asks for
    EXPECT_EQ(STAPI_OK, connect());
}

} // namespace
