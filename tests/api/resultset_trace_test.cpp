// Result sets as wholes (query texts, copies, dumps), and the control of the trace.
#include "gateway_fixture.h"

#include "stapi_rix_diag.h"

#include <fcntl.h>

#include <regex>
#include <sstream>

using namespace apitest;
using namespace rixgwsim;
using testing::HasSubstr;

namespace {

class ResultSetTest : public GatewayTest
{
protected:
    // Of a connection whose every query is answered so.
    RIX_ResultSetToken_t setOf(const std::vector<Response> &responses, ReplyKind kind = ReplyKind::identifiers)
    {
        Options options = smallOptions();
        options.callData = [data = writeCallData(kind, responses, options.stream)](const Request &request) {
            return request.attribute.empty() ? std::optional(data) : std::nullopt;
        };
        open(std::move(options));
        RIX_ResultSetToken_t resultSet = nullptr;
        EXPECT_EQ(STAPI_OK,
                  kind == ReplyKind::statistics ? getStats(gateway, &resultSet) : getStatIds(gateway, &resultSet));
        return resultSet;
    }

    RIX_ResultSetToken_t stats()
    {
        RIX_ResultSetToken_t resultSet = nullptr;
        EXPECT_EQ(STAPI_OK, getStats(gateway, &resultSet));
        return resultSet;
    }

