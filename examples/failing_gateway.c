/* Keeps asking a gateway that may fail: tells the codes apart and opens the connection again, waiting longer each time.
 *
 *     failing_gateway HOST PORT [ANSWERS]
 *
 * Ends after so many answers (3), or when the gateway has failed ten times in a row. */
#define _POSIX_C_SOURCE 200809L
#include <rixstats.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

enum Remedy
{
    NOTHING_TO_DO,
    OPEN_AGAIN, /* the connection is gone, or could not be had: this may pass */
    KEEP_GOING, /* the query failed, the connection is as it was */
    GIVE_UP     /* trying again will not help: this program is wrong, or was called wrongly */
};

static enum Remedy remedyFor(int code)
{
    switch (code) {
    case STAPI_OK:
        return NOTHING_TO_DO;
    case STAPI_COMMS_FAILURE:           /* these two ended the connection: its handle must not be used again, */
    case STAPI_GATEWAY_EXCHANGE_FAILED: /* and there is nothing to close */
    case STAPI_GATEWAY_TOKEN_NOT_FOUND: /* somebody else has closed it */
    case STAPI_CONNECTION_REFUSED:      /* and these come from opening: no connection exists */
    case STAPI_CONNECT_FAILED:
    case STAPI_CONNECT_TIMED_OUT:
    case STAPI_NETWORK_UNREACHABLE:
    case STAPI_HOST_NOT_FOUND: /* as long as the name service is down */
        return OPEN_AGAIN;
    case STAPI_NO_MEMORY:
        return KEEP_GOING;
    default:
        return GIVE_UP;
    }
}

static int countStatistics(RIX_GatewayToken_t gateway, int *count)
{
    RIX_ResultSetToken_t stats = NULL;
    RIX_StatData_t stat;
    int code = getStats(gateway, &stats);
    *count = 0;
    if (code != STAPI_OK) return code;
    for (code = getFirstStat(stats, &stat); code == STAPI_OK; code = getNextStat(stats, &stat))
        if (stat.queryElementRC >= 0) ++*count;
    return code == STAPI_END_OF_RESULTS ? STAPI_OK : code;
}

/* 50 ms, 100 ms, 200 ms ... but not more than five seconds: a gateway that starts again is not beset. */
static void backOff(int failures)
{
    long milliseconds = failures < 8 ? 25L << failures : 5000L;
    struct timespec time;
    time.tv_sec = milliseconds / 1000;
    time.tv_nsec = milliseconds % 1000 * 1000000L;
    nanosleep(&time, NULL);
}

/* Opens the connection if there is none, asks, and tells how that went. */
static int look(const char *host, int port, RIX_GatewayToken_t *gateway)
{
    const char *step = "opening";
    char *version = NULL;
    int count = 0;
    int code = STAPI_OK;
    if (*gateway == NULL) code = openRemoteGatewayConnection(host, port, gateway, &version);
    if (code == STAPI_OK) {
        step = "asking";
        code = countStatistics(*gateway, &count);
    }
    if (code == STAPI_OK)
        printf("%d statistics\n", count);
    else
        fprintf(stderr, "failing_gateway: %s failed with code %d\n", step, code);
    fflush(stdout);
    return code;
}

int main(int argc, char **argv)
{
    RIX_GatewayToken_t gateway = NULL; /* null: not open */
    int wanted = argc > 3 ? atoi(argv[3]) : 3;
    int failures = 0; /* in a row */
    if (argc < 3) {
        fprintf(stderr, "usage: failing_gateway HOST PORT [ANSWERS]\n");
        return 2;
    }
    while (wanted > 0 && failures < 10) {
        const enum Remedy remedy = remedyFor(look(argv[1], atoi(argv[2]), &gateway));
        if (remedy == GIVE_UP) break;
        if (remedy == OPEN_AGAIN) gateway = NULL;
        if (remedy == NOTHING_TO_DO) {
            failures = 0;
            --wanted;
        } else {
            backOff(++failures);
        }
    }
    if (gateway != NULL) closeGatewayConnection(&gateway);
    return wanted <= 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
