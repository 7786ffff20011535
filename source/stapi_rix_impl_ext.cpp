// The calls of rixstats_ext.h that keep something for the calling thread: its time limit, and its last failure.
#include "stapi_rix_call.h"
#include "stapi_rix_diag.h"
#include "stapi_rix_impl.h"

#include <cstddef>
#include <cstring>

using namespace rixstats;

int rixSetTimeLimit(int milliseconds)
{
    const LocalCall call;
    int rc = stapiInit();
    ENTRY(1162, "API.rixSetTimeLimit(milliseconds=%d) current time limit=%d\n", milliseconds, callState.timeLimit);
    if (rc == STAPI_OK && milliseconds < 0) {
        rc = STAPI_BAD_TIME_LIMIT;
        EXC(1163, "API.rixSetTimeLimit() Supplied time limit %d was negative\n", milliseconds);
    }
    if (rc == STAPI_OK) callState.timeLimit = milliseconds;
    EXIT(1164, "API.rixSetTimeLimit(milliseconds=%d) new time limit=%d rc=%d\n", milliseconds, callState.timeLimit, rc);
    return call.end(rc);
}

int rixGetTimeLimit(int *milliseconds)
{
    const LocalCall call;
    int rc = stapiInit();
    ENTRY(1165, "API.rixGetTimeLimit(milliseconds=%p)\n", ptr(milliseconds));
    if (rc == STAPI_OK && milliseconds == nullptr) {
        rc = STAPI_NULL_OUTPUT_PTR;
        EXC(1166, "API.rixGetTimeLimit() Supplied pointer is NULL\n");
    }
    if (rc == STAPI_OK) *milliseconds = callState.timeLimit;
    EXIT(1167, "API.rixGetTimeLimit(milliseconds=%p) rc=%d\n", ptr(milliseconds), rc);
    return call.end(rc);
}

constexpr int LEAST_FAILURE_SIZE = static_cast<int>(offsetof(RIX_Failure_t, step));

// No more than the caller has room for, which may be less than this version knows, or more.
static void copyFailure(RIX_Failure_t *failure)
{
    RIX_Failure_t told = callState.last;
    const int known = static_cast<int>(sizeof told);
    told.size = failure->size < known ? failure->size : known;
    memcpy(failure, &told, static_cast<size_t>(told.size));
}

// It fails without a trace in the record that it tells of: that is of the calls which it is asked about.
int rixGetLastFailure(RIX_Failure_t *failure)
{
    const int savedErrno = errno;
    int rc = stapiInit();
    ENTRY(1168, "API.rixGetLastFailure(failure=%p)\n", ptr(failure));
    if (rc == STAPI_OK && failure == nullptr) {
        rc = STAPI_NULL_OUTPUT_PTR;
        EXC(1169, "API.rixGetLastFailure() Supplied pointer is NULL\n");
    } else if (rc == STAPI_OK && failure->size < LEAST_FAILURE_SIZE) {
        rc = STAPI_BAD_RECORD_SIZE;
        EXC(1170, "API.rixGetLastFailure(failure=%p) Supplied record size %d was too small\n", ptr(failure),
            failure->size);
    }
    if (rc == STAPI_OK) copyFailure(failure);
    EXIT(1171, "API.rixGetLastFailure(failure=%p) rc=%d\n", ptr(failure), rc);
    if (rc == STAPI_OK) errno = savedErrno;
    return rc;
}
