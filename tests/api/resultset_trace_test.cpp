// Result sets as wholes (query texts, copies, dumps), and the control of the trace.
#include "gateway_fixture.h"

#include "stapi_rix_diag.h"

#include <fcntl.h>

#include <regex>

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
        return ask(kind == ReplyKind::statistics ? kStats : kIds);
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

TEST_F(ResultSetTest, IdQueryJoinsTheIdsOfElementsWithResult0)
{
    const std::vector<Response> responses = {{"a", 0, {{"ab", "1"}, {std::string("cd\0x", 4), "2"}}},
                                             {"b", -5, {}},
                                             {"c", 3, {{"no", "3"}}},
                                             {"d", 0, {}},
                                             {"e", 0, {{"ef", "4"}}}};
    const RIX_ResultSetToken_t ids = setOf(responses);
    RIX_IdData_t id = {};
    EXPECT_EQ(STAPI_OK, getFirstId(ids, &id));
    EXPECT_EQ("ab:cd:ef", idQuery(ids)); // of the whole set, although it is half walked
    EXPECT_EQ("ab:cd:ef", idQuery(setOf(responses, ReplyKind::statistics)));
    EXPECT_EQ("unchanged", idQuery(setOf({responses[1], responses[2], responses[3]})));
}

TEST_F(ResultSetTest, IdQueryHoldsUpTo31999Bytes)
{
    const auto queryOf = [this](const std::vector<Item> &items) { return idQuery(setOf({{"e", 0, items}})); };
    const auto idOf = [](std::size_t length, char letter) { return Item{std::string(length, letter), ""}; };
    const Item a = idOf(20000, 'a'), d = idOf(1, 'd');
    // The second does not fit, the third does, the fourth would make it 32,000 with the colon and the closing zero.
    EXPECT_EQ(a.id + ":" + std::string(11997, 'c'), queryOf({a, idOf(11999, 'b'), idOf(11997, 'c'), d}));
    EXPECT_EQ(a.id + ":" + std::string(11996, 'c') + ":d", queryOf({a, idOf(11996, 'c'), d}));
    EXPECT_EQ(a.id + ":" + std::string(11998, 'c'), queryOf({a, idOf(11998, 'c'), d}));
    EXPECT_EQ("d", queryOf({idOf(31999, 'a'), d}));
    EXPECT_EQ(std::string(31998, 'a'), queryOf({idOf(31998, 'a'), d}));
}

TEST_F(ResultSetTest, ArgumentsAreCheckedInOrder)
{
    open();
    char *text = nullptr;
    RIX_ResultSetToken_t copy = nullptr;
    RIX_ResultSetToken_t own = ask(kStats);
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
    const RIX_ResultSetToken_t own = ask(kStats);
    const Walk values = readStats(own);
    RIX_StatData_t data = {};
    RIX_ResultSetToken_t copy = nullptr, ofCopy = nullptr;
    EXPECT_EQ(STAPI_OK, getFirstStat(own, &data)); // half-walked when it is copied
    ASSERT_EQ(STAPI_OK, copyResultSet(own, &copy));
    EXPECT_EQ(STAPI_OK, getNextStat(copy, &data));
    EXPECT_EQ(values[0], describe(data));
    EXPECT_EQ(STAPI_OK, getNextStat(own, &data)); // goes on where it was
    EXPECT_EQ(values[1], describe(data));

    EXPECT_EQ("Requests:Workers", idQuery(ask(kGroupIds)));
    ASSERT_EQ(STAPI_OK, inThread([&] { return copyResultSet(copy, &ofCopy); }));
    EXPECT_EQ(STAPI_OK, closeGatewayConnection(&gateway));
    EXPECT_EQ(STAPI_OK, inThread([&] { return readStats(copy) == values ? freeResultSet(&copy) : -1; }));
    EXPECT_EQ(nullptr, copy);
    EXPECT_EQ(values, readStats(ofCopy));
    EXPECT_EQ("Received:Refused:Busy", idQuery(ofCopy));
    EXPECT_EQ(STAPI_OK, freeResultSet(&ofCopy));
}

class TraceTest : public GatewayTest
{
protected:
    TraceTest() { EXPECT_NE(nullptr, mkdtemp(directory.data())); }
    ~TraceTest() override { std::filesystem::remove_all(directory); }

