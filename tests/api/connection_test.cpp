// Opening and closing connections: argument checks, the handle's life, and each way in which a gateway can fail.
#include "gateway_fixture.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

using namespace apitest;
using namespace rixgwsim;
using testing::AnyOf;

namespace {

constexpr int kRefused = STAPI_CONNECT_FAILED;
constexpr int kFailed = STAPI_GATEWAY_EXCHANGE_FAILED;
constexpr int kLost = STAPI_COMMS_FAILURE;

class ConnectionTest : public GatewayTest
{
protected:
    // Opens a connection that must fail, and whose failure must leave nothing behind.
    void expectRefusal(testing::Matcher<int> code, const Faults &faults = {})
    {
        simulator->setFaults(faults);
        char unset = 0;
        RIX_GatewayToken_t failed = nullptr;
        char *failedVersion = &unset;
        EXPECT_THAT(openGatewayConnection(simulator->port(), &failed, &failedVersion), code);
        EXPECT_EQ(nullptr, failed);
        EXPECT_EQ(&unset, failedVersion);
        EXPECT_EQ(nullptr, rixstats::gtListHeadPtr);
        waitUntilIdle();
        simulator->setFaults({});
    }

    void expectSuccess()
    {
        EXPECT_EQ(STAPI_OK, connect());
        expectUsable(gateway);
        EXPECT_EQ(STAPI_OK, closeGatewayConnection(&gateway));
    }

    // Opens a connection to a gateway that answers this flow with such a reply.
    void expectAgainst(int answered, const Bytes &body, int announcedLength, int code, int eyecatcher = 0x47617465)
    {
        SCOPED_TRACE("flow " + std::to_string(answered) + ", body of " + std::to_string(body.size()));
        const std::string name = answered == 1 ? "BASE" : answered <= 3 ? "Auth" : "Admin";
        Bytes reply;
        for (const int field : {eyecatcher, 0x00700000, 1, 0, 0, static_cast<int>(name.size())})
            appendI32(reply, field);
        appendRaw(reply, name);
        appendU8(reply, 0);
        appendI32(reply, announcedLength);
        reply.insert(reply.end(), body.begin(), body.end());
        Options options = smallOptions();
        options.wholeReply = [&](int flow, const Bytes &) {
            return flow == answered ? std::optional(reply) : std::nullopt;
        };
        start(options);
        code == STAPI_OK ? expectSuccess() : expectRefusal(code);
    }

