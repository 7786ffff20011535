/*
 * rixstats: live statistics of running Vendral Gateways.
 *
 *     #include <rixstats.h>
 *     #include <stdio.h>
 *     int main(void) {
 *         RIX_GatewayToken_t gateway = NULL; RIX_ResultSetToken_t stats = NULL; RIX_StatData_t s; char *version;
 *         int rc = openGatewayConnection(2980, &gateway, &version);
 *         if (rc == STAPI_OK) rc = getStats(gateway, &stats);
 *         for (rc = rc ? rc : getFirstStat(stats, &s); rc == STAPI_OK; rc = getNextStat(stats, &s))
 *             if (s.queryElementRC >= 0) printf("%.*s=%.*s\n", s.statIdLen, s.statIdPtr, s.statValueLen, s.statValuePtr);
 *         return closeGatewayConnection(&gateway);
 *     }
 *
 * Link with -lrixstats. A monitoring program opens a connection to a gateway's statistics port, asks for resource group
 * ids, statistic ids or statistic values, and walks each answer item by item.
 *
 * Conventions that hold for every call
 *
 *  1. Codes. Every call returns an int: STAPI_OK (0), or one of the negative codes below. Arguments are checked in the
 *     order in which a call lists its codes; the first failure decides. Output arguments are written only on success,
 *     unless the call says otherwise. The first call of a process sets the library up; if that fails, any call returns
 *     STAPI_NO_MEMORY, STAPI_LOCK_INIT_FAILED or -2 (no mutex to be had) and the next call tries again.
 *  2. Ownership. The library owns all that it hands out: connections, their result sets, protocol version and query
 *     texts. The caller releases one thing only: a copy made by copyResultSet(), with freeResultSet().
 *  3. Lifetime. A connection has one result set, which each query on it fills anew. Item pointers point into it and
 *     live until the next query on that connection, or its end. A connection ends when it is closed, or when a query on
 *     it returns STAPI_COMMS_FAILURE, STAPI_GATEWAY_EXCHANGE_FAILED, or the STAPI_TIME_LIMIT_REACHED of rixstats_ext.h;
 *     its handle is then refused with STAPI_GATEWAY_TOKEN_NOT_FOUND, while its result-set handle must no longer be
 *     passed to any call.
 *  4. Texts. Item texts carry a length and are not zero-terminated. Host names and query texts that the caller
 *     passes are zero-terminated and copied; they may be released as soon as the call returns.
 *  5. Threads. Any thread may open connections; only the thread that opened a connection may query it and read its
 *     result set. Any thread may close it, also while a query waits for the gateway (the query then ends with a
 *     failure), but not while the owning thread reads the result set, which goes with the connection. A handle names
 *     one connection for good: a late close is refused and meets no connection that was opened since (its address is
 *     used again when 2,048 more connections have ended). Copies of result sets may be read by any thread, one at a
 *     time. All other calls may be made by any thread at any time. No call may be made from a signal handler, and no
 *     thread be cancelled inside one.
 *  6. Forks. A child process opens connections of its own. Those of its parent it may close, which releases its
 *     descriptors and is not noticed by gateway and parent; queries on them are refused.
 *  7. Manners. The library starts no thread, throws nothing, changes no signal handling, marks its descriptors
 *     close-on-exec and never takes those of the standard streams, and leaves errno alone where a call succeeds. It
 *     prints nothing unless tracing is on or a dump is asked for (but for a line on standard error if it cannot be set
 *     up at all).
 *  8. Waiting. A call that talks to a gateway waits for its answer without a time limit, unless the thread has set
 *     one by rixSetTimeLimit() of rixstats_ext.h: then it returns that header's STAPI_TIME_LIMIT_REACHED. Only the TCP
 *     connect has a limit of its own, of 60 seconds. Closing the connection from another thread ends the wait of a
 *     query or an opening, too; nothing but a time limit ends the wait of a close for the gateway's answer.
 *  9. Reasons. rixGetLastFailure() of rixstats_ext.h tells at which step a call failed, and why.
 */
#ifndef RIXSTATS_H
#define RIXSTATS_H

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define RIXSTATS_API __attribute__((visibility("default")))
#else
#define RIXSTATS_API
#endif

/* One open connection. Opaque. */
typedef struct _Internal_GatewayToken_t *RIX_GatewayToken_t;

