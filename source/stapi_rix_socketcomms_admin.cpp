// The admin flow: carries one management request to the gateway and brings its answer back into the same record.
//
//   request body   callType | serverVersion | callInfoLength | country | language | variant | object name | ...
//                  (an initial request is its call type alone)
//   ... invoke         action | 1 | AC ED 00 05 74 argument | 1 | signature
//   ... get-attribute  attribute name
//   reply body     call type | admin return code | server version            (to an initial request)
//                  call type | admin return code | exception flag | call data
#include "stapi_rix_socketcomms.h"

#include "rixstats.h"
#include "stapi_rix_call.h"
#include "stapi_rix_diag.h"
#include "stapi_rix_flowarea.h"

#include <cstring>

namespace rixstats {

static void writeAdminRequest(const AdminRequest *request, Writer &out)
{
    writeHeader(&request->header, out);
    writeI32(out, request->callType);
    if (request->callType <= ADMIN_CALL_INITIAL) return;
    writeI32(out, request->serverVersion);
    writeI32(out, request->callInfoLength);
    writeText(out, request->clientCountry);
    writeText(out, request->clientLanguage);
    writeText(out, request->clientVariant);
    writeText(out, request->objectName);
    if (request->callType == ADMIN_CALL_INVOKE) {
        writeText(out, request->invokeAction);
        writeI32(out, OUTBOUND_ARRAY_SIZE);
        // The argument is a serialised string, the signature is a plain one: gateways expect it so.
        writeBytes(out, OBJ_ARRAY_HEADER, sizeof OBJ_ARRAY_HEADER);
        writeText(out, request->invokeParms);
        writeI32(out, OUTBOUND_ARRAY_SIZE);
        writeText(out, request->invokeSigs);
    } else if (request->callType == ADMIN_CALL_GET_ATTRIBUTE) {
        writeText(out, request->attributeName);
    }
}

// The call data stay where they are, in the reply, which the record takes over; only who traces is told of a copy, and
// gets one.
static bool takeCallDataOver(char **data, int size, AdminRequest *request)
{
    if (traceOn(Line::exc)) return false;
    request->callDataArea = *data;
    request->callData = *data + ADMIN_REPLY_HEAD_SIZE;
    request->header.datalength = size;
    *data = nullptr;
    return true;
}

static int keepCallData(Reader in, char **data, AdminRequest *request)
{
    const int size = request->header.datalength - ADMIN_REPLY_HEAD_SIZE;
    if (takeCallDataOver(data, size, request)) return STAPI_OK;
    request->callDataArea = request->callData = newReplyArea(size > 0 ? static_cast<size_t>(size) : 1);
    DEBUG(3203, "stapi_rix_socketcomms.flowAdminRequest Called malloc for %d bytes. rc=%p\n", size,
          ptr(request->callData));
    if (request->callData == nullptr) {
        EXC(3204, "stapi_rix_socketcomms.flowAdminRequestFailed to allocate %d bytes.\n", request->header.datalength);
        return STAPI_NO_MEMORY;
    }
    if (size > 0) memcpy(request->callData, take(in, static_cast<size_t>(size)), static_cast<size_t>(size));
    request->header.datalength = size;
    return STAPI_OK;
}

// *data: the reply's area, null afterwards if the record took it over.
static int readAdminReply(char **data, AdminRequest *request, ReasonCodes *reasons)
{
    Reader in = replyBody(*data, &request->header);
    request->callType = readI32(in);
    request->adminRc = readI32(in);
    if (in.bad) return STAPI_GATEWAY_EXCHANGE_FAILED;
    if (request->adminRc != 0) {
        // It speaks of an authorisation, on purpose: support people know the line by these words.
        EXC(3206, "stapi_rix_socketcomms.flowAdminRequest Auth Request returned an error AuthRc=%d\n",
            request->adminRc);
        reasons->adminRc = request->adminRc;
        return FLOW_ADMIN_REFUSED;
    }
    if (request->callType == ADMIN_CALL_INITIAL) {
        request->serverVersion = readI32(in);
        return in.bad ? STAPI_GATEWAY_EXCHANGE_FAILED : STAPI_OK;
    }
    request->exceptionFlag = static_cast<char>(readU8(in));
    if (in.bad) return STAPI_GATEWAY_EXCHANGE_FAILED;
    if (request->exceptionFlag != 0) {
        callState.present.exceptionFlag = 1;
        EXC(3205, "stapi_rix_socketcomms.flowAdminRequest Exception occured during request execution\n");
        return FLOW_ADMIN_REFUSED;
    }
    return keepCallData(in, data, request);
}

static int exchangeAdmin(int socketDesc, AdminRequest *request, ReasonCodes *reasons)
{
    const int requestSize = request->header.datalength + request->header.requestTypeLength + FLOW_HEADER_SIZE;
    char *data = newRequestArea(static_cast<size_t>(requestSize));
    DEBUG(3201, "stapi_rix_socketcomms.flowAdminRequest Called malloc for %d bytes. rc=%p\n", requestSize, ptr(data));
    if (data == nullptr) {
        EXC(3202, "stapi_rix_socketcomms.flowAdminRequestFailed to allocate %d bytes.\n", requestSize);
        return STAPI_NO_MEMORY;
    }
    Writer out = writerOf(data, static_cast<size_t>(requestSize));
    writeAdminRequest(request, out);
    int rc = flow(socketDesc, requestSize, &data, request->header.requestType, &request->header, reasons);
    if (rc == 0) rc = readAdminReply(&data, request, reasons);
    if (data != nullptr) {
        DEBUG(3207, "stapi_rix_socketcomms.flowAdminRequest Free request data %p\n", ptr(data));
        freeFlowArea(data);
    }
    return rc;
}

void freeCallData(AdminRequest *request)
{
    freeFlowArea(request->callDataArea);
    request->callDataArea = request->callData = nullptr;
}

int flowAdminRequest(int socketDesc, AdminRequest *request, ReasonCodes *reasons)
{
    ENTRY(3200, "stapi_rix_socketcomms.flowAdminRequest(socketDesc=%d, *request=%p, *reasons=%p)\n", socketDesc,
          ptr(request), ptr(reasons));
    const int rc = exchangeAdmin(socketDesc, request, reasons);
    EXIT(3208, "stapi_rix_socketcomms.flowAdminRequest(socketDesc=%d, *request=%p, *reasons=%p) rc=%d\n", socketDesc,
         ptr(request), ptr(reasons), rc);
    return rc;
}

} // namespace rixstats