    static void expectUsable(RIX_GatewayToken_t token, int code = STAPI_OK)
    {
        RIX_ResultSetToken_t ids = nullptr;
        EXPECT_EQ(code, getStatIds(token, &ids));
    }
};

TEST_F(ConnectionTest, ArgumentsAreCheckedInOrder)
{
    for (const int port : {0, -1, 65536})
        EXPECT_EQ(STAPI_BAD_PORT, openRemoteGatewayConnection(nullptr, port, nullptr, nullptr));
    for (const int port : {1, 65535}) {
        EXPECT_EQ(STAPI_NULL_GATEWAY_TOKEN_PTR, openRemoteGatewayConnection(nullptr, port, nullptr, nullptr));
        EXPECT_EQ(STAPI_NULL_PROTOCOL_VERSION_PTR, openRemoteGatewayConnection(nullptr, port, &gateway, nullptr));
        EXPECT_EQ(STAPI_NULL_HOSTNAME, openRemoteGatewayConnection(nullptr, port, &gateway, &version));
    }
}

TEST_F(ConnectionTest, HandleLivesFromOpenToClose)
{
    open();
    EXPECT_STREQ("2_0", version);
    EXPECT_EQ(STAPI_OK, getStatsAPIVersion(&version));
    EXPECT_STREQ("1_1_0_1", version);
    EXPECT_TRUE(fcntl(gateway->socketDescriptor, F_GETFD) & FD_CLOEXEC);
    EXPECT_FALSE(fcntl(gateway->socketDescriptor, F_GETFL) & O_NONBLOCK);
    int keepAlive = 0, noDelay = 0;
    socklen_t size = sizeof keepAlive;
    getsockopt(gateway->socketDescriptor, SOL_SOCKET, SO_KEEPALIVE, &keepAlive, &size);
    getsockopt(gateway->socketDescriptor, IPPROTO_TCP, TCP_NODELAY, &noDelay, &size);
    EXPECT_TRUE(keepAlive != 0 && noDelay != 0);

    RIX_GatewayToken_t stale = gateway;
    EXPECT_EQ(STAPI_OK, closeGatewayConnection(&gateway));
    EXPECT_EQ(nullptr, gateway);
    EXPECT_EQ(STAPI_GATEWAY_TOKEN_NOT_FOUND, closeGatewayConnection(&stale)); // the list is empty
    EXPECT_NE(nullptr, stale);
    ASSERT_EQ(STAPI_OK, connect());
    RIX_GatewayToken_t unknown = reinterpret_cast<RIX_GatewayToken_t>(&version);
    EXPECT_EQ(STAPI_GATEWAY_TOKEN_NOT_FOUND, closeGatewayConnection(&unknown)); // the list is not
    EXPECT_EQ(STAPI_OK, inThread([this] { return closeGatewayConnection(&gateway); }));
}

TEST_F(ConnectionTest, ConnectionsCloseInAnyOrder)
{
    start();
    RIX_GatewayToken_t handles[3] = {};
    for (RIX_GatewayToken_t &handle : handles)
        ASSERT_EQ(STAPI_OK, openGatewayConnection(simulator->port(), &handle, &version));
    for (const std::size_t closed : {1u, 2u, 0u}) { // in the middle, at the end, at the start of the list
        EXPECT_EQ(STAPI_OK, closeGatewayConnection(&handles[closed]));
        expectSuccess(); // of one behind those that are left
        for (RIX_GatewayToken_t handle : handles)
            expectUsable(handle, handle != nullptr ? STAPI_OK : STAPI_NULL_GATEWAY_TOKEN);
    }
}

TEST_F(ConnectionTest, CloseAllClosesEveryThreadsConnectionsBut256AtMost)
{
    start();
    for (const std::size_t count : {255u, 256u, 258u}) {
        std::vector<RIX_GatewayToken_t> handles(count);
        for (RIX_GatewayToken_t &handle : handles)
            ASSERT_EQ(STAPI_OK, openGatewayConnection(simulator->port(), &handle, &version));
        const int code = count < 256 ? STAPI_OK : STAPI_GTL_CORRUPT;
        EXPECT_EQ(code, inThread([] { return closeAllGatewayConnections(); }));
        for (std::size_t i = 0; i < count; ++i)
            expectUsable(handles[i], i < 256 ? STAPI_GATEWAY_TOKEN_NOT_FOUND : STAPI_OK);
        EXPECT_EQ(STAPI_OK, closeAllGatewayConnections());
        waitUntilIdle();
    }
}

TEST_F(ConnectionTest, RefusalsByTheGatewayEndTheOpening)
{
    const std::pair<Faults, int> rows[] = {
        {refusal(1, 7), kRefused},         {refusal(1, -1), kRefused}, {refusal(2, 0, 0, false, 8), kRefused},
        {refusal(2, 7), kRefused},         {refusal(3, -1), kRefused}, {refusal(4, 7), kFailed},
        {refusal(4, -1), kLost},           {refusal(4, -4), kFailed},  {refusal(4, 0xF004), kFailed},
        {refusal(4, 0, 9), kFailed},       {refusal(5, -1), kLost},    {refusal(5, 0, 9), kFailed},
        {refusal(5, 0, 0, true), kFailed},
    };
    start();
    for (const auto &[faults, code] : rows) {
        SCOPED_TRACE(std::to_string(faults.faultsFromFlow) + " " + std::to_string(faults.gatewayRc));
        simulator->clearRequests();
        expectRefusal(code, faults);
        // No question after the refusal, but a good-bye.
        EXPECT_EQ(static_cast<std::size_t>(faults.faultsFromFlow) + 1, simulator->requests().size());
        expectSuccess();
    }
}

TEST_F(ConnectionTest, LostConnectionsEndTheOpening)
{
    start();
    for (int flows = 0; flows < 5; ++flows)
        expectRefusal(flows < 3 ? testing::Matcher<int>(kRefused) : AnyOf(kLost, kFailed), dropAfter(flows));
    // Lengths of the replies, less one: a header and the body of each, the third without its map, which nobody reads.
    const std::size_t lengths[] = {33, 33 + 20, 33 + 8, 34 + 12, 34 + 9 + 7 + 2 + 2};
    for (int flow = 1; flow <= 5; ++flow)
        for (std::size_t sent = 0; sent < lengths[flow - 1]; ++sent) {
            SCOPED_TRACE("in the reply to flow " + std::to_string(flow) + " after byte " + std::to_string(sent));
            expectRefusal(flow <= 3 ? kRefused : kFailed, dropInside(flow, sent));
        }
    expectSuccess();
}

TEST_F(ConnectionTest, MalformedRepliesEndTheOpening)
{
    expectAgainst(1, {}, 0, kRefused, 0x47617466);
    expectAgainst(2, {}, 0, kRefused);
    expectAgainst(2, {}, -1, kRefused);
    expectAgainst(2, {0, 0, 0, 0, 0, 0, 0, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7}, 20, kRefused); // the rest in place
    expectAgainst(4, {}, 0, kFailed);
    expectAgainst(4, Bytes(11), 11, kFailed); // server version cut
    expectAgainst(5, Bytes(12), 12, kFailed); // answer to another call
    const Bytes exception = {0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0xAC, 0xED, 0, 5, 0x74, 0, 1, '2'};
    expectAgainst(5, exception, 18, kFailed);
    expectAgainst(5, {0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, '2'}, 18, kFailed); // negative length
    expectAgainst(3, {0, 0, 0, 1, 0, 0, 0, 8}, 8, STAPI_OK); // second authorisation with a code and no map
}

TEST_F(ConnectionTest, ProtocolVersionIsCutAt63Characters)
{
    std::ifstream genuine(TEST_DATA_DIR "/streams/attr-version.bin", std::ios::binary);
    EXPECT_EQ(writeAttribute("2_0"), Bytes(std::istreambuf_iterator<char>(genuine), {})) << "as the simulator writes";
    for (const std::size_t length : {0u, 63u, 64u, 5000u}) {
        Options options = smallOptions();
        options.identity.protocolVersion = std::string(length, '2');
        options.identity.handshakeBody = Bytes(length); // which nobody reads
        open(options);
        EXPECT_EQ(options.identity.protocolVersion.substr(0, 63), version);
    }
}

} // namespace
