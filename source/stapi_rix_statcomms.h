// The statistics exchange: requests to the gateway's statistics management bean, and the parsing of its replies into
// result-set buffers. Calls the admin flow, the result-set writers and the trace facility.
#ifndef STAPI_RIX_STATCOMMS_H
#define STAPI_RIX_STATCOMMS_H

#include "stapi_rix_socketcomms.h"
#include "stapi_rix_tokens.h"

namespace rixstats {

constexpr char ADMIN_REQUEST_NAME[] = "Admin";
constexpr char ADMIN_CLIENT_COUNTRY[] = "US";
constexpr char ADMIN_CLIENT_LANGUAGE[] = "en";
constexpr char STATS_MBEAN_NAME[] = "DefaultDomain:ProdId=com.yst.rix,Activity=Control,type=Stats";
constexpr char STATS_MBEAN_PROTOCOL_VERSION[] = "protocol";
constexpr char STATS_MBEAN_SIG[] = "java.lang.String";
constexpr char STATS_MBEAN_ACTION_GET_STATS[] = "GET_STATS";
constexpr char STATS_MBEAN_ACTION_STAT_IDS[] = "STAT_IDS";
constexpr char STATS_MBEAN_ACTION_RESOURCE_GROUPS[] = "RESOURCE_GROUPS";

// Those that exchange flows return the first non-zero result of a flow or parser (see stapi_rix_socketcomms.h).

// Fills the record for an initial request and exchanges it. The reply's header and server version stay in the record:
// the request that follows sends them back.
int getInitAdminRequest(int socketDesc, AdminRequest *admin, ReasonCodes *reasons);

// Bytes of the call information: of an invoke request, of a get-attribute request.
int calculateCallLength(AdminRequest request);
int calculateGetAttrCallLength(AdminRequest request);

// Reads the gateway's statistics protocol version into the token's text buffer, at most 63 characters of it.
int statProtocolVer(Internal_GatewayToken_t *gwTokPtr, ReasonCodes *reasons);

// Invokes an action with a query text ("" for all) and parses the reply into *buffer, which may move and grow.
int statCommsString(int socketDesc, const char *queryType, const char *queryString, char **buffer, int *bufferLen,
                    ReasonCodes *reasons);
int statComms(int socketDesc, const char *queryType, char **buffer, int *bufferLen, ReasonCodes *reasons);

// Reply parsers: rawDataLen bytes of call data into a result-set buffer. STAPI_OK; STAPI_GATEWAY_EXCHANGE_FAILED for a
// malformed reply; STAPI_NO_MEMORY: *resultSetBuffer is null if it was the buffer that could not grow.
int parseStatsData(const char *rawData, int rawDataLen, char **resultSetBuffer, int *resultSetBufferLen);
int parseIdsData(const char *rawData, int rawDataLen, char **resultSetBuffer, int *resultSetBufferLen);

// Doubles the buffer once; *buffer stays totaldatawritten bytes behind its start.
int reallocResultsSetBuffer(char **resultSetBuffer, int *resultSetBufferLen, char **buffer, int totaldatawritten);

} // namespace rixstats

#endif
