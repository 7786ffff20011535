// The mutex wrapper. See the header.
#include "stapi_rix_lock.h"

#include "stapi_rix_diag.h"

#include <cerrno>

namespace rixstats {

__thread volatile int locksTaken __attribute__((tls_model("initial-exec")));

int initializeLock(stapilock *lockPtr)
{
    if (lockPtr->initialized == LOCK_INITIALIZED) return 1;
    if (pthread_mutex_init(&lockPtr->lock, nullptr) != 0) {
        const int savedErrno = errno;
        EXC_UNLOCKED(3101, "stapi_rix_lock.initializeLock(lockPtr=%p) Lock initialization failed errno=%d\n",
                     ptr(lockPtr), savedErrno);
        return -2;
    }
    lockPtr->initialized = LOCK_INITIALIZED;
    return 0;
}

int requestLock(stapilock *lockPtr)
{
    if (lockPtr->initialized != LOCK_INITIALIZED) {
        EXC_UNLOCKED(3104, "stapi_rix_lock.requestLock(lockPtr=%p) Lock not initialized\n", ptr(lockPtr));
        return -1;
    }
    locksTaken = locksTaken + 1;
    if (pthread_mutex_lock(&lockPtr->lock) != 0) {
        const int savedErrno = errno;
        locksTaken = locksTaken - 1;
        EXC_UNLOCKED(3105, "stapi_rix_lock.requestLock(lockPtr=%p) Lock request failed errno=%d\n", ptr(lockPtr),
                     savedErrno);
        return -4;
    }
    return 0;
}

int releaseLock(stapilock *lockPtr)
{
    if (lockPtr->initialized != LOCK_INITIALIZED) {
        EXC_UNLOCKED(3108, "stapi_rix_lock.releaseLock(lockPtr=%p) Lock not initialized\n", ptr(lockPtr));
        return -1;
    }
    if (pthread_mutex_unlock(&lockPtr->lock) != 0) {
        const int savedErrno = errno;
        EXC_UNLOCKED(3109, "stapi_rix_lock.releaseLock(lockPtr=%p) Lock release failed errno=%d\n", ptr(lockPtr),
                     savedErrno);
        return -5;
    }
    locksTaken = locksTaken - 1;
    return 0;
}

int isLockInitialized(const stapilock *lockPtr)
{
    return lockPtr->initialized;
}

int destroyLock(stapilock *lockPtr)
{
    if (lockPtr->initialized != LOCK_INITIALIZED) {
        EXC_UNLOCKED(3112, "stapi_rix_lock.destroyLock(lockPtr=%p) Lock not initialized\n", ptr(lockPtr));
        return -1;
    }
    if (pthread_mutex_destroy(&lockPtr->lock) != 0) {
        const int savedErrno = errno;
        EXC_UNLOCKED(3113, "stapi_rix_lock.destroyLock(lockPtr=%p) Lock destroy failed errno=%d\n", ptr(lockPtr),
                     savedErrno);
        return -4;
    }
    lockPtr->initialized = LOCK_DESTROYED;
    return 0;
}

} // namespace rixstats
