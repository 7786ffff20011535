// Every byte that a connection sends in its life, written out by hand.
#include "gateway_fixture.h"

#include <sstream>

using namespace apitest;
using namespace rixgwsim;

namespace {

// Of words: hexadecimal digits, or a text in quotes.
Bytes bytesOf(const std::string &notation)
{
    Bytes bytes;
    std::istringstream words(notation);
    for (std::string word; words >> word;) {
        if (word.front() == '\'') {
            appendRaw(bytes, word.substr(1, word.size() - 2));
            continue;
        }
        for (std::size_t i = 0; i < word.size(); i += 2)
            appendU8(bytes, static_cast<std::uint8_t>(std::stoi(word.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

using WireTest = GatewayTest;

const std::string kBean =
    "0002 'US' 0002 'en' 0000 003C 'DefaultDomain:ProdId=com.yst.rix,Activity=Control,type=Stats' ";
const std::string kSignature = "00000001 0010 'java.lang.String' ";
const std::string kHandshake = "'Gate' 00700000 00000005 00000000 00000000 00000004 'BASE' 00 00000012 "
                               "0002 'en' 0002 'GB' 00000000000000000000";
const std::string kFirstAuth = "'Gate' 00700000 00000001 00000000 00000000 00000004 'Auth' 00 00000004 00000000";
const std::string kInitial = "'Gate' 00700000 00000001 00000000 00000000 00000005 'Admin' 00 00000004 00000000";
const std::string kClose = "'Gate' 00700000 0000000A 00000000 FFFFFFFF 00000004 'BASE' 00 00000000";

// Each second request of a pair sends back the version, message id (in the place of the result), security and server
// version of the reply before it; the first one of a pair, and the close, start afresh.
TEST_F(WireTest, RequestsAreTheseBytesAndEchoTheGateway)
{
    Options options = smallOptions();
    options.identity.flowVersion = 0x00810203;
    options.identity.messageId = 0x11;
    options.identity.messageIdStep = 0x01000010;
    options.identity.security = 0xA5;
    options.identity.serverVersion = -0x0EFDFCFC;
    options.identity.activeProtocolMap = -0.1;
    options.faults.pieceSize = 1; // however the replies arrive
    options.faults.pieceGap = std::chrono::microseconds(5);
    const std::string head = "'Gate' 00810203 00000001 00000000";
    const std::string name = "00000005 'Admin' A5 ";
    const std::string secondAuth = head + "01000021 00000004 'Auth' A5 00000014 ";
    const std::string query = "0009 'GET_STATS' 00000001 ACED000574 0003 'a:b' " + kSignature;
    const std::string all = "00000001 ACED000574 0000 " + kSignature;
    const std::vector<std::string> expected = {
        kHandshake,
        kFirstAuth,
        secondAuth + "00000001 BFB999999999999A F1020304 00000000",
        kInitial,
        head + "03000041" + name + "0000005E 00000001 F1020304 00000052" + kBean + "0008 'protocol'",
        kInitial,
        head + "05000061" + name + "00000083 00000005 F1020304 00000077" + kBean + query,
        kInitial,
        head + "07000081" + name + "0000007F 00000005 F1020304 00000073" + kBean + "0008 'STAT_IDS' " + all,
        kInitial,
        head + "090000A1" + name + "00000086 00000005 F1020304 0000007A" + kBean + "000F 'RESOURCE_GROUPS' " + all,
        kClose};
    open(options);
    ask(kStatsById, "a:b");
    ask(kIds);
    ask(kGroupIds);
    EXPECT_EQ(STAPI_OK, closeGatewayConnection(&gateway));
    const std::vector<Request> sent = simulator->requests();
    ASSERT_EQ(expected.size(), sent.size());
    for (std::size_t i = 0; i < sent.size(); ++i)
        EXPECT_EQ(bytesOf(expected[i]), sent[i].bytes) << i;
}

} // namespace
