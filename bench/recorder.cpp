// Records a conversation of the library with the gateway simulator, through a relay between the two.
#include "conversation.h"

#include "simulator.h"

#include <algorithm>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace rixbench {

namespace {

constexpr std::size_t kUpToNameLength = 24;
constexpr std::size_t kBehindName = 5; // the security byte, and the length of the body

std::size_t lengthAt(const char *bytes)
{
    std::uint32_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return ntohl(word);
}

class Recorder
{
public:
    Recorder(Conversation *theConversation, char *room, std::size_t roomSize)
        : conversation(theConversation), next(room), left(roomSize)
    {
    }

    void relay(int client, int gateway)
    {
        for (char first = 0; recv(client, &first, 1, MSG_PEEK) == 1;) {
            require(conversation->flowCount < kFlows, "the conversation has more flows than expected");
            Flow &flow = conversation->flows[conversation->flowCount++];
            std::size_t headerSize = 0;
            flow.request = relayMessage(client, gateway, &headerSize);
            flow.reply = relayMessage(gateway, client, &flow.replyHeaderSize);
        }
    }

    void reserveReplyRoom()
    {
        std::size_t longest = 0;
        for (const Flow &flow : conversation->flows)
            longest = std::max(longest, flow.reply.size);
        conversation->replyRoom = reserve(longest);
    }

    const char *keepText(const std::string &text)
    {
        char *kept = reserve(text.size() + 1);
        std::memcpy(kept, text.c_str(), text.size() + 1);
        return kept;
    }

private:
    // A message is its header, which holds the name of the request, and a body.
    Bytes relayMessage(int from, int to, std::size_t *headerSize)
    {
        const char *start = receive(from, kUpToNameLength);
        const std::size_t restOfHeader = lengthAt(start + kUpToNameLength - 4) + kBehindName;
        const char *rest = receive(from, restOfHeader);
        const std::size_t bodySize = lengthAt(rest + restOfHeader - 4);
        receive(from, bodySize);
        *headerSize = kUpToNameLength + restOfHeader;
        const Bytes message = {start, *headerSize + bodySize};
        sendAll(to, message);
        return message;
    }

    const char *receive(int from, std::size_t size)
    {
        char *bytes = reserve(size);
        receiveAll(from, bytes, size);
        return bytes;
    }

    char *reserve(std::size_t size)
    {
        require(size <= left, "the conversation is longer than the room for it");
        char *reserved = next;
        next += size;
        left -= size;
        return reserved;
    }

    Conversation *const conversation;
    char *next;
    std::size_t left;
};

void converse(std::uint16_t port, Query query, const char *text)
{
    RIX_GatewayToken_t gateway = nullptr;
    RIX_ResultSetToken_t resultSet = nullptr;
    char *version = nullptr;
    require(openGatewayConnection(port, &gateway, &version) == STAPI_OK, "cannot open a connection to record");
    require(ask(query, gateway, text, &resultSet) == STAPI_OK, "cannot query to record");
    require(closeGatewayConnection(&gateway) == STAPI_OK, "cannot close the recorded connection");
}

} // namespace

void record(const Load &load, Conversation *conversation, char *room, std::size_t roomSize)
{
    Recorder recorder(conversation, room, roomSize);
    rixgwsim::Options options;
    options.seed = seed();
    options.fixedClock = true;
    options.catalogue = makeCatalogue(load);
    const char *text = conversation->queryText = recorder.keepText(queryText(load, options.catalogue));
    rixgwsim::Simulator simulator(std::move(options));
    simulator.start();

    std::uint16_t port = 0;
    const int listener = listenLocally(&port);
    std::thread relay([&] {
        const int client = accept(listener, nullptr, nullptr), gateway = connectLocally(simulator.port());
        recorder.relay(client, gateway);
        close(client);
        close(gateway);
    });
    converse(port, load.query, text);
    relay.join();
    close(listener);
    simulator.stop();
    require(simulator.lastProtocolError().empty(), simulator.lastProtocolError().c_str());
    require(conversation->flowCount == kFlows, "the conversation has fewer flows than expected");
    recorder.reserveReplyRoom();
}

} // namespace rixbench
