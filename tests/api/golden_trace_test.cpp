// One scripted run at the highest level of detail, compared line by line with a committed trace: the texts, numbers and
// order of lines are an interface to support people and their tools.
//
// After an intended change, RIXSTATS_UPDATE_GOLDEN=1 writes the file anew; read its difference before committing it.
#include "rixstats.h"
#include "simulator.h"

#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>
#include <unistd.h>

namespace {

const std::string GOLDEN_FILE = TEST_DATA_DIR "/golden_trace.txt";

std::vector<std::string> linesOf(const std::string &fileName)
{
    std::ifstream file(fileName);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

// What differs from run to run: times, process and thread, addresses, descriptors, ports, the name of the trace
// file; and the sizes of the library's records.
std::vector<std::string> filtered(std::vector<std::string> lines, const std::string &traceFile, int port, int deadPort)
{
    const std::vector<std::pair<std::regex, const char *>> rules = {
        {std::regex("^\\d\\d/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d:\\d{3} \\[0x[0-9A-F]{8},0x[0-9A-F]{8}\\]"),
         "TIME [PID,TID]"},
        {std::regex("^\\*\\*\\* \\d\\d/\\d\\d/\\d\\d "), "*** DATE "},
        {std::regex("^0x[0-9A-F]{8,}: "), "ADDRESS: "},
        {std::regex("0x[0-9a-f]{7,}"), "ADDR"},
        {std::regex("owningPid\\([0-9A-F]{8}\\) owningTid\\([0-9A-F]{8}\\)"), "owningPid(PID) owningTid(TID)"},
        {std::regex("((socketDesc|socketDescriptor)=|(socketDescriptor|socket)\\(|[Ss]ocket:? )\\d+"), "$1N"},
        {std::regex("(:|port=|port\\()" + std::to_string(port) + "\\b"), "$1PORT"},
        {std::regex("(:|port=|port\\()" + std::to_string(deadPort) + "\\b"), "$1DEADPORT"},
        {std::regex("(\\[(?:2038|2128)\\] .* malloc for )\\d+"), "$1SIZE"}, // the library's own records
        {std::regex(traceFile), "TRACEFILE"},
    };
    for (std::string &line : lines)
        for (const auto &[pattern, replacement] : rules)
            line = std::regex_replace(line, pattern, replacement);
    return lines;
}

// A port on which nothing listens: one that was free a moment ago.
int unusedPort()
{
    rixgwsim::Simulator gone({});
    gone.start();
    const int port = gone.port();
    gone.stop();
    return port;
}

rixgwsim::Options smallGateway()
{
    rixgwsim::Statistic received, owner, manual;
    received.id = "Orders_Received";
    received.kind = rixgwsim::StatisticKind::counter;
    received.rate = 12.5;
    owner.id = "Orders_Owner";
    owner.texts = {"Night shift"};
    manual.id = "Notes_Manual";
    manual.texts = {std::string(1100, 'm')}; // runs on into a second block
    rixgwsim::Options options;
    options.seed = 42;
    options.fixedClock = true;
    options.catalogue.groups = {{"Orders", {received, owner}}, {"Notes", {manual}}};
    return options;
}

void walkIds(RIX_ResultSetToken_t rs)
{
    RIX_IdData_t item;
    for (int rc = getFirstId(rs, &item); rc == STAPI_OK;)
        rc = getNextId(rs, &item);
}

void walkStats(RIX_ResultSetToken_t rs)
{
    RIX_StatData_t item;
    for (int rc = getNextStat(rs, &item); rc == STAPI_OK;)
        rc = getNextStat(rs, &item);
}

void queryEverything(RIX_GatewayToken_t gateway)
{
    RIX_ResultSetToken_t rs = nullptr;
    char *query = nullptr;
    ASSERT_EQ(STAPI_OK, getResourceGroupIds(gateway, &rs));
    walkIds(rs);
    ASSERT_EQ(STAPI_OK, getIdQuery(rs, &query));
    ASSERT_EQ(STAPI_OK, getStatIds(gateway, &rs));
    ASSERT_EQ(STAPI_OK, getStatIdsByStatGroupId(gateway, "Orders:Nobody", &rs));
    walkIds(rs);
    ASSERT_EQ(STAPI_OK, getStats(gateway, &rs));
    walkStats(rs);
    ASSERT_EQ(STAPI_OK, getStatsByStatId(gateway, "Orders_Owner", &rs));
    RIX_StatData_t stat;
    ASSERT_EQ(STAPI_OK, getFirstStat(rs, &stat));
    RIX_IdData_t id;
    ASSERT_EQ(STAPI_UNRECOGNISED_CONTENT, getFirstId(rs, &id));
    ASSERT_EQ(STAPI_OK, getStatsByStatGroupId(gateway, "Nobody:Orders", &rs));
    walkStats(rs);

    RIX_ResultSetToken_t copy = nullptr;
    ASSERT_EQ(STAPI_OK, copyResultSet(rs, &copy));
    ASSERT_EQ(STAPI_OK, dumpResultSet(copy));
    ASSERT_EQ(STAPI_NOT_USER_RESULT_SET, freeResultSet(&rs));
    ASSERT_EQ(STAPI_OK, freeResultSet(&copy));
}

void runScript(int port, int deadPort, const std::string &traceFile)
{
    RIX_GatewayToken_t gateway = nullptr;
    char *version = nullptr;
    int level = 0;
    ASSERT_EQ(STAPI_OK, setAPITraceFile(traceFile.c_str()));
    ASSERT_EQ(STAPI_OK, setAPITraceLevel(4));
    ASSERT_EQ(STAPI_OK, getAPITraceLevel(&level));
    ASSERT_EQ(STAPI_OK, getStatsAPIVersion(&version));
    ASSERT_EQ(STAPI_OK, openGatewayConnection(port, &gateway, &version));
    queryEverything(gateway);
    ASSERT_EQ(STAPI_TRACE_FILE_OPEN_FAILED, setAPITraceFile("/no/such/directory/trace.log"));
    ASSERT_EQ(STAPI_OK, dumpState());
    ASSERT_EQ(STAPI_OK, closeGatewayConnection(&gateway));
    ASSERT_EQ(STAPI_NULL_GATEWAY_TOKEN, closeGatewayConnection(&gateway));
    ASSERT_EQ(STAPI_OK, closeAllGatewayConnections());
    ASSERT_EQ(STAPI_CONNECTION_REFUSED, openRemoteGatewayConnection("127.0.0.1", deadPort, &gateway, &version));
    ASSERT_EQ(STAPI_OK, setAPITraceFile(traceFile.c_str()));
    ASSERT_EQ(STAPI_OK, setAPITraceLevel(0));
    ASSERT_EQ(STAPI_OK, setAPITraceFile(nullptr));
}

void expectSameLines(const std::vector<std::string> &expected, const std::vector<std::string> &actual)
{
    for (size_t i = 0; i < std::max(expected.size(), actual.size()); i++) {
        const std::string expectedLine = i < expected.size() ? expected[i] : "(no line)";
        const std::string actualLine = i < actual.size() ? actual[i] : "(no line)";
        ASSERT_EQ(expectedLine, actualLine) << "line " << i + 1 << " of " << GOLDEN_FILE << ", after\n"
                                            << (i > 0 ? actual[i - 1] : "");
    }
}

TEST(GoldenTrace, AScriptedRunWritesTheCommittedTrace)
{
    rixgwsim::Simulator gateway(smallGateway());
    gateway.start();
    const int deadPort = unusedPort();
    char traceFile[] = "/tmp/rixstats-golden-XXXXXX";
    close(mkstemp(traceFile));
    runScript(gateway.port(), deadPort, traceFile);
    const std::vector<std::string> actual = filtered(linesOf(traceFile), traceFile, gateway.port(), deadPort);
    unlink(traceFile);
    EXPECT_EQ("", gateway.lastProtocolError());

    if (getenv("RIXSTATS_UPDATE_GOLDEN") != nullptr) {
        std::ofstream golden(GOLDEN_FILE);
        for (const std::string &line : actual)
            golden << line << '\n';
    }
    expectSameLines(linesOf(GOLDEN_FILE), actual);
}

} // namespace
