// Flow framing: the header on the wire, and one exchange of request and reply.
#include "stapi_rix_socketcomms.h"

#include "rixstats.h"
#include "stapi_rix_call.h"
#include "stapi_rix_diag.h"
#include "stapi_rix_flowarea.h"
#include "stapi_rix_socketset.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>

namespace rixstats {

GatewayRequest newRequestHeader(int32_t flowType, const char *requestType, int32_t datalength)
{
    GatewayRequest header = {};
    header.eyecatcher = FLOW_EYECATCHER;
    header.flowVersion = FLOW_VERSION;
    header.flowType = flowType;
    header.requestType = requestType;
    header.requestTypeLength = static_cast<int32_t>(strlen(requestType));
    header.datalength = datalength;
    return header;
}

void writeHeader(const GatewayRequest *request, Writer &out)
{
    const char *buffer = out.pos;
    ENTRY(3248, "stapi_rix_socketcomms.writeHeader(request=%p, buffer=%p)\n", ptr(request), ptr(buffer));
    writeI32(out, request->eyecatcher);
    writeI32(out, request->flowVersion);
    writeI32(out, request->flowType);
    // Swapped with respect to a reply's header, on purpose: gateways expect it so in requests.
    writeI32(out, request->gatewayRc);
    writeI32(out, request->messageId);
    writeI32(out, request->requestTypeLength);
    writeBytes(out, request->requestType, static_cast<size_t>(request->requestTypeLength));
    writeBytes(out, &request->security, 1);
    writeI32(out, request->datalength);
    EXIT(3249, "stapi_rix_socketcomms.writeHeader(request=%p, buffer=%p)\n", ptr(request), ptr(buffer));
}

bool populateHeader(Reader &in, const char *requestName, GatewayRequest *request)
{
    const uint8_t *buffer = in.pos;
    ENTRY(3246, "stapi_rix_socketcomms.populateHeader(buffer=%p, request=%p)\n", ptr(buffer), ptr(request));
    GatewayRequest reply = *request;
    reply.eyecatcher = readI32(in);
    reply.flowVersion = readI32(in);
    reply.flowType = readI32(in);
    reply.messageId = readI32(in);
    reply.gatewayRc = readI32(in);
    reply.requestTypeLength = readI32(in);
    if (reply.requestTypeLength != static_cast<int32_t>(strlen(requestName))) spoil(in);
    readBlock(in, reply.requestTypeLength);
    reply.security = static_cast<char>(readU8(in));
    reply.datalength = readI32(in);
    if (!in.bad) *request = reply;
    EXIT(3247, "stapi_rix_socketcomms.populateHeader(buffer=%p, request=%p)\n", ptr(buffer), ptr(request));
    return !in.bad;
}

// In a call with a time limit: waits until the socket is ready or the limit has been reached. False with errno ETIMEDOUT,
// or what poll() says.
static bool waitForSocket(int socketDesc, short events)
{
    struct pollfd socket = {socketDesc, events, 0};
    int left;
    while ((left = millisecondsLeft()) > 0) {
        const int ready = poll(&socket, 1, left);
        if (ready > 0) return true;
        if (ready < 0 && errno != EINTR) return false;
    }
    callState.limitReached = true;
    EXC(3252, "stapi_rix_socketcomms.waitForSocket socket %d time limit reached\n", socketDesc);
    errno = ETIMEDOUT;
    return false;
}

static ssize_t receive(int socketDesc, char *buffer, int size)
{
    const int flags = hasDeadline() ? MSG_DONTWAIT : 0; // within a limit, waitForSocket() does the waiting
    ssize_t got;
    do {
        if (flags != 0 && !waitForSocket(socketDesc, POLLIN)) return -1;
        errno = 0; // an orderly close sets none, and an older error must not pass for its reason
        got = recv(socketDesc, buffer, static_cast<size_t>(size), flags);
    } while (got < 0 && (errno == EINTR || (flags != 0 && errno == EAGAIN)));
    return got;
}

int readFromSocket(int socketDesc, int dataSize, char *dataBuf, int *received)
{
    ENTRY(3239, "stapi_rix_socketcomms.readFromSocket(socketDesc=%d, dataSize=%d, dataBuf=%p)\n", socketDesc, dataSize,
          ptr(dataBuf));
    int rc = 0;
    ssize_t got = receive(socketDesc, dataBuf, dataSize);
    *received = got > 0 ? static_cast<int>(got) : 0;
    if (got == 0) {
        rc = -1;
    } else if (got < 0) {
        rc = errno;
        EXC(3244, "stapi_rix_socketcomms.readFromSocket read returned an error code: errno=%d\n", rc);
    }
    while (rc == 0 && got > 0 && *received < dataSize) {
        got = receive(socketDesc, dataBuf + *received, dataSize - *received);
        if (got > 0) {
            *received += static_cast<int>(got);
        } else {
            rc = errno; // 0 after an orderly close: a short read passes as success, on purpose
            EXC(3242, "stapi_rix_socketcomms.readFromSocket read returned an error code: errno=%d\n", rc);
        }
    }
    if (rc == 0 && *received < dataSize) noteErrno(RIX_PEER_CLOSED); // in case the rest is missed
    if (*received > 0) DATA(3243, "stapi_rix_socketcomms.readFromSocket", dataBuf, *received, 0, 1);
    EXIT(3245, "stapi_rix_socketcomms.readFromSocket(socketDesc=%d, dataSize=%d, dataBuf=%p) rc=%d\n", socketDesc,
         dataSize, ptr(dataBuf), rc);
    return rc;
}

// Sends once: what the socket does not take in one call stays unsent.
static ssize_t sendOnce(int socketDesc, const char *data, size_t datalen)
{
    ssize_t sent;
    do {
        sent = send(socketDesc, data, datalen, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent;
}

// The same within the call's time limit, which a blocking send would not heed: what does not fit into the socket now
// follows when there is room.
static ssize_t sendWithinLimit(int socketDesc, const char *data, size_t datalen)
{
    size_t sent = 0;
    while (sent < datalen) {
        const ssize_t more = send(socketDesc, data + sent, datalen - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (more > 0) {
            sent += static_cast<size_t>(more);
        } else if (more < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            if (!waitForSocket(socketDesc, POLLOUT)) return -1;
        } else if (more == 0 || errno != EINTR) {
            return more;
        }
    }
    return static_cast<ssize_t>(sent);
}

// A broken connection is a failed send, never a signal to the process we are guests in.
static int sendRequest(int socketDesc, const char *data, int datalen, ReasonCodes *reasons)
{
    const size_t size = static_cast<size_t>(datalen);
    const ssize_t sent = hasDeadline() ? sendWithinLimit(socketDesc, data, size) : sendOnce(socketDesc, data, size);
    if (sent > 0) return 0;

    const int savedErrno = errno;
    EXC(3228, "stapi_rix_socketcomms.flow Unable to write data to socket rc=%d\n", static_cast<int>(sent));
    reasons->socketErrno = savedErrno;
    EXC(3229, "stapi_rix_socketcomms.flow Unable to send data to Gateway: errno=%d\n", savedErrno);
    return -1;
}

// Waits as long as the gateway takes, or the call's time limit allows.
static int waitForReply(int socketDesc)
{
    bool waited;
    if (hasDeadline()) {
        waited = waitForSocket(socketDesc, POLLIN);
    } else {
        SocketSet readable;
        if (initSocketSet(&readable, socketDesc) != 0) return STAPI_NO_MEMORY;
        int ready;
        do {
            ready = select(socketDesc + 1, fdSetOf(&readable), nullptr, nullptr, nullptr);
        } while (ready < 0 && errno == EINTR);
        waited = ready >= 0;
        freeSocketSet(&readable);
    }
    if (!waited) noteErrno(errno); // the record for the flow's caller does not tell of a failed wait
    return waited ? 0 : -1;
}

static int readReplyHeader(int socketDesc, const char *requestName, GatewayRequest *header, ReasonCodes *reasons)
{
    const int size = FLOW_HEADER_SIZE + static_cast<int>(strlen(requestName));
    char *buffer = static_cast<char *>(calloc(1, static_cast<size_t>(size)));
    if (buffer == nullptr) {
        EXC(3231, "stapi_rix_socketcomms.flowFailed to allocate %d bytes.\n", size);
        return STAPI_NO_MEMORY;
    }
    int rc = STAPI_OK;
    int received = 0;
    const int readRc = readFromSocket(socketDesc, size, buffer, &received);
    Reader in = readerOf(buffer, received);
    Reader eyecatcherIn = in;
    const int32_t eyecatcher = readI32(eyecatcherIn);
    if (readRc != 0) {
        reasons->socketErrno = readRc;
        rc = STAPI_GATEWAY_EXCHANGE_FAILED;
    } else if (eyecatcher != FLOW_EYECATCHER) {
        EXC(3251, "stapi_rix_socketcomms.flow Bad eyecatcher! Expected=0x%x, actual=0x%x\n",
            static_cast<unsigned>(FLOW_EYECATCHER), static_cast<unsigned>(eyecatcher));
        rc = STAPI_GATEWAY_EXCHANGE_FAILED;
    } else if (!populateHeader(in, requestName, header)) {
        rc = STAPI_GATEWAY_EXCHANGE_FAILED;
    }
    free(buffer);
    return rc;
}

static int readReplyBody(int socketDesc, char **data, GatewayRequest *header, ReasonCodes *reasons)
{
    freeFlowArea(*data);
    *data = newReplyArea(static_cast<size_t>(header->datalength));
    if (*data == nullptr) {
        EXC(3236, "stapi_rix_socketcomms.flow Failed to allocate %d bytes.\n", header->datalength);
        return STAPI_NO_MEMORY;
    }
    int received = 0;
    const int readRc = readFromSocket(socketDesc, header->datalength, *data, &received);
    // A body cut short is judged by what came, not by what was announced, and there is nothing else behind that.
    if (received < header->datalength) zeroAreaBehind(*data, static_cast<size_t>(received));
    header->datalength = received;
    if (readRc == 0) return STAPI_OK;
    reasons->socketErrno = readRc;
    return STAPI_GATEWAY_EXCHANGE_FAILED;
}

static int exchange(int socketDesc, int datalen, char **data, const char *requestName, GatewayRequest *header,
                    ReasonCodes *reasons)
{
    DATA(3226, "stapi_rix_socketcomms.flow", *data, datalen, 0, 1);
    int rc = sendRequest(socketDesc, *data, datalen, reasons);
    if (rc == 0) rc = waitForReply(socketDesc);
    if (rc == 0) rc = readReplyHeader(socketDesc, requestName, header, reasons);
    if (rc == 0) {
        if (header->datalength > 0)
            rc = readReplyBody(socketDesc, data, header, reasons);
        else
            DEBUG(3237, "stapi_rix_socketcomms.flow Managed to read in whole response in one go. data=0x%p\n",
                  ptr(*data));
    }
    if (rc == 0 && header->gatewayRc != 0) {
        reasons->gatewayRc = header->gatewayRc;
        rc = header->gatewayRc;
    }
    if (rc == 0)
        EVENT(3250, "stapi_rix_socketcomms.flow Successfully sent and received data with Gateway on socket %d\n",
              socketDesc);
    return rc;
}

int flow(int socketDesc, int datalen, char **data, const char *requestName, GatewayRequest *header,
         ReasonCodes *reasons)
{
    ENTRY(3225,
          "stapi_rix_socketcomms.flow(socketDesc=%d, datalen=%d, data=%p, requestName=%.24s, header=%p, reasons=%p)\n",
          socketDesc, datalen, ptr(data), requestName, ptr(header), ptr(reasons));
    if (datalen <= 0 || data == nullptr) {
        EXC(3227, "stapi_rix_socketcomms.flow No data to flow!!\n");
        return -1;
    }
    const int rc = exchange(socketDesc, datalen, data, requestName, header, reasons);
    EXIT(
        3238,
        "stapi_rix_socketcomms.flow(socketDesc=%d, datalen=%d, data=%p, requestName=%.24s, header=%p, reasons=%p) rc=%d\n",
        socketDesc, datalen, ptr(data), requestName, ptr(header), ptr(reasons), rc);
    return rc;
}

} // namespace rixstats