/* One result set: a connection's own, or a caller's copy. Opaque. */
typedef struct _Internal_ResultSetToken_t *RIX_ResultSetToken_t;

/* One identifier of an identifier result set, filled by getFirstId() and getNextId(). */
typedef struct _RIX_IdData_t
{
    char eyecatcher[8];    /* "RIXIDSET", not zero-terminated */
    char *queryElementPtr; /* the element of the query that this item answers */
    int queryElementLen;   /* its length in bytes */
    int queryElementRC;    /* the gateway's result for it; negative: it failed, the fields below are as they were */
    int idLen;             /* length of the identifier in bytes; 0 also when the element has no identifiers */
    char *idPtr;           /* the identifier */
} RIX_IdData_t;

/* One statistic of a statistics result set, filled by getFirstStat() and getNextStat(). */
typedef struct _RIX_StatData_t
{
    char eyecatcher[8];    /* "RIXSTSET", not zero-terminated */
    char *queryElementPtr; /* the element of the query that this item answers */
    int queryElementLen;   /* its length in bytes */
    int queryElementRC;    /* the gateway's result for it; negative: it failed, the fields below are as they were */
    int statIdLen;         /* length of the identifier in bytes; 0 also when the element has no statistics */
    char *statIdPtr;       /* the statistic's identifier */
    int statValueLen;      /* length of the value in bytes */
    char *statValuePtr;    /* the value, a text; counters and gauges come as decimal digits */
} RIX_StatData_t;

/* Return codes. Their values never change. */
enum RIX_ReturnCode
{
    STAPI_OK = 0,                           /* success */
    STAPI_NULL_GATEWAY_TOKEN = -100,        /* the gateway handle is null */
    STAPI_GATEWAY_TOKEN_NOT_FOUND = -101,   /* no such open connection: never opened, closed, or ended by a failure */
    STAPI_COMMS_FAILURE = -102,             /* the connection to the gateway was lost and is closed now */
    STAPI_NULL_ARGUMENT = -103,             /* internal: a required argument of a routine of the library was null */
    STAPI_BAD_TRACE_LEVEL = -104,           /* trace level outside 0..5 */
    STAPI_NULL_PROTOCOL_VERSION_PTR = -105, /* protocolVersionPtr is null */
    STAPI_NOT_USER_RESULT_SET = -106,       /* only copies of result sets can be freed */
    STAPI_BAD_PORT = -107,                  /* port outside 1..65535 */
    STAPI_NULL_GATEWAY_TOKEN_PTR = -108,    /* the pointer to the gateway handle is null */
    STAPI_NULL_OUTPUT_PTR = -109,           /* a required output pointer is null */
    STAPI_NO_RESULT_SET_BUFFER = -110,      /* the connection or result set has no data; the connection may have gone */
    STAPI_NO_MEMORY = -111,                 /* memory could not be allocated, or the query's text is too long */
    /* -112 is not used */
    STAPI_END_OF_RESULTS = -113, /* no (further) item: the normal end of a walk */
    /* -114 is not used */
    STAPI_GTL_CORRUPT = -115,          /* the list of connections is damaged, or 256 were closed and more may be left */
    STAPI_BAD_RESULT_SET_OWNER = -116, /* internal: unknown kind of result-set owner */
    /* -117 is not used */
    STAPI_CONNECT_FAILED = -118,       /* connecting failed, or the gateway refused the greeting or authorisation */
    STAPI_UNRECOGNISED_CONTENT = -119, /* the result set does not hold what the call reads (ids, statistics) */
    /* -120 is not used */
    STAPI_LOCK_INIT_FAILED = -121,        /* a lock could not be set up */
    STAPI_GATEWAY_EXCHANGE_FAILED = -122, /* an exchange with the gateway failed or was refused; connection closed */
    STAPI_WRONG_PROCESS = -123,           /* the connection or result set belongs to another process */
    STAPI_WRONG_THREAD = -124,            /* the connection or result set belongs to another thread */
    STAPI_NULL_RESULT_SET_PTR = -125,     /* the pointer to the result-set handle is null */
    STAPI_NULL_QUERY_STRING = -126,       /* the query text is null */
    STAPI_NULL_RESULT_SET_TOKEN = -127,   /* the result-set handle is null */
    STAPI_NULL_ID_DATA_PTR = -128,        /* idDataPtr is null */
    STAPI_NULL_STAT_DATA_PTR = -129,      /* statDataPtr is null */
    STAPI_TRACE_FILE_OPEN_FAILED = -130,  /* the trace file could not be opened, or its name is too long */
    STAPI_NO_IDS_FOR_QUERY = -131,        /* the result set holds no identifier for a query text */
    STAPI_HOST_NOT_FOUND = -132,          /* the host name could not be resolved */
    STAPI_NULL_HOSTNAME = -133,           /* hostname is null */
    STAPI_CONNECT_TIMED_OUT = -134,       /* no answer to the TCP connect within 60 seconds */
    STAPI_CONNECTION_REFUSED = -135,      /* nothing listens on that host and port */
    STAPI_NETWORK_UNREACHABLE = -136      /* there is no route to the host's network */
};

