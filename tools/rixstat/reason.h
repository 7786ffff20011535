// Why a call on a gateway failed, as far as the trace tells more than the return code.
#ifndef RIXSTAT_REASON_H
#define RIXSTAT_REASON_H

#include "codes.h"
#include "trace_tap.h"

#include <string>
#include <vector>

namespace rixstat {

// The failure of a step, with cause and detail as the code and the trace of the call tell them.
Failure explain(const std::string &step, int code, const std::vector<TraceLine> &trace);

} // namespace rixstat

#endif // RIXSTAT_REASON_H
