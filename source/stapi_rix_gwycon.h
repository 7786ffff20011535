// Opens and closes the TCP connection to a gateway, greetings included. Calls the flows and the trace facility.
#ifndef STAPI_RIX_GWYCON_H
#define STAPI_RIX_GWYCON_H

#include "stapi_rix_socketcomms.h"

#include <atomic>

namespace rixstats {

// A connection's socket is shared by the thread that uses it and one that closes the connection meanwhile.
constexpr int NO_SOCKET = -1;   // none has been created yet
constexpr int SOCKET_SHUT = -2; // and none is to be: the connection was closed first

// Shuts the socket down, so that whoever waits on it wakes up; if there is none yet, it keeps one from being used.
void shutSocket(std::atomic<int> *socketDescriptorPtr);

// Results of connecting. Besides these it returns the results of the authorisation flows as they are.
constexpr int CONNECT_FAILED = -100;
constexpr int CONNECT_HOST_NOT_FOUND = -101;
constexpr int CONNECT_SOCKET_FAILED = -102;
constexpr int CONNECT_TIMED_OUT = -103;
constexpr int CONNECT_REFUSED = -104;
constexpr int CONNECT_UNREACHABLE = -105;

// Connects within 60 seconds, greets and authorises. *socketDescriptorPtr may hold an open socket on failure too: it is
// the caller's to close.
int connectToGateway(int port, const char *hostname, std::atomic<int> *socketDescriptorPtr);

// Exchanges the close flow (and so waits for the gateway, or for the connection to drop), then closes the socket.
// Returns the result of close().
int closeConnection(const std::atomic<int> *socketDescriptorPtr);

// The two authorisation flows.
int authorizeConnection(int socketDescriptor, ReasonCodes *reasons);

// Waits until a connect in progress is decided: 0, CONNECT_FAILED (*sockError tells why) or CONNECT_TIMED_OUT.
int waitForConnection(const std::atomic<int> *socketDescriptorPtr, int *sockError);

} // namespace rixstats

#endif
