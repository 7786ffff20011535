// Memory for the bytes of a flow: a request, a reply, the call data of a reply. A monitor asks the same again and
// again; memory of the size of a long reply goes back to the system each time it is freed, to be fetched again page by
// page, and that of a short one costs the allocator a search. So a few areas are kept for the next flow, of whichever
// connection and thread. Calls the module for blocks of memory.
#ifndef STAPI_RIX_FLOWAREA_H
#define STAPI_RIX_FLOWAREA_H

#include <cstddef>

namespace rixstats {

// At most 16 MiB are kept, and only while there is a connection. More threads at once than there are areas for fetch
// theirs from the system.
constexpr int KEPT_AREAS = 4;
constexpr size_t LEAST_KEPT_SIZE = 1 << 10;
constexpr size_t MOST_KEPT_SIZE = 4 << 20;

// Null if there is no memory. A request's is zeroed, a reply's may hold an earlier one.
char *newRequestArea(size_t size);
char *newReplyArea(size_t size);

// For a reply that came short: nothing else is in its area.
void zeroAreaBehind(char *area, size_t used);

// Takes null too.
void freeFlowArea(char *area);

bool dropKeptAreas(); // whether there were any

} // namespace rixstats

#endif
