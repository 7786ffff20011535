// Failures in words: what happened, what to do, and the exit status that goes with it. What a return code means the
// library tells; what the viewer knows beyond that is in one table, so that every command explains a code in the same
// way.
#ifndef RIXSTAT_CODES_H
#define RIXSTAT_CODES_H

#include "settings.h"

#include <string>

namespace rixstat {

// What kind of failure a code tells of; decides the exit status.
enum class Cause
{
    here,         // on this side: memory, files, a fault of the viewer
    noConnection, // the gateway could not be reached
    timeOut,      // no answer in time
    refused,      // the gateway said no
    broken        // the connection was lost, or the answer made no sense
};

// A call of the library that failed. Thrown by what calls the library, reported in one place (main).
struct Failure
{
    std::string step; // what was being done: "asking for statistics"
    int code;         // the call's return code
    Cause cause;
    std::string happened; // in a clause
    int libraryStep = 0;  // RIX_STEP_...: how far the call came
    int systemError = 0;  // errno of the system call that failed, as far as it is known
};

// The failure of the call of the library that this thread has made last, which talked to the gateway.
Failure explain(const std::string &step, int code, const Settings &settings);

// A step that has taken as long as --timeout allows.
Failure timeOut(const std::string &step, const Settings &settings);

ExitStatus exitStatusOf(Cause cause);

// Throws a Failure unless code is STAPI_OK. For calls that do not talk to the gateway.
void require(int code, const std::string &step);

// "host H, port P", as messages begin.
std::string gatewayName(const Settings &settings);

// "STAPI_COMMS_FAILURE (-102)".
std::string codeName(int code);

// What to do about it, in a clause.
std::string remedyOf(const Failure &failure, const Settings &settings);

// The failure in one line, without line end: gateway, step, code and its name, what happened and what to do.
std::string describe(const Failure &failure, const Settings &settings);

} // namespace rixstat

#endif // RIXSTAT_CODES_H
