// Requests to the statistics management bean. Each is a pair of admin flows in one record: an initial request, then the
// call itself, which sends the header fields and the server version of the first reply back.
#include "stapi_rix_statcomms.h"

#include "stapi_rix_call.h"
#include "stapi_rix_diag.h"

#include <cstring>

namespace rixstats {

int getInitAdminRequest(int socketDesc, AdminRequest *admin, ReasonCodes *reasons)
{
    ENTRY(2214, "stapi_rix_statcomms.getInitAdminRequest(socketDesc=%d, admin=%p, reasons=%p)\n", socketDesc,
          ptr(admin), ptr(reasons));
    admin->header = newRequestHeader(FLOW_TYPE_REQUEST, ADMIN_REQUEST_NAME, 4);
    admin->callType = ADMIN_CALL_INITIAL;
    admin->callData = admin->callDataArea = nullptr;
    const int rc = flowAdminRequest(socketDesc, admin, reasons);
    EXIT(2215, "stapi_rix_statcomms.getInitAdminRequest(socketDesc=%d, admin=%p, reasons=%p) rc=%d\n", socketDesc,
         ptr(admin), ptr(reasons), rc);
    return rc;
}

static size_t textSize(const char *text)
{
    return sizeof(uint16_t) + strlen(text);
}

static size_t commonCallSize(const AdminRequest &request)
{
    return textSize(request.clientCountry) + textSize(request.clientLanguage) + textSize(request.clientVariant) +
           textSize(request.objectName);
}

int calculateCallLength(AdminRequest request)
{
    ENTRY(2216, "stapi_rix_statcomms.calculateCallLength\n");
    const int size =
        static_cast<int>(commonCallSize(request) + textSize(request.invokeAction) + sizeof OUTBOUND_ARRAY_SIZE +
                         sizeof OBJ_ARRAY_HEADER + textSize(request.invokeParms) + sizeof OUTBOUND_ARRAY_SIZE +
                         textSize(request.invokeSigs));
    EXIT(2217, "stapi_rix_statcomms.calculateCallLengthsize=%d\n", size);
    return size;
}

int calculateGetAttrCallLength(AdminRequest request)
{
    ENTRY(2218, "stapi_rix_statcomms.calculateGetAttrCallLength\n");
    const int size = static_cast<int>(commonCallSize(request) + textSize(request.attributeName));
    EXIT(2219, "stapi_rix_statcomms.calculateGetAttrCallLengthsize=%d\n", size);
    return size;
}

// Makes a call of the record in which the initial request was answered. What is not set here is sent back to the
// gateway as it came.
static void prepareCall(AdminRequest *request, int32_t callType)
{
    request->header.flowType = FLOW_TYPE_REQUEST;
    request->header.gatewayRc = 0;
    request->header.requestType = ADMIN_REQUEST_NAME;
    request->callType = callType;
    freeCallData(request); // of a reply that did not answer an initial request
    request->adminRc = 0;
    request->clientCountry = ADMIN_CLIENT_COUNTRY;
    request->clientLanguage = ADMIN_CLIENT_LANGUAGE;
    request->clientVariant = "";
    request->objectName = STATS_MBEAN_NAME;
}

static void setCallLength(AdminRequest *request, int callLength)
{
    request->callInfoLength = callLength;
    // The call type, the server version and this length come before the call information.
    request->header.datalength = callLength + 12;
}

// The attribute's value is a serialised string: six bytes of the stream's start, which tell nothing, a length, the
// text.
static int copyProtocolVersion(const AdminRequest *admin, Internal_GatewayToken_t *gwTokPtr)
{
    Reader in = readerOf(admin->callData, admin->callData != nullptr ? admin->header.datalength : 0);
    skip(in, 6);
    const int protocolVerLength = readLength(in);
    const Block version = readBlock(in, protocolVerLength);
    if (in.bad) return STAPI_GATEWAY_EXCHANGE_FAILED;
    DEBUG(2203, "stapi_rix_statcomms.statProtocolVer Called malloc for %d bytes. rc=%p\n", protocolVerLength + 1,
          ptr(gwTokPtr->protocolVersion));
    if (gwTokPtr->protocolVersion == nullptr) {
        EXC(2204, "stapi_rix_statcomms.statProtocolVerFailed to allocate %d bytes.\n", protocolVerLength + 1);
        return STAPI_NO_MEMORY;
    }
    const int length = version.length < PROTOCOL_VERSION_SIZE ? version.length : PROTOCOL_VERSION_SIZE - 1;
    memcpy(gwTokPtr->protocolVersion, version.bytes, static_cast<size_t>(length));
    gwTokPtr->protocolVersion[length] = '\0';
    return STAPI_OK;
}

static int fetchProtocolVersion(Internal_GatewayToken_t *gwTokPtr, ReasonCodes *reasons)
{
    AdminRequest admin = {};
    int rc = getInitAdminRequest(gwTokPtr->socketDescriptor, &admin, reasons);
    if (rc != 0) return rc;
    DEBUG(2201, "stapi_rix_statcomms.statProtocolVer Successfully init'd admin request\n");
    prepareCall(&admin, ADMIN_CALL_GET_ATTRIBUTE);
    admin.attributeName = STATS_MBEAN_PROTOCOL_VERSION;
    setCallLength(&admin, calculateGetAttrCallLength(admin));
    rc = flowAdminRequest(gwTokPtr->socketDescriptor, &admin, reasons);
    if (rc == 0) {
        DEBUG(2202, "stapi_rix_statcomms.statProtocolVer Successfully got the protocol version from the Gateway\n");
        rc = copyProtocolVersion(&admin, gwTokPtr);
    }
    if (admin.callData != nullptr) {
        DEBUG(2242, "stapi_rix_statcomms.statProtocolVer Free request callData %p\n", ptr(admin.callData));
        freeCallData(&admin);
    }
    return rc;
}

int statProtocolVer(Internal_GatewayToken_t *gwTokPtr, ReasonCodes *reasons)
{
    ENTRY(2200, "stapi_rix_statcomms.statProtocolVer(gwTokPtr=%p)\n", ptr(gwTokPtr));
    const int rc = fetchProtocolVersion(gwTokPtr, reasons);
    EXIT(2205, "stapi_rix_statcomms.statProtocolVer(gwTokPtr=%p) rc=%d\n", ptr(gwTokPtr), rc);
    return rc;
}

// The action alone decides how its reply is read.
static int parseReply(const AdminRequest *request, char **buffer, int *bufferLen)
{
    noteStep(RIX_STEP_PARSE);
    const int length = request->callData != nullptr ? request->header.datalength : 0;
    DATA(2230, "stapi_rix_statcomms.statCommsString", request->callData, length, 0, 1);
    if (strcmp(request->invokeAction, STATS_MBEAN_ACTION_GET_STATS) == 0) {
        DEBUG(2210, "stapi_rix_statcomms.statCommsString Successfully called the Gateway for Stats\n");
        return parseStatsData(request->callData, length, buffer, bufferLen);
    }
    DEBUG(2211, "stapi_rix_statcomms.statCommsString Successfully called the Gateway for IDs\n");
    return parseIdsData(request->callData, length, buffer, bufferLen);
}

static int invoke(int socketDesc, const char *queryType, const char *queryString, char **buffer, int *bufferLen,
                  ReasonCodes *reasons)
{
    AdminRequest request = {};
    int rc = getInitAdminRequest(socketDesc, &request, reasons);
    if (rc != 0) return rc;
    DEBUG(2209, "stapi_rix_statcomms.statCommsString Successfully init'd the Admin Request\n");
    prepareCall(&request, ADMIN_CALL_INVOKE);
    request.invokeAction = queryType;
    request.invokeSigs = STATS_MBEAN_SIG;
    request.invokeParms = queryString;
    setCallLength(&request, calculateCallLength(request));
    rc = flowAdminRequest(socketDesc, &request, reasons);
    if (rc == 0) rc = parseReply(&request, buffer, bufferLen);
    if (request.callData != nullptr) {
        DEBUG(2212, "stapi_rix_statcomms.statCommsString Free request callData %p\n", ptr(request.callData));
        freeCallData(&request);
    }
    return rc;
}

int statCommsString(int socketDesc, const char *queryType, const char *queryString, char **buffer, int *bufferLen,
                    ReasonCodes *reasons)
{
    ENTRY(
        2208,
        "stapi_rix_statcomms.statCommsString(socketDesc=%d, queryType=%.24s, queryString=%p, *buffer=%p, *bufferLen=%d, reasons=%p)\n",
        socketDesc, queryType, ptr(queryString), ptr(*buffer), *bufferLen, ptr(reasons));
    const int rc = invoke(socketDesc, queryType, queryString, buffer, bufferLen, reasons);
    EXIT(
        2213,
        "stapi_rix_statcomms.statCommsString(socketDesc=%d, queryType=%.24s, queryString=%p, *buffer=%p, *bufferLen=%d, reasons=%p) rc=%d\n",
        socketDesc, queryType, ptr(queryString), ptr(*buffer), *bufferLen, ptr(reasons), rc);
    return rc;
}

int statComms(int socketDesc, const char *queryType, char **buffer, int *bufferLen, ReasonCodes *reasons)
{
    ENTRY(2206, "stapi_rix_statcomms.statComms(socketDesc=%d, queryType=%s, buffer=%p, bufferLen=%d, reasons=%p)\n",
          socketDesc, queryType, ptr(*buffer), *bufferLen, ptr(reasons));
    const int rc = statCommsString(socketDesc, queryType, "", buffer, bufferLen, reasons);
    EXIT(2207,
         "stapi_rix_statcomms.statComms(socketDesc=%d, queryType=%s, buffer=%p, bufferLen=%d, reasons=%p) rc=%d\n",
         socketDesc, queryType, ptr(*buffer), *bufferLen, ptr(reasons), rc);
    return rc;
}

} // namespace rixstats
