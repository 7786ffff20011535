// What the fuzz targets demand of the library. Where it breaks a promise the process ends, which the fuzzer takes for a
// finding.
#pragma once

#include "rixstats.h"

#include <cstdio>
#include <cstdlib>

namespace fuzzing {

inline void require(bool holds, const char *promise)
{
    if (holds) return;
    fprintf(stderr, "broken promise: %s\n", promise);
    abort();
}

// Uses a result set as a monitoring program does, by the exported calls alone, and looks into the token and the buffer
// behind it to see that nothing handed out lies outside: walks an unread result set, makes a query text of it, copies
// it, walks and frees the copy. It may be walked once more afterwards, and freed.
void checkResultSet(RIX_ResultSetToken_t resultSet);

// For a reply that holds to the structure of an object stream: the scan that finds this out must copy the result set that
// the parser delivers. Where moreover no block ends anywhere but inside a statistic's value, nothing comes by reference,
// no response is without statistics and no length is above 32,767, the fixed skips must deliver it too. Other replies are
// left alone.
void checkReadings(bool identifiers, const char *callData, int callDataLen);

} // namespace fuzzing
