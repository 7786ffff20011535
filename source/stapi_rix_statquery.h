// The statistics queries: one for each public query call. Each fixes an action of the statistics management bean and
// maps failures of the exchange to return codes. Calls the statistics exchange and the trace facility.
#ifndef STAPI_RIX_STATQUERY_H
#define STAPI_RIX_STATQUERY_H

#include "stapi_rix_socketcomms.h"

namespace rixstats {

// buffer, bufferLen: the connection's result-set buffer; it may move and grow. ids: identifiers separated by colons.
// Results: STAPI_OK; STAPI_NULL_ARGUMENT without a buffer (nothing is sent then); STAPI_COMMS_FAILURE for a lost
// connection; STAPI_GATEWAY_EXCHANGE_FAILED for any other failure of the exchange.
int commsResourceGroupsIds(int socketDesc, char **buffer, int *bufferLen);
int commsStatIdsByStatGroupId(int socketDesc, char **buffer, int *bufferLen, const char *ids);
int commsStatIds(int socketDesc, char **buffer, int *bufferLen);
int commsStatsByStatId(int socketDesc, char **buffer, int *bufferLen, const char *ids);
int commsStatsByStatGroupId(int socketDesc, char **buffer, int *bufferLen, const char *ids);
int commsStats(int socketDesc, char **buffer, int *bufferLen);

// STAPI_COMMS_FAILURE or STAPI_GATEWAY_EXCHANGE_FAILED for a non-zero result of an exchange.
int mapExchangeFailure(int commsRc, const ReasonCodes &reasons);

} // namespace rixstats

#endif
