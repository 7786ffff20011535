// Opening and closing connections: argument checks, the handle's life, and each way in which a gateway can fail.
#include "gateway_fixture.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <atomic>

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
    void expectRefusal(testing::Matcher<int> code, int port, const std::string &host = "127.0.0.1")
    {
        if (simulator) waitUntilIdle();
        const std::ptrdiff_t before = countDescriptors();
        char unset = 0;
        auto *const unchanged = reinterpret_cast<RIX_GatewayToken_t>(&unset);
        RIX_GatewayToken_t failed = unchanged;
        char *failedVersion = &unset;
        EXPECT_THAT(openRemoteGatewayConnection(host.c_str(), port, &failed, &failedVersion), code);
        EXPECT_THAT(failed, AnyOf(unchanged, nullptr));
        EXPECT_EQ(&unset, failedVersion);
        EXPECT_EQ(nullptr, rixstats::gtListHeadPtr);
        closeAllGatewayConnections(); // should it have been opened after all
        if (simulator) waitUntilIdle();
        EXPECT_EQ(before, countDescriptors());
    }

    void expectRefusal(testing::Matcher<int> code, const Faults &faults)
    {
        simulator->setFaults(faults);
        expectRefusal(code, simulator->port());
        simulator->setFaults({});
    }

    void expectSuccess()
    {
        EXPECT_EQ(STAPI_OK, connect());
        expectUsable(gateway);
        EXPECT_EQ(STAPI_OK, closeGatewayConnection(&gateway));
    }

    static void expectUsable(RIX_GatewayToken_t token, int code = STAPI_OK)
    {
        RIX_ResultSetToken_t ids = nullptr;
        EXPECT_EQ(code, getStatIds(token, &ids));
    }
};

TEST_F(ConnectionTest, ArgumentsAreCheckedInOrder)
{
    for (const int port : {0, -1, 65536}) {
        EXPECT_EQ(STAPI_BAD_PORT, openRemoteGatewayConnection(nullptr, port, nullptr, nullptr));
        EXPECT_EQ(STAPI_BAD_PORT, openGatewayConnection(port, nullptr, nullptr));
    }
    for (const int port : {1, 65535}) {
        EXPECT_EQ(STAPI_NULL_GATEWAY_TOKEN_PTR, openRemoteGatewayConnection(nullptr, port, nullptr, nullptr));
        EXPECT_EQ(STAPI_NULL_PROTOCOL_VERSION_PTR, openRemoteGatewayConnection(nullptr, port, &gateway, nullptr));
        EXPECT_EQ(STAPI_NULL_HOSTNAME, openRemoteGatewayConnection(nullptr, port, &gateway, &version));
        EXPECT_EQ(STAPI_NULL_GATEWAY_TOKEN_PTR, openGatewayConnection(port, nullptr, nullptr));
        EXPECT_EQ(STAPI_NULL_PROTOCOL_VERSION_PTR, openGatewayConnection(port, &gateway, nullptr));
    }
    EXPECT_EQ(STAPI_NULL_GATEWAY_TOKEN_PTR, closeGatewayConnection(nullptr));
    EXPECT_EQ(STAPI_NULL_GATEWAY_TOKEN, closeGatewayConnection(&gateway));
    EXPECT_EQ(STAPI_OK, closeAllGatewayConnections());
    char *again = nullptr;
    EXPECT_EQ(STAPI_NULL_OUTPUT_PTR, getStatsAPIVersion(nullptr));
    EXPECT_EQ(STAPI_OK, getStatsAPIVersion(&version));
    EXPECT_EQ(STAPI_OK, getStatsAPIVersion(&again));
    EXPECT_STREQ("1_1_0_1", version);
    EXPECT_EQ(version, again);
}

