// Gateway tokens: the records of open connections, and the process-wide list of all of them. A caller's handle is
// trusted only after it has been found on this list. Calls connecting, the statistics exchange (for the protocol
// version), result-set tokens, locks and the trace facility; drops the kept areas for flows with the last connection.
//
// gtlLock guards the list and the state of each token; it is taken before the trace lock where both are held. Nothing
// waits for a gateway under it.
//
//   stapi_rix_gwytok.cpp       opening, verifying and deleting connections: what the calls ask for
//   stapi_rix_gwytok_life.cpp  the states that a token goes through, and every change from one to the next
//   stapi_rix_gwytok_list.cpp  the list: chaining, searching, formatting
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
extern int gtlRestingCount; // of ended tokens, for tests that count what is left in memory
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

// Takes the token off the list, closes its connection, releases it and all it owns, and sets *gwTokPtr to null. A token
// that another thread has in use is left to that thread to release. With lockRequired 0 the token is off the list
// already, and the caller's to release.
int deleteGatewayToken(RIX_GatewayToken_t *gwTokPtr, int lockRequired);

// The same for a token that the calling thread has in use. STAPI_OK; or STAPI_COMMS_FAILURE if another thread closed the
// connection meanwhile, and it is gone all the same. There is no close flow then, nor if the call has reached its time
// limit.
int removeGatewayTokenInUse(RIX_GatewayToken_t *gwTokPtr);

// Tells the token of its result-set buffer, which a query may have moved.
void setResultSetBuffer(Internal_GatewayToken_t *token, char *buffer, int bufferLen);

int deleteGatewayTokens(); // 0, GTL_EMPTY, or GTL_RUNAWAY after GTL_WALK_LIMIT deletions

// Writes the list with its result sets to the trace destination. 0, GTL_EMPTY or GTL_RUNAWAY.
int dumpGatewayTokens();

// The token as a text of at most FORMATTED_TOKEN_SIZE bytes.
int formatGatewayToken(const Internal_GatewayToken_t *gwTokPtr, char *formattedToken);

// ---- The list, with gtlLock held but for chaining. parentTokenPtrPtr may be null; parentToken: the token before it on
// the list, null for the head.
int chainGatewayToken(Internal_GatewayToken_t *newToken);
int findGatewayToken(const Internal_GatewayToken_t *targetToken, Internal_GatewayToken_t **parentTokenPtrPtr);
void unchainGatewayToken(const Internal_GatewayToken_t *token, Internal_GatewayToken_t *parentToken);

// ---- The life of a token, with gtlLock held unless it is said otherwise.

// Whether a process that this one was forked from opened the connection.
bool isInherited(const Internal_GatewayToken_t *token);

// Whether a thread of this process other than the calling one has the token in use.
bool isBusyElsewhere(const Internal_GatewayToken_t *token);

// The owner goes on to use an idle token.
void beginUse(Internal_GatewayToken_t *token);

// The calling thread has done with a token. STAPI_OK; or STAPI_COMMS_FAILURE if another thread closed the connection
// meanwhile: then removeGatewayTokenInUse() is all that may be done with it. Takes gtlLock.
int endGatewayTokenUse(Internal_GatewayToken_t *token);

// Takes a listed token off the list. True: the calling thread releases it now. False: another thread has it in use, has
// been woken, and releases it.
bool takeOffList(Internal_GatewayToken_t *token, Internal_GatewayToken_t *parentToken);

// The owner takes its token back for release: off the list, if another thread has not taken it off. True if one has.
bool takeBack(Internal_GatewayToken_t *token);

// Ends a token whose parts have been released. Takes gtlLock.
void restToken(Internal_GatewayToken_t *token);

// A copy of a text that a caller gave, by malloc(); null if it is null, or was handed out by getIdQuery() and went with
// its connection: then it must not be read. Takes gtlLock.
char *copyUnlessGone(const char *text);

} // namespace rixstats

#endif
