// Gateway tokens: the records of open connections, and the process-wide list of all of them. A caller's handle is
// trusted only after it has been found on this list. Calls connecting, the statistics exchange (for the protocol
// version), result-set tokens, locks and the trace facility; drops the kept areas for flows with the last connection.
//
// gtlLock guards the list; it is taken before the trace lock where both are held. Nothing waits for a gateway under it.
//
// The thread that opened a connection has it in use while it opens it and while it runs a query on it. A close from
// another thread then takes the token off the list, shuts the socket down, which wakes the user, and leaves the release
// to the user.
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
extern uint32_t gtlLastNumber; // of the token that was chained last; gtlLock is held for it, as for the list
#pragma GCC visibility pop

int initGTL(); // result of initializeLock()

// Opens a connection: a new token on the list, its socket connected and greeted, its protocol version read. The calling
// thread has it in use then, until endGatewayTokenUse(). On failure nothing is left and *newToken is unchanged;
// STAPI_COMMS_FAILURE if another thread closed the connection meanwhile. gwTokPtr: the caller's variable, which is
// named in the trace and not touched.
int createGatewayToken(const RIX_GatewayToken_t *gwTokPtr, const char *hostname, int port,
                       Internal_GatewayToken_t **newToken);

// STAPI_OK for a token on the list that the calling process and thread opened: the thread has it in use then. Else
// STAPI_GATEWAY_TOKEN_NOT_FOUND, STAPI_WRONG_PROCESS, STAPI_WRONG_THREAD. The token is not looked into unless it is on
// the list.
int verifyGatewayToken(Internal_GatewayToken_t *gwTokPtr);

// Ends the use of a token by the calling thread. STAPI_OK; or STAPI_COMMS_FAILURE if another thread closed the
// connection meanwhile: then the token is still in use, and removeGatewayTokenInUse() is all that may be done with it.
int endGatewayTokenUse(Internal_GatewayToken_t *gwTokPtr);

// Ends the use and the connection: deletes the token, whether or not another thread closed it meanwhile, and sets
// *gwTokPtr to null. Results of endGatewayTokenUse().
int removeGatewayTokenInUse(RIX_GatewayToken_t *gwTokPtr);

// Tells the token of its result-set buffer, which a query may have moved.
void setResultSetBuffer(Internal_GatewayToken_t *token, char *buffer, int bufferLen);

// Takes the token off the list, closes its connection, releases it and all it owns, and sets *gwTokPtr to null. A token
// that another thread has in use is left to that thread, see above. With lockRequired 0 the token is off the list
// already and in nobody's use.
int deleteGatewayToken(RIX_GatewayToken_t *gwTokPtr, int lockRequired);

int deleteGatewayTokens(); // 0, GTL_EMPTY, or GTL_RUNAWAY after GTL_WALK_LIMIT deletions

// Writes the list with its result sets to the trace destination. 0, GTL_EMPTY or GTL_RUNAWAY.
int dumpGatewayTokens();

// The token as a text of at most FORMATTED_TOKEN_SIZE bytes.
int formatGatewayToken(const Internal_GatewayToken_t *gwTokPtr, char *formattedToken);

// For the token functions; all but the first with gtlLock held. parentTokenPtrPtr may be null; parentToken: the token
// before it on the list, null for the head.
int chainGatewayToken(Internal_GatewayToken_t *newToken);
int findGatewayToken(const Internal_GatewayToken_t *targetToken, Internal_GatewayToken_t **parentTokenPtrPtr);
void unchainGatewayToken(const Internal_GatewayToken_t *token, Internal_GatewayToken_t *parentToken);

} // namespace rixstats

#endif
