// A life of the library from its first call on, lived with a fault and then without one, in a process of its own.
#include "faults.h"

#include <sys/socket.h>

using namespace apitest;

namespace fault {

const Query kQueries[6] = {
    {"getResourceGroupIds", false, getResourceGroupIds, readIds},
    {"getStatIds", false, getStatIds, readIds},
    {"getStats", false, getStats, readStats},
    {"getStatIdsByStatGroupId", true,
     [](auto token, auto *set) { return getStatIdsByStatGroupId(token, "Requests", set); }, readIds},
    {"getStatsByStatId", true, [](auto token, auto *set) { return getStatsByStatId(token, "Busy:nosuch", set); },
     readStats},
    {"getStatsByStatGroupId", true, [](auto token, auto *set) { return getStatsByStatGroupId(token, "Workers", set); },
     readStats},
};

namespace {

// The texts are literals, which are at the same place in the process that forked.
struct Report
{
    const char *call = nullptr; // that the fault struck
    int code = 0;               // what it returned
    const char *broken = "";    // the first promise that was not kept
};

class Life
{
public:
    Life(Report &theReport, const Injection *theFault) : report(theReport), fault(theFault) {}

    void live(int port, const Query &query);
    void promise(bool kept, const char *what)
    {
        if (!kept && report.broken[0] == '\0') report.broken = what;
    }

    Walk items;

private:
    bool did(const char *call, int code);
    void useResultSet(RIX_ResultSetToken_t resultSet, const Query &query);

    Report &report;
    const Injection *const fault;
    char unset = 0;
};

// The first call in which the fault strikes is the one to report; no other may fail.
bool Life::did(const char *call, int code)
{
    if (fault != nullptr && fault->struck() && report.call == nullptr) {
        report.call = call;
        report.code = code;
    } else {
        promise(code == STAPI_OK, "only what is struck fails");
    }
    return code == STAPI_OK;
}

void Life::useResultSet(RIX_ResultSetToken_t resultSet, const Query &query)
{
    items = query.read(resultSet);
    RIX_ResultSetToken_t copy = nullptr;
    if (did("copy", copyResultSet(resultSet, &copy)))
        promise(query.read(copy) == items, "a copy is the same");
    else
        promise(copy == nullptr || copy->rsBuffPtr == nullptr, "a failed copy is none, or empty");
    if (copy != nullptr) did("free", freeResultSet(&copy));
    promise(copy == nullptr, "the handle of a freed copy is null");
    char *text = &unset;
    promise(did("idQuery", getIdQuery(resultSet, &text)) || text == &unset, "no text after a failure");
    promise(query.read(resultSet) == items, "the result set stays as it is");
}

void Life::live(int port, const Query &query)
{
    char *version = &unset;
    RIX_GatewayToken_t gateway = nullptr;
    promise(did("version", getStatsAPIVersion(&version)) || version == &unset, "no version after a failure");
    version = &unset;
    if (!did("open", openGatewayConnection(port, &gateway, &version))) {
        promise(gateway == nullptr && (version == &unset || version == nullptr), "no connection after a failure");
        return;
    }
    RIX_ResultSetToken_t resultSet = nullptr;
    bool answered = did("query", query.ask(gateway, &resultSet));
    promise(answered || resultSet == nullptr, "no result set after a failure");
    if (!answered && report.code != STAPI_NO_MEMORY) {
        promise(closeGatewayConnection(&gateway) == STAPI_GATEWAY_TOKEN_NOT_FOUND,
                "the connection ends with its failure");
        return;
    }
    if (!answered) answered = did("query", query.ask(gateway, &resultSet)); // the connection has not suffered
    if (answered) useResultSet(resultSet, query);
    promise(gateway->resultSetBufLen == 4 * RESULT_SET_SIZE, "the result set grows twice");
    did("close", closeGatewayConnection(&gateway));
    promise(gateway == nullptr, "the handle of a closed connection is null");
}

// The second life has to be none the worse for the first one's fault.
Report liveTwice(int port, const Query &query, std::string_view call, int nth, int error, int times)
{
    Report report;
    Life second(report, nullptr);
    const std::ptrdiff_t descriptors = countDescriptors();
    const long blocks = liveBlocks();
    {
        const Injection injection(call, nth, error, times);
        Life first(report, &injection);
        first.live(port, query);
        second.items = first.items;
    }
    const Walk before = second.items;
    second.live(port, query);
    second.promise(before.empty() || before == second.items, "an answer does not depend on faults");
    second.promise(descriptors == countDescriptors(), "no descriptor is left");
    second.promise(blocks + 1 == liveBlocks(), "no memory is left"); // but for the trace file's name
    second.promise(!testing::Test::HasFailure(), "a walk goes from start to end");
    return report;
}

template <class Work>
pid_t forkedWith(int (&ends)[2], Work work)
{
    EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
    fflush(nullptr);
    const pid_t child = fork();
    close(ends[child == 0 ? 0 : 1]);
    if (child == 0) _exit(work(ends[1]));
    return child;
}

void expectEnd(pid_t child)
{
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
}

} // namespace

Sweep sweep(int port, const Query &query, std::string_view call, int error, int times)
{
    Sweep swept;
    std::string last;
    for (int nth = 1; nth < 1000 && !testing::Test::HasFailure(); ++nth) {
        int ends[2];
        Report report;
        const pid_t child = forkedWith(ends, [&](int end) {
            alarm(20); // ends a life that waits for ever
            report = liveTwice(port, query, call, nth, error, times);
            return write(end, &report, sizeof report) == sizeof report ? 0 : 1;
        });
        if (read(ends[0], &report, sizeof report) != sizeof report) report.broken = "nobody dies";
        close(ends[0]);
        expectEnd(child);
        EXPECT_STREQ("", report.broken) << query.name << ": " << call << " number " << nth << " with " << error;
        if (report.call == nullptr) return swept;
        const std::string now = report.call + (" " + std::to_string(report.code));
        if (now != last) swept.outcome += (last.empty() ? "" : ", ") + now;
        last = now;
        ++swept.points;
    }
    ADD_FAILURE() << "gave up";
    return swept;
}

GatewayProcess::GatewayProcess()
{
    process = forkedWith(ends, [](int end) {
        rixgwsim::Options options = smallOptions();
        options.faults.replySize = 90000;
        rixgwsim::Simulator simulator(options);
        simulator.start();
        const int listening = simulator.port();
        char byte = 0;
        if (write(end, &listening, sizeof listening) != sizeof listening || read(end, &byte, 1) != 0) return 2;
        simulator.stop();
        fputs(simulator.lastProtocolError().c_str(), stderr);
        return simulator.lastProtocolError().empty() ? 0 : 1;
    });
    EXPECT_EQ(static_cast<ssize_t>(sizeof port), read(ends[0], &port, sizeof port));
}

GatewayProcess::~GatewayProcess()
{
    close(ends[0]); // its sign to end, also when these tests die
    expectEnd(process);
}

} // namespace fault
