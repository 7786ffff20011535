/* Watches a resource group: each statistic with its value and its change a second since the last look.
 *
 *     watch_group HOST PORT GROUP [SECONDS [ROUNDS]]
 *
 * The answer of the last round is kept as a copy, since each query fills the connection's result set anew. */
#define _POSIX_C_SOURCE 200809L
#include <rixstats.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

/* A value is a text without a zero byte at its end. False if it is not a number. */
static int toNumber(const RIX_StatData_t *stat, double *number)
{
    char digits[64];
    char *end = digits;
    const int length = snprintf(digits, sizeof digits, "%.*s", stat->statValueLen, stat->statValuePtr);
    *number = strtod(digits, &end);
    return length > 0 && length < (int)sizeof digits && end == digits + length;
}

/* `last` is the same statistic as it was `seconds` ago, or null. */
static void printStatistic(const RIX_StatData_t *stat, const RIX_StatData_t *last, double seconds)
{
    double value = 0;
    double lastValue = 0;
    if (stat->queryElementRC < 0) {
        printf("%.*s failed with gateway code %d\n", stat->queryElementLen, stat->queryElementPtr,
               stat->queryElementRC);
        return;
    }
    printf("%-40.*s %12.*s", stat->statIdLen, stat->statIdPtr, stat->statValueLen, stat->statValuePtr);
    if (last != NULL && last->queryElementRC >= 0 && toNumber(stat, &value) && toNumber(last, &lastValue))
        printf(" %+12.2f/s", (value - lastValue) / seconds);
    printf("\n");
}

/* A gateway lists a group in the same order each time, so both answers are walked side by side. */
static int printAll(RIX_ResultSetToken_t now, RIX_ResultSetToken_t before, double seconds)
{
    RIX_StatData_t stat;
    RIX_StatData_t last;
    int lastCode = before != NULL ? getFirstStat(before, &last) : STAPI_END_OF_RESULTS;
    int code = getFirstStat(now, &stat);
    for (; code == STAPI_OK; code = getNextStat(now, &stat)) {
        printStatistic(&stat, lastCode == STAPI_OK ? &last : NULL, seconds);
        if (lastCode == STAPI_OK) lastCode = getNextStat(before, &last);
    }
    printf("\n");
    fflush(stdout);
    return code == STAPI_END_OF_RESULTS ? STAPI_OK : code;
}

static void pauseFor(double seconds)
{
    struct timespec time;
    time.tv_sec = (time_t)seconds;
    time.tv_nsec = (long)((seconds - (double)time.tv_sec) * 1e9);
    nanosleep(&time, NULL);
}

static int watch(RIX_GatewayToken_t gateway, const char *group, double seconds, int rounds)
{
    RIX_ResultSetToken_t now = NULL;
    RIX_ResultSetToken_t before = NULL;
    int code = STAPI_OK;
    for (int round = 0; code == STAPI_OK && (rounds == 0 || round < rounds); ++round) {
        if (round > 0) pauseFor(seconds);
        code = getStatsByStatGroupId(gateway, group, &now);
        if (code == STAPI_OK) code = printAll(now, before, seconds);
        if (before != NULL) freeResultSet(&before); /* sets it to null, as copyResultSet() wants it */
        if (code == STAPI_OK) code = copyResultSet(now, &before);
    }
    if (before != NULL) freeResultSet(&before);
    return code;
}

int main(int argc, char **argv)
{
    RIX_GatewayToken_t gateway = NULL;
    char *version = NULL;
    const double seconds = argc > 4 ? strtod(argv[4], NULL) : 1;
    const int rounds = argc > 5 ? atoi(argv[5]) : 0; /* 0: for ever */
    int code = STAPI_OK;
    if (argc < 4 || !(seconds > 0)) {
        fprintf(stderr, "usage: watch_group HOST PORT GROUP [SECONDS [ROUNDS]]\n");
        return 2;
    }
    code = openRemoteGatewayConnection(argv[1], atoi(argv[2]), &gateway, &version);
    if (code == STAPI_OK) {
        code = watch(gateway, argv[3], seconds, rounds);
        if (code == STAPI_OK) closeGatewayConnection(&gateway); /* a query that failed has closed it already */
    }
    if (code != STAPI_OK) fprintf(stderr, "watch_group: code %d (rixstats.h says what it means)\n", code);
    return code == STAPI_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}