TEST_F(ConnectionTest, HandleLivesFromOpenToClose)
{
    open();
    EXPECT_STREQ("2_0", version);
    EXPECT_TRUE(fcntl(gateway->socketDescriptor, F_GETFD) & FD_CLOEXEC);
    EXPECT_FALSE(fcntl(gateway->socketDescriptor, F_GETFL) & O_NONBLOCK);
    int keepAlive = 0;
    int noDelay = 0;
    socklen_t size = sizeof keepAlive;
    getsockopt(gateway->socketDescriptor, SOL_SOCKET, SO_KEEPALIVE, &keepAlive, &size);
    getsockopt(gateway->socketDescriptor, IPPROTO_TCP, TCP_NODELAY, &noDelay, &size);
    EXPECT_TRUE(keepAlive != 0 && noDelay != 0);

    RIX_GatewayToken_t stale = gateway;
    EXPECT_EQ(STAPI_OK, closeGatewayConnection(&gateway));
    EXPECT_EQ(nullptr, gateway);
    EXPECT_EQ(STAPI_NULL_GATEWAY_TOKEN, closeGatewayConnection(&gateway));
    EXPECT_EQ(STAPI_GATEWAY_TOKEN_NOT_FOUND, closeGatewayConnection(&stale)); // the list is empty
    EXPECT_NE(nullptr, stale);
    ASSERT_EQ(STAPI_OK, connect());
    RIX_GatewayToken_t unknown = reinterpret_cast<RIX_GatewayToken_t>(&version);
    EXPECT_EQ(STAPI_GATEWAY_TOKEN_NOT_FOUND, closeGatewayConnection(&unknown)); // the list is not
    EXPECT_EQ(STAPI_OK, inThread([this] { return closeGatewayConnection(&gateway); }));
    EXPECT_EQ(nullptr, gateway);
}

TEST_F(ConnectionTest, ConnectionsCloseInAnyOrder)
{
    start();
    for (const std::vector<std::size_t> &order : {std::vector<std::size_t>{1, 2, 0}, {2, 1, 0}, {0, 1, 2}}) {
        RIX_GatewayToken_t handles[3] = {};
        for (RIX_GatewayToken_t &handle : handles)
            ASSERT_EQ(STAPI_OK, openGatewayConnection(simulator->port(), &handle, &version));
        for (const std::size_t closed : order) {
            EXPECT_EQ(STAPI_OK, closeGatewayConnection(&handles[closed]));
            expectSuccess(); // of one behind those that are left
            for (RIX_GatewayToken_t handle : handles)
                expectUsable(handle, handle != nullptr ? STAPI_OK : STAPI_NULL_GATEWAY_TOKEN);
        }
    }
}

TEST_F(ConnectionTest, CloseAllClosesEveryThreadsConnectionsBut256AtMost)
{
    start();
    for (const std::size_t count : {2u, 255u, 256u, 258u}) {
        std::vector<RIX_GatewayToken_t> handles(count);
        for (RIX_GatewayToken_t &handle : handles)
            ASSERT_EQ(STAPI_OK, openGatewayConnection(simulator->port(), &handle, &version));
        const int code = count < 256 ? STAPI_OK : STAPI_GTL_CORRUPT;
        EXPECT_EQ(code, inThread([] { return closeAllGatewayConnections(); }));
        for (std::size_t i = 0; i < count; ++i)
            expectUsable(handles[i], i < 256 ? STAPI_GATEWAY_TOKEN_NOT_FOUND : STAPI_OK);
        EXPECT_EQ(STAPI_OK, closeAllGatewayConnections());
        EXPECT_EQ(nullptr, rixstats::gtListHeadPtr);
        waitUntilIdle();
    }
}

