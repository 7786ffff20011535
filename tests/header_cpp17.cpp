// The public header alone, as C++17.
#include "rixstats.h"

extern int (*const headerIsCpp)(int, RIX_GatewayToken_t *, char **);
int (*const headerIsCpp)(int, RIX_GatewayToken_t *, char **) = openGatewayConnection;

// Programs are compiled against these values: they never change.
static_assert(STAPI_OK == 0 && STAPI_NULL_GATEWAY_TOKEN == -100 && STAPI_GATEWAY_TOKEN_NOT_FOUND == -101 &&
                  STAPI_COMMS_FAILURE == -102 && STAPI_NULL_ARGUMENT == -103 && STAPI_BAD_TRACE_LEVEL == -104 &&
                  STAPI_NULL_PROTOCOL_VERSION_PTR == -105 && STAPI_NOT_USER_RESULT_SET == -106 &&
                  STAPI_BAD_PORT == -107 && STAPI_NULL_GATEWAY_TOKEN_PTR == -108 && STAPI_NULL_OUTPUT_PTR == -109 &&
                  STAPI_NO_RESULT_SET_BUFFER == -110 && STAPI_NO_MEMORY == -111 && STAPI_END_OF_RESULTS == -113 &&
                  STAPI_GTL_CORRUPT == -115 && STAPI_BAD_RESULT_SET_OWNER == -116 && STAPI_CONNECT_FAILED == -118 &&
                  STAPI_UNRECOGNISED_CONTENT == -119 && STAPI_LOCK_INIT_FAILED == -121 &&
                  STAPI_GATEWAY_EXCHANGE_FAILED == -122 && STAPI_WRONG_PROCESS == -123 && STAPI_WRONG_THREAD == -124 &&
                  STAPI_NULL_RESULT_SET_PTR == -125 && STAPI_NULL_QUERY_STRING == -126 &&
                  STAPI_NULL_RESULT_SET_TOKEN == -127 && STAPI_NULL_ID_DATA_PTR == -128 &&
                  STAPI_NULL_STAT_DATA_PTR == -129 && STAPI_TRACE_FILE_OPEN_FAILED == -130 &&
                  STAPI_NO_IDS_FOR_QUERY == -131 && STAPI_HOST_NOT_FOUND == -132 && STAPI_NULL_HOSTNAME == -133 &&
                  STAPI_CONNECT_TIMED_OUT == -134 && STAPI_CONNECTION_REFUSED == -135 &&
                  STAPI_NETWORK_UNREACHABLE == -136,
              "the return codes' values");
