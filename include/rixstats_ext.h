/*
 * rixstats_ext.h: what librixstats offers beyond the calls of rixstats.h: time limits, and the reasons of failures.
 *
 *     rixSetTimeLimit(500);                                     // this thread's calls take half a second at most
 *     if (openRemoteGatewayConnection("gw1", 2980, &gateway, &version) != STAPI_OK) {
 *         RIX_Failure_t failure = {sizeof failure};
 *         rixGetLastFailure(&failure);
 *         fprintf(stderr, "gw1: %s (%s, step %d)\n", rixCodeText(failure.code), rixCodeName(failure.code), failure.step);
 *     }
 *
 * The conventions of rixstats.h hold here, too. Nothing in this header changes what a program sees that does not call
 * it: without a time limit the calls of rixstats.h wait as they always have. The calls here may be made by any thread
 * at any time, and are there from version 1.1.0 of the shared library on (symbol version RIXSTATS_1.2).
 */
#ifndef RIXSTATS_EXT_H
#define RIXSTATS_EXT_H

#include "rixstats.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Return codes beyond those of rixstats.h. Their values never change. */
enum RIX_ExtReturnCode
{
    STAPI_TIME_LIMIT_REACHED = -137, /* the call took longer than the thread's time limit; connection closed */
    STAPI_BAD_TIME_LIMIT = -138,     /* the time limit is negative */
    STAPI_BAD_RECORD_SIZE = -139     /* the record's size field is smaller than its first two fields */
};

/* ---- Time limits ---------------------------------------------------------------------------------------------- */

/*
 * Sets how long each later call of the calling thread that talks to a gateway may take, as a whole, on the monotonic
 * clock from its entry: openGatewayConnection(), openRemoteGatewayConnection(), the six queries,
 * closeGatewayConnection() and closeAllGatewayConnections(). The limit holds whatever the gateway does: it is silent,
 * answers a byte at a time, does not read, or does not answer the TCP connect (which still has its 60 seconds as well).
 * Other threads have limits of their own, and a new thread starts without one.
 *   milliseconds  the limit; 0: none, as at the start
 *
 * - An opening or a query that runs out returns STAPI_TIME_LIMIT_REACHED. Its connection is closed, without a good-bye,
 *   and released as after STAPI_COMMS_FAILURE: the handle is refused from then on.
 * - Where a call fails for another reason, telling the gateway good-bye is part of the call and of its time.
 * - A close that runs out has closed the connection all the same, and returns what it returns without a limit.
 *   closeAllGatewayConnections() as a whole ends within the limit, however many connections it closes.
 * - The name of a host is looked up by the system, which nothing can interrupt: the look-up counts towards the limit,
 *   but may exceed it. A numeric address needs none.
 * - Calls end within the limit and the time that the program waits for a processor; a very small limit may let an
 *   exchange fail that a larger one would see complete.
 *
 * Codes: STAPI_BAD_TIME_LIMIT (the limit stays as it was).
 */
RIXSTATS_API int rixSetTimeLimit(int milliseconds);

/*
 * Stores the calling thread's time limit in *milliseconds; 0: none.
 * Codes: STAPI_NULL_OUTPUT_PTR.
 */
RIXSTATS_API int rixGetTimeLimit(int *milliseconds);

/* ---- Reasons -------------------------------------------------------------------------------------------------- */

/* What a call was doing when it failed. The values never change; later versions may add some. */
enum RIX_Step
{
    RIX_STEP_NONE = 0,      /* nothing that involves a gateway: arguments, the handle, its owner, memory */
    RIX_STEP_RESOLVE = 1,   /* looking up the host name */
    RIX_STEP_SOCKET = 2,    /* creating the socket */
    RIX_STEP_CONNECT = 3,   /* the TCP connect */
    RIX_STEP_HANDSHAKE = 4, /* the first flow of the greeting */
    RIX_STEP_AUTHORISE = 5, /* the authorisation */
    RIX_STEP_VERSION = 6,   /* reading the version of the statistics protocol */
    RIX_STEP_QUERY = 7,     /* asking a question and receiving its answer */
    RIX_STEP_PARSE = 8,     /* reading through the answer that was received */
    RIX_STEP_CLOSE = 9      /* closing connections */
};

/* What stands in place of an errno where no system call failed. */
enum RIX_SocketError
{
    RIX_PEER_CLOSED = -1,     /* the gateway closed the connection before its answer was complete */
    RIX_CLOSED_BY_THREAD = -2 /* another thread of the program closed the connection during the call */
};

/*
 * Why a call failed. Later versions may add fields at the end: the first one tells how many bytes there are. A field
 * that does not apply is 0.
 */
typedef struct _RIX_Failure_t
{
    int size;          /* in: sizeof(RIX_Failure_t), set by the caller; out: how many bytes were filled */
    int code;          /* the code that the call returned; STAPI_OK: no call of this thread has failed yet */
    int step;          /* RIX_STEP_...: what the call was doing */
    int socketErrno;   /* errno of the system call that failed (ETIMEDOUT: a time limit), or RIX_PEER_CLOSED ... */
    int resolverCode;  /* getaddrinfo()'s code, for gai_strerror() */
    int gatewayRc;     /* the gateway's result in a reply's header, by which it refused the request */
    int authRc;        /* the gateway's refusal of the authorisation */
    int adminRc;       /* the gateway's refusal of a management request */
    int exceptionFlag; /* 1: the gateway could not execute the request; its own log tells why */
} RIX_Failure_t;

/*
 * Tells of the calling thread's last call that failed. A call that was refused for its arguments counts, the end of a
 * walk (STAPI_END_OF_RESULTS) does not, nor does this call itself. A call that succeeds leaves the record of the last
 * failure as it is.
 *   failure  its size field is set by the caller; no byte is written beyond that many
 * Codes: STAPI_NULL_OUTPUT_PTR, STAPI_BAD_RECORD_SIZE (failure->size is less than 8; nothing is written).
 */
RIXSTATS_API int rixGetLastFailure(RIX_Failure_t *failure);

/*
 * The name of a return code ("STAPI_COMMS_FAILURE"), and what it means in half a sentence ("the connection to the
 * gateway was lost and is closed now"). Never null: other numbers are named "unknown". The texts are the library's own
 * and valid for the life of the process. These two neither fail nor set the library up.
 */
RIXSTATS_API const char *rixCodeName(int code);
RIXSTATS_API const char *rixCodeText(int code);

#ifdef __cplusplus
}
#endif

#endif /* RIXSTATS_EXT_H */
