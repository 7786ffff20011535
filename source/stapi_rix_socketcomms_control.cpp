// The control flows: handshake and authorisation when a connection is opened, the close flow when it ends.
#include "stapi_rix_socketcomms.h"

#include "rixstats.h"
#include "stapi_rix_diag.h"
#include "stapi_rix_flowarea.h"

#include <cstring>

namespace rixstats {

// What the handshake and the close flow differ in.
typedef struct _BaseFlow
{
    const char *name;
    int32_t flowType;
    int32_t messageId;
    const unsigned char *body;
    int32_t bodyLength;
    int entryPoint, noMemoryPoint, exitPoint;
} BaseFlow;

// The client's language and country, each with its length, then ten zero bytes.
static const unsigned char HANDSHAKE_BODY[18] = {0, 2, 'e', 'n', 0, 2, 'G', 'B'};

static const BaseFlow HANDSHAKE = {
    "flowHandshakeRequest", FLOW_TYPE_HANDSHAKE, 0, HANDSHAKE_BODY, sizeof HANDSHAKE_BODY, 3215, 3217, 3219};
static const BaseFlow CLOSE = {"flowCloseRequest", FLOW_TYPE_CLOSE, -1, nullptr, 0, 3220, 3222, 3224};

static int exchangeBase(const BaseFlow &base, int socketDesc, ReasonCodes *reasons)
{
    GatewayRequest header = newRequestHeader(base.flowType, "BASE", base.bodyLength);
    header.messageId = base.messageId;
    const int requestSize = base.bodyLength + header.requestTypeLength + FLOW_HEADER_SIZE;
    char *data = newRequestArea(static_cast<size_t>(requestSize));
    if (data == nullptr) {
        EXC(base.noMemoryPoint, "stapi_rix_socketcomms.%sFailed to allocate %d bytes.\n", base.name, requestSize);
        return STAPI_NO_MEMORY;
    }
    Writer out = writerOf(data, static_cast<size_t>(requestSize));
    writeHeader(&header, out);
    writeBytes(out, base.body, static_cast<size_t>(base.bodyLength));
    const int rc = flow(socketDesc, requestSize, &data, header.requestType, &header, reasons);
    freeFlowArea(data); // a reply's body says nothing that is needed here
    return rc;
}

static int flowBaseRequest(const BaseFlow &base, int socketDesc, ReasonCodes *reasons)
{
    ENTRY(base.entryPoint, "stapi_rix_socketcomms.%s(socketDesc=%d, *reasons=%p)\n", base.name, socketDesc,
          ptr(reasons));
    const int rc = exchangeBase(base, socketDesc, reasons);
    EXIT(base.exitPoint, "stapi_rix_socketcomms.%s(socketDesc=%d, *reasons=%p) rc=%d\n", base.name, socketDesc,
         ptr(reasons), rc);
    return rc;
}

int flowHandshakeRequest(int socketDesc, ReasonCodes *reasons)
{
    return flowBaseRequest(HANDSHAKE, socketDesc, reasons);
}

int flowCloseRequest(int socketDesc, ReasonCodes *reasons)
{
    return flowBaseRequest(CLOSE, socketDesc, reasons);
}

static void writeAuthRequest(const AuthRequest *request, Writer &out)
{
    writeHeader(&request->header, out);
    writeI32(out, request->callType);
    if (request->callType == 1) {
        writeDouble(out, request->activeProtocolMap);
        writeI32(out, request->serverVersion);
        writeI32(out, request->protocolDataLength);
    }
}

static int readAuthReply(Reader in, AuthRequest *request, ReasonCodes *reasons)
{
    request->callType = readI32(in);
    request->authRc = readI32(in);
    if (in.bad) return STAPI_GATEWAY_EXCHANGE_FAILED;
    if (request->callType != 0) {
        // Its authRc is kept but decides nothing, and nothing reads the map: a reply may lack it.
        if (bytesLeft(in) >= sizeof request->protocolReturnMap) request->protocolReturnMap = readDouble(in);
        return STAPI_OK;
    }
    if (request->authRc != 0) {
        EXC(3212, "stapi_rix_socketcomms.flowAuthRequestAuth_Init request failed rc=%d\n", request->authRc);
        reasons->authRc = request->authRc;
        return -2;
    }
    request->activeProtocolMap = readDouble(in);
    request->serverVersion = readI32(in);
    return in.bad ? STAPI_GATEWAY_EXCHANGE_FAILED : STAPI_OK;
}

static int exchangeAuth(int socketDesc, AuthRequest *request, ReasonCodes *reasons)
{
    const int requestSize = request->header.datalength + request->header.requestTypeLength + FLOW_HEADER_SIZE;
    char *data = newRequestArea(static_cast<size_t>(requestSize));
    if (data == nullptr) {
        EXC(3211, "stapi_rix_socketcomms.flowAuthRequestFailed to allocate %d bytes.\n", requestSize);
        return STAPI_NO_MEMORY;
    }
    Writer out = writerOf(data, static_cast<size_t>(requestSize));
    writeAuthRequest(request, out);
    int rc = flow(socketDesc, requestSize, &data, request->header.requestType, &request->header, reasons);
    if (rc == 0) rc = readAuthReply(replyBody(data, &request->header), request, reasons);
    DEBUG(3213, "stapi_rix_socketcomms.flowAuthRequest Free request data %p\n", ptr(data));
    freeFlowArea(data);
    return rc;
}

int flowAuthRequest(int socketDesc, AuthRequest *request, ReasonCodes *reasons)
{
    ENTRY(3209, "stapi_rix_socketcomms.flowAuthRequest(socketDesc=%d, *request=%p, *reasons=%p)\n", socketDesc,
          ptr(request), ptr(reasons));
    const int rc = exchangeAuth(socketDesc, request, reasons);
    EXIT(3214, "stapi_rix_socketcomms.flowAuthRequest(socketDesc=%d, *request=%p, *reasons=%p) rc=%d\n", socketDesc,
         ptr(request), ptr(reasons), rc);
    return rc;
}

} // namespace rixstats
