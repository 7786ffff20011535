// A life of the library from its first call on, lived with a fault and then without one, in a process of its own.
#include "faults.h"

#include <sys/mman.h>

using namespace apitest;

namespace fault {

static const char queryText[] = "Workers:nosuch";

// What the fault did, for the process that sweeps. The text is a literal, at the same place in both processes.
struct Strike
{
    const char *call;
    int code;
};
static Strike *const strike =
    static_cast<Strike *>(mmap(nullptr, sizeof(Strike), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

// The first call in which the fault strikes is the one to report; no other may fail.
static bool did(const char *call, int code)
{
    if (injection.struck() && strike->call == nullptr)
        *strike = {call, code};
    else
        EXPECT_EQ(STAPI_OK, code) << call << " was not struck";
    return code == STAPI_OK;
}

static void useResultSet(RIX_ResultSetToken_t resultSet, const Query &query)
{
    const Walk items = query.read(resultSet);
    RIX_ResultSetToken_t copy = nullptr;
    if (did("copy", copyResultSet(resultSet, &copy)))
        EXPECT_EQ(items, query.read(copy));
    else
        EXPECT_TRUE(copy == nullptr || copy->rsBuffPtr == nullptr) << "a failed copy is none, or empty";
    if (copy != nullptr) did("free", freeResultSet(&copy));
    char *text = nullptr;
    EXPECT_TRUE(did("idQuery", getIdQuery(resultSet, &text)) || text == nullptr);
    EXPECT_EQ(items, query.read(resultSet)) << "the result set stays as it is";
}

// Returns what the query answered, nothing where the connection came to an early end.
static Walk live(int port, const Query &query)
{
    char *version = nullptr;
    RIX_GatewayToken_t token = nullptr;
    RIX_ResultSetToken_t resultSet = nullptr;
    EXPECT_TRUE(did("version", getStatsAPIVersion(&version)) || version == nullptr);
    version = nullptr;
    if (!did("open", openGatewayConnection(port, &token, &version))) {
        EXPECT_TRUE(token == nullptr && version == nullptr) << "no connection after a failure";
        return {};
    }
    if (!did("query", query.ask(token, queryText, &resultSet))) {
        EXPECT_EQ(nullptr, resultSet);
        if (strike->code != STAPI_NO_MEMORY) {
            EXPECT_EQ(STAPI_GATEWAY_TOKEN_NOT_FOUND, closeGatewayConnection(&token)) << "it ends with its failure";
            return {};
        }
        did("query", query.ask(token, queryText, &resultSet)); // the connection has not suffered
    }
    useResultSet(resultSet, query);
    const Walk items = query.read(resultSet);
    EXPECT_EQ(4 * RESULT_SET_SIZE, token->resultSetBufLen) << "the result set grows twice";
    did("close", closeGatewayConnection(&token));
    EXPECT_EQ(nullptr, token);
    return items;
}

// The second life has to be none the worse for the first one's fault.
static void liveTwice(const Query &query, const Injection &fault)
{
    alarm(kLongestTest);
    const std::ptrdiff_t descriptors = countDescriptors();
    const long blocks = usedBlocks();
    {
        rixgwsim::Options options = smallOptions();
        options.faults.replySize = 90000; // the result set grows twice
        rixgwsim::Simulator gateway(options);
        gateway.start();
        injection = fault;
        const Walk first = live(gateway.port(), query);
        injection = {};
        const Walk second = live(gateway.port(), query);
        EXPECT_TRUE(first.empty() || first == second) << "an answer does not depend on faults";
        gateway.stop();
        EXPECT_EQ("", gateway.lastProtocolError());
    }
    EXPECT_EQ(descriptors, countDescriptors());
    EXPECT_EQ(blocks + 1, usedBlocks()) << "of memory the trace file's name alone is left";
}

std::string sweep(const Query &query, Injection fault)
{
    std::string outcome, last;
    for (; fault.nth < 1000 && !testing::Test::HasFailure(); ++fault.nth) {
        strike->call = nullptr;
        EXPECT_EQ(0, inChild([&] {
                      liveTwice(query, fault);
                      fflush(stdout);
                      return testing::Test::HasFailure() ? -1 : 0;
                  }))
            << query.name << ": " << fault.call << " number " << fault.nth << " with " << fault.error;
        if (strike->call == nullptr) return outcome;
        const std::string now = strike->call + (" " + std::to_string(strike->code));
        if (now != last) outcome += (last.empty() ? "" : ", ") + now;
        last = now;
    }
    return outcome + " and no end";
}

} // namespace fault