/* ---- Version ------------------------------------------------------------------------------------------------- */

/*
 * Stores the version text of this library ("1_1_0_1") in *apiVersPtr. The text is the library's own, is valid for the
 * life of the process, and must be neither changed nor freed.
 * Codes: STAPI_NULL_OUTPUT_PTR.
 */
RIXSTATS_API int getStatsAPIVersion(char **apiVersPtr);

/* ---- Connections --------------------------------------------------------------------------------------------- */

/*
 * Opens a connection to the gateway on this host (127.0.0.1), greets it and reads the version of its statistics
 * protocol. On success *gwTokPtr is the connection's handle and *protocolVersionPtr its protocol version text, which
 * belongs to the connection and lives as long as it does. On failure no connection exists, *gwTokPtr is unchanged or
 * null, and *protocolVersionPtr is unchanged or null.
 *   port  the gateway's statistics port, 1..65535
 * Waits up to 60 seconds for the TCP connect, then without limit for the gateway's answers.
 * Codes: STAPI_BAD_PORT, STAPI_NULL_GATEWAY_TOKEN_PTR, STAPI_NULL_PROTOCOL_VERSION_PTR, STAPI_NO_MEMORY,
 * STAPI_HOST_NOT_FOUND (the system could not work with the address), STAPI_CONNECT_TIMED_OUT, STAPI_CONNECTION_REFUSED,
 * STAPI_NETWORK_UNREACHABLE, STAPI_CONNECT_FAILED (also for want of memory or descriptors), STAPI_COMMS_FAILURE or
 * STAPI_GATEWAY_EXCHANGE_FAILED (the protocol version could not be read, or another thread closed all connections),
 * STAPI_GTL_CORRUPT.
 *
 * Queries can reach the first 257 open connections of a process; more can be opened but not used.
 */
RIXSTATS_API int openGatewayConnection(int port, RIX_GatewayToken_t *gwTokPtr, char **protocolVersionPtr);

/*
 * The same for a gateway on another host.
 *   hostname  host name or numeric address; of several addresses the first is used
 * Codes: those of openGatewayConnection(), and after the pointer checks STAPI_NULL_HOSTNAME.
 */
RIXSTATS_API int openRemoteGatewayConnection(const char *hostname, int port, RIX_GatewayToken_t *gwTokPtr,
                                             char **protocolVersionPtr);

/*
 * Says good-bye to the gateway (and waits for its answer), closes the connection, releases its result set and texts,
 * and sets *gwTokPtr to null. Any thread of the process may close a connection. If a query is running on it in another
 * thread, that query ends with STAPI_COMMS_FAILURE or STAPI_GATEWAY_EXCHANGE_FAILED and releases the connection, and
 * this call returns at once, without waiting for the gateway.
 * Codes: STAPI_NULL_GATEWAY_TOKEN_PTR, STAPI_NULL_GATEWAY_TOKEN (*gwTokPtr is null), STAPI_GATEWAY_TOKEN_NOT_FOUND.
 */
RIXSTATS_API int closeGatewayConnection(RIX_GatewayToken_t *gwTokPtr);

/*
 * Closes every connection that the process has now, whichever thread opened it. The callers' handles stay as they are
 * and are refused from now on. Success also when there is none. Running queries, and connections that are being opened,
 * end as with closeGatewayConnection().
 * Codes: STAPI_GTL_CORRUPT (256 connections were closed; there may be more: call again).
 */
RIXSTATS_API int closeAllGatewayConnections(void);

