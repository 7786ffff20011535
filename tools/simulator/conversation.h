// One client's side of the protocol: which request must come next and with which bytes, and the reply to it. Bytes in,
// bytes out; the socket is elsewhere.
#pragma once

#include "request_check.h"
#include "simulator.h"

#include <cstddef>
#include <functional>
#include <string>

namespace rixgwsim {

class Conversation
{
public:
    // `timeOfQuery` gives the time of the values of each answered GET_STATS. The options are kept by reference.
    Conversation(int number, const Options &theOptions, std::function<GatewayTime()> timeOfQuery);

    int flow() const { return flowNumber; } // of the request that is being received, or was answered last
    Moment moment() const;                  // where that stands

    void beginRequest();

    // How many more bytes belong to the request of which these have arrived; 0 when it is whole. Throws ProtocolError
    // as soon as what has arrived is wrong.
    std::size_t bytesWanted(const Bytes &request);

    // The whole request, taken apart.
    const Request &current() const { return request; }

    // The reply to the request just checked. What it says decides which request must come next.
    Bytes answer(const Faults &faults);

    bool closed() const { return step == Step::closed; } // the client has taken its leave

    std::string flowName() const; // as in "connection 1, flow 2 (first authorisation request)"

private:
    enum class Step
    {
        handshake,
        firstAuth,
        secondAuth,
        initialAdmin,
        adminCall,
        closed
    };

    struct FlowRules; // what every request of a kind has in common

    // What the client must send back of the latest reply.
    struct Echo
    {
        std::int32_t flowVersion = 0;
        std::int32_t messageId = 0;
        std::uint8_t security = 0;
        Bytes protocolMap = Bytes(8); // activeProtocolMap
        std::int32_t serverVersion = 0;
    };

    bool echoes() const { return step == Step::secondAuth || step == Step::adminCall; }
    const FlowRules &rules() const;
    void checkHeaderStart(const Bytes &bytes);
    void checkHeaderRest(const Bytes &bytes);
    void checkBody(const Bytes &bytes);
    void checkAdminCall(FieldReader &body, std::size_t length);
    void checkInvoke(FieldReader &body);
    Bytes ordinaryReply(const Faults &faults);
    Bytes replyBody(const Faults &faults, bool faulty);
    Bytes adminBody(const Faults &faults, bool faulty);
    Bytes callData(const Faults &faults);
    bool accepts(const Bytes &reply) const;
    void learnFrom(const Bytes &reply);
    void advance(bool accepted);

    const int connection;
    const Options &options;
    const std::function<GatewayTime()> queryTime;
    int flowNumber = 0;
    int queryNumber = 0; // of the latest invoke
    Step step = Step::handshake;
    bool closing = false; // the request at hand is the close request
    Echo echo;
    Request request;
};

} // namespace rixgwsim
