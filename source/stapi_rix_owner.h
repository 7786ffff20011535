// Whose a connection or a result set is: that of the thread that opened it, in the process that opened it. Calls the
// trace facility's questions about processes and threads.
#ifndef STAPI_RIX_OWNER_H
#define STAPI_RIX_OWNER_H

#include "rixstats.h"
#include "stapi_rix_diag.h"

namespace rixstats {

// By reference, so that a step of a walk keeps nothing across the calls but the record itself.
inline bool isOwnedByCaller(const pid_t &owningPid, const pthread_t &owningTid)
{
    if (owningPid != currentPid()) return false;
    const pthread_t caller = pthread_self();
    return compareTids(owningTid, caller) != 0;
}

// STAPI_OK if the calling thread is the owner; STAPI_WRONG_PROCESS, or STAPI_WRONG_THREAD of the right process.
inline int ownershipOf(pid_t owningPid, pthread_t owningTid)
{
    if (isOwnedByCaller(owningPid, owningTid)) return STAPI_OK;
    return owningPid != currentPid() ? STAPI_WRONG_PROCESS : STAPI_WRONG_THREAD;
}

} // namespace rixstats

#endif
