// A life of the library from its first call on, lived with a fault and then without one, in a process of its own.
#include "faults.h"

#include <csignal>
#include <cstring>

using namespace apitest;

namespace fault {

const Query kQueries[6] = {
    {"getResourceGroupIds", false, getResourceGroupIds, readIds},
    {"getStatIds", false, getStatIds, readIds},
    {"getStats", false, getStats, readStats},
    {"getStatIdsByStatGroupId", true, [](auto token, auto *out) { return getStatIdsByStatGroupId(token, "Requests", out); },
     readIds},
    {"getStatsByStatId", true, [](auto token, auto *out) { return getStatsByStatId(token, "Busy:nosuch", out); }, readStats},
    {"getStatsByStatGroupId", true, [](auto token, auto *out) { return getStatsByStatGroupId(token, "Workers", out); },
     readStats},
};

namespace {

struct Report
{
    char call[16] = "";    // what the fault struck
    int code = 0;          // and what that returned
    char problem[100] = ""; // the first promise that was not kept
};

class Life
{
public:
    Life(Report &theReport, const Injection *theFault) : report(theReport), fault(theFault) {}

    void live(int port, const Query &query);
    void require(bool kept, const char *promise)
    {
        if (!kept && report.problem[0] == '\0') strncpy(report.problem, promise, sizeof report.problem - 1);
    }

    Walk items;

private:
    int did(const char *call, int code);
    void useResultSet(RIX_ResultSetToken_t resultSet, const Query &query);

