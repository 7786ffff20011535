// Connection set-up with its time-out, the greeting, and the close.
#include "stapi_rix_gwycon.h"

#include "stapi_rix_call.h"
#include "stapi_rix_descriptor.h"
#include "stapi_rix_diag.h"
#include "stapi_rix_socketset.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

namespace rixstats {

static const int sockOptOn = 1;
static const int sockOptOff = 0;
static const int CONNECT_TIMEOUT_SECONDS = 60;

static int getHostInfo(const char *address, int port, struct addrinfo **hostInfo)
{
    noteStep(RIX_STEP_RESOLVE);
    char portText[16];
    snprintf(portText, sizeof portText, "%d", port);
    struct addrinfo hints = {};
    hints.ai_flags = AI_ALL | AI_ADDRCONFIG;
    hints.ai_socktype = SOCK_STREAM;
    const int rc = getaddrinfo(address, portText, &hints, hostInfo);
    if (rc == 0) return 0;
    callState.present.resolverCode = rc;
    if (rc == EAI_SYSTEM) noteErrno(errno);
    EXC(3012, "stapi_rix_gwycon.getHostInfo() Unable to resolve host (%s:%s): %s(%d)\n", address, portText,
        gai_strerror(rc), rc);
    return CONNECT_HOST_NOT_FOUND;
}

void shutSocket(std::atomic<int> *socketDescriptorPtr)
{
    int desc = NO_SOCKET;
    if (!socketDescriptorPtr->compare_exchange_strong(desc, SOCKET_SHUT)) shutdown(desc, SHUT_RDWR);
}

static bool publishSocket(std::atomic<int> *socketDescriptorPtr, int desc)
{
    int none = NO_SOCKET;
    return socketDescriptorPtr->compare_exchange_strong(none, desc);
}

// A socket for the address, with keep-alive, without delay, and for now non-blocking. On failure there may be a socket
// too.
static int createSocket(const struct addrinfo *address, int *socketDesc)
{
    noteStep(RIX_STEP_SOCKET);
    *socketDesc =
        aboveStandardDescriptors(socket(address->ai_family, address->ai_socktype | SOCK_CLOEXEC, address->ai_protocol));
    if (*socketDesc < 0) {
        const int savedErrno = errno;
        noteErrno(savedErrno);
        EXC(3001, "stapi_rix_gwycon.connectToGateway() Unable to create a socket: %s(%d)\n", strerror(savedErrno),
            savedErrno);
        return CONNECT_SOCKET_FAILED;
    }
    const int desc = *socketDesc;
    if (setsockopt(desc, SOL_SOCKET, SO_KEEPALIVE, &sockOptOn, sizeof sockOptOn) != 0 ||
        setsockopt(desc, IPPROTO_TCP, TCP_NODELAY, &sockOptOn, sizeof sockOptOn) != 0)
    {
        noteErrno(errno);
        DEBUG(3002, "stapi_rix_gwycon.connectToGateway() Set socket to KeepAlive or NoDelay failed: %d\n", desc);
        return CONNECT_SOCKET_FAILED;
    }
    DEBUG(3002, "stapi_rix_gwycon.connectToGateway() Created socket: %d\n", desc);
    const int ioctlRc = ioctl(desc, FIONBIO, &sockOptOn);
    if (ioctlRc < 0) {
        const int savedErrno = errno;
        noteErrno(savedErrno);
        DEBUG(3019, "stapi_rix_gwycon.connectToGateway() Set Non-Blocking IOCTL failed with Rc=%d, errno=%d\n", ioctlRc,
              savedErrno);
        return CONNECT_SOCKET_FAILED;
    }
    return 0;
}

static int secondsLeftSince(time_t start)
{
    const int elapsed = static_cast<int>(difftime(time(nullptr), start));
    // Interrupted in its first second, or at its end, the wait gets one second more, on purpose.
    const bool within = elapsed >= 1 && elapsed < CONNECT_TIMEOUT_SECONDS;
    return within ? CONNECT_TIMEOUT_SECONDS - elapsed : 1;
}

// A wait of so many seconds, or of what the call's time limit leaves, if that is less.
static struct timeval waitOf(int seconds)
{
    const struct timeval whole = {seconds, 0};
    if (!hasDeadline()) return whole;
    const int64_t left = (nanosecondsLeft() + 999) / 1000;
    if (left >= int64_t{seconds} * 1000000) return whole;
    return {static_cast<time_t>(left / 1000000), static_cast<suseconds_t>(left % 1000000)};
}

// select() on both sets until it returns for any reason but a signal. The sets are not rebuilt after one.
static int selectConnecting(int desc, SocketSet *writable, SocketSet *exceptional)
{
    const time_t start = time(nullptr);
    struct timeval timeout = waitOf(CONNECT_TIMEOUT_SECONDS);
    for (;;) {
        DEBUG(3014, "stapi_rix_gwycon.waitForConnection socket %d waiting up to %d seconds\n", desc,
              static_cast<int>(timeout.tv_sec));
        const int ready = select(desc + 1, nullptr, fdSetOf(writable), fdSetOf(exceptional), &timeout);
        if (ready >= 0 || errno != EINTR) return ready;
        timeout = waitOf(secondsLeftSince(start));
    }
}

static int socketError(int desc)
{
    int error = 0;
    socklen_t length = sizeof error;
    return getsockopt(desc, SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : errno;
}

static int judgeWait(int desc, int ready, bool writable, int *sockError)
{
    if (ready > 0) {
        const int error = writable ? socketError(desc) : 0;
        if (error == 0) return 0;
        EXC(3015, "stapi_rix_gwycon.waitForConnection socket %d connect() failed error %d\n", desc, error);
        *sockError = error;
        return CONNECT_FAILED;
    }
    if (ready == 0 && hasDeadline() && nanosecondsLeft() == 0) {
        callState.limitReached = true;
        *sockError = ETIMEDOUT;
        EXC(3021, "stapi_rix_gwycon.waitForConnection socket %d time limit reached\n", desc);
        return CONNECT_TIMED_OUT;
    }
    if (ready == 0) {
        EXC(3016, "stapi_rix_gwycon.waitForConnection socket %d connect timed out\n", desc);
        return CONNECT_TIMED_OUT;
    }
    *sockError = errno;
    EXC(3017, "stapi_rix_gwycon.waitForConnection select call failed with error %d\n", *sockError);
    return CONNECT_FAILED;
}

int waitForConnection(const std::atomic<int> *socketDescriptorPtr, int *sockError)
{
    const int desc = *socketDescriptorPtr;
    SocketSet writable, exceptional;
    if (initSocketSet(&writable, desc) != 0) {
        *sockError = ENOMEM;
        return CONNECT_FAILED;
    }
    if (initSocketSet(&exceptional, desc) != 0) {
        freeSocketSet(&writable);
        *sockError = ENOMEM;
        return CONNECT_FAILED;
    }
    const int ready = selectConnecting(desc, &writable, &exceptional);
    const int rc = judgeWait(desc, ready, isInSocketSet(&writable, desc), sockError);
    freeSocketSet(&writable);
    freeSocketSet(&exceptional);
    return rc;
}

static int connectFailure(int connectRc, int sockError)
{
    if (connectRc == CONNECT_TIMED_OUT) return CONNECT_TIMED_OUT;
    if (sockError == ENETUNREACH) return CONNECT_UNREACHABLE;
    if (sockError == ECONNREFUSED) return CONNECT_REFUSED;
    return CONNECT_FAILED;
}

// Completes a connect that has been started, with the given result and errno, and makes the socket a blocking one.
static int completeConnect(int connectRc, int sockError, const char *hostname, int port,
                           const std::atomic<int> *socketDescriptorPtr)
{
    const int desc = *socketDescriptorPtr;
    if (connectRc == -1 && sockError == EINPROGRESS) {
        DEBUG(3018, "stapi_rix_gwycon.connectToGateway() Connect in progress on socket %d\n", desc);
        connectRc = waitForConnection(socketDescriptorPtr, &sockError);
    }
    int gwyConRc = 0;
    if (connectRc == 0) {
        DEBUG(3003, "stapi_rix_gwycon.connectToGateway() Connected to Gateway %s:%u\n", hostname,
              static_cast<unsigned>(port));
        const int ioctlRc = ioctl(desc, FIONBIO, &sockOptOff);
        if (ioctlRc < 0) {
            sockError = errno;
            DEBUG(3020, "stapi_rix_gwycon.connectToGateway() Set Blocking IOCTL failed with Rc=%d, errno=%d\n", ioctlRc,
                  sockError);
            gwyConRc = CONNECT_SOCKET_FAILED;
        }
    }
    if (connectRc == 0 && gwyConRc == 0) return 0;
    noteErrno(connectRc == CONNECT_TIMED_OUT ? ETIMEDOUT : sockError);
    // A failed switch back to blocking is reported by its errno too, never as CONNECT_SOCKET_FAILED.
    EXC(3006, "stapi_rix_gwycon.connectToGateway() Unable to connect to Gateway: %s(%d)\n", strerror(sockError),
        sockError);
    return connectFailure(connectRc, sockError);
}

static int connectSocket(const struct addrinfo *address, const char *hostname, int port,
                         std::atomic<int> *socketDescriptorPtr)
{
    int desc = NO_SOCKET, connectRc = 0, sockError = 0;
    const int rc = createSocket(address, &desc);
    if (rc == 0) {
        noteStep(RIX_STEP_CONNECT);
        connectRc = connect(desc, address->ai_addr, address->ai_addrlen);
        sockError = errno;
    }
    if (desc < 0) return rc;
    // Only now: a socket that another thread shuts before its connect has started would connect all the same.
    if (!publishSocket(socketDescriptorPtr, desc)) {
        close(desc);
        return CONNECT_FAILED;
    }
    return rc == 0 ? completeConnect(connectRc, sockError, hostname, port, socketDescriptorPtr) : rc;
}

static int greet(int socketDescriptor)
{
    noteStep(RIX_STEP_HANDSHAKE);
    ReasonCodes reasons = {};
    int rc = flowHandshakeRequest(socketDescriptor, &reasons);
    if (rc != 0) {
        noteReasons(rc, reasons);
        EXC(3005, "stapi_rix_gwycon.connectToGateway() Handshake flows failed rc=%d errno=%s gwyRc=%d authRc=%d\n", rc,
            strerror(reasons.socketErrno), reasons.gatewayRc, reasons.authRc);
        return CONNECT_FAILED;
    }
    DEBUG(3004, "stapi_rix_gwycon.connectToGateway() Flowed Handshake to the Gateway\n");
    noteStep(RIX_STEP_AUTHORISE);
    rc = authorizeConnection(socketDescriptor, &reasons);
    noteReasons(rc, reasons);
    return rc;
}

int connectToGateway(int port, const char *hostname, std::atomic<int> *socketDescriptorPtr)
{
    ENTRY(3000, "stapi_rix_gwycon.connectToGateway(port=%d, hostname=%s, socketDescriptorPtr=%p)\n", port,
          textOrNull(hostname), ptr(socketDescriptorPtr));
    struct addrinfo *hostInfo = nullptr;
    int rc = getHostInfo(hostname, port, &hostInfo);
    if (rc == 0) {
        rc = connectSocket(hostInfo, hostname, port, socketDescriptorPtr);
        if (rc == 0) rc = greet(*socketDescriptorPtr);
        freeaddrinfo(hostInfo);
    }
    EXIT(3007, "stapi_rix_gwycon.connectToGateway(port=%d, hostname=%s, socketDescriptorPtr=%p) gwyConRc=%d\n", port,
         textOrNull(hostname), ptr(socketDescriptorPtr), rc);
    return rc;
}

int authorizeConnection(int socketDescriptor, ReasonCodes *reasons)
{
    ENTRY(3010, "stapi_rix_gwycon.authorizeConnection(socketDescriptor=%d, reasons=%p)\n", socketDescriptor,
          ptr(reasons));
    AuthRequest request = {};
    request.header = newRequestHeader(FLOW_TYPE_REQUEST, "Auth", 4);
    int rc = flowAuthRequest(socketDescriptor, &request, reasons);
    if (rc == 0) {
        // The rest of the record is what the gateway answered: the second request echoes it.
        request.callType = 1;
        request.header.flowType = FLOW_TYPE_REQUEST;
        request.header.requestType = "Auth";
        request.header.gatewayRc = 0;
        request.protocolDataLength = 0;
        request.header.datalength = 20;
        rc = flowAuthRequest(socketDescriptor, &request, reasons);
    }
    EXIT(3011, "stapi_rix_gwycon.authorizeConnection(socketDescriptor=%d, reasons=%p) rc=%d\n", socketDescriptor,
         ptr(reasons), rc);
    return rc;
}

int closeConnection(const std::atomic<int> *socketDescriptorPtr)
{
    ENTRY(3008, "stapi_rix_gwycon.closeConnection(socketDescriptorPtr=%p)\n", ptr(socketDescriptorPtr));
    ReasonCodes reasons = {};
    flowCloseRequest(*socketDescriptorPtr, &reasons); // a gateway that has gone cannot be taken leave of
    const int closeConnectionRc = close(*socketDescriptorPtr);
    EXIT(3009, "stapi_rix_gwycon.closeConnection(socketDescriptorPtr=%p) closeConnectionRc=%d\n",
         ptr(socketDescriptorPtr), closeConnectionRc);
    return closeConnectionRc;
}

} // namespace rixstats
