// Why calls failed: the record of a thread's last failure, and the names and meanings of codes.
#include "gateway_fixture.h"

#include "rixstats_ext.h"

#include <cerrno>
#include <netdb.h>

using namespace apitest;
using namespace rixgwsim;

namespace {

class FailureTest : public GatewayTest
{
protected:
    static RIX_Failure_t last()
    {
        RIX_Failure_t failure = {};
        failure.size = sizeof failure;
        EXPECT_EQ(STAPI_OK, rixGetLastFailure(&failure));
        EXPECT_EQ(static_cast<int>(sizeof failure), failure.size);
        return failure;
    }

    // Without the size.
    static std::vector<int> fieldsOf(const RIX_Failure_t &failure)
    {
        return {failure.code,      failure.step,   failure.socketErrno, failure.resolverCode,
                failure.gatewayRc, failure.authRc, failure.adminRc,     failure.exceptionFlag};
    }

    void expectOpeningFails(const Faults &faults, std::vector<int> expected)
    {
        simulator->setFaults(faults);
        EXPECT_EQ(expected[0], connect());
        EXPECT_EQ(expected, fieldsOf(last()));
        waitUntilIdle();
        simulator->setFaults({});
    }

    void expectQueryFails(const Faults &faults, std::vector<int> expected)
    {
        ASSERT_EQ(STAPI_OK, connect());
        simulator->setFaults(faults);
        RIX_ResultSetToken_t none = nullptr;
        EXPECT_EQ(expected[0], getStats(gateway, &none));
        EXPECT_EQ(expected, fieldsOf(last()));
        simulator->setFaults({});
        RIX_ResultSetToken_t stale = nullptr;
        EXPECT_EQ(STAPI_GATEWAY_TOKEN_NOT_FOUND, getStats(gateway, &stale));
        EXPECT_EQ((std::vector<int>{STAPI_GATEWAY_TOKEN_NOT_FOUND, RIX_STEP_NONE, 0, 0, 0, 0, 0, 0}), fieldsOf(last()));
    }
};

TEST_F(FailureTest, EachStepOfAnOpeningTellsWhyItFailed)
{
    start();
    const int port = simulator->port();
    EXPECT_EQ(STAPI_HOST_NOT_FOUND, openRemoteGatewayConnection("no host", port, &gateway, &version));
    const RIX_Failure_t unknown = last();
    EXPECT_EQ(RIX_STEP_RESOLVE, unknown.step);
    EXPECT_NE(0, unknown.resolverCode);

    expectOpeningFails(refusal(1, 7), {STAPI_CONNECT_FAILED, RIX_STEP_HANDSHAKE, 0, 0, 7, 0, 0, 0});
    expectOpeningFails(refusal(2, 7), {STAPI_CONNECT_FAILED, RIX_STEP_AUTHORISE, 0, 0, 7, 0, 0, 0});
    expectOpeningFails(refusal(1, 0, 0, false, 8), {STAPI_CONNECT_FAILED, RIX_STEP_AUTHORISE, 0, 0, 0, 8, 0, 0});
    expectOpeningFails(refusal(4, 0, 9), {STAPI_GATEWAY_EXCHANGE_FAILED, RIX_STEP_VERSION, 0, 0, 0, 0, 9, 0});
    expectOpeningFails(dropInside(3, 0), {STAPI_CONNECT_FAILED, RIX_STEP_AUTHORISE, RIX_PEER_CLOSED, 0, 0, 0, 0, 0});
    simulator->stop();
    EXPECT_EQ(STAPI_CONNECTION_REFUSED, openGatewayConnection(port, &gateway, &version));
    EXPECT_EQ((std::vector<int>{STAPI_CONNECTION_REFUSED, RIX_STEP_CONNECT, ECONNREFUSED, 0, 0, 0, 0, 0}),
              fieldsOf(last()));
    simulator->start();
}

TEST_F(FailureTest, AQueryTellsWhyItFailed)
{
    start();
    expectQueryFails(refusal(6, 7), {STAPI_GATEWAY_EXCHANGE_FAILED, RIX_STEP_QUERY, 0, 0, 7, 0, 0, 0});
    expectQueryFails(refusal(7, 0, 9), {STAPI_GATEWAY_EXCHANGE_FAILED, RIX_STEP_QUERY, 0, 0, 0, 0, 9, 0});
    expectQueryFails(refusal(7, 0, 0, true), {STAPI_GATEWAY_EXCHANGE_FAILED, RIX_STEP_QUERY, 0, 0, 0, 0, 0, 1});
    expectQueryFails(dropInside(7, 20),
                     {STAPI_GATEWAY_EXCHANGE_FAILED, RIX_STEP_QUERY, RIX_PEER_CLOSED, 0, 0, 0, 0, 0});
    expectQueryFails(dropInside(7, 0), {STAPI_GATEWAY_EXCHANGE_FAILED, RIX_STEP_QUERY, RIX_PEER_CLOSED, 0, 0, 0, 0, 0});
    expectQueryFails(dropInside(7, 60),
                     {STAPI_GATEWAY_EXCHANGE_FAILED, RIX_STEP_PARSE, RIX_PEER_CLOSED, 0, 0, 0, 0, 0});
}

TEST_F(FailureTest, RefusedCallsCountAndSuccessesAndTheEndOfAWalkDoNot)
{
    open();
    RIX_StatData_t stat;
    RIX_IdData_t id;
    const RIX_ResultSetToken_t stats = ask(kStats);
    EXPECT_EQ(STAPI_BAD_TRACE_LEVEL, setAPITraceLevel(6));
    EXPECT_FALSE(readStats(stats).empty());
    EXPECT_EQ(STAPI_NULL_OUTPUT_PTR, rixGetLastFailure(nullptr));
    EXPECT_EQ(STAPI_BAD_TRACE_LEVEL, last().code);
    EXPECT_EQ(STAPI_UNRECOGNISED_CONTENT, getFirstId(stats, &id));
    EXPECT_EQ(STAPI_UNRECOGNISED_CONTENT, last().code);
    EXPECT_EQ(STAPI_NULL_RESULT_SET_TOKEN, getNextStat(nullptr, &stat));
    EXPECT_EQ(STAPI_NULL_RESULT_SET_TOKEN, last().code);
    EXPECT_EQ(STAPI_BAD_PORT, openGatewayConnection(0, &gateway, &version));
    EXPECT_EQ(STAPI_BAD_PORT, last().code);
    EXPECT_EQ(STAPI_OK, inThread([] { return last().code; })) << "each thread has its own";
    EXPECT_EQ(STAPI_OK, closeGatewayConnection(&gateway));
    EXPECT_EQ(STAPI_BAD_PORT, last().code);
}

TEST_F(FailureTest, NoByteBehindTheCallersRecordIsWritten)
{
    EXPECT_EQ(STAPI_BAD_TRACE_LEVEL, setAPITraceLevel(6));
    for (int size : {-1, 0, 7, 8, 12, 35, 36, 4000}) {
        union
        {
            RIX_Failure_t failure;
            char bytes[4001];
        } room;
        memset(&room, 'b', sizeof room);
        room.failure.size = size;
        const int filled = size < 8 ? 4 : std::min(size, 36);
        EXPECT_EQ(size < 8 ? int{STAPI_BAD_RECORD_SIZE} : int{STAPI_OK}, rixGetLastFailure(&room.failure)) << size;
        EXPECT_EQ(size < 8 ? size : filled, room.failure.size);
        EXPECT_TRUE(size < 8 || room.failure.code == STAPI_BAD_TRACE_LEVEL);
        EXPECT_EQ(std::string(room.bytes + filled, room.bytes + 4001),
                  std::string(static_cast<size_t>(4001 - filled), 'b'))
            << size;
    }
}

TEST_F(FailureTest, CallsThatSucceedLeaveErrnoAlone)
{
    start();
    errno = 4711;
    ASSERT_EQ(STAPI_OK, setAPITraceFile("/dev/null"));
    ASSERT_EQ(STAPI_OK, setAPITraceLevel(4));
    ASSERT_EQ(STAPI_OK, openRemoteGatewayConnection("127.0.0.1", simulator->port(), &gateway, &version));
    RIX_ResultSetToken_t stats = nullptr, copy = nullptr;
    RIX_StatData_t stat;
    char *text = nullptr;
    ASSERT_EQ(STAPI_OK, getStats(gateway, &stats));
    ASSERT_EQ(STAPI_OK, getFirstStat(stats, &stat));
    ASSERT_EQ(STAPI_OK, getNextStat(stats, &stat));
    ASSERT_EQ(STAPI_OK, copyResultSet(stats, &copy));
    ASSERT_EQ(STAPI_OK, getIdQuery(copy, &text));
    ASSERT_EQ(STAPI_OK, freeResultSet(&copy));
    ASSERT_EQ(STAPI_OK, dumpState());
    ASSERT_EQ(STAPI_OK, rixSetTimeLimit(1000));
    ASSERT_EQ(STAPI_OK, closeGatewayConnection(&gateway));
    ASSERT_EQ(STAPI_OK, rixSetTimeLimit(0));
    EXPECT_EQ(4711, errno);
}

} // namespace
