// Memory and locks that cannot be had: each single allocation of the library fails once.
#include "faults.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <iostream>

using namespace fault;

namespace {

class MemoryDeathTest : public testing::Test
{
protected:
    void expectSweep(const Query &query)
    {
        // The first -122 is for the protocol version's room, which is missed when the version has come.
        const std::string opening = "version -111, open -111, open -122, open -111, open -118, open -122, open -111, ";
        const std::string asking = query.hasText ? "query -111, query -122, " : "query -122, ";
        const Sweep swept = sweep(gateway.port, query, "allocate", ENOMEM);
        EXPECT_EQ(opening + asking + "copy -111, idQuery -111, close 0", swept.outcome) << query.name;
        std::cout << "failing allocations swept with " << query.name << ": " << swept.points << "\n";
    }

    GatewayProcess gateway;
};

TEST_F(MemoryDeathTest, EveryFailingAllocationIsToldByItsCodeAndLeavesNothing)
{
    for (const Query &query : kQueries)
        expectSweep(query);
}

TEST_F(MemoryDeathTest, AllocationsForHighDescriptorsMayFailToo)
{
    rlimit before = {};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit raised = {std::max<rlim_t>(before.rlim_cur, 1200), before.rlim_max};
    if (setrlimit(RLIMIT_NOFILE, &raised) != 0) GTEST_SKIP() << "so many descriptors are not allowed here";
    std::vector<int> taken = {open("/dev/null", O_RDONLY)};
    while (taken.size() < 1100)
        taken.push_back(dup(taken[0]));
    expectSweep(kQueries[2]);
    for (const int descriptor : taken)
        close(descriptor);
    setrlimit(RLIMIT_NOFILE, &before);
}

TEST_F(MemoryDeathTest, LocksThatCannotBeMadeFailTheFirstCallAlone)
{
    for (const int error : {EAGAIN, ENOMEM})
        EXPECT_EQ("version -121, version -2", sweep(gateway.port, kQueries[1], "pthread_mutex_init", error).outcome);
}

} // namespace
