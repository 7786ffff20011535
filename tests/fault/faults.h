// Faults on purpose. The build routes the library's calls of the system through here, so that chosen ones can be made
// to fail in one thread, while the gateway's threads in the same process go on undisturbed.
#pragma once

#include "channel.h"
#include "gateway_fixture.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/select.h>

#include <ctime>
#include <string_view>

namespace fault {

// Calls number nth to nth + times - 1 of one kind fail with an errno (0: send and recv return 0). The kind is the call's
// name, "allocate" for malloc, calloc, realloc, mmap and mremap, or "SO_ERROR" for the pending error that getsockopt
// delivers.
struct Injection
{
    std::string_view call;
    int error = 0;
    int times = 1;
    int nth = 1;
    int seen = 0;

    bool struck() const { return seen >= nth; }
};

// Of this thread: what fails, what stands in for select() where it waits for a connect, what happens behind each recv(),
// how far time() is ahead.
extern thread_local Injection injection;
extern thread_local std::function<int(const timeval &timeout)> connectWait;
extern thread_local std::function<void()> afterRecv;
extern thread_local time_t clockAhead;

// Blocks that the library has allocated in this thread and not freed, address lists among them.
extern thread_local long liveBlocks;
// Of them, those that would be lost: records of ended connections rest for a while on purpose.
long usedBlocks();

// So many open files, or none where the system does not allow them.
inline std::vector<rixgwsim::Descriptor> openFiles(rlim_t count)
{
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::max(limit.rlim_cur, count + 100);
    std::vector<rixgwsim::Descriptor> files;
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) return files;
    while (files.size() < count)
        files.emplace_back(open("/dev/null", O_RDONLY));
    return files;
}

// Lets one call after another fail, each in a fresh process, until a whole life of the library passes untouched. What
// became of the calls that were struck: "open -111, open -118, query -122 ...", equal neighbours once. Fails the test
// where a call did not keep its promises, or anything is left behind. In a fresh process the first call is struck too:
// tests of a sweep stand in suites named DeathTest, which GoogleTest runs before those that call the library.
std::string sweep(const apitest::Query &query, Injection fault);

} // namespace fault
