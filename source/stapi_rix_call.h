// What the present call of a thread knows of itself: until when it may wait, what it is doing, and why it fails. Every
// exported call stands in one of the frames below, which keep errno as it was where the call succeeds and remember the
// failure where it does not. Calls nothing of the library.
#ifndef STAPI_RIX_CALL_H
#define STAPI_RIX_CALL_H

#include "rixstats_ext.h"
#include "stapi_rix_socketcomms.h"

#include <cerrno>
#include <cstdint>

namespace rixstats {

// Of each thread.
typedef struct _CallState
{
    int timeLimit;         // of each call that talks to a gateway, in milliseconds; 0: none
    int64_t deadline;      // of the present call, in nanoseconds of the monotonic clock; 0: none
    bool limitReached;     // the present call has stopped waiting
    RIX_Failure_t present; // of the present call, filled as it goes; counts only if it fails
    RIX_Failure_t last;    // of the last call that failed
} CallState;

// __thread needs no C++ run-time support. In the initial-exec model the memory comes with the thread: the other models
// fetch it at the first access, and end the process if there is none. Programs that load the library late have some
// hundred bytes in reserve for that; this takes fewer than a hundred.
#pragma GCC visibility push(hidden)
extern __thread CallState callState __attribute__((tls_model("initial-exec")));
#pragma GCC visibility pop
static_assert(sizeof(CallState) < 100, "little may be taken of what loaders keep in reserve");

inline bool hasDeadline()
{
    return callState.deadline != 0;
}

int64_t nanosecondsLeft(); // of a call that has a deadline; 0 when it has passed
int millisecondsLeft();    // the same, rounded up

inline void noteStep(int step)
{
    callState.present.step = step;
}

inline void noteErrno(int error)
{
    callState.present.socketErrno = error;
}

void noteReasons(int flowRc, const ReasonCodes &reasons); // of a flow with that result

void beginLocalCall();
void beginGatewayCall(); // the clock starts

// The frame of a call that waits for nobody.
class LocalCall
{
public:
    LocalCall() : savedErrno(errno) { beginLocalCall(); }
    int end(int rc) const; // returns rc

private:
    int savedErrno;
};

// The frame of a call that talks to a gateway: its time limit counts from here.
class GatewayCall : public LocalCall
{
public:
    GatewayCall() { beginGatewayCall(); }
};

int endFailedStep(int rc); // returns rc

// For a step of a walk, which does nothing that could change errno. The end of the results is no failure.
inline int endOfStep(int rc)
{
    return __builtin_expect(rc != STAPI_OK && rc != STAPI_END_OF_RESULTS, 0) ? endFailedStep(rc) : rc;
}

} // namespace rixstats

#endif
