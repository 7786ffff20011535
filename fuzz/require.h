// How the fuzz targets say that the library broke a promise: the process ends, which the fuzzer takes for a finding.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace fuzzing {

inline void require(bool holds, const char *promise)
{
    if (holds) return;
    fprintf(stderr, "broken promise: %s\n", promise);
    abort();
}

} // namespace fuzzing
