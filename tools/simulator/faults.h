// Ways in which the simulated gateway misbehaves.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace rixgwsim {

// Ways to misbehave, for developing monitors against. The default is a gateway without faults.
struct Faults
{
    std::int32_t authRc = 0;                 // refuse the first authorisation request with this code
    std::int32_t gatewayRc = 0;              // answer with this result in the reply header and no body ...
    std::int32_t adminRc = 0;                // ... or this admin return code (admin flows only) ...
    bool exceptionFlag = false;              // ... or the exception flag set (get-attribute and invoke only) ...
    int faultsFromFlow = 1;                  // ... from this flow of a connection on (1 handshake; 2, 3 authorisation;
                                             //     4, 5 protocol version; 6, 7 first query; then two for each query)
    std::chrono::milliseconds delay{0};      // before every reply
    std::size_t pieceSize = 0;               // send replies in pieces of so many bytes, each a segment (0 = whole) ...
    std::chrono::microseconds pieceGap{100}; // ... with this pause, so that the client finds them one by one
    int dropAfterFlows = -1;                 // close the connection after so many answered flows (0 = after the accept)
    int dropInsideFlow = -1;                 // in the reply to this flow ...
    std::size_t dropAtByte = 0; // ... send only so many bytes, then close (0 = read the request, say nothing)
    std::size_t replySize = 0;  // call data of query replies has exactly so many bytes: items are left out or
                                //     "Filler" items added; a query that cannot be answered so is refused
};

} // namespace rixgwsim
