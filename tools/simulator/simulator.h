// A gateway to talk to: listens on a TCP port and answers the statistics flow protocol on any number of connections at
// once, each on a thread of its own. It checks every byte that it receives; a request that does not follow the protocol
// is explained in lastProtocolError() and its connection is closed. Written apart from the client library, so that a
// mistake in one shows against the other.
//
//   rixgwsim::Simulator gateway{rixgwsim::Options{}};
//   gateway.start();
//   ... connect to 127.0.0.1, gateway.port() ...
//
// An empty query gives one response for the element "*ALL*"; any other gives one response for each of its
// colon-separated elements. A group's id stands for all of the group, a statistic's id for that statistic; for
// RESOURCE_GROUPS either gives the group. An element that names neither fails with Options::unknownElementCode.
#pragma once

#include "catalogue.h"
#include "faults.h"
#include "object_stream.h"
#include "scenario.h"
#include "wire.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace rixgwsim {

// What the gateway says about itself, and what the client must send back.
struct GatewayIdentity
{
    std::int32_t flowVersion = 0x00700000;
    std::int32_t messageId = 0;     // in the reply to a connection's first flow ...
    std::int32_t messageIdStep = 0; // ... and this much more in each further reply
    std::int32_t serverVersion = 7;
    double activeProtocolMap = 5.25;
    double protocolReturnMap = 1.5;
    std::uint8_t security = 0;
    std::string protocolVersion = "2_0";
    Bytes handshakeBody; // of the reply to the handshake, which no client looks at
};

// One request as it arrived. What a request does not have is empty, or -1 for callType.
struct Request
{
    int connection = 0; // 1 for the first connection accepted
    int flow = 0;       // 1 for the first flow of the connection
    Bytes bytes;        // header and body; of a refused request what was read of it
    std::int32_t callType = -1;
    std::string attribute;
    std::string action;
    std::string argument;
};

struct Options
{
    std::string address = "127.0.0.1"; // numeric, version 4 or 6
    std::uint16_t port = 0;            // 0 = any free one
    std::uint64_t seed = 1;
    // The simulated gateway has been up for a little more than an hour when it starts. With the fixed clock it started
    // at a fixed date, and time stands still but for one step after each answered GET_STATS of whatever connection.
    bool fixedClock = false;
    std::chrono::milliseconds fixedClockStep{1000};
    Catalogue catalogue = builtInCatalogue();
    Faults faults;     // of every connection and flow ...
    Scenario scenario; // ... and those of single ones, which go before
    GatewayIdentity identity;
    StreamStyle stream;
    std::int32_t unknownElementCode = -1;
    std::string allElement = "*ALL*";
    bool recordRequests = true; // false for programs that run for long: requests() stays empty

    // The hooks below run on the connections' threads, several at a time; they must not call stop().
    std::function<std::optional<Bytes>(const Request &)>
        callData; // replaces the call data of a get-attribute or invoke
    std::function<std::optional<Bytes>(int flowNumber, const Bytes &request)> wholeReply; // replaces header and body
    std::function<void(const std::string &)> onProtocolError;
    std::function<void(const std::string &)> onFlow; // one line for each connection and each flow
};

class Simulator
{
public:
    explicit Simulator(Options options); // throws std::invalid_argument for faults that cannot be
    ~Simulator();
    Simulator(const Simulator &) = delete;
    Simulator &operator=(const Simulator &) = delete;

    void start(); // throws std::runtime_error (std::system_error where the system gave a reason)
    void stop();  // ends every connection at once, joins every thread; may be started again

    std::string address() const;
    std::uint16_t port() const; // of the latest start

    // Empty while every request was right; otherwise which field of which flow was wrong, expected and received. A
    // request that could not be answered for another reason (a reply size, a throwing hook) is told here too.
    std::string lastProtocolError() const;

    std::vector<Request> requests() const; // all so far; a request is there before its reply is sent
    void clearRequests();
    std::size_t openConnections() const;

    void setFaults(const Faults &faults); // from the next request on; throws like the constructor

private:
    class Server;
    std::unique_ptr<Server> server;
};

} // namespace rixgwsim
