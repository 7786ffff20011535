// The life of a gateway token: every change of its state is made here, under gtlLock.
//
//                chained                  endGatewayTokenUse
//     (new) ----------------> busy ---------------------------> idle
//                             |  |  <--------- beginUse --------  |
//                takeOffList  |  |                                |
//          by another thread  |  | takeBack                       | takeOffList
//                             v  | by its owner                   | by any thread
//                         orphaned '----------> closing <---------'
//                             |                  ^   |
//                             '----- takeBack ---'   | restToken
//                                    by its owner    v
//                                                 resting
//
// Whoever brings a token to closing releases what it holds. That is the owner alone while the token is busy or
// orphaned: the owner may be inside a system call on its socket, and reads its buffers without a lock.
#include "stapi_rix_diag.h"
#include "stapi_rix_gwycon.h"
#include "stapi_rix_gwytok.h"
#include "stapi_rix_owner.h"

#include <cstdlib>
#include <cstring>

namespace rixstats {

bool isBusyElsewhere(const Internal_GatewayToken_t *token)
{
    // One that was busy when this process was forked belongs to a thread of the parent.
    return token->state == TokenState::busy &&
           ownershipOf(token->owningPid, token->owningTid) == STAPI_WRONG_THREAD;
}

void beginUse(Internal_GatewayToken_t *token)
{
    token->state = TokenState::busy;
}

int endGatewayTokenUse(Internal_GatewayToken_t *token)
{
    const Locked list(gtlLock);
    if (token->state == TokenState::orphaned) return STAPI_COMMS_FAILURE;
    token->state = TokenState::idle;
    return STAPI_OK;
}

// Of a token that a thread of the parent process had in use at the fork: what that thread was changing cannot be told
// whole from half done, and is not touched in the child.
static void forgetWhatMoves(Internal_GatewayToken_t *token)
{
    token->resultSetBuf = nullptr;
    token->protocolVersion = nullptr;
    token->connRSPtr->queryString = nullptr;
}

bool takeOffList(Internal_GatewayToken_t *token, Internal_GatewayToken_t *parentToken)
{
    unchainGatewayToken(token, parentToken);
    if (isBusyElsewhere(token)) {
        token->state = TokenState::orphaned;
        shutSocket(&token->socketDescriptor); // wakes the owner, which needs gtlLock to close it
        return false;
    }
    const bool inherited = ownershipOf(token->owningPid, token->owningTid) == STAPI_WRONG_PROCESS;
    if (inherited && token->state == TokenState::busy) forgetWhatMoves(token);
    token->state = TokenState::closing;
    return true;
}

// Behind the reach of findGatewayToken(), which gives up after GTL_WALK_LIMIT steps.
static Internal_GatewayToken_t *parentAnywhere(const Internal_GatewayToken_t *token)
{
    Internal_GatewayToken_t *parent = gtListHeadPtr;
    while (parent->nextGwyTokPtr != token)
        parent = parent->nextGwyTokPtr;
    return parent;
}

bool takeBack(Internal_GatewayToken_t *token)
{
    const bool wasOrphaned = token->state == TokenState::orphaned;
    if (!wasOrphaned) {
        Internal_GatewayToken_t *parentToken = nullptr;
        if (findGatewayToken(token, &parentToken) != GTL_FOUND) parentToken = parentAnywhere(token);
        unchainGatewayToken(token, parentToken);
    }
    token->state = TokenState::closing;
    return wasOrphaned;
}

// ---- Rest. The memory of an ended token would go to the next connection, and with it the handle that a caller may
// still hold. So the latest ones are kept, in the order of their ends.

constexpr int RESTING_TOKENS = 2048;

static Internal_GatewayToken_t *restingHead = nullptr;
static Internal_GatewayToken_t *restingTail = nullptr;
int gtlRestingCount = 0;

// Returns the one that has rested longest if there are too many now; else null.
static Internal_GatewayToken_t *appendResting(Internal_GatewayToken_t *token)
{
    (restingHead == nullptr ? restingHead : restingTail->nextGwyTokPtr) = token;
    restingTail = token;
    if (++gtlRestingCount <= RESTING_TOKENS) return nullptr;
    Internal_GatewayToken_t *oldest = restingHead;
    restingHead = oldest->nextGwyTokPtr;
    gtlRestingCount--;
    return oldest;
}

void restToken(Internal_GatewayToken_t *token)
{
    token->state = TokenState::resting;
    token->nextGwyTokPtr = nullptr;
    Internal_GatewayToken_t *rested;
    {
        const Locked list(gtlLock);
        rested = appendResting(token);
    }
    free(rested);
}

bool isGoneQueryText(const char *text)
{
    const uintptr_t address = addressNumber(text);
    const Locked list(gtlLock);
    for (const Internal_GatewayToken_t *token = restingHead; token != nullptr; token = token->nextGwyTokPtr)
        if (address - token->goneQueryText < QUERY_TEXT_SIZE) return true;
    return false;
}

} // namespace rixstats
