// Faults on purpose. The build routes the library's calls of the system through here, so that chosen ones can be made
// to fail in one thread, while the gateway's threads in the same process go on undisturbed. A sweep lets one call after
// another fail, each in a fresh process, until a whole life of the library passes untouched.
#pragma once

#include "gateway_fixture.h"

#include <sys/select.h>

#include <ctime>
#include <string_view>

namespace fault {

// While it lives, calls number nth to nth + times - 1 of one kind by this thread fail with an errno (0: send and recv
// return 0). The kind is the call's name, "allocate" for malloc, calloc and realloc, or "SO_ERROR" for the pending error
// that getsockopt delivers.
class Injection
{
public:
    Injection(std::string_view call, int nth, int error, int times = 1);
    ~Injection();
    Injection(const Injection &) = delete;
    Injection &operator=(const Injection &) = delete;

    bool struck() const { return seen >= nth; }
    bool strikes(std::string_view call); // and sets errno then

private:
    const std::string_view kind;
    const int nth, error, times;
    int seen = 0;
};

// Of this thread: what stands in for select() where it waits for a connect, and how far time() is ahead.
using Wait = std::function<int(fd_set *writable, const timeval &timeout)>;
extern thread_local const Wait *connectWait;
extern thread_local time_t clockAhead;

long liveBlocks(); // of memory that the library has allocated in this thread and not freed, address lists among them

struct Query
{
    const char *name;
    bool hasText;
    int (*ask)(RIX_GatewayToken_t, RIX_ResultSetToken_t *);
    apitest::Walk (*read)(RIX_ResultSetToken_t);
};
extern const Query kQueries[6];

// A gateway in a process of its own, so that the forks of a sweep start from a process without threads. Its replies to
// queries make the result set grow twice. Ends with a failure if it was sent a wrong byte.
class GatewayProcess
{
public:
    GatewayProcess();
    ~GatewayProcess();
    int port = 0;

private:
    int ends[2] = {-1, -1};
    pid_t process = -1;
};

// What became of the calls that were struck: "open -111, open -118, query -122 ...", equal neighbours once. Fails the
// test where a call did not keep its promises, or anything is left behind. In a fresh process the first call is struck
// too: tests of a sweep stand in suites named DeathTest, which GoogleTest runs before those that call the library.
struct Sweep
{
    std::string outcome;
    int points = 0;
};
Sweep sweep(int port, const Query &query, std::string_view call, int error, int times = 1);

} // namespace fault
