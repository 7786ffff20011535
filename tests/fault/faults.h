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
    int strike(std::string_view call); // the errno to fail this call with; -1: it takes place

private:
    const std::string_view kind;
    const int nth, error, times;
    int seen = 0;
};

// In place of select() where it waits for a connect, and what time() is ahead: of this thread; null, 0: undisturbed.
using Wait = std::function<int(fd_set *writable, fd_set *exceptional, const timeval &timeout)>;
extern thread_local const Wait *connectWait;
extern thread_local time_t clockAhead;

long liveBlocks(); // what this thread has allocated and not freed, the C++ library's own blocks apart

// A query, for all or by a text, and the walk that reads its answer.
struct Query
{
    const char *name;
    bool hasText;
    int (*ask)(RIX_GatewayToken_t, RIX_ResultSetToken_t *);
    apitest::Walk (*read)(RIX_ResultSetToken_t);
};
extern const Query kQueries[6];

// A gateway in a process of its own: the forks of a sweep then start from a process without threads. Its replies to
// queries make the result set grow twice.
class GatewayProcess
{
public:
    GatewayProcess();
    ~GatewayProcess(); // fails the test if the gateway was sent a wrong byte
    int port = 0;

private:
    pid_t process = -1;
    int stopPipe = -1;
};

// What became of the calls that were struck, in the order of the calls: "open -111, open -118, query -122 ...", equal
// neighbours once. Fails the test where a call did not keep its promises, or anything is left behind.
struct Sweep
{
    std::string outcome;
    int points = 0;
};
Sweep sweep(int port, const Query &query, std::string_view call, int error, int times = 1);

} // namespace fault