    static std::string idQuery(RIX_ResultSetToken_t resultSet)
    {
        char before[] = "unchanged";
        char *text = before;
        const int rc = getIdQuery(resultSet, &text);
        EXPECT_EQ(text == before ? STAPI_NO_IDS_FOR_QUERY : STAPI_OK, rc);
        return text;
    }
};

Item idOf(std::size_t length, char letter)
{
    return {std::string(length, letter), ""};
}

TEST_F(ResultSetTest, IdQueryJoinsTheIdsOfElementsWithResult0)
{
    const std::vector<Response> responses = {{"a", 0, {{"ab", "1"}, {"cd", "2"}}},
                                             {"b", -5, {}},
                                             {"c", 3, {{"no", "3"}}},
                                             {"d", 0, {}},
                                             {"e", 0, {{"ef", "4"}}}};
    const RIX_ResultSetToken_t ids = setOf(responses);
    RIX_IdData_t id = {};
    EXPECT_EQ(STAPI_OK, getFirstId(ids, &id));
    EXPECT_EQ("ab:cd:ef", idQuery(ids)); // of the whole set, although it is half walked
    EXPECT_EQ("ab:cd:ef", idQuery(setOf(responses, ReplyKind::statistics)));
    EXPECT_EQ("unchanged", idQuery(setOf({{"b", -5, {}}, {"c", 3, {{"no", ""}}}, {"d", 0, {}}})));
    EXPECT_EQ("ab:ef", idQuery(setOf({{"a", 0, {{std::string("ab\0cd", 5), ""}, {"ef", ""}}}})));
}

TEST_F(ResultSetTest, IdQueryHoldsUpTo31999Bytes)
{
    const Item a = idOf(20000, 'a');
    const Item d = idOf(1, 'd');
    // The second does not fit, the third does, the fourth would make it 32,000 with the colon and the closing zero.
    EXPECT_EQ(a.id + ":" + std::string(11997, 'c'),
              idQuery(setOf({{"e", 0, {a, idOf(11999, 'b'), idOf(11997, 'c'), d}}})));
    EXPECT_EQ(a.id + ":" + std::string(11996, 'c') + ":d", idQuery(setOf({{"e", 0, {a, idOf(11996, 'c'), d}}})));
    EXPECT_EQ(a.id + ":" + std::string(11998, 'c'), idQuery(setOf({{"e", 0, {a, idOf(11998, 'c'), d}}})));
    EXPECT_EQ("d", idQuery(setOf({{"e", 0, {idOf(31999, 'a'), d}}})));
    EXPECT_EQ(std::string(31998, 'a'), idQuery(setOf({{"e", 0, {idOf(31998, 'a'), d}}})));
}

TEST_F(ResultSetTest, ArgumentsAreCheckedInOrder)
{
    open();
    char *text = nullptr;
    RIX_ResultSetToken_t copy = nullptr;
    RIX_ResultSetToken_t own = stats();
    EXPECT_EQ(STAPI_NULL_RESULT_SET_TOKEN, getIdQuery(nullptr, nullptr));
    EXPECT_EQ(STAPI_NULL_RESULT_SET_TOKEN, copyResultSet(nullptr, nullptr));
    const std::function<int()> calls[] = {[&] { return getIdQuery(own, &text); },
                                          [&] { return copyResultSet(own, &copy); },
                                          [&] { return dumpResultSet(own); }};
    for (const auto &call : calls) {
        EXPECT_EQ(STAPI_WRONG_THREAD, inThread(call));
        EXPECT_EQ(STAPI_WRONG_PROCESS, inChild(call));
        own->rsBuffPtr[3] = '?'; // neither kind of content, which is seen before the owner
        EXPECT_EQ(STAPI_UNRECOGNISED_CONTENT, inThread(call));
        own->rsBuffPtr[3] = 'S';
    }
    char *const buffer = std::exchange(own->rsBuffPtr, nullptr);
    EXPECT_EQ(STAPI_NO_RESULT_SET_BUFFER, inThread(calls[1]));
    EXPECT_EQ(STAPI_NO_RESULT_SET_BUFFER, inThread(calls[2]));
    own->rsBuffPtr = buffer;
    EXPECT_TRUE(text == nullptr && copy == nullptr);
    EXPECT_EQ(STAPI_NOT_USER_RESULT_SET, freeResultSet(&own));
    EXPECT_EQ(3u, readStats(own).size());
}

TEST_F(ResultSetTest, CopyIsTheCallersOwn)
{
    rixgwsim::Options options = smallOptions();
    for (rixgwsim::Statistic &large : options.catalogue.groups[0].statistics)
        large.texts = {std::string(20000, 'v')}; // two of them do not fit a connection's first buffer
    open(options);
    RIX_ResultSetToken_t own = stats();
    const Walk values = readStats(own);
    RIX_StatData_t data = {};
    RIX_ResultSetToken_t copy = nullptr;
    RIX_ResultSetToken_t ofCopy = nullptr;
    EXPECT_EQ(STAPI_OK, getFirstStat(own, &data)); // half-walked when it is copied
    ASSERT_EQ(STAPI_OK, copyResultSet(own, &copy));
    EXPECT_EQ(STAPI_OK, getNextStat(copy, &data));
    EXPECT_EQ(values[0], describe(data));
    EXPECT_EQ(STAPI_OK, getNextStat(own, &data)); // goes on where it was
    EXPECT_EQ(values[1], describe(data));

    ASSERT_EQ(STAPI_OK, getResourceGroupIds(gateway, &own));
    EXPECT_EQ("Requests:Workers", idQuery(own));
    EXPECT_EQ("Received:Refused:Busy", idQuery(copy));
    ASSERT_EQ(STAPI_OK, inThread([&] { return copyResultSet(copy, &ofCopy); }));
    EXPECT_EQ(STAPI_OK, closeGatewayConnection(&gateway));
    EXPECT_EQ(STAPI_OK, inThread([&] { return readStats(copy) == values ? freeResultSet(&copy) : -1; }));
    EXPECT_EQ(nullptr, copy);
    EXPECT_EQ(values, readStats(ofCopy));
    EXPECT_EQ(STAPI_OK, freeResultSet(&ofCopy));
}

class TraceTest : public ResultSetTest
{
protected:
    TraceTest() { EXPECT_NE(nullptr, mkdtemp(directory.data())); }
    ~TraceTest() override { std::filesystem::remove_all(directory); }

    void traceTo(const std::string &name) { ASSERT_EQ(STAPI_OK, setAPITraceFile((directory + name).c_str())); }
    static void setLevels(std::initializer_list<int> levels)
    {
        for (const int level : levels)
            EXPECT_EQ(STAPI_OK, setAPITraceLevel(level));
    }

    std::string traced(const std::string &name) const
    {
        std::ostringstream text;
        text << std::ifstream(directory + name).rdbuf();
        return text.str();
    }
    static std::ptrdiff_t headersIn(const std::string &trace)
    {
        const std::regex header("\\*\\*\\* \\d\\d/\\d\\d/\\d\\d YST Vendral Gateway RIXSTATS DLL trace V10\\.1\\.0\\.0 "
                                "API V1_1_0_1 Build Level d1010-20240618-1931 \\*\\*\\*\n");
        return std::distance(std::sregex_iterator(trace.begin(), trace.end(), header), {});
    }

