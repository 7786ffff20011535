// Calls of the system that fail while connecting and exchanging, and what the wait for a connect makes of time.
#include "faults.h"

#include <netdb.h>

using namespace apitest;
using namespace fault;

namespace {

void expectSweep(const std::string &outcome, std::string_view call, std::initializer_list<int> errors, int times = 1)
{
    for (const int error : errors)
        EXPECT_EQ(outcome, sweep(kIdsByGroup, {call, error, times})) << call << " with " << error;
}

TEST(CallsDeathTest, EveryFailingCallIsToldByItsCodeAndLeavesNothing)
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
    for (const char *const interrupted : {"select", "send", "recv"})
        expectSweep("open 0, query 0, close 0", interrupted, {EINTR}, 7);
}

// Who sets no limit pays nothing for those of others: no wait and no look at a clock that was not there before.
TEST(CallsDeathTest, WithoutATimeLimitThereIsNoNewCall)
{
    for (const char *const call : {"poll", "clock_gettime"})
        EXPECT_EQ("", sweep(kIdsByGroup, {call, EBADF, 1})) << call << " is called";
}

using LateCloseTest = GatewayTest;

TEST_F(LateCloseTest, BehindTheWholeAnswerEndsTheQueryAndIsTold)
{
    open();
    int receives = 0; // of a query: two for each of its flows
    afterRecv = [&] {
        if (++receives != 4) return;
        EXPECT_EQ(STAPI_OK, inThread(closeAllGatewayConnections));
    };
    testing::internal::CaptureStderr();
    EXPECT_EQ(STAPI_OK, setAPITraceLevel(2));
    RIX_ResultSetToken_t stats = nullptr;
    EXPECT_EQ(STAPI_COMMS_FAILURE, getStats(gateway, &stats));
    EXPECT_EQ(STAPI_OK, setAPITraceLevel(0));
    afterRecv = nullptr;
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("[1028] EVENT  API.getStats Removing"));
    EXPECT_TRUE(stats == nullptr && receives == 4);
    EXPECT_EQ(STAPI_GATEWAY_TOKEN_NOT_FOUND, closeGatewayConnection(&gateway));
}

class ConnectWaitTest : public GatewayTest
{
protected:
    // A connect in progress, interrupted after each of these seconds and then without answer: the seconds waited for.
    std::vector<int> waitsOf(const std::vector<time_t> &interruptions)
    {
        std::vector<int> waits;
        connectWait = [&](const timeval &timeout) {
            waits.push_back(static_cast<int>(timeout.tv_sec));
            if (waits.size() > interruptions.size()) return 0;
            clockAhead = interruptions[waits.size() - 1];
            errno = EINTR;
            return -1;
        };
        injection = {"connect", EINPROGRESS};
        EXPECT_EQ(STAPI_CONNECT_TIMED_OUT, connect());
        connectWait = nullptr;
        clockAhead = 0;
        return waits;
    }
};

TEST_F(ConnectWaitTest, LastsSixtySecondsWithoutInterruptionsAndTheRestAfterOne)
{
    start();
    // The whole of a first second does not count as waited for, but one second more is all there is then.
    const std::pair<std::vector<time_t>, std::vector<int>> rows[] = {
        {{}, {60}},      {{10}, {60, 50}}, {{1}, {60, 59}},
        {{59}, {60, 1}}, {{0}, {60, 1}},   {{60}, {60, 1}},
        {{61}, {60, 1}}, {{-5}, {60, 1}},  {{0, 0, 10, 30, 90}, {60, 1, 1, 50, 30, 1}}};
    for (const auto &[interruptions, waits] : rows)
        EXPECT_EQ(waits, waitsOf(interruptions)) << testing::PrintToString(interruptions);
}

} // namespace
