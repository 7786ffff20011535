// The yardstick of queries: the bytes of a recorded conversation sent and received by the very system calls that a flow
// needs, and nothing else.
#pragma once

#include "conversation.h"

#include <sys/select.h>
#include <unistd.h>

namespace rixbench {

class BareClient
{
public:
    explicit BareClient(const PreparedGateway &gateway)
        : conversation(gateway.conversation()), desc(connectLocally(gateway.port()))
    {
        for (int i = 0; i < kGreetingFlows; ++i)
            exchange(conversation.flows[i]);
    }
    ~BareClient()
    {
        exchange(conversation.flows[kFlows - 1]);
        close(desc);
    }
    BareClient(const BareClient &) = delete;
    BareClient &operator=(const BareClient &) = delete;

    void query()
    {
        for (int i = 0; i < kQueryFlows; ++i)
            exchange(conversation.flows[kGreetingFlows + i]);
    }

private:
    void exchange(const Flow &flow)
    {
        sendAll(desc, flow.request);
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(desc, &readable);
        require(select(desc + 1, &readable, nullptr, nullptr, nullptr) == 1, "waiting for a reply failed");
        receiveAll(desc, conversation.replyRoom, flow.replyHeaderSize);
        receiveAll(desc, conversation.replyRoom + flow.replyHeaderSize, flow.reply.size - flow.replyHeaderSize);
    }

    const Conversation &conversation;
    const int desc;
};

} // namespace rixbench
