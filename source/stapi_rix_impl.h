// What the exported calls share: library initialisation, argument checks, the string copies at the boundary to the
// caller, the workers of the iterators. Each call is a shell that shows its own frame: initialise, ENTRY line, checks
// in a fixed order, work, EXIT line, code.
#ifndef STAPI_RIX_IMPL_H
#define STAPI_RIX_IMPL_H

#include "stapi_rix_resultsetbuffer.h"
#include "stapi_rix_tokens.h"

#include <atomic>
#include <initializer_list>

namespace rixstats {

constexpr char API_VERSION[] = "1_1_0_1";

extern char stapiVersion[32000]; // what getStatsAPIVersion() hands out

// Sets the library up on the first call of the process; after a failure the next call tries again. Safe to be called by
// several threads at once. STAPI_OK, STAPI_NO_MEMORY, STAPI_LOCK_INIT_FAILED, or -2 for the list's lock.
#pragma GCC visibility push(hidden) // reached directly, not through the global offset table
extern std::atomic<int> stapiState; // 1 once the library is set up
#pragma GCC visibility pop

int initialiseOnce();

inline int stapiInit()
{
    return stapiState.load(std::memory_order_acquire) != 0 ? STAPI_OK : initialiseOnce();
}

// An argument that must not be null, and the code that says so.
typedef struct _Need
{
    const void *pointer;
    int code;
} Need;

// The code of the first pointer that is null; STAPI_OK if none is.
inline int firstMissing(std::initializer_list<Need> needs)
{
    for (const Need &need : needs)
        if (need.pointer == nullptr) return need.code;
    return STAPI_OK;
}

// For the owner of a result set: anybody may use a copy, only the opening process and thread a connection's own.
inline int checkOwner(const Internal_ResultSetToken_t *rs)
{
    return rs->owner == OWNER_LIBRARY ? verifyAPIResultSetTokenOwner(rs) : STAPI_OK;
}

// Copies of texts between the caller's character set and the library's, which are the same on this platform. 0; -1 if
// there is no memory; -2 for a null pointer or a text of more than 32,765 bytes. The first releases what *out held. The
// second writes a variable of the caller, which other threads may write as well: who goes on with the copy has it from
// *copy.
int dup2ASCIIString(const char *in, char **out);
int dup2NativeString(const char *in, char **out, char **copy);

int getFirstIdInternal(Internal_ResultSetToken_t *rs, RIX_IdData_t *idData);
int getNextIdInternal(Internal_ResultSetToken_t *rs, RIX_IdData_t *idData);
int getFirstStatInternal(Internal_ResultSetToken_t *rs, RIX_StatData_t *statData);
int getNextStatInternal(Internal_ResultSetToken_t *rs, RIX_StatData_t *statData);

} // namespace rixstats

#endif
