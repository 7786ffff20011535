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
// orphaned: the owner may be inside a system call on its socket, and reads its buffers without a lock. In a forked
// child, what a thread of the parent had in use is in nobody's use: any thread may take it off.
#include "stapi_rix_diag.h"
#include "stapi_rix_gwycon.h"
#include "stapi_rix_gwytok.h"
#include "stapi_rix_owner.h"

#include <cstdlib>
#include <cstring>

namespace rixstats {

constexpr int RESTING_TOKENS = 2048; // ended ones whose handles, and whose texts' places, are remembered

bool isInherited(const Internal_GatewayToken_t *token)
{
    return ownershipOf(token->owningPid, token->owningTid) == STAPI_WRONG_PROCESS;
}

bool isBusyElsewhere(const Internal_GatewayToken_t *token)
{
    return token->state == TokenState::busy && ownershipOf(token->owningPid, token->owningTid) == STAPI_WRONG_THREAD;
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

// What a thread of the parent process was changing at the fork cannot be told whole from half done: the child leaves it
// alone.
static void forgetWhatMoves(Internal_GatewayToken_t *token)
{
    token->resultSetBuf = nullptr;
    token->protocolVersion = nullptr;
    token->connRSPtr->queryString = nullptr;
}

// ---- Texts that getIdQuery() handed out, and that went with their connections. A program may still hold one.

typedef struct _GoneText
{
    const char *start;
    size_t size;
} GoneText;

static GoneText goneTexts[RESTING_TOKENS]; // the latest ones
static size_t goneTextCount = 0;           // of all there ever were

// Before anything of the token is released.
static void noteGoneText(const Internal_GatewayToken_t *token)
{
    const char *text = token->connRSPtr->validatedQueryPtr;
    const size_t length = strnlen(text, QUERY_TEXT_SIZE);
    if (length > 0) goneTexts[goneTextCount++ % RESTING_TOKENS] = {text, length + 1};
}

static bool isGone(const char *text)
{
    for (const GoneText &gone : goneTexts)
        if (addressNumber(text) - addressNumber(gone.start) < gone.size) return true;
    return false;
}

char *copyUnlessGone(const char *text)
{
    const Locked list(gtlLock);
    return text == nullptr || isGone(text) ? nullptr : strdup(text);
}

// ---- Off the list

bool takeOffList(Internal_GatewayToken_t *token, Internal_GatewayToken_t *parentToken)
{
    unchainGatewayToken(token, parentToken);
    noteGoneText(token);
    if (isBusyElsewhere(token)) {
        token->state = TokenState::orphaned;
        shutSocket(&token->socketDescriptor); // wakes the owner, which needs gtlLock to close it
        return false;
    }
    if (token->state == TokenState::busy && isInherited(token)) forgetWhatMoves(token);
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
        noteGoneText(token);
    }
    token->state = TokenState::closing;
    return wasOrphaned;
}

// ---- Rest. The memory of an ended token would go to the next connection, and with it the handle that a caller may
// still hold. So the latest ones are kept, in the order of their ends.

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
    Internal_GatewayToken_t *rested;
    {
        const Locked list(gtlLock);
        token->state = TokenState::resting;
        token->nextGwyTokPtr = nullptr;
        rested = appendResting(token);
    }
    free(rested);
}

} // namespace rixstats