    Report &report;
    const Injection *const fault;
    bool told = false;
    char unset = 0;
};

// The first call during which the fault struck is the one to report; no other may fail.
int Life::did(const char *call, int code)
{
    if (fault == nullptr || !fault->struck() || std::exchange(told, true)) {
        require(code == STAPI_OK, (call + std::string(" failed without being struck: ") + std::to_string(code)).c_str());
    } else {
        strncpy(report.call, call, sizeof report.call - 1);
        report.code = code;
    }
    return code;
}

void Life::useResultSet(RIX_ResultSetToken_t resultSet, const Query &query)
{
    items = query.read(resultSet);
    RIX_ResultSetToken_t copy = nullptr;
    if (did("copy", copyResultSet(resultSet, &copy)) == STAPI_OK)
        require(query.read(copy) == items, "the copy differs");
    else
        require(copy == nullptr || copy->rsBuffPtr == nullptr, "half a copy");
    if (copy != nullptr) did("free", freeResultSet(&copy));
    require(copy == nullptr, "the handle of a freed copy is not null");

    char *text = &unset;
    if (did("idQuery", getIdQuery(resultSet, &text)) != STAPI_OK) require(text == &unset, "a text in spite of the failure");
    require(query.read(resultSet) == items, "the result set has suffered");
}

void Life::live(int port, const Query &query)
{
    char *version = &unset;
    if (did("version", getStatsAPIVersion(&version)) != STAPI_OK)
        require(version == &unset, "a version in spite of the failure");

    RIX_GatewayToken_t gateway = nullptr;
    version = &unset;
    if (did("open", openGatewayConnection(port, &gateway, &version)) != STAPI_OK) {
        require(gateway == nullptr && (version == &unset || version == nullptr), "a connection in spite of the failure");
        return;
    }
    RIX_ResultSetToken_t resultSet = nullptr;
    int rc = did("query", query.ask(gateway, &resultSet));
    require(rc == STAPI_OK || resultSet == nullptr, "a result set in spite of the failure");
    if (rc == STAPI_COMMS_FAILURE || rc == STAPI_GATEWAY_EXCHANGE_FAILED) {
        require(closeGatewayConnection(&gateway) == STAPI_GATEWAY_TOKEN_NOT_FOUND, "a connection after its failure");
        return;
    }
    if (rc != STAPI_OK) rc = did("query", query.ask(gateway, &resultSet)); // the connection has not suffered
    if (rc == STAPI_OK) {
        require(gateway->resultSetBufLen == 4 * RESULT_SET_SIZE, "the result set has not grown twice");
        useResultSet(resultSet, query);
    }
    did("close", closeGatewayConnection(&gateway));
    require(gateway == nullptr, "the handle of a closed connection is not null");
}

// The fault is over when its life is, which the second one has to be none the worse for.
template <class Inject> Report liveTwice(int port, const Query &query, Inject inject)
{
    Report report;
    const std::ptrdiff_t descriptors = countDescriptors();
    const long blocks = liveBlocks();
    Walk items;
    {
        const Injection injection = inject();
        Life first(report, &injection);
        first.live(port, query);
        items = std::move(first.items);
    }
    Life second(report, nullptr);
    second.live(port, query);
    second.require(items.empty() || items == second.items, "the fault changed the result set");
    second.require(countDescriptors() == descriptors, "a descriptor is left");
    second.require(liveBlocks() == blocks + 1, "memory is left"); // but for the trace file's name
    second.require(!testing::Test::HasFailure(), "a walk went wrong");
    return report;
}

template <class Work> Report reportOfChild(Work work)
{
    int ends[2] = {-1, -1};
    EXPECT_EQ(0, pipe(ends));
    const pid_t child = fork();
    if (child == 0) {
        alarm(20); // ends a life that waits for ever
        const Report report = work();
        _exit(write(ends[1], &report, sizeof report) == sizeof report ? 0 : 1);
    }
    close(ends[1]);
    Report report;
    if (read(ends[0], &report, sizeof report) != sizeof report) strcpy(report.problem, "the process died");
    close(ends[0]);
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    return report;
}

} // namespace

Sweep sweep(int port, const Query &query, std::string_view call, int error, int times)
{
    Sweep swept;
    std::string last;
    for (int nth = 1; nth < 1000 && !testing::Test::HasFailure(); ++nth) {
        const Report report = reportOfChild(
            [=, &query] { return liveTwice(port, query, [=] { return Injection(call, nth, error, times); }); });
        const std::string now = report.call + (" " + std::to_string(report.code));
        EXPECT_STREQ("", report.problem) << query.name << ", " << now << ": " << call << " number " << nth << " with " << error;
        if (report.call[0] == '\0') return swept;
        if (now != last) swept.outcome += (last.empty() ? "" : ", ") + now;
        last = now;
        ++swept.points;
    }
    ADD_FAILURE() << "the sweep of " << call << " was given up";
    return swept;
}

GatewayProcess::GatewayProcess()
{
    int portPipe[2] = {-1, -1};
    int stop[2] = {-1, -1};
    EXPECT_TRUE(pipe(portPipe) == 0 && pipe(stop) == 0);
    process = fork();
    if (process == 0) {
        close(stop[1]);
        rixgwsim::Options options = smallOptions();
        options.recordRequests = false;
        options.faults.replySize = 90000;
        rixgwsim::Simulator simulator(options);
        simulator.start();
        const int listening = simulator.port();
        if (write(portPipe[1], &listening, sizeof listening) != sizeof listening) _exit(2);
        char end = 0;
        while (read(stop[0], &end, 1) != 0) // until the tests close the pipe, or are no more
            ;
        const std::string error = simulator.lastProtocolError();
        fputs(error.c_str(), stderr);
        _exit(error.empty() ? 0 : 1);
    }
    close(portPipe[1]);
    close(stop[0]);
    stopPipe = stop[1];
    EXPECT_EQ(static_cast<ssize_t>(sizeof port), read(portPipe[0], &port, sizeof port));
    close(portPipe[0]);
}

GatewayProcess::~GatewayProcess()
{
    close(stopPipe);
    int status = 0;
    EXPECT_EQ(process, waitpid(process, &status, 0));
    EXPECT_EQ(0, status) << "the gateway was sent something wrong";
}

} // namespace fault