    int traceTo(const std::string &name) const { return setAPITraceFile((directory + name).c_str()); }
    static void setLevels(std::initializer_list<int> levels)
    {
        for (const int level : levels)
            EXPECT_EQ(STAPI_OK, setAPITraceLevel(level));
    }

    std::string traced(const std::string &name) const
    {
        std::ifstream file(directory + name);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static std::ptrdiff_t headersIn(const std::string &trace)
    {
        const std::regex header("\\*\\*\\* ../../.. YST Vendral Gateway RIXSTATS DLL trace .* \\*\\*\\*\n");
        return std::distance(std::sregex_iterator(trace.begin(), trace.end(), header), {});
    }

    std::string directory = testing::TempDir() + "rixstatsXXXXXX";
};

TEST_F(TraceTest, HeaderIsWrittenAtEachSwitchOnUntilAFileIsSet)
{
    testing::internal::CaptureStderr();
    setLevels({1, 0, 1, 2, 0});
    EXPECT_EQ(2, headersIn(testing::internal::GetCapturedStderr()));
    EXPECT_EQ(STAPI_OK, traceTo("/off")); // while the trace is off: not written yet
    setLevels({1, 0, 1});
    EXPECT_EQ(2, headersIn(traced("/off")));
    EXPECT_EQ(STAPI_OK, traceTo("/on"));
    setLevels({0, 1, 0, 1});
    EXPECT_EQ(1, headersIn(traced("/on")));
    EXPECT_EQ(2, headersIn(traced("/off")));
}

TEST_F(TraceTest, FileThatCannotBeOpenedLeavesTheTraceWhereItWas)
{
    EXPECT_EQ(STAPI_OK, traceTo("/trace"));
    setLevels({1});
    const std::string longest = std::string(1023 - directory.size() - 6, '/') + "longer"; // with the directory
    EXPECT_EQ(STAPI_TRACE_FILE_OPEN_FAILED, traceTo("/missing/trace"));
    EXPECT_EQ(STAPI_TRACE_FILE_OPEN_FAILED, traceTo(longest + "x"));
    const std::string trace = traced("/trace");
    EXPECT_EQ(2, headersIn(trace)); // one from each of the calls that may write it
    EXPECT_THAT(trace, HasSubstr(" is unchanged. Filename=" + directory + "/trace\n"));
    EXPECT_FALSE(std::filesystem::exists(directory + "/longerx"));
    EXPECT_EQ(STAPI_OK, traceTo(longest));
    EXPECT_EQ(1, headersIn(traced("/longer")));
    EXPECT_EQ(trace, traced("/trace"));
}

TEST_F(TraceTest, SameFileAgainIsAChangeAndNullOnStandardErrorIsNone)
{
    EXPECT_EQ(STAPI_OK, traceTo("/trace"));
    setLevels({4});
    const std::ptrdiff_t descriptors = countDescriptors();
    EXPECT_EQ(STAPI_OK, traceTo("/trace"));
    EXPECT_EQ(descriptors, countDescriptors());
    EXPECT_TRUE(fcntl(fileno(rixstats::statAPITraceHandle), F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(2, headersIn(traced("/trace"))); // appended to
    testing::internal::CaptureStderr();
    EXPECT_EQ(STAPI_OK, setAPITraceFile(nullptr));
    EXPECT_EQ(STAPI_OK, setAPITraceFile(nullptr));
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(1, headersIn(text));
    EXPECT_THAT(text, HasSubstr("[1099] DEBUG  API.setAPITraceFile() Trace file destination is unchanged. "
                                "Filename=stderr\n"));
}

TEST_F(TraceTest, QueryTextIsShownAlsoWhenItWentWithTheConnection)
{
    Options options = smallOptions();
    options.faults = dropInside(8, 10); // the first flow of the second query
    open(options);
    char *text = nullptr;
    ASSERT_EQ(STAPI_OK, getIdQuery(ask(kGroupIds), &text));
    EXPECT_EQ(STAPI_OK, traceTo("/trace"));
    setLevels({3});
    RIX_ResultSetToken_t ids = nullptr;
    EXPECT_EQ(STAPI_GATEWAY_EXCHANGE_FAILED, getStatIdsByStatGroupId(gateway, text, &ids));
    EXPECT_THAT(traced("/trace"), HasSubstr(",query=Requests:Workers,rs="));
}

} // namespace
