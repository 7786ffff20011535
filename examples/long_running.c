/* Watches one counter of many gateways for as long as it runs: prints its rate, and what is wrong with a gateway that
 * does not answer. Gateways may fall silent, stop and start again at any time.
 *
 *     long_running STATISTIC SECONDS ROUNDS HOST:PORT ...
 *
 * One thread asks them all. The time limit bounds what a gateway that is silent can take of a round; one that could not
 * be opened is left alone for 1, 2, 4 ... rounds. Times that such a gateway has made it miss are left out. */
#define _POSIX_C_SOURCE 200809L
#include <limits.h>
#include <rixstats_ext.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

enum
{
    TIME_LIMIT = 1000,       /* milliseconds, for each call */
    LONGEST_PAUSE = 32,      /* rounds */
    LONGEST_INTERVAL = 86400 /* seconds */
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

/* Sleeps until `then` and some whole multiple of `seconds`, the first that is still to come, and returns that time. */
static double sleepUntilNext(double then, double seconds)
{
    const double next = then + seconds * (double)((long)((now() - then) / seconds) + 1);
    const double left = next - now();
    struct timespec time;
    if (left <= 0) return next;
    time.tv_sec = (time_t)left;
    time.tv_nsec = (long)((left - (double)time.tv_sec) * 1e9);
    nanosleep(&time, NULL);
    return next;
}

/* Each of these three returns 0 if the text is not what it expects. */
static int toNumber(const char *text, double *number)
{
    char *end = NULL;
    *number = strtod(text, &end);
    return end != text && *end == '\0';
}

static int toCount(const char *text, int most, int *count)
{
    char *end = NULL;
    const long number = strtol(text, &end, 10);
    *count = (int)number;
    return end != text && *end == '\0' && number >= 1 && number <= most;
}

static int toGateway(const char *text, Gateway *gateway)
{
    const char *colon = strrchr(text, ':');
    if (colon == NULL || colon == text || (size_t)(colon - text) >= sizeof gateway->host) return 0;
    memset(gateway, 0, sizeof *gateway);
    memcpy(gateway->host, text, (size_t)(colon - text));
    gateway->name = text;
    gateway->pause = 1;
    return toCount(colon + 1, 65535, &gateway->port);
}

/* The statistic in the gateway's answer of just now; its texts live until the next question. */
static int ask(Gateway *gateway, const char *statistic, RIX_StatData_t *stat)
{
    char *version = NULL;
    RIX_ResultSetToken_t answer = NULL;
    int code = STAPI_OK;
    if (gateway->token == NULL)
        code = openRemoteGatewayConnection(gateway->host, gateway->port, &gateway->token, &version);
    if (code == STAPI_OK) code = getStatsByStatId(gateway->token, statistic, &answer);
    memset(stat, 0, sizeof *stat); /* an element that failed leaves the fields of its item as they are */
    return code == STAPI_OK ? getFirstStat(answer, stat) : code;
}

static void reportValue(Gateway *gateway, const char *statistic, double value)
{
    const double time = now();
    if (!gateway->known || value < gateway->value) /* a counter falls when its gateway has been started again */
        printf("%s: %s = %.0f\n", gateway->name, statistic, value);
    else
        printf("%s: %s %.2f/s\n", gateway->name, statistic, (value - gateway->value) / (time - gateway->time));
    gateway->known = 1;
    gateway->value = value;
    gateway->time = time;
}

static void report(Gateway *gateway, const char *statistic, const RIX_StatData_t *stat)
{
    char digits[64] = ""; /* a value is a text without a zero byte at its end */
    double value = 0;
    gateway->pause = 1;
    snprintf(digits, sizeof digits, "%.*s", stat->statValueLen, stat->statIdLen > 0 ? stat->statValuePtr : "");
    if (stat->statIdLen == 0)
        printf("%s: the gateway has no %s (code %d)\n", gateway->name, statistic, stat->queryElementRC);
    else if (!toNumber(digits, &value))
        printf("%s: %s = %s is no number\n", gateway->name, statistic, digits);
    else
        reportValue(gateway, statistic, value);
}

static const char *stepName(int step)
{
    static const char *const names[] = {"none",      "resolve", "socket", "connect", "handshake",
                                        "authorise", "version", "query",  "parse",   "close"};
    return step >= 0 && step <= RIX_STEP_CLOSE ? names[step] : "unknown"; /* later versions may add some */
}

/* After a failure the gateway is left alone for `pause` rounds; then it gets a new connection. The handle of a
 * connection that the failure has ended names no other one, so to close it does no harm. */
static void giveUp(Gateway *gateway, int code)
{
    RIX_Failure_t failure;
    failure.size = sizeof failure;
    rixGetLastFailure(&failure);
    printf("%s: %s (%s, step %s)\n", gateway->name, rixCodeText(code), rixCodeName(code), stepName(failure.step));
    if (gateway->token != NULL) closeGatewayConnection(&gateway->token);
    gateway->token = NULL;
    gateway->known = 0;
    gateway->left = gateway->pause;
    if (gateway->pause < LONGEST_PAUSE) gateway->pause *= 2;
}

static void look(Gateway *gateway, const char *statistic)
{
    RIX_StatData_t stat;
    int code = STAPI_OK;
    if (gateway->left > 0) {
        --gateway->left;
        return;
    }
    code = ask(gateway, statistic, &stat);
    if (code == STAPI_OK)
        report(gateway, statistic, &stat);
    else
        giveUp(gateway, code);
}

int main(int argc, char **argv)
{
    const int count = argc - 4;
    double seconds = 0;
    int rounds = 0;
    double then = now();
    Gateway *gateways = count > 0 ? calloc((size_t)count, sizeof *gateways) : NULL;
    int good = gateways != NULL && argv[1][0] != '\0' && toNumber(argv[2], &seconds) && seconds >= 0.001 &&
               seconds <= LONGEST_INTERVAL && toCount(argv[3], INT_MAX, &rounds);
    for (int i = 0; good && i < count; ++i)
        good = toGateway(argv[4 + i], &gateways[i]);
    if (!good) {
        fprintf(stderr, "usage: long_running STATISTIC SECONDS ROUNDS HOST:PORT ...\n");
        free(gateways);
        return 2;
    }
    rixSetTimeLimit(TIME_LIMIT);
    for (int round = 0; round < rounds; ++round) {
        if (round > 0) then = sleepUntilNext(then, seconds);
        for (int i = 0; i < count; ++i)
            look(&gateways[i], argv[1]);
        fflush(stdout);
    }
    closeAllGatewayConnections(); /* all of them within the time limit */
    free(gateways);
    return EXIT_SUCCESS;
}
