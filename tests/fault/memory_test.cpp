// Memory and locks that cannot be had: each single allocation of the library fails once.
#include "faults.h"
#include "rixstats_ext.h"
#include "stapi_rix_flowarea.h"
#include "stapi_rix_resultsetbuffer.h"

using namespace apitest;
using namespace fault;

namespace {

void expectSweep(const Query &query)
{
    // The first -122 is for the protocol version's room, which is missed when the version has come.
    const std::string opening = "version -111, open -111, open -122, open -111, open -118, open -122, open -111, ";
    const std::string asking = query.hasText ? "query -111, query -122, " : "query -122, ";
    EXPECT_EQ(opening + asking + "copy -111, idQuery -111, close 0", sweep(query, {"allocate", ENOMEM}));
}

TEST(MemoryDeathTest, EveryFailingAllocationIsToldByItsCodeAndLeavesNothing)
{
    for (const Query &query : kQueries)
        expectSweep(query);
}

TEST(MemoryDeathTest, AllocationsForHighDescriptorsMayFailToo)
{
    const auto files = openFiles(1100);
    if (files.empty()) GTEST_SKIP() << "so many descriptors are not allowed here";
    expectSweep(kStats);
}

TEST(MemoryDeathTest, LocksThatCannotBeMadeFailTheFirstCallAlone)
{
    EXPECT_EQ("version -121, version -2", sweep(kIds, {"pthread_mutex_init", EAGAIN}));
}

using NoMemoryToTrace = GatewayTest;

TEST_F(NoMemoryToTrace, ShortensLinesAndDumpsAndTellsOfIt)
{
    open();
    ask(kStats);
    const long blocks = liveBlocks;
    const auto tracedWithout = [](int nth, const std::function<void()> &call) {
        testing::internal::CaptureStderr();
        injection = {"allocate", ENOMEM, 1, nth};
        call();
        injection = {};
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_THAT(tracedWithout(1, dumpState), testing::HasSubstr("\nThere is no memory to dump the Gateway Token List\n"
                                                                "Total number of Gateway Token List entries=1\n"));
    EXPECT_THAT(tracedWithout(2, dumpState),
                testing::HasSubstr(std::string(80, '-') + "\nThere is no memory to dump the buffer\n---"));
    EXPECT_EQ(STAPI_OK, setAPITraceLevel(1));
    const std::string name(2000, '/');
    const std::string line = tracedWithout(1, [&] { setAPITraceFile(name.c_str()); });
    EXPECT_THAT(line, testing::EndsWith("///\n")); // and not with what stands behind the name
    EXPECT_EQ(blocks, liveBlocks);
}

// An area grows from the heap into pages, and then into more of them; one that cannot grow stays as it is.
using ShortOfMemory = GatewayTest;

TEST_F(ShortOfMemory, AQueryIsNotBlamedOnTheGateway)
{
    start();
    int failed = 0;
    for (int nth = 1; nth <= 12; ++nth) {
        ASSERT_EQ(STAPI_OK, connect());
        injection = {"allocate", ENOMEM, 1, nth};
        RIX_ResultSetToken_t stats = nullptr;
        const int rc = getStats(gateway, &stats);
        injection = {};
        RIX_Failure_t failure = {};
        failure.size = sizeof failure;
        EXPECT_EQ(STAPI_OK, rixGetLastFailure(&failure));
        EXPECT_TRUE(rc == STAPI_OK || failure.socketErrno == ENOMEM) << nth << " ends with " << rc;
        failed += rc != STAPI_OK;
        closeGatewayConnection(&gateway); // a failure has closed it
    }
    EXPECT_GT(failed, 2);
}

TEST(LargeAreas, WhosePagesCannotBeHadLeaveNothing)
{
    const long blocks = liveBlocks;
    for (int nth = 1; nth <= 6; ++nth) {
        injection = {"allocate", ENOMEM, 1, nth};
        char *area = rixstats::newResultSetArea(3 << 20);
        for (int grown = 6 << 20; area != nullptr && grown <= 12 << 20; grown *= 2)
            if (char *const larger = rixstats::growResultSetArea(area, grown)) area = larger;
        char *const copy = area != nullptr ? rixstats::copyResultSetArea(area) : nullptr;
        char *const reply = rixstats::newReplyArea(8 << 20);
        EXPECT_EQ(std::make_tuple(nth != 1, nth != 1 && nth != 4, nth != 5),
                  std::make_tuple(area != nullptr, copy != nullptr, reply != nullptr));
        for (char *const resultSet : {area, copy})
            rixstats::freeResultSetArea(resultSet);
        rixstats::freeFlowArea(reply);
        EXPECT_EQ(blocks, liveBlocks) << nth;
    }
    injection = {};
}

} // namespace