    std::string directory = testing::TempDir() + "rixstatsXXXXXX";
};

TEST_F(TraceTest, LevelIsOffAtFirstAndFrom0To5)
{
    int level = -1;
    EXPECT_EQ(STAPI_OK, getAPITraceLevel(&level));
    EXPECT_EQ(0, level);
    traceTo("/trace");
    for (const int set : {5, 0, 1, 2, 3, 4}) {
        EXPECT_EQ(STAPI_OK, setAPITraceLevel(set));
        for (const int wrong : {-1, 6, INT32_MIN, INT32_MAX})
            EXPECT_EQ(STAPI_BAD_TRACE_LEVEL, setAPITraceLevel(wrong));
        EXPECT_EQ(STAPI_OK, getAPITraceLevel(&level));
        EXPECT_EQ(set, level);
    }
}

TEST_F(TraceTest, HeaderIsWrittenAtEachSwitchOnUntilAFileIsSet)
{
    testing::internal::CaptureStderr();
    setLevels({1, 0, 1, 2, 0, 0});
    EXPECT_EQ(2, headersIn(testing::internal::GetCapturedStderr()));
    traceTo("/off"); // while the trace is off: not written yet
    setLevels({1, 0, 1});
    EXPECT_EQ(2, headersIn(traced("/off")));
    traceTo("/on");
    setLevels({0, 1, 0, 1});
    EXPECT_EQ(1, headersIn(traced("/on")));
    EXPECT_EQ(2, headersIn(traced("/off")));
    testing::internal::CaptureStderr();
    ASSERT_EQ(STAPI_OK, setAPITraceFile(nullptr));
    setLevels({0, 1});
    EXPECT_EQ(1, headersIn(testing::internal::GetCapturedStderr()));
}

TEST_F(TraceTest, FileThatCannotBeOpenedLeavesTheTraceWhereItWas)
{
    traceTo("/trace");
    setLevels({1});
    const std::string longest =
        std::string(1023 - directory.size() - 7, '/') + "/longer"; // 1023 bytes with the directory
    EXPECT_EQ(STAPI_TRACE_FILE_OPEN_FAILED, setAPITraceFile((directory + "/missing/trace").c_str()));
    EXPECT_EQ(STAPI_TRACE_FILE_OPEN_FAILED, setAPITraceFile((directory + longest + "x").c_str()));
    const std::string trace = traced("/trace");
    EXPECT_EQ(2, headersIn(trace)); // one from each of the calls that may write it
    const std::string unchanged = ". Trace file destination is unchanged. Filename=" + directory;
    EXPECT_THAT(trace, HasSubstr("/missing/trace) file append failed with errno=2" + unchanged + "/trace\n"));
    EXPECT_FALSE(std::filesystem::exists(directory + "/longerx"));
    traceTo(longest);
    EXPECT_EQ(1, headersIn(traced("/longer")));
    EXPECT_EQ(trace, traced("/trace"));
}

TEST_F(TraceTest, SameFileAgainIsAChangeAndNullOnStandardErrorIsNone)
{
    traceTo("/trace");
    setLevels({4});
    const std::ptrdiff_t descriptors = countDescriptors();
    traceTo("/trace");
    EXPECT_EQ(descriptors, countDescriptors());
    EXPECT_TRUE(fcntl(fileno(rixstats::statAPITraceHandle), F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(2, headersIn(traced("/trace"))); // appended to
    testing::internal::CaptureStderr();
    EXPECT_EQ(STAPI_OK, setAPITraceFile(nullptr));
    EXPECT_EQ(STAPI_OK, setAPITraceFile(nullptr));
    setLevels({0});
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(1, headersIn(text));
    EXPECT_THAT(text, HasSubstr("[1099] DEBUG  API.setAPITraceFile() Trace file destination is unchanged. "
                                "Filename=stderr\n"));
}

TEST_F(TraceTest, NothingIsWrittenWithTheTraceOff)
{
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    open();
    EXPECT_EQ("Received:Refused:Busy", idQuery(stats()));
    EXPECT_EQ(STAPI_BAD_TRACE_LEVEL, setAPITraceLevel(6));
    EXPECT_EQ(STAPI_TRACE_FILE_OPEN_FAILED, setAPITraceFile((directory + "/missing/trace").c_str()));
    EXPECT_EQ(STAPI_HOST_NOT_FOUND, openRemoteGatewayConnection(std::string(70, 'x').c_str(), 1, &gateway, &version));
    EXPECT_EQ(STAPI_OK, closeGatewayConnection(&gateway));
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
}

} // namespace
