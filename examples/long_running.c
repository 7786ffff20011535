/* Watches one counter of many gateways for as long as it runs: prints its rate, and what is wrong with a gateway that
 * does not answer. Gateways may fall silent, stop and start again at any time.
 *
 *     long_running STATISTIC SECONDS ROUNDS HOST:PORT ...
 *
 * One thread asks them all. The time limit bounds what a gateway that is silent can take of a round; one that could not
 * be opened is left alone for 1, 2, 4 ... rounds. */
#define _POSIX_C_SOURCE 200809L
#include <rixstats_ext.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

enum
{
    TIME_LIMIT = 1000, /* milliseconds, for each call */
    LONGEST_PAUSE = 32 /* rounds */
};

typedef struct
{
    const char *name; /* HOST:PORT */
    char host[256];
    int port;
    RIX_GatewayToken_t token; /* null: not open */
    int pause;                /* rounds for which it is left alone after its next failure */
    int left;                 /* rounds of them that are still to come */
    int known;                /* whether there is a value from the last round */
    double value;
    double time;
} Gateway;

static double now(void)
{
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

static void sleepUntil(double then)
{
    const double seconds = then - now();
    struct timespec time;
    if (seconds <= 0) return;
    time.tv_sec = (time_t)seconds;
    time.tv_nsec = (long)((seconds - (double)time.tv_sec) * 1e9);
    nanosleep(&time, NULL);
}

static int toGateway(const char *text, Gateway *gateway)
{
    const char *colon = strrchr(text, ':');
    if (colon == NULL || (size_t)(colon - text) >= sizeof gateway->host) return 0;
    memset(gateway, 0, sizeof *gateway);
    memcpy(gateway->host, text, (size_t)(colon - text));
    gateway->name = text;
    gateway->port = atoi(colon + 1);
    gateway->pause = 1;
    return 1;
}

/* The statistic's value, in the gateway's answer of just now. */
static int ask(Gateway *gateway, const char *statistic, double *value)
{
    char *version = NULL;
    RIX_ResultSetToken_t answer = NULL;
    RIX_StatData_t stat;
    char digits[64] = "";
    int code = STAPI_OK;
    if (gateway->token == NULL)
        code = openRemoteGatewayConnection(gateway->host, gateway->port, &gateway->token, &version);
    if (code == STAPI_OK) code = getStatsByStatId(gateway->token, statistic, &answer);
    if (code == STAPI_OK) code = getFirstStat(answer, &stat);
    if (code != STAPI_OK) return code;
    if (stat.queryElementRC >= 0) snprintf(digits, sizeof digits, "%.*s", stat.statValueLen, stat.statValuePtr);
    *value = strtod(digits, NULL); /* 0 for a statistic that it does not have (yet) */
    return STAPI_OK;
}

static void report(Gateway *gateway, const char *statistic, double value)
{
    const double time = now();
    if (!gateway->known || value < gateway->value) /* a counter falls when its gateway has been started again */
        printf("%s: %s = %.0f\n", gateway->name, statistic, value);
    else
        printf("%s: %s %.2f/s\n", gateway->name, statistic, (value - gateway->value) / (time - gateway->time));
    gateway->known = 1;
    gateway->value = value;
    gateway->time = time;
    gateway->pause = 1;
}

/* Whatever has failed: the next round but some begins with a new connection. The handle of a connection that the failure
 * has ended names no other one, so to close it does no harm. */
static void giveUp(Gateway *gateway, int code)
{
    RIX_Failure_t failure;
    failure.size = sizeof failure;
    rixGetLastFailure(&failure);
    printf("%s: %s (%s, step %d)\n", gateway->name, rixCodeText(code), rixCodeName(code), failure.step);
    if (gateway->token != NULL) closeGatewayConnection(&gateway->token);
    gateway->token = NULL;
    gateway->known = 0;
    gateway->left = gateway->pause;
    if (gateway->pause < LONGEST_PAUSE) gateway->pause *= 2;
}

static void look(Gateway *gateway, const char *statistic)
{
    double value = 0;
    int code = STAPI_OK;
    if (gateway->left > 0) {
        --gateway->left;
        return;
    }
    code = ask(gateway, statistic, &value);
    if (code == STAPI_OK)
        report(gateway, statistic, value);
    else
        giveUp(gateway, code);
}

int main(int argc, char **argv)
{
    const int count = argc - 4;
    const double seconds = argc > 4 ? strtod(argv[2], NULL) : 0;
    const int rounds = argc > 4 ? atoi(argv[3]) : 0;
    double then = now();
    Gateway *gateways = count > 0 ? calloc((size_t)count, sizeof *gateways) : NULL;
    int good = gateways != NULL;
    for (int i = 0; good && i < count; ++i)
        good = toGateway(argv[4 + i], &gateways[i]);
    if (!good) {
        fprintf(stderr, "usage: long_running STATISTIC SECONDS ROUNDS HOST:PORT ...\n");
        free(gateways);
        return 2;
    }
    rixSetTimeLimit(TIME_LIMIT);
    for (int round = 0; round < rounds; ++round, sleepUntil(then += seconds)) {
        for (int i = 0; i < count; ++i)
            look(&gateways[i], argv[1]);
        fflush(stdout);
    }
    closeAllGatewayConnections(); /* all of them within the time limit */
    free(gateways);
    return EXIT_SUCCESS;
}
