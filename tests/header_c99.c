/* The public headers alone, as C99. */
#include "rixstats_ext.h"

int (*const headerIsC)(int, RIX_GatewayToken_t *, char **) = openGatewayConnection;
