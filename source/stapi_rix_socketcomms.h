// The gateway's flow protocol on a connected socket. A flow is one request and its reply, each a header and a body; the
// control flows greet a gateway and take leave of it, the admin flow carries the management-bean calls. Calls the trace
// facility and takes its memory from the areas for flows.
//
// Flow results: 0; -1 nothing was sent or waiting failed; STAPI_NO_MEMORY; STAPI_GATEWAY_EXCHANGE_FAILED the reply
// could not be read or is malformed; or the gateway's own non-zero result from the reply header.
#ifndef STAPI_RIX_SOCKETCOMMS_H
#define STAPI_RIX_SOCKETCOMMS_H

#include "stapi_rix_wire.h"

#include <cstdint>

namespace rixstats {

constexpr int32_t FLOW_EYECATCHER = 0x47617465; // "Gate"
constexpr int32_t FLOW_VERSION = 0x00700000;
constexpr int32_t FLOW_TYPE_REQUEST = 1; // authorisation and admin
constexpr int32_t FLOW_TYPE_HANDSHAKE = 5;
constexpr int32_t FLOW_TYPE_CLOSE = 10;
constexpr int FLOW_HEADER_SIZE = 29; // without the request name

constexpr int32_t ADMIN_CALL_INITIAL = 0;
constexpr int32_t ADMIN_CALL_GET_ATTRIBUTE = 1;
constexpr int32_t ADMIN_CALL_INVOKE = 5;
constexpr int ADMIN_REPLY_HEAD_SIZE = 9; // call type, admin return code, exception flag: then the call data
constexpr int FLOW_ADMIN_REFUSED = -3;

// Shared by the admin flow, which writes them, and the length rules of the requests.
constexpr int32_t OUTBOUND_ARRAY_SIZE = 1;
constexpr unsigned char OBJ_ARRAY_HEADER[5] = {0xAC, 0xED, 0x00, 0x05, 0x74};

// A flow's header, in memory.
typedef struct _GatewayRequest
{
    int32_t eyecatcher;
    int32_t flowVersion;
    int32_t flowType;
    int32_t messageId;
    int32_t gatewayRc;
    int32_t requestTypeLength;
    const char *requestType; // not owned
    char security;
    int32_t datalength; // bytes of the body
} GatewayRequest;

// Why a flow failed. Each field is set by the failure it tells of; none is cleared.
typedef struct _ReasonCodes
{
    int32_t socketErrno;
    int32_t gatewayRc;
    int32_t authRc;
    int32_t adminRc;
} ReasonCodes;

typedef struct _AuthRequest
{
    GatewayRequest header;
    int32_t callType;
    int32_t authRc;
    double activeProtocolMap;
    int32_t serverVersion;
    int32_t protocolDataLength;
    double protocolReturnMap;
} AuthRequest;

typedef struct _AdminRequest
{
    GatewayRequest header;
    int32_t callType;
    int32_t adminRc;
    int32_t serverVersion;
    int32_t callInfoLength;
    const char *clientCountry;
    const char *clientLanguage;
    const char *clientVariant;
    const char *objectName;
    const char *attributeName; // get-attribute only
    const char *invokeAction;  // the other three: invoke only
    const char *invokeParms;
    const char *invokeSigs;
    char exceptionFlag;
    char *callData;     // of a successful reply: header.datalength bytes, the caller's to free by freeCallData()
    char *callDataArea; // in which they stand
} AdminRequest;

// A header for a new request: this library's eyecatcher and version, all else zero.
GatewayRequest newRequestHeader(int32_t flowType, const char *requestType, int32_t datalength);

// Writes gatewayRc before messageId: see the definition.
void writeHeader(const GatewayRequest *request, Writer &out);

// Reads a reply's header into the record, all but requestType. False if bytes are missing or the reply's request name
// does not have the length of requestName.
bool populateHeader(Reader &in, const char *requestName, GatewayRequest *request);

// Reads exactly dataSize bytes. Returns 0; -1 if the peer had closed the connection; or an errno. A peer that closes in
// the middle counts as a success with fewer bytes: *received tells how many came.
int readFromSocket(int socketDesc, int dataSize, char *dataBuf, int *received);

// Sends the datalen bytes at *data and reads the reply: its header into *header, its body into a new *data (the old one
// is freed; without a body the request stays there). Both are flow areas. header->datalength becomes the number of body
// bytes that came. The caller frees *data in every case.
int flow(int socketDesc, int datalen, char **data, const char *requestName, GatewayRequest *header,
         ReasonCodes *reasons);

// The body that flow() left for the caller: empty if the reply had none.
inline Reader replyBody(const char *data, const GatewayRequest *header)
{
    return readerOf(data, header->datalength);
}

int flowHandshakeRequest(int socketDesc, ReasonCodes *reasons);
int flowCloseRequest(int socketDesc, ReasonCodes *reasons);
// Besides the flow results: -2 if the gateway refused the first request (reasons->authRc tells its code).
int flowAuthRequest(int socketDesc, AuthRequest *request, ReasonCodes *reasons);
// Besides the flow results: FLOW_ADMIN_REFUSED if the gateway refused the call or the bean raised an exception.
int flowAdminRequest(int socketDesc, AdminRequest *request, ReasonCodes *reasons);
void freeCallData(AdminRequest *request); // there may be none

} // namespace rixstats

#endif
