/* The public header alone, as C99. */
#include "rixstats.h"

int (*const headerIsC)(int, RIX_GatewayToken_t *, char **) = openGatewayConnection;
