#include "codes.h"

#include "text.h"

#include <rixstats_ext.h>

#include <cerrno>
#include <cstring>
#include <netdb.h>

namespace rixstat {
namespace {

struct Advice
{
    int code;
    Cause cause;
    const char *remedy; // {port} stands for the port that was tried
};

constexpr char tryAgain[] = "try again";
constexpr char checkHost[] = "is the host up, and does a firewall block port {port}?";
constexpr char checkGateway[] =
    "is port {port} its statistics port? The gateway's log tells more, and so does --trace 4";
constexpr char startReader[] = "start the program that reads it first";
constexpr char askGateway[] = "the gateway's log tells why, and so may its administrator";

constexpr Advice advices[] = {
    {STAPI_CONNECTION_REFUSED, Cause::noConnection, "is the gateway running, and is its statistics port {port}?"},
    {STAPI_CONNECT_TIMED_OUT, Cause::timeOut, checkHost},
    {STAPI_NETWORK_UNREACHABLE, Cause::noConnection, "check the host name and the network"},
    {STAPI_HOST_NOT_FOUND, Cause::noConnection, "check the spelling of --host"},
    {STAPI_CONNECT_FAILED, Cause::noConnection, checkHost},
    {STAPI_COMMS_FAILURE, Cause::broken, "has the gateway been stopped? Try again once it runs"},
    {STAPI_GATEWAY_EXCHANGE_FAILED, Cause::broken, checkGateway},
    {STAPI_TIME_LIMIT_REACHED, Cause::timeOut,
     "is the gateway stopped or overloaded? Allow it more time with --timeout"},
    {STAPI_TRACE_FILE_OPEN_FAILED, Cause::here, "check its directory and your permission to write there"},
    // Also the answer to an id of more than 32,765 bytes.
    {STAPI_NO_MEMORY, Cause::here, "free memory, or ask for fewer or shorter ids at once"},
    {STAPI_LOCK_INIT_FAILED, Cause::here, tryAgain},
    {-2, Cause::here, tryAgain}, // no mutex to be had
};

// All others a correct viewer never provokes.
constexpr Advice fault = {0, Cause::here, "this is a fault of rixstat: please report it with the output of --trace 4"};

const Advice &adviceFor(int code)
{
    for (const Advice &advice : advices)
        if (advice.code == code) return advice;
    return fault;
}

// A host that does not answer within --timeout and one that the system has given up are the same to the user. A FIFO
// without a reader lies in a good directory.
std::string remedyForCode(const Failure &failure)
{
    if (failure.code == STAPI_TIME_LIMIT_REACHED && failure.libraryStep == RIX_STEP_CONNECT) return checkHost;
    if (failure.code == STAPI_TRACE_FILE_OPEN_FAILED && failure.systemError == ENXIO) return startReader;
    return adviceFor(failure.code).remedy;
}

RIX_Failure_t lastFailure()
{
    RIX_Failure_t record = {};
    record.size = sizeof record;
    rixGetLastFailure(&record);
    return record;
}

// What the gateway, or its host, has been sent at this step.
const char *sentAt(int step)
{
    switch (step) {
    case RIX_STEP_CONNECT:
        return "the connect";
    case RIX_STEP_HANDSHAKE:
        return "the greeting";
    case RIX_STEP_AUTHORISE:
        return "the authorisation";
    default:
        return "the request";
    }
}

// What the gateway has refused, empty if it has refused nothing.
std::string refusal(const RIX_Failure_t &record)
{
    const int code = record.authRc != 0 ? record.authRc : record.adminRc != 0 ? record.adminRc : record.gatewayRc;
    if (record.exceptionFlag != 0) return "the gateway refused the request: it could not execute it";
    if (code == 0) return {};
    return "the gateway refused " + std::string(sentAt(record.step)) + " with its code " + std::to_string(code);
}

std::string breakage(const RIX_Failure_t &record)
{
    if (record.socketErrno == RIX_PEER_CLOSED)
        return "the gateway closed the connection before its answer was complete";
    if (record.socketErrno != 0) return "the connection broke: " + std::string(std::strerror(record.socketErrno));
    return "the gateway sent an answer that cannot be read";
}

} // namespace

Failure explain(const std::string &step, int code, const Settings &settings)
{
    const RIX_Failure_t record = lastFailure();
    Failure failure = {step, code, adviceFor(code).cause, rixCodeText(code)};
    if (code == STAPI_TIME_LIMIT_REACHED) {
        failure = timeOut(step, settings);
        if (record.step != RIX_STEP_RESOLVE) failure.happened += std::string(" to ") + sentAt(record.step);
    }
    failure.libraryStep = record.step;
    const std::string refused = refusal(record);
    if (!refused.empty()) {
        failure.cause = Cause::refused;
        failure.happened = refused;
    } else if (code == STAPI_GATEWAY_EXCHANGE_FAILED ||
               (code == STAPI_CONNECT_FAILED && record.step >= RIX_STEP_HANDSHAKE)) {
        failure.cause = Cause::broken;
        failure.happened = breakage(record);
    } else if (code == STAPI_HOST_NOT_FOUND && record.resolverCode != 0) {
        failure.happened += std::string(": ") + gai_strerror(record.resolverCode);
    } else if (code == STAPI_CONNECT_FAILED && record.socketErrno > 0) {
        failure.happened = "the connection could not be made: " + std::string(std::strerror(record.socketErrno));
    }
    return failure;
}

Failure timeOut(const std::string &step, const Settings &settings)
{
    return {step, STAPI_TIME_LIMIT_REACHED, Cause::timeOut,
            "no answer within " + shortNumber(settings.timeout) + (settings.timeout == 1 ? " second" : " seconds")};
}

ExitStatus exitStatusOf(Cause cause)
{
    switch (cause) {
    case Cause::noConnection:
        return exitNoConnection;
    case Cause::timeOut:
        return exitTimeOut;
    case Cause::refused:
        return exitRefused;
    case Cause::broken:
        return exitBroken;
    case Cause::here:
        break;
    }
    return exitFailed;
}

void require(int code, const std::string &step)
{
    if (code == STAPI_OK) return;
    Failure failure = {step, code, adviceFor(code).cause, rixCodeText(code)};
    failure.systemError = lastFailure().socketErrno;
    if (failure.systemError > 0) failure.happened = std::strerror(failure.systemError);
    throw failure;
}

std::string gatewayName(const Settings &settings)
{
    return "host " + printable(settings.host) + ", port " + std::to_string(settings.port);
}

std::string codeName(int code)
{
    return std::string(rixCodeName(code)) + " (" + std::to_string(code) + ")";
}

std::string remedyOf(const Failure &failure, const Settings &settings)
{
    static const std::string mark = "{port}";
    std::string text = failure.cause == Cause::refused                  ? askGateway
                       : failure.cause == adviceFor(failure.code).cause ? remedyForCode(failure)
                                                                        : checkGateway;
    const size_t position = text.find(mark);
    return position == std::string::npos ? text : text.replace(position, mark.size(), std::to_string(settings.port));
}

std::string describe(const Failure &failure, const Settings &settings)
{
    return gatewayName(settings) + ": " + printable(failure.step) + " failed with " + codeName(failure.code) + ": " +
           failure.happened + "; " + remedyOf(failure, settings);
}

} // namespace rixstat
