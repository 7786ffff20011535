// One scripted run at the highest level of detail, compared line by line with a committed trace: the texts, numbers and
// order of lines are an interface to support people and their tools.
//
// After an intended change, RIXSTATS_UPDATE_GOLDEN=1 writes the file anew; read its difference before committing it.
#include "channel.h"
#include "gateway_fixture.h"

#include <arpa/inet.h>
#include <regex>

using namespace apitest;

namespace {

const char GOLDEN_FILE[] = TEST_DATA_DIR "/golden_trace.txt";

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

// The numbers in a result set lie as the machine has them, in the committed trace little-endian. Elsewhere the lines of
// result sets' dumps are there, but not compared.
std::vector<std::string> comparable(std::vector<std::string> lines)
{
    if (htons(1) != 1) return lines;
    bool inResultSet = false;
    for (std::string &line : lines) {
        const bool begins = std::regex_search(line, std::regex("^ADDRESS: 524958(49|53) "));
        inResultSet = begins || (inResultSet && line.rfind("ADDRESS: ", 0) == 0);
        if (inResultSet) line = "ADDRESS: of a result set";
    }
    return lines;
}

class GoldenTrace : public GatewayTest
{
protected:
    void queryEverything() const
    {
        for (const Query &query : kQueries)
            query.read(ask(query, "Nobody:Requests:Nobody"));
        RIX_ResultSetToken_t rs = gateway->connRSPtr, copy = nullptr;
        RIX_IdData_t id;
        char *text = nullptr;
        ASSERT_EQ(STAPI_UNRECOGNISED_CONTENT, getFirstId(rs, &id));
        ASSERT_EQ(STAPI_OK, copyResultSet(rs, &copy));
        ASSERT_EQ(STAPI_OK, dumpResultSet(copy));
        ASSERT_EQ(STAPI_NOT_USER_RESULT_SET, freeResultSet(&rs));
        ASSERT_EQ(STAPI_OK, freeResultSet(&copy));
        ASSERT_EQ(STAPI_OK, getIdQuery(rs, &text));
        walk<RIX_StatData_t>(ask(kStatsById, "Received:Nobody"), getNextStat, getNextStat);
        readStats(rs);
    }

    void runScript(const char *traceFile, int deadPort)
    {
        int level = 0;
        ASSERT_EQ(STAPI_OK, setAPITraceFile(traceFile));
        ASSERT_EQ(STAPI_OK, setAPITraceLevel(4));
        ASSERT_EQ(STAPI_OK, getAPITraceLevel(&level));
        ASSERT_EQ(STAPI_OK, getStatsAPIVersion(&version));
        ASSERT_EQ(STAPI_OK, connect());
        queryEverything();
        ASSERT_EQ(STAPI_TRACE_FILE_OPEN_FAILED, setAPITraceFile("/no/such/directory/trace.log"));
        ASSERT_EQ(STAPI_OK, dumpState());
        ASSERT_EQ(STAPI_OK, closeGatewayConnection(&gateway));
        ASSERT_EQ(STAPI_NULL_GATEWAY_TOKEN, closeGatewayConnection(&gateway));
        ASSERT_EQ(STAPI_OK, closeAllGatewayConnections());
        ASSERT_EQ(STAPI_CONNECTION_REFUSED, openRemoteGatewayConnection("127.0.0.1", deadPort, &gateway, &version));
        ASSERT_EQ(STAPI_OK, setAPITraceFile(traceFile));
        ASSERT_EQ(STAPI_OK, setAPITraceLevel(0));
    }
};

TEST_F(GoldenTrace, AScriptedRunWritesTheCommittedTrace)
{
    rixgwsim::Options options = smallOptions();
    options.catalogue.groups[1].statistics[0].texts = {std::string(1100, 'm')}; // runs on into a second block
    start(options);
    const int deadPort = rixgwsim::portOf(rixgwsim::listenOn("127.0.0.1", 0)); // which is not listened on any more
    char traceFile[] = "/tmp/rixstats-golden-XXXXXX";
    close(mkstemp(traceFile));
    runScript(traceFile, deadPort);
    std::vector<std::string> actual = filtered(linesOf(traceFile), traceFile, simulator->port(), deadPort);
    unlink(traceFile);

    if (getenv("RIXSTATS_UPDATE_GOLDEN") != nullptr) {
        std::ofstream golden(GOLDEN_FILE);
        for (const std::string &line : actual)
            golden << line << '\n';
    }
    actual = comparable(actual);
    const std::vector<std::string> expected = comparable(linesOf(GOLDEN_FILE));
    for (std::size_t i = 0; i < std::min(expected.size(), actual.size()); i++)
        ASSERT_EQ(expected[i], actual[i]) << "line " << i + 1 << " of " << GOLDEN_FILE;
    EXPECT_EQ(expected.size(), actual.size());
}

} // namespace
