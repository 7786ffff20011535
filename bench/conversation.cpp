#include "conversation.h"

#include <algorithm>
#include <csignal>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace rixbench {

static constexpr std::size_t kRoom = 64 << 20; // address space; what is not written costs nothing

static sockaddr_in localAddress(std::uint16_t port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int listenLocally(std::uint16_t *port)
{
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = localAddress(0);
    socklen_t length = sizeof address;
    require(bind(listener, reinterpret_cast<sockaddr *>(&address), length) == 0 && listen(listener, 16) == 0 &&
                getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length) == 0,
            "cannot listen on 127.0.0.1");
    *port = ntohs(address.sin_port);
    return listener;
}

int connectLocally(std::uint16_t port)
{
    const int desc = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = localAddress(port);
    const int on = 1;
    setsockopt(desc, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    setsockopt(desc, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    require(connect(desc, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0,
            "cannot connect to the peer");
    return desc;
}

void sendAll(int socket, Bytes bytes)
{
    for (std::size_t sent = 0; sent < bytes.size;) {
        const ssize_t now = send(socket, bytes.data + sent, bytes.size - sent, MSG_NOSIGNAL);
        require(now > 0, "the peer has gone");
        sent += static_cast<std::size_t>(now);
    }
}

void receiveAll(int socket, char *bytes, std::size_t size)
{
    for (std::size_t received = 0; received < size;) {
        const ssize_t now = recv(socket, bytes + received, size - received, 0);
        require(now > 0, "the peer has gone");
        received += static_cast<std::size_t>(now);
    }
}

// ---- The server

// Awaits the rest of a request of which some bytes are there, and answers it.
static void answer(int client, const Flow &flow, std::vector<char> &room, std::size_t received = 0)
{
    receiveAll(client, room.data() + received, flow.request.size - received);
    sendAll(client, flow.reply);
}

// A request to close is told from the first one of a query by its size.
static void serveConnection(int client, const Conversation &recorded, std::vector<char> &room)
{
    const Flow *query = recorded.flows + kGreetingFlows, &close = recorded.flows[kFlows - 1];
    for (int i = 0; i < kGreetingFlows; ++i)
        answer(client, recorded.flows[i], room);
    for (;;) {
        const ssize_t got = recv(client, room.data(), query->request.size, 0);
        if (got <= 0) return;
        const std::size_t received = static_cast<std::size_t>(got);
        if (received == close.request.size) {
            sendAll(client, close.reply);
        } else {
            answer(client, query[0], room, received);
            answer(client, query[1], room);
        }
    }
}

[[noreturn]] static void serve(int listener, const Conversation &recorded)
{
    std::size_t longest = 0;
    for (const Flow &flow : recorded.flows)
        longest = std::max(longest, flow.request.size);
    std::vector<char> room(longest);
    const int on = 1;
    const linger dropAtOnce = {1, 0}; // leaves no port waiting, of which thousands of connections would run out
    for (;;) {
        const int client = accept(listener, nullptr, nullptr);
        require(client >= 0, "cannot accept a connection");
        setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        setsockopt(client, SOL_SOCKET, SO_LINGER, &dropAtOnce, sizeof dropAtOnce);
        serveConnection(client, recorded, room);
        close(client);
    }
}

// Runs the work in a child process, which ends with this one.
template <class Work>
static pid_t inChild(Work work)
{
    const pid_t parent = getpid(), child = fork();
    require(child >= 0, "cannot start a process");
    if (child != 0) return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() == parent) work();
    _exit(EXIT_SUCCESS);
}

PreparedGateway::PreparedGateway(const Load &load)
{
    void *room = mmap(nullptr, kRoom, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    require(room != MAP_FAILED, "no memory for a conversation");
    recorded = static_cast<Conversation *>(room);
    char *texts = static_cast<char *>(room) + sizeof *recorded;
    int status = 0;
    waitpid(inChild([&] { record(load, recorded, texts, kRoom - sizeof *recorded); }), &status, 0);
    require(status == 0, "could not record a conversation with the simulator");

    const int listener = listenLocally(&listeningPort);
    for (pid_t &server : servers)
        server = inChild([&] { serve(listener, *recorded); });
    close(listener);
}

PreparedGateway::~PreparedGateway()
{
    for (const pid_t server : servers) {
        kill(server, SIGKILL);
        waitpid(server, nullptr, 0);
    }
    munmap(recorded, kRoom);
}

} // namespace rixbench