TEST_F(ConnectionTest, ConnectFailuresHaveTheirOwnCodes)
{
    const int bound = socket(AF_INET, SOCK_STREAM, 0); // nothing listens behind it, and nobody else gets the port
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ASSERT_EQ(0, bind(bound, reinterpret_cast<sockaddr *>(&address), size));
    ASSERT_EQ(0, getsockname(bound, reinterpret_cast<sockaddr *>(&address), &size));
    expectRefusal(STAPI_CONNECTION_REFUSED, ntohs(address.sin_port));
    close(bound);
    // Too long for a label of a name: refused without asking the network.
    expectRefusal(STAPI_HOST_NOT_FOUND, 1, std::string(70, 'x') + ".invalid");
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
    const auto lostOrFailed = AnyOf(kLost, kFailed);
    start();
    for (const int flows : {0, 1, 2})
        expectRefusal(kRefused, dropAfter(flows));
    for (const int flows : {3, 4})
        expectRefusal(lostOrFailed, dropAfter(flows));
    // Lengths of the replies, less one: a header and the body of each.
    const std::size_t lengths[] = {33, 33 + 20, 33 + 16, 34 + 12, 34 + 9 + 7 + 2 + 2};
    for (int flow = 1; flow <= 5; ++flow)
        for (std::size_t sent = 0; sent < lengths[flow - 1]; ++sent) {
            SCOPED_TRACE("in the reply to flow " + std::to_string(flow) + " after byte " + std::to_string(sent));
            if (flow == 3 && sent >= 33 + 8) // complete but for the map, which nobody reads
                expectRefusal(lostOrFailed, dropInside(flow, sent));
            else
                expectRefusal(flow <= 3 ? kRefused : kFailed, dropInside(flow, sent));
        }
    expectSuccess();
}

constexpr int kAsItIs = 12345;

Bytes replyOf(const std::string &name, const Bytes &body, int bodyLength = kAsItIs, int nameLength = kAsItIs)
{
    Bytes reply;
    for (const int field : {0x47617465, 0x00700000, 1, 0, 0})
        appendI32(reply, field);
    appendI32(reply, nameLength == kAsItIs ? static_cast<int>(name.size()) : nameLength);
    appendRaw(reply, name);
    appendU8(reply, 0);
    appendI32(reply, bodyLength == kAsItIs ? static_cast<int>(body.size()) : bodyLength);
    reply.insert(reply.end(), body.begin(), body.end());
    return reply;
}

struct BadReply
{
    const char *what;
    int flow;
    Bytes bytes;
    int code;
};

