// Gateway tokens: the records of open connections, and the process-wide list of all of them. A caller's handle is
// trusted only after it has been found on this list. Calls connecting, the statistics exchange (for the protocol
// version), result-set tokens, locks and the trace facility.
//
// gtlLock guards the list; it is taken before the trace lock where both are held. Connecting and queries run without it.
#ifndef STAPI_RIX_GWYTOK_H
#define STAPI_RIX_GWYTOK_H

#include "stapi_rix_lock.h"
#include "stapi_rix_tokens.h"

namespace rixstats {

// Results of walks over the list. They never reach a caller of the library.
constexpr int GTL_NOT_INITIALISED_OR_EMPTY = 1001;
constexpr int GTL_NULL_TARGET = 1002;
constexpr int GTL_NOT_FOUND = 1003;
constexpr int GTL_FOUND = 1004;
constexpr int GTL_RUNAWAY = 1005; // a walk hit the limit that guards it against a cycle
constexpr int GTL_EMPTY = 1006;
constexpr int GTL_WALK_LIMIT = 256;

#pragma GCC visibility push(hidden)
extern Internal_GatewayToken_t *gtListHeadPtr;
extern Internal_GatewayToken_t *gtListTailPtr; // meaningless while the list is empty
extern stapilock gtlLock;
#pragma GCC visibility pop

int initGTL(); // result of initializeLock()

// Opens a connection: a new token on the list, its socket connected and greeted, its protocol version read. On failure
// nothing is left and *gwTokPtr is unchanged.
int createGatewayToken(RIX_GatewayToken_t *gwTokPtr, const char *hostname, int port);

// STAPI_OK for a token on the list that the calling process and thread opened; else STAPI_GATEWAY_TOKEN_NOT_FOUND,
// STAPI_WRONG_PROCESS, STAPI_WRONG_THREAD. The token is not looked into unless it is on the list.
int verifyGatewayToken(const Internal_GatewayToken_t *gwTokPtr);

// Closes the token's connection, releases it and all it owns, and sets *gwTokPtr to null. With lockRequired 0 the caller
// holds gtlLock and the token is the head of the list.
int deleteGatewayToken(RIX_GatewayToken_t *gwTokPtr, int lockRequired);

int deleteGatewayTokens(); // 0, GTL_EMPTY, or GTL_RUNAWAY after GTL_WALK_LIMIT deletions

// Writes the list with its result sets to the trace destination. 0, GTL_EMPTY or GTL_RUNAWAY.
int dumpGatewayTokens();

// The token as a text of at most FORMATTED_TOKEN_SIZE bytes.
int formatGatewayToken(const Internal_GatewayToken_t *gwTokPtr, char *formattedToken);

// For the token functions: appends to the list; looks a token up (gtlLock held; parentTokenPtrPtr may be null).
int chainGatewayToken(Internal_GatewayToken_t *newToken);
int findGatewayToken(const Internal_GatewayToken_t *targetToken, Internal_GatewayToken_t **parentTokenPtrPtr);

} // namespace rixstats

#endif
