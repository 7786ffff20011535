// Makes the reply parsers of the library reachable from outside. Loaded twice: with the library as it is, and with the
// library built without tracing.
#include "inner_module.h"

#include "stapi_rix_resultsetbuffer.h"
#include "stapi_rix_statcomms.h"

int rixbenchParse(int identifiers, const char *callData, int length, char **area, int *areaSize)
{
    const auto parse = identifiers != 0 ? rixstats::parseIdsData : rixstats::parseStatsData;
    return parse(callData, length, area, areaSize);
}

char *rixbenchNewArea(int size)
{
    return rixstats::newResultSetArea(size);
}

void rixbenchFreeArea(char *area)
{
    rixstats::freeResultSetArea(area);
}
