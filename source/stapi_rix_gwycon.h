// Opens and closes the TCP connection to a gateway, greetings included. Calls the flows and the trace facility.
#ifndef STAPI_RIX_GWYCON_H
#define STAPI_RIX_GWYCON_H

#include "stapi_rix_socketcomms.h"

namespace rixstats {

// Results of connecting. Besides these it returns the results of the authorisation flows as they are.
constexpr int CONNECT_FAILED = -100;
constexpr int CONNECT_HOST_NOT_FOUND = -101;
constexpr int CONNECT_SOCKET_FAILED = -102;
constexpr int CONNECT_TIMED_OUT = -103;
constexpr int CONNECT_REFUSED = -104;
constexpr int CONNECT_UNREACHABLE = -105;

// Connects within 60 seconds, greets and authorises. *socketDescriptorPtr may hold an open socket on failure too: it is
// the caller's to close.
int connectToGateway(int port, const char *hostname, int *socketDescriptorPtr);

// Exchanges the close flow (and so waits for the gateway, or for the connection to drop), then closes the socket.
// Returns the result of close().
int closeConnection(const int *socketDescriptorPtr);

// The two authorisation flows.
int authorizeConnection(int socketDescriptor, ReasonCodes *reasons);

// Waits until a connect in progress is decided: 0, CONNECT_FAILED (*sockError tells why) or CONNECT_TIMED_OUT.
int waitForConnection(const int *socketDescriptorPtr, int *sockError);

} // namespace rixstats

#endif
