// Memory and locks that cannot be had: each single allocation of the library fails once.
#include "faults.h"

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

} // namespace
