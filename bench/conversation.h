// A whole conversation with a gateway, byte for byte: the greeting, one query, the leave-taking. It is recorded from
// the gateway simulator, and then answered again without a look at what is asked: the server awaits as many bytes as
// the request had, and sends what was sent then.
#pragma once

#include "load.h"

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

namespace rixbench {

struct Bytes
{
    const char *data;
    std::size_t size;
};

struct Flow
{
    Bytes request;
    Bytes reply;
    std::size_t replyHeaderSize;
};

constexpr int kGreetingFlows = 5; // handshake, two authorisations, two for the protocol version
constexpr int kQueryFlows = 2;
constexpr int kFlows = kGreetingFlows + kQueryFlows + 1; // the last one closes

struct Conversation
{
    const char *queryText;
    char *replyRoom; // for the longest reply, outside of the heap
    int flowCount;
    Flow flows[kFlows];
};

// Fills the record from the simulator's answers; its bytes go to the room given.
void record(const Load &load, Conversation *conversation, char *room, std::size_t roomSize);

// Serves two connections at a time, each from a process of its own that does nothing else. Whatever it takes to record
// the conversation happens in another process too: this one's heap is left as it was.
class PreparedGateway
{
public:
    explicit PreparedGateway(const Load &load);
    ~PreparedGateway();
    PreparedGateway(const PreparedGateway &) = delete;
    PreparedGateway &operator=(const PreparedGateway &) = delete;

    std::uint16_t port() const { return listeningPort; }
    const Conversation &conversation() const { return *recorded; }

private:
    Conversation *recorded; // in memory that the processes share
    std::uint16_t listeningPort = 0;
    pid_t servers[2];
};

// A socket that listens on a free port of this machine.
int listenLocally(std::uint16_t *port);
int connectLocally(std::uint16_t port);

// Both end the program if the peer has gone.
void sendAll(int socket, Bytes bytes);
void receiveAll(int socket, char *bytes, std::size_t size);

} // namespace rixbench
