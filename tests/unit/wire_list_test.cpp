// Bytes on the wire, the flow header, the length rules of requests, and the Gateway Token List with hand-made tokens.
#include "stapi_rix_gwytok.h"
#include "stapi_rix_resultsetbuffer.h"
#include "stapi_rix_statcomms.h"
#include "unit_support.h"

#include <gmock/gmock.h>
#include <thread>
#include <vector>

using namespace rixstats;
using namespace unit;

namespace {

// ---- Reader and writer

TEST(Reader, TakesBigEndianFieldsAndStaysSpoiledBehindTheEnd)
{
    const std::string bytes("\x81\xFE\xDC\x80\x01\x02\x03\x12\x34\x56\x78\x3F\xF8\0\0\0\0\0\0\7", 20);
    const auto copy = exactCopy(bytes);
    Reader in = readerOf(copy.get(), 20);
    EXPECT_EQ(readU8(in), 0x81);
    EXPECT_EQ(readU16(in), 0xFEDC);
    EXPECT_EQ(readI32(in), static_cast<int32_t>(0x80010203));
    EXPECT_EQ(readU32(in), 0x12345678u);
    EXPECT_EQ(readDouble(in), 1.5);
    EXPECT_EQ(peekU8(in), 7);
    EXPECT_FALSE(in.bad);
    EXPECT_EQ(readU16(in), 0); // one byte is left
    EXPECT_TRUE(in.bad);
    EXPECT_EQ(bytesLeft(in), 0u);
    EXPECT_EQ(peekU8(in), 0);
    EXPECT_EQ(readCount(in, 1), 0);
    EXPECT_EQ(readBlock(in, 0).bytes, nullptr);
    for (const Reader &nothing : {readerOf(nullptr, 5), readerOf(copy.get(), 0), readerOf(copy.get(), -1)})
        EXPECT_EQ(bytesLeft(nothing), 0u);
}

TEST(Reader, BoundsLengthsCountsAndBlocks)
{
    const auto after = [](const std::string &field, auto read) {
        const std::string bytes = field + std::string(12, 'i');
        const auto copy = exactCopy(bytes);
        Reader in = readerOf(copy.get(), static_cast<int>(bytes.size()));
        const int value = read(in);
        return in.bad ? -1 : value;
    };
    const auto length = [](Reader &in) { return readLength(in); };
    EXPECT_EQ(after(u16(0x7FFF), length), 0x7FFF);
    EXPECT_EQ(after(u16(0x8000), length), -1);
    const auto count = [](Reader &in) { return readCount(in, 4); };
    EXPECT_EQ(after(u32(0), count), 0);
    EXPECT_EQ(after(u32(3), count), 3);
    for (const uint32_t tooMany : {4u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
        EXPECT_EQ(after(u32(tooMany), count), -1) << tooMany;
    for (const int size : {0, 1, 12, 13, -1, INT32_MAX, INT32_MIN})
        EXPECT_EQ(after("", [size](Reader &in) { return readBlock(in, size).length; }),
                  size >= 0 && size <= 12 ? size : -1);
}

TEST(Writer, FillsItsBufferAndNothingBehindIt)
{
    const std::string expected =
        u32(0x80000001) + u16(0xABCD) + std::string("\x3F\xF8\0\0\0\0\0\0", 8) + wireText("US");
    for (size_t size = 0; size <= expected.size(); size++) {
        const auto buffer = exactCopy(std::string(size, '.'));
        Writer out = writerOf(buffer.get(), size);
        writeI32(out, static_cast<int32_t>(0x80000001));
        writeU16(out, 0xABCD);
        writeDouble(out, 1.5);
        writeText(out, "US");
        EXPECT_LE(out.pos, buffer.get() + size);
        EXPECT_EQ(std::string(buffer.get(), size) == expected, size == expected.size()) << size;
    }
}

// ---- Flow header

GatewayRequest someHeader(const char *name)
{
    GatewayRequest header = newRequestHeader(FLOW_TYPE_HANDSHAKE, name, 0x01020304);
    header.messageId = 5;
    header.gatewayRc = 9;
    header.security = 's';
    return header;
}

TEST(FlowHeader, IsWrittenWithMessageIdAndResultSwapped)
{
    for (const char *name : {"BASE", "Admin"}) {
        const GatewayRequest header = someHeader(name);
        const std::string expected = "Gate" + u32(0x00700000) + u32(5) + u32(9) + u32(5) +
                                     u32(static_cast<uint32_t>(strlen(name))) + name + "s" + u32(0x01020304);
        std::vector<char> buffer(expected.size());
        Writer out = writerOf(buffer.data(), buffer.size());
        writeHeader(&header, out);
        EXPECT_EQ(std::string(buffer.data(), static_cast<size_t>(out.pos - buffer.data())), expected);

        GatewayRequest back = {};
        Reader in = readerOf(buffer.data(), static_cast<int>(buffer.size()));
        EXPECT_TRUE(populateHeader(in, name, &back));
        EXPECT_EQ(bytesLeft(in), 0u);
        EXPECT_EQ(back.messageId, 9);
        EXPECT_EQ(back.gatewayRc, 5);
        EXPECT_EQ(back.requestType, nullptr);
        back.requestType = name;
        std::swap(back.messageId, back.gatewayRc);
        EXPECT_EQ(memcmp(&back, &header, sizeof back), 0); // both were zero-filled
    }
}

TEST(FlowHeader, WithMissingBytesOrANameOfAnotherLengthIsRefused)
{
    const std::string start = "Gate" + u32(1) + u32(2) + u32(3) + u32(4), end = "s" + u32(6);
    const std::string good = start + u32(5) + "Admin" + end;
    std::vector<std::string> bad = {start + u32(4) + "BASE" + end, start + u32(6) + "Admins" + end};
    for (const uint32_t nameLength : {0u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
        bad.push_back(start + u32(nameLength) + "Admin" + end);
    for (size_t length = 0; length < good.size(); length++)
        bad.push_back(good.substr(0, length));
    for (const std::string &bytes : bad) {
        const auto copy = exactCopy(bytes);
        Reader in = readerOf(copy.get(), static_cast<int>(bytes.size()));
        GatewayRequest record = someHeader("Admin");
        EXPECT_FALSE(populateHeader(in, "Admin", &record));
        EXPECT_EQ(record.messageId, 5);
    }
}

TEST(CallLength, CountsTextsWithTheirLengthsAndTheFixedParts)
{
    AdminRequest request = {};
    request.clientCountry = ADMIN_CLIENT_COUNTRY;
    request.clientLanguage = ADMIN_CLIENT_LANGUAGE;
    request.clientVariant = "";
    request.objectName = STATS_MBEAN_NAME;
    request.attributeName = STATS_MBEAN_PROTOCOL_VERSION;
    EXPECT_EQ(calculateGetAttrCallLength(request), 82);
    request.invokeAction = STATS_MBEAN_ACTION_GET_STATS;
    request.invokeSigs = STATS_MBEAN_SIG;
    request.invokeParms = "a:b";
    EXPECT_EQ(calculateCallLength(request), 119);
    request.invokeParms = "";
    request.clientVariant = "x";
    EXPECT_EQ(calculateCallLength(request), 117);
    EXPECT_EQ(calculateGetAttrCallLength(request), 83);
}

// ---- Gateway Token List

class TokenList : public testing::Test
{
protected:
    TokenList()
    {
        initTrace();
        initGTL();
        gtListHeadPtr = gtListTailPtr = nullptr;
    }
    ~TokenList() override
    {
        while (deleteGatewayTokens() != GTL_EMPTY)
            ;
        gtListTailPtr = nullptr;
    }

    static Internal_GatewayToken_t *chained()
    {
        auto *token = static_cast<Internal_GatewayToken_t *>(calloc(1, sizeof(Internal_GatewayToken_t)));
        memcpy(token->eyecatcher, "RIXGWTOK", 8);
        token->portNumber = 2980;
        token->socketDescriptor = -1;
        getPidTid(&token->owningPid, &token->owningTid);
        token->protocolVersion = strdup("1");
        token->resultSetBuf = newResultSetArea(32);
        addTerminator(token->resultSetBuf);
        EXPECT_EQ(createResultSet(&token->connRSPtr, "RIXRSROB", OWNER_LIBRARY), STAPI_OK);
        token->connRSPtr->rsBuffPtr = token->resultSetBuf;
        EXPECT_EQ(chainGatewayToken(token), STAPI_OK);
        return token;
    }
};

TEST_F(TokenList, FindsAndUnchainsHeadMiddleAndTail)
{
    Internal_GatewayToken_t *a = chained(), *b = chained(), *c = chained();
    EXPECT_EQ(initGTL(), 1); // changes nothing
    EXPECT_EQ(gtListHeadPtr, a);
    EXPECT_EQ(gtListTailPtr, c);
    const struct
    {
        Internal_GatewayToken_t *token, *parent;
    } places[] = {{a, nullptr}, {b, a}, {c, b}};
    for (const auto &place : places) {
        Internal_GatewayToken_t *parent = c;
        EXPECT_EQ(findGatewayToken(place.token, &parent), GTL_FOUND);
        EXPECT_EQ(parent, place.parent);
        EXPECT_EQ(findGatewayToken(place.token, nullptr), GTL_FOUND);
    }
    EXPECT_EQ(deleteGatewayToken(&b, 1), STAPI_OK);
    EXPECT_EQ(b, nullptr);
    EXPECT_EQ(a->nextGwyTokPtr, c);
    EXPECT_EQ(deleteGatewayToken(&c, 1), STAPI_OK);
    EXPECT_EQ(a->nextGwyTokPtr, nullptr);
    EXPECT_EQ(gtListTailPtr, a);
    Internal_GatewayToken_t *d = chained();
    EXPECT_EQ(a->nextGwyTokPtr, d);
    EXPECT_EQ(deleteGatewayToken(&a, 1), STAPI_OK);
    EXPECT_EQ(gtListHeadPtr, d);
    EXPECT_EQ(deleteGatewayToken(&d, 1), STAPI_OK);
    EXPECT_EQ(gtListHeadPtr, nullptr);
    Internal_GatewayToken_t *again = chained();
    EXPECT_EQ(gtListHeadPtr, again);
    EXPECT_EQ(gtListTailPtr, again);
}

TEST_F(TokenList, RefusesWhatIsNotOnItOrIsSomebodyElses)
{
    Internal_GatewayToken_t *none = nullptr, *parent = nullptr, stranger = {}, *handle = &stranger;
    EXPECT_EQ(findGatewayToken(nullptr, &parent), GTL_NULL_TARGET);
    EXPECT_EQ(findGatewayToken(handle, &parent), GTL_NOT_INITIALISED_OR_EMPTY);
    EXPECT_EQ(verifyGatewayToken(handle), STAPI_GATEWAY_TOKEN_NOT_FOUND);
    Internal_GatewayToken_t *token = chained();
    EXPECT_EQ(findGatewayToken(handle, &parent), GTL_NOT_FOUND);
    EXPECT_EQ(parent, nullptr);
    EXPECT_EQ(verifyGatewayToken(handle), STAPI_GATEWAY_TOKEN_NOT_FOUND);
    EXPECT_EQ(deleteGatewayToken(&handle, 1), STAPI_GATEWAY_TOKEN_NOT_FOUND);
    EXPECT_EQ(handle, &stranger);
    EXPECT_EQ(deleteGatewayToken(&none, 1), STAPI_NULL_GATEWAY_TOKEN);
    EXPECT_EQ(deleteGatewayToken(nullptr, 1), STAPI_NULL_GATEWAY_TOKEN_PTR);
    EXPECT_EQ(chainGatewayToken(nullptr), STAPI_NULL_GATEWAY_TOKEN_PTR);
    EXPECT_EQ(verifyGatewayToken(token), STAPI_OK); // and no refusal kept the lock
    EXPECT_EQ(endGatewayTokenUse(&token), STAPI_OK);

    int rc = 0;
    std::thread([&] { rc = verifyGatewayToken(token); }).join();
    EXPECT_EQ(rc, STAPI_WRONG_THREAD);
    token->owningPid++;
    EXPECT_EQ(verifyGatewayToken(token), STAPI_WRONG_PROCESS);
}

TEST_F(TokenList, LeavesATokenThatAnotherThreadUsesToThatThread)
{
    Internal_GatewayToken_t *user = chained(), *closer = user;
    ASSERT_EQ(verifyGatewayToken(user), STAPI_OK);
    std::thread([&] { EXPECT_EQ(deleteGatewayToken(&closer, 1), STAPI_OK); }).join();
    EXPECT_EQ(closer, nullptr);
    EXPECT_EQ(gtListHeadPtr, nullptr);
    EXPECT_EQ(endGatewayTokenUse(&user), STAPI_COMMS_FAILURE);
    EXPECT_EQ(user, nullptr);
}

TEST_F(TokenList, WithoutATailIsCorrupt)
{
    Internal_GatewayToken_t head = {}, added = {};
    gtListHeadPtr = &head;
    gtListTailPtr = nullptr;
    const TraceCapture trace(1);
    EXPECT_EQ(chainGatewayToken(&added), STAPI_GTL_CORRUPT);
    EXPECT_EQ(head.nextGwyTokPtr, nullptr);
    EXPECT_THAT(trace.text(),
                testing::HasSubstr("[2020] *EXC*  stapi_rix_gwytok.chainGatewayToken() GTL state is corrupt"));
    gtListHeadPtr = nullptr;
}

TEST_F(TokenList, IsSearchedForTwoHundredAndFiftySixSteps)
{
    std::vector<Internal_GatewayToken_t> tokens(300);
    Internal_GatewayToken_t stranger = {}, *parent = nullptr;
    for (auto &token : tokens)
        ASSERT_EQ(chainGatewayToken(&token), STAPI_OK);
    EXPECT_EQ(findGatewayToken(&tokens[256], &parent), GTL_FOUND);
    EXPECT_EQ(parent, &tokens[255]);
    EXPECT_EQ(findGatewayToken(&tokens[257], &parent), GTL_RUNAWAY);
    EXPECT_EQ(parent, &tokens[255]);
    EXPECT_EQ(findGatewayToken(&stranger, nullptr), GTL_RUNAWAY);
    tokens[255].nextGwyTokPtr = nullptr;
    EXPECT_EQ(findGatewayToken(&stranger, nullptr), GTL_NOT_FOUND);
    tokens[255].nextGwyTokPtr = &tokens[0]; // a cycle ends too
    EXPECT_EQ(findGatewayToken(&stranger, nullptr), GTL_RUNAWAY);
    gtListHeadPtr = nullptr;
}

TEST_F(TokenList, IsDeletedInPortionsOfTwoHundredAndFiftySix)
{
    for (int i = 0; i < 256; i++)
        chained();
    EXPECT_EQ(deleteGatewayTokens(), GTL_RUNAWAY); // also when that were all
    EXPECT_EQ(gtListHeadPtr, nullptr);
    for (int i = 0; i < 256; i++)
        chained();
    const Internal_GatewayToken_t *last = chained();
    EXPECT_EQ(deleteGatewayTokens(), GTL_RUNAWAY);
    EXPECT_EQ(gtListHeadPtr, last);
    EXPECT_EQ(deleteGatewayTokens(), 0);
    EXPECT_EQ(deleteGatewayTokens(), GTL_EMPTY);
}

TEST(GatewayTokenText, NamesEveryFieldInOrder)
{
    char text[FORMATTED_TOKEN_SIZE];
    EXPECT_EQ(formatGatewayToken(nullptr, nullptr), STAPI_NULL_ARGUMENT);
    EXPECT_EQ(formatGatewayToken(nullptr, text), STAPI_OK);
    EXPECT_STREQ(text, "GatwayToken(NULL)");
    Internal_GatewayToken_t token = {};
    memcpy(token.eyecatcher, "RIXGWTOK", 8);
    token.portNumber = 2980;
    token.connStatus = 1;
    token.socketDescriptor = -1;
    token.connRSPtr = reinterpret_cast<Internal_ResultSetToken_t *>(0x10);
    token.resultSetBuf = reinterpret_cast<char *>(0x20);
    token.owningPid = 0xABC;
    token.owningTid = 0x7F001234ABCD;
    token.nextGwyTokPtr = reinterpret_cast<Internal_GatewayToken_t *>(0x30);
    EXPECT_EQ(formatGatewayToken(&token, text), STAPI_OK);
    EXPECT_EQ(text, formatted("GatwayToken(%p)", static_cast<void *>(&token)) +
                        " eyecatcher(RIXGWTOK) port(2980) connStatus(1) socket(-1) connRSToken(0x10) "
                        "resultSetBuf(0x20) owningPid(00000ABC) owningTid(1234ABCD) nextGwyTokPtr(0x30)");
}

} // namespace
