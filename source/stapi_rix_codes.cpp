// The names and meanings of all return codes. The headers' comments and the manual page say the same in the same words,
// and a test holds them against this table.
#include "rixstats_ext.h"

#include <cstddef>

typedef struct _CodeRow
{
    int code;
    const char *name;
    const char *text;
} CodeRow;

// Name and number come from the enumerator, so that they cannot drift apart.
static const char UNNAMED[] = "unknown";

#define CODE(code, text)                                                                                               \
    {                                                                                                                  \
        code, #code, text                                                                                              \
    }

static const CodeRow codeRows[] = {
    CODE(STAPI_OK, "success"),
    CODE(STAPI_NULL_GATEWAY_TOKEN, "the gateway handle is null"),
    CODE(STAPI_GATEWAY_TOKEN_NOT_FOUND, "no such open connection: never opened, closed, or ended by a failure"),
    CODE(STAPI_COMMS_FAILURE, "the connection to the gateway was lost and is closed now"),
    CODE(STAPI_NULL_ARGUMENT, "internal: a required argument of a routine of the library was null"),
    CODE(STAPI_BAD_TRACE_LEVEL, "trace level outside 0..5"),
    CODE(STAPI_NULL_PROTOCOL_VERSION_PTR, "protocolVersionPtr is null"),
    CODE(STAPI_NOT_USER_RESULT_SET, "only copies of result sets can be freed"),
    CODE(STAPI_BAD_PORT, "port outside 1..65535"),
    CODE(STAPI_NULL_GATEWAY_TOKEN_PTR, "the pointer to the gateway handle is null"),
    CODE(STAPI_NULL_OUTPUT_PTR, "a required output pointer is null"),
    CODE(STAPI_NO_RESULT_SET_BUFFER, "the connection or result set has no data; the connection may have gone"),
    CODE(STAPI_NO_MEMORY, "memory could not be allocated, or the query's text is too long"),
    CODE(STAPI_END_OF_RESULTS, "no (further) item: the normal end of a walk"),
    CODE(STAPI_GTL_CORRUPT, "the list of connections is damaged, or 256 were closed and more may be left"),
    CODE(STAPI_BAD_RESULT_SET_OWNER, "internal: unknown kind of result-set owner"),
    CODE(STAPI_CONNECT_FAILED, "connecting failed, or the gateway refused the greeting or authorisation"),
    CODE(STAPI_UNRECOGNISED_CONTENT, "the result set does not hold what the call reads (ids, statistics)"),
    CODE(STAPI_LOCK_INIT_FAILED, "a lock could not be set up"),
    CODE(STAPI_GATEWAY_EXCHANGE_FAILED, "an exchange with the gateway failed or was refused; connection closed"),
    CODE(STAPI_WRONG_PROCESS, "the connection or result set belongs to another process"),
    CODE(STAPI_WRONG_THREAD, "the connection or result set belongs to another thread"),
    CODE(STAPI_NULL_RESULT_SET_PTR, "the pointer to the result-set handle is null"),
    CODE(STAPI_NULL_QUERY_STRING, "the query text is null"),
    CODE(STAPI_NULL_RESULT_SET_TOKEN, "the result-set handle is null"),
    CODE(STAPI_NULL_ID_DATA_PTR, "idDataPtr is null"),
    CODE(STAPI_NULL_STAT_DATA_PTR, "statDataPtr is null"),
    CODE(STAPI_TRACE_FILE_OPEN_FAILED, "the trace file could not be opened, or its name is too long"),
    CODE(STAPI_NO_IDS_FOR_QUERY, "the result set holds no identifier for a query text"),
    CODE(STAPI_HOST_NOT_FOUND, "the host name could not be resolved"),
    CODE(STAPI_NULL_HOSTNAME, "hostname is null"),
    CODE(STAPI_CONNECT_TIMED_OUT, "no answer to the TCP connect within 60 seconds"),
    CODE(STAPI_CONNECTION_REFUSED, "nothing listens on that host and port"),
    CODE(STAPI_NETWORK_UNREACHABLE, "there is no route to the host's network"),
    CODE(STAPI_TIME_LIMIT_REACHED, "the call took longer than the thread's time limit; connection closed"),
    CODE(STAPI_BAD_TIME_LIMIT, "the time limit is negative"),
    CODE(STAPI_BAD_RECORD_SIZE, "the record's size field is smaller than its first two fields"),
    // Told by the lock module when the list of connections cannot be set up; it has never had a name.
    {-2, UNNAMED, "no mutex was to be had for the list of connections"},
};

static const CodeRow *rowOf(int code)
{
    for (const CodeRow &row : codeRows)
        if (row.code == code) return &row;
    return nullptr;
}

const char *rixCodeName(int code)
{
    const CodeRow *row = rowOf(code);
    return row != nullptr ? row->name : UNNAMED;
}

const char *rixCodeText(int code)
{
    const CodeRow *row = rowOf(code);
    return row != nullptr ? row->text : "not a return code of this library";
}