/* ---- Queries -------------------------------------------------------------------------------------------------
 *
 * Each query asks the gateway on an open connection and, on success, stores the handle of the connection's result set,
 * rewound to its start, in the caller's variable: always the same handle for one connection. The result set that an
 * earlier query left there is gone; copyResultSet() keeps one. A query text is a list of identifiers separated by
 * colons ("Requests:Workers"; "" asks for all), at most 32,765 bytes; an identifier that the gateway does not know
 * fails as an element of the result set, not as a call.
 *
 * Only the thread that opened the connection may query it. A query waits for the gateway without a time limit.
 *
 * Codes of all six: STAPI_NULL_GATEWAY_TOKEN, STAPI_NULL_QUERY_STRING (queries with a text only),
 * STAPI_NULL_RESULT_SET_PTR, STAPI_GATEWAY_TOKEN_NOT_FOUND, STAPI_WRONG_PROCESS, STAPI_WRONG_THREAD,
 * STAPI_NO_RESULT_SET_BUFFER, STAPI_NO_MEMORY (the text is too long or could not be copied); none of these changes the
 * connection. STAPI_COMMS_FAILURE (the connection was lost) and STAPI_GATEWAY_EXCHANGE_FAILED (the gateway refused or
 * answered wrongly, or memory ran out) end the connection: it is closed and released, and gwTok is stale.
 */

/* Identifiers of all resource groups. */
RIXSTATS_API int getResourceGroupIds(RIX_GatewayToken_t gwTok, RIX_ResultSetToken_t *resGrpIdRSPtr);

/* Identifiers of the statistics in the given groups, one element for each group. */
RIXSTATS_API int getStatIdsByStatGroupId(RIX_GatewayToken_t gwTok, const char *providerIdsPtr,
                                         RIX_ResultSetToken_t *statIdRSPtr);

/* Identifiers of all statistics. */
RIXSTATS_API int getStatIds(RIX_GatewayToken_t gwTok, RIX_ResultSetToken_t *statIdRSPtr);

/* All statistics, with their values. */
RIXSTATS_API int getStats(RIX_GatewayToken_t gwTok, RIX_ResultSetToken_t *statRSPtr);

/* The statistics with the given identifiers, one element for each. */
RIXSTATS_API int getStatsByStatId(RIX_GatewayToken_t gwTok, const char *statIdsPtr, RIX_ResultSetToken_t *statRSPtr);

/* The statistics of the given groups, one element for each group. */
RIXSTATS_API int getStatsByStatGroupId(RIX_GatewayToken_t gwTok, const char *providerIdPtr,
                                       RIX_ResultSetToken_t *statRSPtr);

/* ---- Reading a result set ------------------------------------------------------------------------------------
 *
 * A walk delivers one item a call, element after element of the query, and ends with STAPI_END_OF_RESULTS, which every
 * further next-item call repeats. A first-item call starts over at any time; a next-item call goes on after the last
 * item, and starts at the first where nothing has been read yet. An element that failed is delivered by one call that
 * returns STAPI_OK with a negative queryElementRC and leaves the item fields as they were; an element that succeeded
 * without items is delivered by one call with items of length 0. Each successful call fills the record's eyecatcher
 * and element fields. Nothing is copied: the record's pointers point into the result set (see Lifetime above).
 *
 * The result set of a connection is read by the thread that opened the connection; a copy by any one thread at a time.
 *
 * Codes of all four: STAPI_NULL_RESULT_SET_TOKEN, STAPI_NULL_ID_DATA_PTR or STAPI_NULL_STAT_DATA_PTR,
 * STAPI_UNRECOGNISED_CONTENT (an identifier call on statistics, or the other way round), STAPI_WRONG_PROCESS,
 * STAPI_WRONG_THREAD, STAPI_END_OF_RESULTS.
 */
RIXSTATS_API int getFirstId(RIX_ResultSetToken_t rsPtr, RIX_IdData_t *idDataPtr);
RIXSTATS_API int getNextId(RIX_ResultSetToken_t rsPtr, RIX_IdData_t *idDataPtr);
RIXSTATS_API int getFirstStat(RIX_ResultSetToken_t rsPtr, RIX_StatData_t *statDataPtr);
RIXSTATS_API int getNextStat(RIX_ResultSetToken_t rsPtr, RIX_StatData_t *statDataPtr);

/* ---- Result sets as wholes ------------------------------------------------------------------------------------ */

