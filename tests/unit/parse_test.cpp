// The reply parsers, fed with replies that a Java virtual machine wrote and with composed ones, sound and broken.
#include "stapi_rix_resultsetbuffer.h"
#include "stapi_rix_statcomms.h"
#include "unit_support.h"

#include <algorithm>
#include <climits>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <vector>

using namespace rixstats;
using namespace unit;

namespace {

typedef int (*Parser)(const char *, int, char **, int *);

struct Parsed
{
    int rc;
    int length;       // of the buffer, after the parse
    std::string area; // its bytes with the spare ones; empty if there is no buffer any more
    size_t shown;     // what a copy needs of them
};

Parsed parse(Parser parser, const std::string &callData, int length = RESULT_SET_SIZE)
{
    const auto raw = exactCopy(callData);
    char *area = newResultSetArea(length);
    Parsed parsed = {parser(raw.get(), static_cast<int>(callData.size()), &area, &length), length, {}, 0};
    if (area != nullptr) {
        parsed.area.assign(area, static_cast<size_t>(length) + RESULT_SET_SPARE);
        parsed.shown = resultSetShown(area);
    }
    freeResultSetArea(area);
    return parsed;
}

// The result set, and nothing but zeros behind it; its terminator lies within the stated length.
void expectResultSet(const Parsed &parsed, std::string expected)
{
    ASSERT_EQ(parsed.rc, STAPI_OK);
    ASSERT_GE(static_cast<size_t>(parsed.length), expected.size());
    EXPECT_EQ(parsed.shown, expected.size() + RESULT_SET_SPARE);
    expected.resize(parsed.area.size(), '\0');
    const auto difference = std::mismatch(expected.begin(), expected.end(), parsed.area.begin());
    EXPECT_TRUE(parsed.area == expected) << "at byte " << difference.first - expected.begin();
}

void expectMalformed(Parser parser, const std::string &callData)
{
    EXPECT_EQ(parse(parser, callData, 64).rc, STAPI_GATEWAY_EXCHANGE_FAILED);
}

// ---- Genuine replies

std::string contentOf(const nlohmann::json &reply)
{
    const auto &responses = reply["responses"];
    std::string bytes = reply["category"].get<std::string>() + word(static_cast<int>(responses.size()));
    for (const auto &response : responses) {
        const int code = response["code"];
        bytes += counted(response["element"]) + word(code);
        if (code < 0) continue;
        const bool ids = response.contains("ids");
        const auto &items = response[ids ? "ids" : "stats"];
        bytes += word(static_cast<int>(items.size()));
        for (const auto &item : items)
            bytes += ids ? counted(item) : counted(item["id"]) + counted(item["value"]);
    }
    return bytes + TERMINATOR;
}

TEST(GenuineReplies, FillBuffersOfAnySizeWithTheSameResultSet)
{
    int replies = 0;
    for (const auto &file : std::filesystem::directory_iterator(TEST_DATA_DIR "/streams")) {
        if (file.path().extension() != ".bin" || file.path().stem() == "attr-version") continue;
        std::ifstream data(file.path(), std::ios::binary);
        const std::string callData(std::istreambuf_iterator<char>(data), {});
        std::ifstream json(std::filesystem::path(file.path()).replace_extension(".json"));
        const std::string expected = contentOf(nlohmann::json::parse(json));
        const Parser parser = expected.rfind("RIXSTSET", 0) == 0 ? parseStatsData : parseIdsData;
        const int exact = static_cast<int>(expected.size());
        for (const int size : {RESULT_SET_SIZE, 16, 17, 23, 64, exact - 5, exact - 4, exact - 1, exact}) {
            SCOPED_TRACE(file.path().stem().string() + " into " + std::to_string(size));
            const Parsed parsed = parse(parser, callData, size);
            expectResultSet(parsed, expected);
            EXPECT_TRUE(parsed.length == size || parsed.length / 2 < exact) << parsed.length;
        }
        SCOPED_TRACE(file.path().stem());
        for (const size_t missing : {callData.size(), callData.size() / 2, size_t{3}})
            expectMalformed(parser, callData.substr(0, callData.size() - missing));
        replies++;
    }
    EXPECT_EQ(replies, 25);
}

// ---- Composed replies, read by fixed skips

std::string list(uint32_t responses)
{
    return "\1" + u32(responses);
}

std::string head(const std::string &element, int code)
{
    return std::string(6, 'h') + wireText("C") + std::string(13, 'h') + wireText("S") + std::string(13, 'h') + "w." +
           wireText(element) + u32(static_cast<uint32_t>(code));
}

std::string w(const std::string &data)
{
    return "w" + std::string(1, static_cast<char>(data.size())) + data;
}

std::string z(const std::string &data)
{
    return "z" + u32(static_cast<uint32_t>(data.size())) + data;
}

const std::string STAT_CLASS = "sr" + wireText("T") + std::string(8, 'u');

std::string stat(const std::string &blocks)
{
    return "-----" + blocks + "x.";
}

TEST(Parse, ReadsOneResponseOrAListOfAnyLength)
{
    const std::string response = head("q", 3) + u32(1) + wireText("id") + "x";
    const std::string expected = "RIXIDSET" + word(1) + counted("q") + word(3) + word(1) + counted("id") + TERMINATOR;
    for (const std::string &start : {std::string(1, '\0'), std::string("\xFF"), list(1)})
        expectResultSet(parse(parseIdsData, start + response), expected);
    expectResultSet(parse(parseStatsData, list(0)), "RIXSTSET" + word(0) + TERMINATOR);
}

TEST(Parse, AcceptsBothEndsOfAnElementWithoutStatistics)
{
    const std::string full = head("f", 0) + u32(1) + STAT_CLASS + stat(w(wireText("i") + wireText("1")));
    const std::string none = head("n", 5) + u32(0), failed = head("g", -2) + "x";
    const std::string noneContent = counted("n") + word(5) + word(0);
    for (const std::string &end : {std::string("x"), STAT_CLASS})
        expectResultSet(parse(parseStatsData, list(4) + none + STAT_CLASS + full + failed + none + end),
                        "RIXSTSET" + word(4) + noneContent + counted("f") + word(0) + word(1) + counted("i") +
                            counted("1") + counted("g") + word(-2) + noneContent + TERMINATOR);
}

TEST(Parse, GathersAValueFromItsBlocks)
{
    const std::string start = wireText("id") + u16(6); // of a value of six bytes
    const auto replyOf = [](const std::string &blocks) {
        return list(1) + head("e", 0) + u32(2) + STAT_CLASS + stat(blocks) + stat(w(wireText("j") + wireText("1")));
    };
    for (const std::string &sound : {z(start + "abcdef"), z(start + "ab") + z("cd") + w("ef"),
                                     z(start + "ab") + w("c") + w("def"), z(start) + w("abcdef")})
        expectResultSet(parse(parseStatsData, replyOf(sound), 16), "RIXSTSET" + word(1) + counted("e") + word(0) +
                                                                       word(2) + counted("id") + counted("abcdef") +
                                                                       counted("j") + counted("1") + TERMINATOR);
    // The next block holds more than is missing, or there is none.
    for (const std::string &broken : {z(start + "ab") + z("cdefg"), z(start + "ab") + w("cdefg"), z(start + "ab")})
        expectMalformed(parseStatsData, replyOf(broken));
}

TEST(Parse, RefusesLengthsAndCountsThatTheReplyCannotHold)
{
    const std::string ids = list(1) + head("q", 0) + u32(1) + wireText("id") + "x";
    const std::string stats = list(1) + head("q", 0) + u32(1) + STAT_CLASS + stat(w(wireText("id") + wireText("1")));
    // With the places of counts and of lengths.
    const std::tuple<Parser, std::string, std::vector<size_t>, std::vector<size_t>> cases[] = {
        {parseIdsData, ids, {1, 52}, {11, 27, 45, 56}}, {parseStatsData, stats, {1, 52}, {11, 27, 45, 58, 76, 80}}};
    for (const auto &[parser, reply, counts, lengths] : cases) {
        ASSERT_EQ(parse(parser, reply).rc, STAPI_OK);
        expectMalformed(parser, reply.substr(0, reply.size() - 1)); // the last byte is only skipped
        for (const size_t at : counts)
            for (const uint32_t value : {0x40u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
                expectMalformed(parser, std::string(reply).replace(at, 4, u32(value)));
        for (const size_t at : lengths)
            for (const uint32_t value : {0x80u, 0x7FFFu, 0x8000u, 0xFFFFu})
                expectMalformed(parser, std::string(reply).replace(at, 2, u16(value)));
    }
}

// ---- Replies that hold to the structure of an object stream, in forms that a virtual machine need not write

const std::string CLASS_REST = std::string(8, 'u') + "\x0C" + u16(0) + "x"; // behind its name
const std::string STREAM_HEAD =
    "\xAC\xED" + u16(5) + "sr" + wireText("Reply") + CLASS_REST + "r" + wireText("Base") + CLASS_REST + "p";
const std::string STREAM_STAT = "sr" + wireText("Stat") + CLASS_REST + "p";

TEST(Structure, BlocksMayHaveAnyLengthAndEndAnywhere)
{
    const std::string big(40000, 'b');
    const std::string start = wireText("all") + u32(0);
    const std::string ids = start + u32(3) + wireText(big) + wireText("") + wireText(big);
    const std::string stat = wireText("id") + wireText(big);
    const std::string content = word(1) + counted("all") + word(0);
    for (size_t cut = 0; cut < 30; cut++) { // within each length and text at the start, a short block first
        SCOPED_TRACE(cut);
        const auto inBlocks = [cut](const std::string &data) { return w(data.substr(0, cut)) + z(data.substr(cut)); };
        expectResultSet(parse(parseIdsData, '\0' + STREAM_HEAD + inBlocks(ids) + "x", 64),
                        "RIXIDSET" + content + word(3) + counted(big) + counted("") + counted(big) + TERMINATOR);
        expectResultSet(
            parse(parseStatsData, '\0' + STREAM_HEAD + w(start + u32(1)) + STREAM_STAT + inBlocks(stat) + "xx"),
            "RIXSTSET" + content + word(1) + counted("id") + counted(big) + TERMINATOR);
    }
}

TEST(Structure, AStatisticMayComeAgainByReferenceWithinReason)
{
    const auto reply = [](const std::string &value, uint32_t times, uint32_t handle) {
        std::string bytes = '\0' + STREAM_HEAD + w(wireText("all") + u32(0) + u32(2 + times)) + STREAM_STAT +
                            w(wireText("a") + wireText("1")) + "xsq" + u32(0x7E0003) +
                            z(wireText("b") + wireText(value)) + "x";
        for (uint32_t i = 0; i < times; i++)
            bytes += "q" + u32(handle);
        return bytes + "x";
    };
    const std::string a = counted("a") + counted("1"), b = counted("b") + counted("22");
    expectResultSet(parse(parseStatsData, reply("22", 3, 0x7E0005), 16),
                    "RIXSTSET" + word(1) + counted("all") + word(0) + word(5) + a + b + b + b + b + TERMINATOR);
    expectMalformed(parseStatsData, reply("22", 1, 0x7E0006)); // not yet there
    expectMalformed(parseStatsData, reply("22", 1, 0x7E0003)); // a class
    EXPECT_EQ(STAPI_OK, parse(parseStatsData, reply(std::string(60000, 'v'), 200, 0x7E0005)).rc);
    expectMalformed(parseStatsData, reply(std::string(60000, 'v'), 300, 0x7E0005));
}

TEST(Structure, OneByteOffAndTheFixedSkipsReadTheReply)
{
    // In two blocks, the second within the identifier: by structure "abcd", by the skips with the header inside.
    const std::string sound = '\0' + STREAM_HEAD + w(wireText("all") + u32(0) + u32(1) + u16(4) + "ab") + w("cd") + "x";
    const std::string front = "RIXIDSET" + word(1) + counted("all") + word(0) + word(1);
    const std::string bySkips = front + counted(std::string("abw\2", 4)) + TERMINATOR;
    expectResultSet(parse(parseIdsData, sound), front + counted("abcd") + TERMINATOR);
    // So many bytes that the scan has copied some of them by then: none may stay.
    expectResultSet(parse(parseIdsData, sound + std::string(40, 'x')), bySkips);
    expectResultSet(parse(parseIdsData, std::string(sound).replace(2, 1, "m")), bySkips);
}

TEST(BufferGrowth, ThatIsImpossibleReleasesTheBuffer)
{
    int length = INT_MAX / 2 + 1; // twice that is no int
    char *area = newResultSetArea(16);
    char *cursor = area;
    EXPECT_EQ(reallocResultsSetBuffer(&area, &length, &cursor, 0), STAPI_NO_MEMORY);
    EXPECT_EQ(area, nullptr);
    EXPECT_EQ(length, INT_MAX / 2 + 1);
}

} // namespace
