// The reply parsers, fed with replies that a Java virtual machine wrote and with composed ones, sound and broken.
#include "stapi_rix_resultsetbuffer.h"
#include "stapi_rix_statcomms.h"
#include "unit_support.h"

#include <algorithm>
#include <climits>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
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
};

Parsed parse(Parser parser, const std::string &callData, int length = RESULT_SET_SIZE)
{
    const auto raw = exactCopy(callData);
    char *area = newResultSetArea(length);
    Parsed parsed = {parser(raw.get(), static_cast<int>(callData.size()), &area, &length), length, {}};
    if (area != nullptr) parsed.area.assign(area, static_cast<size_t>(length) + RESULT_SET_SPARE);
    free(area);
    return parsed;
}

// The result set, and nothing but zeros behind it; its terminator lies within the stated length.
void expectResultSet(const Parsed &parsed, std::string expected)
{
    ASSERT_EQ(parsed.rc, STAPI_OK);
    ASSERT_GE(static_cast<size_t>(parsed.length), expected.size());
    expected.resize(parsed.area.size(), '\0');
    EXPECT_TRUE(parsed.area == expected) << "first difference at byte "
                                         << std::mismatch(expected.begin(), expected.end(), parsed.area.begin()).first -
                                                expected.begin();
}

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

// ---- Genuine replies

TEST(GenuineReplies, FillBuffersOfAnySizeWithTheSameResultSet)
{
    int replies = 0;
    for (const auto &file : std::filesystem::directory_iterator(TEST_DATA_DIR "/streams")) {
        if (file.path().extension() != ".bin" || file.path().stem() == "attr-version") continue;
        std::ifstream data(file.path(), std::ios::binary);
        std::ifstream content(std::filesystem::path(file.path()).replace_extension(".json"));
        const std::string callData(std::istreambuf_iterator<char>(data), {});
        const std::string expected = contentOf(nlohmann::json::parse(content));
        const Parser parser = expected.rfind("RIXSTSET", 0) == 0 ? parseStatsData : parseIdsData;
        const int exact = static_cast<int>(expected.size());
        for (const int size : {RESULT_SET_SIZE, 16, 17, 23, 64, exact - 5, exact - 4, exact - 1, exact}) {
            SCOPED_TRACE(file.path().stem().string() + " into " + std::to_string(size));
            const Parsed parsed = parse(parser, callData, size);
            expectResultSet(parsed, expected);
            EXPECT_TRUE(parsed.length == size || parsed.length / 2 < exact) << parsed.length;
        }
        for (const size_t missing : {callData.size(), callData.size() / 2, size_t{3}})
            EXPECT_EQ(parse(parser, callData.substr(0, callData.size() - missing), 64).rc,
                      STAPI_GATEWAY_EXCHANGE_FAILED)
                << file.path().stem() << " without " << missing;
        replies++;
    }
    EXPECT_EQ(replies, 25);
}

// ---- Composed replies

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
    for (const char flag : {'\0', '\2', '\x7F', '\xFF'})
        expectResultSet(parse(parseIdsData, flag + response), expected);
    expectResultSet(parse(parseIdsData, list(1) + response), expected);
    expectResultSet(parse(parseIdsData, list(0)), "RIXIDSET" + word(0) + TERMINATOR);
    expectResultSet(parse(parseStatsData, list(0)), "RIXSTSET" + word(0) + TERMINATOR);
}

TEST(Parse, AcceptsBothEndsOfAnElementWithoutStatistics)
{
    const std::string full = head("f", 0) + u32(1) + STAT_CLASS + stat(w(wireText("i") + wireText("1")));
    const std::string fullContent = counted("f") + word(0) + word(1) + counted("i") + counted("1");
    const std::string noneContent = counted("n") + word(5) + word(0);
    for (const std::string &end : {std::string("x"), STAT_CLASS}) {
        const std::string none = head("n", 5) + u32(0);
        const std::string failed = head("g", -2) + "x";
        expectResultSet(parse(parseStatsData, list(4) + none + STAT_CLASS + full + failed + none + end),
                        "RIXSTSET" + word(4) + noneContent + fullContent + counted("g") + word(-2) + noneContent +
                            TERMINATOR);
    }
}

// ---- Replies that hold to the structure of an object stream, in forms that a virtual machine need not write

std::string streamHead()
{
    const std::string rest = std::string(8, 'u') + "\x0C" + u16(0) + "x";
    return "\xAC\xED" + u16(5) + "sr" + wireText("Reply") + rest + "r" + wireText("Base") + rest + "p";
}

const std::string STREAM_STAT = "sr" + wireText("Stat") + std::string(8, 'u') + "\x0C" + u16(0) + "xp";
const std::string LATER_STAT = "sq" + u32(0x7E0003);

std::string again(uint32_t which)
{
    return "q" + u32(0x7E0004 + which);
}

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
        expectResultSet(parse(parseIdsData, '\0' + streamHead() + inBlocks(ids) + "x", 64),
                        "RIXIDSET" + content + word(3) + counted(big) + counted("") + counted(big) + TERMINATOR);
        expectResultSet(
            parse(parseStatsData, '\0' + streamHead() + w(start + u32(1)) + STREAM_STAT + inBlocks(stat) + "xx"),
            "RIXSTSET" + content + word(1) + counted("id") + counted(big) + TERMINATOR);
    }
}