/*
 * Joins the identifiers of a result set (of statistics: their identifiers) with colons into a query text for the calls
 * above and stores a pointer to it in *idQueryStringPtr. Items of elements with a result other than 0 are left out,
 * and so is each item that would bring the text to 32,000 bytes. The text belongs to the result set: it lives until the
 * next getIdQuery() on it, or its end. The walk of the result set stands at its end afterwards.
 * Codes: STAPI_NO_MEMORY, STAPI_NULL_RESULT_SET_TOKEN, STAPI_NULL_OUTPUT_PTR, STAPI_UNRECOGNISED_CONTENT,
 * STAPI_WRONG_PROCESS, STAPI_WRONG_THREAD, STAPI_NO_IDS_FOR_QUERY (no item qualified).
 */
RIXSTATS_API int getIdQuery(RIX_ResultSetToken_t rsPtr, char **idQueryStringPtr);

/*
 * Makes a copy of a result set that is the caller's own: later queries do not change it, it outlives its connection,
 * any thread may read it, and the caller releases it with freeResultSet(). The copy starts unread, and takes as much
 * memory as its answer needs.
 * Codes: STAPI_NULL_RESULT_SET_TOKEN, STAPI_NULL_RESULT_SET_PTR, STAPI_NO_RESULT_SET_BUFFER,
 * STAPI_UNRECOGNISED_CONTENT, STAPI_WRONG_PROCESS, STAPI_WRONG_THREAD, STAPI_NO_MEMORY. After STAPI_NO_MEMORY *tarRsPtr
 * is null, unchanged, or an empty copy: set it to null before the call, and free it afterwards if it is not null.
 */
RIXSTATS_API int copyResultSet(RIX_ResultSetToken_t srcRs, RIX_ResultSetToken_t *tarRsPtr);

/*
 * Releases a copy made by copyResultSet() and sets *rsPtr to null.
 * Codes: STAPI_NULL_RESULT_SET_PTR, STAPI_NULL_RESULT_SET_TOKEN (*rsPtr is null), STAPI_NOT_USER_RESULT_SET (the result
 * set of a connection; it stays usable).
 */
RIXSTATS_API int freeResultSet(RIX_ResultSetToken_t *rsPtr);

/*
 * Writes a storage dump of a result set to the trace destination, whatever the trace level.
 * Codes: STAPI_NULL_RESULT_SET_TOKEN, STAPI_NO_RESULT_SET_BUFFER, STAPI_UNRECOGNISED_CONTENT, STAPI_WRONG_PROCESS,
 * STAPI_WRONG_THREAD.
 */
RIXSTATS_API int dumpResultSet(RIX_ResultSetToken_t rsPtr);

/* ---- Tracing ---------------------------------------------------------------------------------------------------
 *
 * The trace is off (level 0) until the caller turns it on. It goes to standard error until a file is set. Level 1
 * shows failures, 2 adds notable events, 3 entry and exit of every function, 4 internal steps and storage dumps of all
 * that is sent and received; 5 shows what 4 shows. A destination that takes nothing is waited for a second at most, and
 * loses lines; it is told how many when it takes something again. Writing to it raises no signal, whatever it is.
 */

/* Stores the current trace level in *traceStatePtr. Codes: STAPI_NULL_OUTPUT_PTR. */
RIXSTATS_API int getAPITraceLevel(int *traceStatePtr);

/* Sets the trace level, 0..5, of the whole process. Codes: STAPI_BAD_TRACE_LEVEL (the level is unchanged). */
RIXSTATS_API int setAPITraceLevel(int traceState);

/*
 * Appends the trace to a file from now on, created if missing; null goes back to standard error. The call does not wait
 * for the reader of a FIFO: one that nobody reads cannot be opened.
 *   traceFile  name of the file, shorter than 1,024 bytes; copied
 * Codes: STAPI_TRACE_FILE_OPEN_FAILED (the destination is unchanged).
 */
RIXSTATS_API int setAPITraceFile(const char *traceFile);

/*
 * Writes the library's state (version, trace settings, every open connection with a dump of its result set) to the
 * trace destination, whatever the trace level. The result set of a connection on which a query is running is left out.
 * Meanwhile other threads can open, use and close connections.
 */
RIXSTATS_API int dumpState(void);

#ifdef __cplusplus
}
#endif

#endif /* RIXSTATS_H */
