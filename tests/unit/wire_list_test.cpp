// Bytes on the wire, flow headers that are refused, and the limits of the Gateway Token List.
#include "stapi_rix_diag.h"
#include "stapi_rix_gwytok.h"
#include "stapi_rix_socketcomms.h"
#include "unit_support.h"

#include <gmock/gmock.h>
#include <vector>

using namespace rixstats;
using namespace unit;

namespace {

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
    EXPECT_EQ(after(u32(3), count), 3);
    for (const uint32_t tooMany : {4u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
        EXPECT_EQ(after(u32(tooMany), count), -1) << tooMany;
    for (const int size : {0, 1, 12, 13, -1, INT32_MAX, INT32_MIN})
        EXPECT_EQ(after("", [size](Reader &in) { return readBlock(in, size).length; }),
                  size >= 0 && size <= 12 ? size : -1);
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
        GatewayRequest record = {};
        EXPECT_FALSE(populateHeader(in, "Admin", &record));
        EXPECT_EQ(record.messageId, 0);
    }
}

class TokenList : public testing::Test
{
protected:
    TokenList()
    {
        initTrace();
        initGTL();
    }
    ~TokenList() override { gtListHeadPtr = gtListTailPtr = nullptr; }
};

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
    tokens[255].nextGwyTokPtr = nullptr;
    EXPECT_EQ(findGatewayToken(&stranger, nullptr), GTL_NOT_FOUND);
    tokens[255].nextGwyTokPtr = &tokens[0]; // a cycle ends too
    EXPECT_EQ(findGatewayToken(&stranger, nullptr), GTL_RUNAWAY);
}

TEST_F(TokenList, WithoutATailIsCorrupt)
{
    Internal_GatewayToken_t head = {}, added = {};
    gtListHeadPtr = &head;
    EXPECT_EQ(chainGatewayToken(&added), STAPI_GTL_CORRUPT);
    EXPECT_EQ(head.nextGwyTokPtr, nullptr);
}

} // namespace
