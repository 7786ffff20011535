// The public headers alone, as C++17.
#include "rixstats_ext.h"

extern int (*const headerIsCpp)(int, RIX_GatewayToken_t *, char **);
int (*const headerIsCpp)(int, RIX_GatewayToken_t *, char **) = openGatewayConnection;