TEST_F(ConnectionTest, MalformedRepliesEndTheOpening)
{
    const Bytes initial = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7};
    Bytes base = replyOf("BASE", {});
    base[3] ^= 1;
    Bytes admin = replyOf("Admin", initial);
    admin[0] ^= 0x80;
    const BadReply replies[] = {
        {"wrong eyecatcher", 1, base, kRefused},
        {"name one byte longer", 1, replyOf("BASES", {}), kRefused},
        {"length of the name one too small", 1, replyOf("BASE", {}, 0, 3), kRefused},
        {"length of the name negative", 2, replyOf("Auth", Bytes(20), 20, -1), kRefused},
        {"length of the name huge", 2, replyOf("Auth", Bytes(20), 20, INT32_MAX), kRefused},
        {"no body", 2, replyOf("Auth", {}), kRefused},
        {"negative body", 2, replyOf("Auth", {}, -1), kRefused},
        {"no server version", 2, replyOf("Auth", Bytes(19)), kRefused},
        {"refused, the rest in place", 2, replyOf("Auth", {0, 0, 0, 0, 0, 0, 0, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7}),
         kRefused},
        {"code cut", 3, replyOf("Auth", {0, 0, 0, 1, 0, 0, 0}), kRefused},
        {"wrong eyecatcher", 4, admin, kFailed},
        {"name one byte shorter", 4, replyOf("Auth", initial), kFailed},
        {"no body", 4, replyOf("Admin", {}), kFailed},
        {"most negative body", 4, replyOf("Admin", {}, INT32_MIN), kFailed},
        {"server version cut", 4, replyOf("Admin", Bytes(11)), kFailed},
        {"refused, the rest in place", 4, replyOf("Admin", {0, 0, 0, 0, 0, 0, 0, 9, 0, 0, 0, 7}), kFailed},
        {"exception with call data", 5,
         replyOf("Admin", {0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0xAC, 0xED, 0, 5, 0x74, 0, 1, '2'}), kFailed},
        {"no exception flag", 5, replyOf("Admin", {0, 0, 0, 1, 0, 0, 0, 0}), kFailed},
        {"no call data", 5, replyOf("Admin", {0, 0, 0, 1, 0, 0, 0, 0, 0}), kFailed},
        {"length cut", 5, replyOf("Admin", {0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0xAC, 0xED, 0, 5, 0x74, 0}), kFailed},
        {"text cut", 5, replyOf("Admin", {0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0xAC, 0xED, 0, 5, 0x74, 0, 2, '2'}), kFailed},
        {"negative length", 5, replyOf("Admin", {0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, '2'}),
         kFailed},
        {"answer to another call", 5, replyOf("Admin", initial), kFailed},
        {"second authorisation with a code and no map", 3, replyOf("Auth", {0, 0, 0, 1, 0, 0, 0, 8}), STAPI_OK},
    };
    std::atomic<const BadReply *> current{nullptr};
    Options options = smallOptions();
    options.wholeReply = [&current](int flow, const Bytes &) -> std::optional<Bytes> {
        const BadReply *bad = current;
        return bad != nullptr && bad->flow == flow ? std::optional(bad->bytes) : std::nullopt;
    };
    start(options);
    for (const BadReply &bad : replies) {
        SCOPED_TRACE("flow " + std::to_string(bad.flow) + ": " + bad.what);
        current = &bad;
        if (bad.code != STAPI_OK) {
            expectRefusal(bad.code, simulator->port());
            current = nullptr;
        }
        expectSuccess();
    }
}

TEST_F(ConnectionTest, ProtocolVersionIsCutAt63Characters)
{
    for (const std::size_t length : {0u, 63u, 64u, 5000u}) {
        Options options = smallOptions();
        options.identity.protocolVersion.clear();
        for (std::size_t i = 0; i < length; ++i)
            options.identity.protocolVersion += static_cast<char>('0' + i % 10);
        options.identity.handshakeBody = Bytes(length); // which nobody reads
        open(options);
        EXPECT_EQ(options.identity.protocolVersion.substr(0, 63), version);
    }
}

TEST_F(ConnectionTest, DescriptorsOfAnyValueWork)
{
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, std::max<rlim_t>(limit.rlim_cur, 4096));
    setrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < 1200) GTEST_SKIP() << "so many descriptors are not allowed here";
    std::vector<int> taken = {::open("/dev/null", O_RDONLY)};
    while (taken.back() >= 0 && taken.back() < 1030)
        taken.push_back(dup(taken[0]));
    start();
    EXPECT_EQ(STAPI_OK, connect());
    EXPECT_LT(1024, gateway->socketDescriptor);
    expectUsable(gateway);
    EXPECT_EQ(STAPI_OK, closeGatewayConnection(&gateway));
    for (const int descriptor : taken)
        close(descriptor);
}

TEST_F(ConnectionTest, SignalsDoNotDisturbACall)
{
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = [](int) {}; // without SA_RESTART: waits are interrupted
    sigaction(SIGUSR1, &action, &before);
    Options options = smallOptions();
    options.faults.delay = std::chrono::milliseconds(10);
    options.faults.pieceSize = 16;
    options.faults.pieceGap = std::chrono::milliseconds(1);
    start(options);
    std::atomic<bool> done{false};
    std::thread signaller([&done, target = pthread_self()] {
        for (; !done; std::this_thread::sleep_for(std::chrono::microseconds(500)))
            pthread_kill(target, SIGUSR1);
    });
    expectSuccess();
    done = true;
    signaller.join();
    sigaction(SIGUSR1, &before, nullptr);
}

} // namespace
