/* Prints all statistics of a gateway: first_program HOST [PORT] */
#include <rixstats_ext.h>
#include <stdio.h>
#include <stdlib.h>

static int failed(const char *what, int code)
{
    fprintf(stderr, "first_program: %s: %s (%d)\n", what, rixCodeText(code), code);
    return EXIT_FAILURE;
}

int main(int argc, char **argv)
{
    const char *host = argc > 1 ? argv[1] : "127.0.0.1";
    int port = argc > 2 ? atoi(argv[2]) : 2980; /* what is no number becomes 0, which the library refuses */
    RIX_GatewayToken_t gateway = NULL;
    RIX_ResultSetToken_t stats = NULL;
    RIX_StatData_t stat;
    char *version = NULL;

    int code = openRemoteGatewayConnection(host, port, &gateway, &version);
    if (code != STAPI_OK) return failed("cannot open the connection", code);
    printf("%s speaks version %s of the statistics protocol\n", host, version);

    code = getStats(gateway, &stats);
    if (code != STAPI_OK) return failed("cannot get the statistics", code); /* this failure closed the connection */

    for (code = getFirstStat(stats, &stat); code == STAPI_OK; code = getNextStat(stats, &stat)) {
        printf("%.*s: ", stat.queryElementLen, stat.queryElementPtr);
        if (stat.queryElementRC < 0)
            printf("failed with gateway code %d\n", stat.queryElementRC);
        else /* the texts end by their length, not by a zero byte */
            printf("%.*s = %.*s\n", stat.statIdLen, stat.statIdPtr, stat.statValueLen, stat.statValuePtr);
    }
    if (code != STAPI_END_OF_RESULTS) failed("cannot read the statistics", code);

    closeGatewayConnection(&gateway);
    return code == STAPI_END_OF_RESULTS ? EXIT_SUCCESS : EXIT_FAILURE;
}
