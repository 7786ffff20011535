#include "reason.h"

#include <rixstats.h>

#include <algorithm>
#include <cstdlib>

namespace rixstat {
namespace {

// What a gateway can refuse, by the trace point that tells of it.
struct Refusal
{
    int point;
    const char *what;
    const char *codeAfter; // the gateway's code comes after these characters; null: there is none
};

constexpr Refusal refusals[] = {
    {3005, "the greeting", "gwyRc="},
    {3212, "the authorisation", "rc="},
    {3206, "the request", "AuthRc="},
    {3205, "the request: it could not execute it", nullptr},
    {2004, "the greeting or the authorisation", "connect rc = "},
    {3238, "the request", "rc="},
};

// The trace points of a connection that could not be made.
constexpr int unconnected[] = {3001, 3006, 3012};

int codeIn(const std::string &line, const std::string &mark)
{
    const size_t position = line.rfind(mark);
    return position == std::string::npos ? 0 : std::atoi(line.c_str() + position + mark.size());
}

// Some points tell of failures on the way too; those have codes of the library's own.
bool isGatewaysOwn(int point, int code)
{
    if (point == 2004) return code > 0;
    return code != 0 && code != -1 && code != STAPI_NO_MEMORY && code != STAPI_GATEWAY_EXCHANGE_FAILED;
}

// What the line says was refused, empty if it says no such thing.
std::string refusalIn(const TraceLine &line)
{
    for (const Refusal &row : refusals) {
        if (row.point != line.point) continue;
        if (row.codeAfter == nullptr) return row.what;
        const int code = codeIn(line.text, row.codeAfter);
        if (isGatewaysOwn(line.point, code)) return row.what + std::string(" with its code ") + std::to_string(code);
    }
    return {};
}

bool tellsOfNoConnection(const TraceLine &line)
{
    return std::count(std::begin(unconnected), std::end(unconnected), line.point) != 0;
}

} // namespace

Failure explain(const std::string &step, int code, const std::vector<TraceLine> &trace)
{
    Failure failure = {step, code, causeOf(code)};
    if (code != STAPI_CONNECT_FAILED && failure.cause != Cause::broken) return failure;
    for (const TraceLine &line : trace) {
        failure.detail = refusalIn(line);
        if (failure.detail.empty()) continue;
        failure.cause = Cause::refused;
        return failure;
    }
    const bool unmade = trace.empty() || std::any_of(trace.begin(), trace.end(), tellsOfNoConnection);
    if (code == STAPI_CONNECT_FAILED && !unmade) failure.cause = Cause::broken;
    return failure;
}

} // namespace rixstat
