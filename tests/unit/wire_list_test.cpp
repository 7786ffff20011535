// Bytes on the wire, flow headers that are refused, and the limits of the Gateway Token List.
#include "stapi_rix_call.h"
#include "stapi_rix_flowarea.h"
#include "stapi_rix_gwytok.h"
#include "stapi_rix_socketcomms.h"
#include "unit_support.h"

#include <sys/socket.h>
#include <thread>
#include <unistd.h>
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
    EXPECT_EQ(after(u16(0x7FFF), readLength), 0x7FFF);
    EXPECT_EQ(after(u16(0x8000), readLength), -1);
    for (const uint32_t count : {3u, 4u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
        EXPECT_EQ(after(u32(count), [](Reader &in) { return readCount(in, 4); }), count == 3 ? 3 : -1) << count;
    for (const int size : {0, 1, 12, 13, -1, INT32_MAX, INT32_MIN})
        EXPECT_EQ(after("", [size](Reader &in) { return readBlock(in, size).length; }),
                  size >= 0 && size <= 12 ? size : -1);
}

TEST(FlowHeader, WithMissingBytesOrANameOfAnotherLengthIsRefused)
{
    const auto header = [](uint32_t nameLength, const std::string &name) {
        return "Gate" + u32(1) + u32(2) + u32(3) + u32(4) + u32(nameLength) + name + "s" + u32(6);
    };
    const std::string good = header(5, "Admin");
    std::vector<std::string> bad = {header(4, "BASE"), header(6, "Admins"), header(0, "Admin"),
                                    header(0xFFFFFFFF, "Admin")};
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

// A request that no socket buffer holds: the time limit ends the sending, and a peer that reads gets every byte.
TEST(Flow, SendsWithinTheTimeLimit)
{
    for (const bool reads : {false, true}) {
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        std::string got;
        std::thread peer([&, reads] {
            char piece[4096];
            for (ssize_t size = 1; reads && size > 0;) {
                size = recv(ends[1], piece, sizeof piece, 0);
                got.append(piece, size > 0 ? static_cast<size_t>(size) : 0);
            }
        });
        constexpr int SIZE = 4 << 20;
        char *data = newRequestArea(SIZE);
        GatewayRequest header = {};
        ReasonCodes reasons = {};
        ASSERT_EQ(rixSetTimeLimit(reads ? 2000 : 100), STAPI_OK);
        const GatewayCall call;
        EXPECT_EQ(flow(ends[0], SIZE, &data, "BASE", &header, &reasons), -1) << "there is no answer";
        EXPECT_TRUE(callState.limitReached);
        EXPECT_EQ(reasons.socketErrno, reads ? 0 : ETIMEDOUT) << "of the sending";
        shutdown(ends[0], SHUT_RDWR);
        peer.join();
        EXPECT_EQ(got.size(), reads ? size_t{SIZE} : 0u);
        freeFlowArea(data);
        close(ends[0]);
        close(ends[1]);
    }
    EXPECT_EQ(rixSetTimeLimit(0), STAPI_OK);
}

TEST(TokenList, IsSearchedForTwoHundredAndFiftySixStepsAndNotChangedWithoutATail)
{
    initTrace();
    initGTL();
    std::vector<Internal_GatewayToken_t> tokens(300);
    Internal_GatewayToken_t stranger = {}, *parent = nullptr;
    for (auto &token : tokens)
        ASSERT_EQ(chainGatewayToken(&token), STAPI_OK);
    EXPECT_EQ(findGatewayToken(&tokens[256], &parent), GTL_FOUND);
    EXPECT_EQ(parent, &tokens[255]);
    EXPECT_EQ(findGatewayToken(&tokens[257], nullptr), GTL_RUNAWAY);
    tokens[255].nextGwyTokPtr = nullptr;
    EXPECT_EQ(findGatewayToken(&stranger, nullptr), GTL_NOT_FOUND);
    tokens[255].nextGwyTokPtr = &tokens[0]; // a cycle ends too
    EXPECT_EQ(findGatewayToken(&stranger, nullptr), GTL_RUNAWAY);
    gtListTailPtr = nullptr;
    EXPECT_EQ(chainGatewayToken(&stranger), STAPI_GTL_CORRUPT);
    gtListHeadPtr = nullptr;
}

} // namespace
