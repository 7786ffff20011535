// The benchmarks. Each compares a piece of the library's work with a yardstick, by comparePair().
#pragma once

#include "load.h"
#include "pair.h"

namespace rixbench {

using Benchmark = void(benchmark::State &state, const Load &load);

// With a gateway, against the same bytes sent and received without the library.
Benchmark query, queryAndWalk, openAndClose;

// In memory: parsing against copying, walking against following pointers, both also against the library without
// tracing; copies and query texts against copying.
Benchmark parsing, walking, parsingUntraced, walkingUntraced, copyAndFree, idQuery;

} // namespace rixbench
