// The Gateway Token List: its state, searching, chaining, formatting. Its dump is in
// stapi_rix_gwytok_dump.cpp.
#include "stapi_rix_gwytok.h"

#include "stapi_rix_diag.h"

namespace rixstats {

Internal_GatewayToken_t *gtListHeadPtr = nullptr;
Internal_GatewayToken_t *gtListTailPtr = nullptr;
stapilock gtlLock;

int initGTL()
{
    ENTRY(2030, "stapi_rix_gwytok.initGTL()\n");
    const int initLockRc = initializeLock(&gtlLock);
    const int rc = initLockRc == 0 || initLockRc == 1 ? STAPI_OK : STAPI_LOCK_INIT_FAILED;
    EXIT(2031, "stapi_rix_gwytok.initGTL() initLockRc=%d, rc=%d\n", initLockRc, rc);
    return initLockRc; // the lock's own result, on purpose
}

static int appendToList(Internal_GatewayToken_t *newToken)
{
    int rc = STAPI_OK;
    const Locked list(gtlLock);
    if (gtListHeadPtr == nullptr) {
        gtListHeadPtr = gtListTailPtr = newToken;
    } else if (gtListTailPtr != nullptr) {
        gtListTailPtr->nextGwyTokPtr = newToken;
        gtListTailPtr = newToken;
    } else {
        rc = STAPI_GTL_CORRUPT;
        EXC(2020, "stapi_rix_gwytok.chainGatewayToken() GTL state is corrupt - head(%p) tail (%p)\n",
            ptr(gtListHeadPtr), ptr(gtListTailPtr));
    }
    return rc;
}

int chainGatewayToken(Internal_GatewayToken_t *newToken)
{
    int rc;
    ENTRY(2019, "stapi_rix_gwytok.chainGatewayToken(newToken=%p)\n", ptr(newToken));
    if (newToken == nullptr) {
        rc = STAPI_NULL_GATEWAY_TOKEN_PTR;
        EXC(2021, "stapi_rix_gwytok.chainGatewayToken() Chain request was for a null token\n");
    } else {
        rc = appendToList(newToken);
    }
    EXIT(2022, "stapi_rix_gwytok.chainGatewayToken(newToken=%p) rc=%d\n", ptr(newToken), rc);
    return rc;
}

void unchainGatewayToken(const Internal_GatewayToken_t *token, Internal_GatewayToken_t *parentToken)
{
    if (parentToken == nullptr) {
        gtListHeadPtr = token->nextGwyTokPtr;
        return;
    }
    parentToken->nextGwyTokPtr = token->nextGwyTokPtr;
    if (parentToken->nextGwyTokPtr == nullptr) gtListTailPtr = parentToken;
}

// Looks for the target behind the head, at most GTL_WALK_LIMIT steps far.
static int walkToTarget(const Internal_GatewayToken_t *targetToken, Internal_GatewayToken_t **parent)
{
    Internal_GatewayToken_t *current = gtListHeadPtr;
    int count = 0;
    bool found = current == targetToken;
    while (!found && current->nextGwyTokPtr != nullptr && count < GTL_WALK_LIMIT) {
        if (current->nextGwyTokPtr == targetToken) {
            found = true;
            *parent = current;
        } else {
            current = current->nextGwyTokPtr;
            count++;
        }
    }
    if (found) {
        DEBUG(2026, "stapi_rix_gwytok.findGatewayToken() Target token found at GTL Entry(%d)\n", count);
        return GTL_FOUND;
    }
    if (count == GTL_WALK_LIMIT) {
        EXC(2024, "stapi_rix_gwytok.findGatewayToken() GTL iteration has hit RUNAWAY limit %d.....\n", count);
        return GTL_RUNAWAY;
    }
    DEBUG(2025, "stapi_rix_gwytok.findGatewayToken() Target token not found. GTL entries(%d) head(%p) last(%p)\n",
          count, ptr(gtListHeadPtr), ptr(current));
    return GTL_NOT_FOUND;
}

int findGatewayToken(const Internal_GatewayToken_t *targetToken, Internal_GatewayToken_t **parentTokenPtrPtr)
{
    int rc;
    Internal_GatewayToken_t *parent = nullptr;
    ENTRY(2023, "stapi_rix_gwytok.findGatewayToken(targetToken=%p, parentTokenPtrPtr=%p)\n", ptr(targetToken),
          ptr(parentTokenPtrPtr));
    if (targetToken == nullptr) {
        rc = GTL_NULL_TARGET;
        EXC(2028, "stapi_rix_gwytok.findGatewayToken() Target was a null token\n");
    } else if (gtListHeadPtr == nullptr) {
        rc = GTL_NOT_INITIALISED_OR_EMPTY;
        // An empty list is reported in these words, on purpose.
        EXC(2027, "stapi_rix_gwytok.findGatewayToken() GTL state is corrupt - head(%p) tail (%p)\n", ptr(gtListHeadPtr),
            ptr(gtListTailPtr));
    } else {
        rc = walkToTarget(targetToken, &parent);
        if (rc == GTL_FOUND && parentTokenPtrPtr != nullptr) *parentTokenPtrPtr = parent;
    }
    EXIT(2029, "stapi_rix_gwytok.findGatewayToken(targetToken=%p, parentTokenPtrPtr=%p) rc=%d\n", ptr(targetToken),
         ptr(parentTokenPtrPtr), rc);
    return rc;
}

int formatGatewayToken(const Internal_GatewayToken_t *gwTokPtr, char *formattedToken)
{
    if (formattedToken == nullptr) return STAPI_NULL_ARGUMENT;
    // "GatwayToken" is spelled so on purpose: support people search for it.
    if (gwTokPtr == nullptr) {
        snprintf(formattedToken, FORMATTED_TOKEN_SIZE, "GatwayToken(NULL)");
        return STAPI_OK;
    }
    snprintf(formattedToken, FORMATTED_TOKEN_SIZE,
             "GatwayToken(%p) eyecatcher(%8.8s) port(%d) connStatus(%d) socket(%d) connRSToken(%p) resultSetBuf(%p) "
             "owningPid(%8.8X) owningTid(%8.8X) nextGwyTokPtr(%p)",
             ptr(gwTokPtr), gwTokPtr->eyecatcher, static_cast<int>(gwTokPtr->portNumber), gwTokPtr->connStatus,
             gwTokPtr->socketDescriptor.load(), ptr(gwTokPtr->connRSPtr), ptr(gwTokPtr->resultSetBuf),
             static_cast<unsigned>(gwTokPtr->owningPid), static_cast<unsigned>(narrowTid(gwTokPtr->owningTid)),
             ptr(gwTokPtr->nextGwyTokPtr));
    return STAPI_OK;
}

} // namespace rixstats
