// Time limits: every place at which a gateway can keep a call waiting, silent or a byte at a time.
#include "gateway_fixture.h"

#include "rixstats_ext.h"

#include <atomic>
#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>

using namespace apitest;
using namespace rixgwsim;

namespace {

constexpr int kLimit = 200; // milliseconds
constexpr int kSlack = 1000;

RIX_Failure_t lastFailure()
{
    RIX_Failure_t failure = {};
    failure.size = sizeof failure;
    EXPECT_EQ(STAPI_OK, rixGetLastFailure(&failure));
    return failure;
}

class TimeLimits : public GatewayTest
{
protected:
    void TearDown() override
    {
        EXPECT_EQ(STAPI_OK, rixSetTimeLimit(kLimit)); // whatever a failed test left open
        GatewayTest::TearDown();
        EXPECT_EQ(STAPI_OK, rixSetTimeLimit(0));
    }

    // A gateway that keeps one flow of its first connections waiting.
    void startSlow(int flow, bool trickles, int connections = 1)
    {
        Options options = smallOptions();
        if (trickles) {
            options.faults.pieceGap = std::chrono::milliseconds(30); // a reply's header alone takes a second
            options.scenario.rules = {{{1, connections}, {flow, flow}, {}, FaultKind::pieceSize, 1}};
        } else {
            options.wholeReply = [this, flow](int answered, const Bytes &) {
                const bool silent = answered == flow && !mended;
                for (int i = 0; silent && i < 10000 && !mended; i++)
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                return silent ? std::optional(Bytes{}) : std::nullopt;
            };
        }
        mended = false;
        start(options);
    }

    // Makes a call that has to end by the thread's limit, and not before.
    template <class Call>
    int limited(Call call)
    {
        EXPECT_EQ(STAPI_OK, rixSetTimeLimit(kLimit));
        const auto begin = std::chrono::steady_clock::now();
        const int rc = call();
        const auto took = std::chrono::steady_clock::now() - begin;
        EXPECT_EQ(STAPI_OK, rixSetTimeLimit(0));
        EXPECT_GE(took, std::chrono::milliseconds(kLimit));
        EXPECT_LT(took, std::chrono::milliseconds(kLimit + kSlack));
        mended = true;
        return rc;
    }

    void expectNextWorks()
    {
        EXPECT_EQ(STAPI_OK, connect());
        EXPECT_FALSE(readStats(ask(kStats)).empty());
        EXPECT_EQ(STAPI_OK, closeGatewayConnection(&gateway));
        waitUntilIdle();
    }

