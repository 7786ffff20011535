// The present call of a thread. See the header.
#include "stapi_rix_call.h"

#include <ctime>

namespace rixstats {

constexpr int64_t NANOSECONDS_IN_MILLISECOND = 1000000;

__thread CallState callState __attribute__((tls_model("initial-exec")));

static int64_t monotonicNow()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * INT64_C(1000000000) + now.tv_nsec;
}

void beginLocalCall()
{
    callState.present = {};
    callState.deadline = 0;
    callState.limitReached = false;
}

void beginGatewayCall()
{
    if (callState.timeLimit > 0) callState.deadline = monotonicNow() + callState.timeLimit * NANOSECONDS_IN_MILLISECOND;
}

int64_t nanosecondsLeft()
{
    const int64_t left = callState.deadline - monotonicNow();
    return left > 0 ? left : 0;
}

int millisecondsLeft()
{
    return static_cast<int>((nanosecondsLeft() + NANOSECONDS_IN_MILLISECOND - 1) / NANOSECONDS_IN_MILLISECOND);
}

void noteReasons(int flowRc, const ReasonCodes &reasons)
{
    if (flowRc == STAPI_NO_MEMORY && reasons.gatewayRc == 0) noteErrno(ENOMEM); // else the gateway's own code
    if (reasons.socketErrno != 0) callState.present.socketErrno = reasons.socketErrno;
    callState.present.gatewayRc = reasons.gatewayRc;
    callState.present.authRc = reasons.authRc;
    callState.present.adminRc = reasons.adminRc;
}

static int rememberFailure(int code)
{
    callState.last = callState.present;
    callState.last.code = code;
    return code;
}

int LocalCall::end(int rc) const
{
    if (rc != STAPI_OK) return rememberFailure(rc);
    errno = savedErrno;
    return rc;
}

int endFailedStep(int rc)
{
    beginLocalCall();
    return rememberFailure(rc);
}

} // namespace rixstats