TEST(Structure, AStatisticMayComeAgainByReferenceWithinReason)
{
    const auto reply = [](const std::string &value, uint32_t times, const std::string &reference) {
        std::string bytes = '\0' + streamHead() + w(wireText("all") + u32(0) + u32(2 + times)) + STREAM_STAT +
                            w(wireText("a") + wireText("1")) + "x" + LATER_STAT + z(wireText("b") + wireText(value)) +
                            "x";
        for (uint32_t i = 0; i < times; i++)
            bytes += reference;
        return bytes + "x";
    };
    const std::string a = counted("a") + counted("1"), b = counted("b") + counted("22");
    expectResultSet(parse(parseStatsData, reply("22", 3, again(1)), 16),
                    "RIXSTSET" + word(1) + counted("all") + word(0) + word(5) + a + b + b + b + b + TERMINATOR);
    EXPECT_EQ(STAPI_GATEWAY_EXCHANGE_FAILED, parse(parseStatsData, reply("22", 1, again(2))).rc) << "not yet there";
    EXPECT_EQ(STAPI_GATEWAY_EXCHANGE_FAILED, parse(parseStatsData, reply("22", 1, again(~0u))).rc)
        << "the reply itself";
    EXPECT_EQ(STAPI_OK, parse(parseStatsData, reply(std::string(60000, 'v'), 200, again(1))).rc);
    EXPECT_EQ(STAPI_GATEWAY_EXCHANGE_FAILED, parse(parseStatsData, reply(std::string(60000, 'v'), 300, again(1))).rc);
}

TEST(Structure, OneByteOffAndTheFixedSkipsReadTheReply)
{
    // In two blocks, the second within the identifier: by structure "abcd", by the skips with the header inside.
    const std::string sound =
        '\0' + streamHead() + w(wireText("all") + u32(0) + u32(1) + u16(4) + "ab") + w("cd") + "x";
    const std::string front = "RIXIDSET" + word(1) + counted("all") + word(0) + word(1);
    expectResultSet(parse(parseIdsData, sound), front + counted("abcd") + TERMINATOR);
    expectResultSet(parse(parseIdsData, sound + "x"), front + counted(std::string("abw\2", 4)) + TERMINATOR);
    std::string otherMagic = sound;
    otherMagic[2] = 'm';
    expectResultSet(parse(parseIdsData, otherMagic), front + counted(std::string("abw\2", 4)) + TERMINATOR);
}

TEST(Parse, GathersAValueFromItsBlocks)
{
    const std::string start = wireText("id") + u16(6); // of a value of six bytes
    const struct
    {
        const char *name;
        std::string blocks;
        bool sound;
    } cases[] = {
        {"whole in a long block", z(start + "abcdef"), true},
        {"long, long, short", z(start + "ab") + z("cd") + w("ef"), true},
        {"long, short, short", z(start + "ab") + w("c") + w("def"), true},
        {"nothing in the first block", z(start) + w("abcdef"), true},
        {"long block holds more than is missing", z(start + "ab") + z("cdefg"), false},
        {"short block holds more than is missing", z(start + "ab") + w("cdefg"), false},
        {"no further block", z(start + "ab"), false},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.name);
        const std::string reply =
            list(1) + head("e", 0) + u32(2) + STAT_CLASS + stat(each.blocks) + stat(w(wireText("j") + wireText("1")));
        const Parsed parsed = parse(parseStatsData, reply, 16);
        if (each.sound)
            expectResultSet(parsed, "RIXSTSET" + word(1) + counted("e") + word(0) + word(2) + counted("id") +
                                        counted("abcdef") + counted("j") + counted("1") + TERMINATOR);
        else
            EXPECT_EQ(parsed.rc, STAPI_GATEWAY_EXCHANGE_FAILED);
    }
}

TEST(Parse, RefusesLengthsAndCountsThatTheReplyCannotHold)
{
    const std::string ids = list(1) + head("q", 0) + u32(1) + wireText("id") + "x";
    const std::string stats = list(1) + head("q", 0) + u32(1) + STAT_CLASS + stat(w(wireText("id") + wireText("1")));
    const struct
    {
        Parser parser;
        std::string reply;
        std::vector<size_t> counts, lengths; // the places of such fields
    } cases[] = {{parseIdsData, ids, {1, 52}, {11, 27, 45, 56}},
                 {parseStatsData, stats, {1, 52}, {11, 27, 45, 58, 76, 80}}};
    for (const auto &each : cases) {
        ASSERT_EQ(parse(each.parser, each.reply).rc, STAPI_OK);
        const auto refuses = [&each](size_t at, const std::string &field) {
            const std::string broken = std::string(each.reply).replace(at, field.size(), field);
            EXPECT_EQ(parse(each.parser, broken).rc, STAPI_GATEWAY_EXCHANGE_FAILED) << at;
        };
        for (const size_t at : each.counts)
            for (const uint32_t value : {0x40u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
                refuses(at, u32(value));
        for (const size_t at : each.lengths)
            for (const uint32_t value : {0x80u, 0x7FFFu, 0x8000u, 0xFFFFu})
                refuses(at, u16(value));
    }
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