    std::atomic<bool> mended{false};
};

TEST_F(TimeLimits, EndAnOpeningAtEachFlow)
{
    const int steps[] = {RIX_STEP_HANDSHAKE, RIX_STEP_AUTHORISE, RIX_STEP_AUTHORISE, RIX_STEP_VERSION,
                         RIX_STEP_VERSION};
    for (const bool trickles : {false, true})
        for (int flow = 1; flow <= 5; flow++) {
            SCOPED_TRACE((trickles ? "trickling flow " : "silent flow ") + std::to_string(flow));
            startSlow(flow, trickles);
            RIX_GatewayToken_t none = nullptr;
            EXPECT_EQ(STAPI_TIME_LIMIT_REACHED,
                      limited([&] { return openGatewayConnection(simulator->port(), &none, &version); }));
            EXPECT_EQ(nullptr, none);
            const RIX_Failure_t failure = lastFailure();
            EXPECT_EQ(STAPI_TIME_LIMIT_REACHED, failure.code);
            EXPECT_EQ(steps[flow - 1], failure.step);
            EXPECT_EQ(ETIMEDOUT, failure.socketErrno);
            waitUntilIdle();
            EXPECT_EQ(static_cast<std::size_t>(flow), simulator->requests().size()) << "no good-bye is said";
            expectNextWorks();
        }
}

TEST_F(TimeLimits, EndEachQueryAndItsConnection)
{
    for (const bool trickles : {false, true})
        for (const Query &query : kQueries) {
            SCOPED_TRACE(query.name);
            const int flow = &query - kQueries < 3 ? 6 : 7;
            startSlow(flow, trickles);
            ASSERT_EQ(STAPI_OK, connect());
            RIX_ResultSetToken_t none = nullptr;
            EXPECT_EQ(STAPI_TIME_LIMIT_REACHED, limited([&] { return query.ask(gateway, "Workers", &none); }));
            EXPECT_EQ(nullptr, none);
            EXPECT_EQ(RIX_STEP_QUERY, lastFailure().step);
            EXPECT_EQ(STAPI_GATEWAY_TOKEN_NOT_FOUND, query.ask(gateway, "Workers", &none));
            waitUntilIdle();
            EXPECT_EQ(static_cast<std::size_t>(flow), simulator->requests().size()) << "no good-bye is said";
            expectNextWorks();
        }
}

TEST_F(TimeLimits, EndACloseThatHasClosedAllTheSame)
{
    for (const bool trickles : {false, true}) {
        startSlow(6, trickles);
        ASSERT_EQ(STAPI_OK, connect());
        EXPECT_EQ(STAPI_OK, limited([&] { return closeGatewayConnection(&gateway); }));
        EXPECT_EQ(nullptr, gateway);
        waitUntilIdle();
        EXPECT_EQ(6u, simulator->requests().size()) << "the good-bye is said";
        expectNextWorks();
    }
}

TEST_F(TimeLimits, HoldForTheClosingOfAllTogether)
{
    startSlow(6, false, 5);
    for (int i = 0; i < 5; i++)
        ASSERT_EQ(STAPI_OK, connect());
    EXPECT_EQ(STAPI_OK, limited(closeAllGatewayConnections));
    EXPECT_EQ(nullptr, rixstats::gtListHeadPtr);
    waitUntilIdle();
    EXPECT_EQ(5u * 6, simulator->requests().size()) << "to each the good-bye is said";
    expectNextWorks();
}

// A listener whose queue of connections is full answers no further connect.
TEST_F(TimeLimits, EndAConnectThatNobodyAnswers)
{
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    sockaddr *const name = reinterpret_cast<sockaddr *>(&address);
    ASSERT_EQ(0, bind(listener, name, size));
    ASSERT_EQ(0, listen(listener, 0));
    ASSERT_EQ(0, getsockname(listener, name, &size));
    std::vector<int> queued;
    for (int i = 0; i < 8; i++) {
        queued.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        ::connect(queued.back(), name, size);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50)); // for the queue to fill

    RIX_GatewayToken_t none = nullptr;
    EXPECT_EQ(STAPI_TIME_LIMIT_REACHED,
              limited([&] { return openGatewayConnection(ntohs(address.sin_port), &none, &version); }));
    EXPECT_EQ(nullptr, none);
    const RIX_Failure_t failure = lastFailure();
    EXPECT_EQ(RIX_STEP_CONNECT, failure.step);
    EXPECT_EQ(ETIMEDOUT, failure.socketErrno);
    for (const int desc : queued)
        close(desc);
    close(listener);
    start();
    expectNextWorks();
}

TEST_F(TimeLimits, AreOfOneThreadAndBeginAsNone)
{
    int limit = -1;
    EXPECT_EQ(STAPI_OK, rixGetTimeLimit(&limit));
    EXPECT_EQ(0, limit);
    EXPECT_EQ(STAPI_OK, rixSetTimeLimit(60000));
    EXPECT_EQ(STAPI_BAD_TIME_LIMIT, rixSetTimeLimit(-1));
    EXPECT_EQ(STAPI_BAD_TIME_LIMIT, lastFailure().code);
    EXPECT_EQ(STAPI_NULL_OUTPUT_PTR, rixGetTimeLimit(nullptr));
    EXPECT_EQ(STAPI_OK, rixGetTimeLimit(&limit));
    EXPECT_EQ(60000, limit);
    EXPECT_EQ(0, inThread([] {
                  int another = -1;
                  return rixGetTimeLimit(&another) == STAPI_OK ? another : -1;
              }));
    open(); // within the limit, as ever
    EXPECT_FALSE(readStats(ask(kStats)).empty());
    EXPECT_EQ(STAPI_OK, closeGatewayConnection(&gateway));
}

} // namespace
