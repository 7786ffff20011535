#include "codes.h"

#include "text.h"

#include <rixstats.h>

namespace rixstat {
namespace {

struct CodeText
{
    const char *name;
    int code;
    Cause cause;
    const char *happened;
    const char *remedy; // {port} stands for the port that was tried
};

constexpr char tryAgain[] = "try again";
constexpr char checkProcess[] = "is the gateway running, and is its statistics port {port}?";
constexpr char checkGateway[] =
    "is port {port} its statistics port? The gateway's log tells more, and so does --trace 4";
constexpr char checkHost[] = "is the host up, and does a firewall block port {port}?";
constexpr char freeMemory[] = "free memory, or ask for fewer ids at once";
constexpr char reportFault[] = "this is a fault of rixstat: please report it with the output of --trace 4";

// Name and number come from the header's enumerator, so that they cannot drift apart.
#define CODE(code) #code, code

constexpr CodeText codeTexts[] = {
    // what an operator meets
    {CODE(STAPI_CONNECTION_REFUSED), Cause::noConnection, "nothing listens on that host and port", checkProcess},
    {CODE(STAPI_CONNECT_TIMED_OUT), Cause::timeOut, "the host did not answer within 60 seconds", checkHost},
    {CODE(STAPI_NETWORK_UNREACHABLE), Cause::noConnection, "there is no route to the host's network",
     "check the host name and the network"},
    {CODE(STAPI_HOST_NOT_FOUND), Cause::noConnection, "the host name could not be resolved",
     "check the spelling of --host"},
    {CODE(STAPI_CONNECT_FAILED), Cause::noConnection, "the connection could not be made", checkHost},
    {CODE(STAPI_COMMS_FAILURE), Cause::broken, "the connection to the gateway was lost",
     "has the gateway been stopped? Try again once it runs"},
    {CODE(STAPI_GATEWAY_EXCHANGE_FAILED), Cause::broken,
     "the gateway ended the connection or sent an answer that cannot be read", checkGateway},
    {CODE(STAPI_BAD_PORT), Cause::here, "the port is outside 1..65535",
     "give the gateway's statistics port with --port"},
    {CODE(STAPI_TRACE_FILE_OPEN_FAILED), Cause::here, "the trace file could not be opened, or its name is too long",
     "check its directory and your permission to write there"},
    {CODE(STAPI_BAD_TRACE_LEVEL), Cause::here, "the trace level is outside 0..5", "give --trace a level from 0 to 5"},
    // Also the answer to an id of more than 32,765 bytes.
    {CODE(STAPI_NO_MEMORY), Cause::here, "memory ran out, or an id is longer than 32,765 bytes", freeMemory},
    {CODE(STAPI_LOCK_INIT_FAILED), Cause::here, "the library could not set up a lock", tryAgain},
    {"no mutex", -2, Cause::here, "the library could not set up a lock", tryAgain},

    // what a correct viewer never provokes
    {CODE(STAPI_NULL_GATEWAY_TOKEN), Cause::here, "the connection handle is null", reportFault},
    {CODE(STAPI_GATEWAY_TOKEN_NOT_FOUND), Cause::here, "the connection is no longer open", reportFault},
    {CODE(STAPI_NULL_ARGUMENT), Cause::here, "an argument is null", reportFault},
    {CODE(STAPI_NULL_PROTOCOL_VERSION_PTR), Cause::here, "an argument is null", reportFault},
    {CODE(STAPI_NOT_USER_RESULT_SET), Cause::here, "the result set is not a copy", reportFault},
    {CODE(STAPI_NULL_GATEWAY_TOKEN_PTR), Cause::here, "an argument is null", reportFault},
    {CODE(STAPI_NULL_OUTPUT_PTR), Cause::here, "an argument is null", reportFault},
    {CODE(STAPI_NO_RESULT_SET_BUFFER), Cause::here, "the connection has no data", reportFault},
    {CODE(STAPI_END_OF_RESULTS), Cause::here, "the result set has no further item", reportFault},
    {CODE(STAPI_GTL_CORRUPT), Cause::here, "the library's list of connections is damaged", reportFault},
    {CODE(STAPI_BAD_RESULT_SET_OWNER), Cause::here, "the result set has an unknown owner", reportFault},
    {CODE(STAPI_UNRECOGNISED_CONTENT), Cause::here, "the result set does not hold what was asked for", reportFault},
    {CODE(STAPI_WRONG_PROCESS), Cause::here, "the connection belongs to another process", reportFault},
    {CODE(STAPI_WRONG_THREAD), Cause::here, "the connection belongs to another thread", reportFault},
    {CODE(STAPI_NULL_RESULT_SET_PTR), Cause::here, "an argument is null", reportFault},
    {CODE(STAPI_NULL_QUERY_STRING), Cause::here, "an argument is null", reportFault},
    {CODE(STAPI_NULL_RESULT_SET_TOKEN), Cause::here, "the result-set handle is null", reportFault},
    {CODE(STAPI_NULL_ID_DATA_PTR), Cause::here, "an argument is null", reportFault},
    {CODE(STAPI_NULL_STAT_DATA_PTR), Cause::here, "an argument is null", reportFault},
    {CODE(STAPI_NO_IDS_FOR_QUERY), Cause::here, "the result set holds no identifier", reportFault},
    {CODE(STAPI_NULL_HOSTNAME), Cause::here, "an argument is null", reportFault},
};

#undef CODE

// What is said instead of the code's own words where the cause is better known than the code.
struct CauseText
{
    Cause cause;
    ExitStatus status;
    const char *happened; // null: the code's own words say it
    const char *remedy;
};

constexpr CauseText causeTexts[] = {
    {Cause::here, exitFailed, nullptr, nullptr},
    {Cause::noConnection, exitNoConnection, nullptr, nullptr},
    {Cause::timeOut, exitTimeOut, "no answer",
     "is the gateway stopped or overloaded? Allow it more time with --timeout"},
    {Cause::refused, exitRefused, "the gateway refused", "the gateway's log tells why, and so may its administrator"},
    {Cause::broken, exitBroken, "the gateway ended the connection or sent an answer that cannot be read", checkGateway},
};

const CodeText &codeText(int code)
{
    static constexpr CodeText unknown = {"unknown code", 0, Cause::here,
                                         "the library returned a code that rixstat does not know",
                                         "do rixstat and the library belong to the same release?"};
    for (const CodeText &text : codeTexts)
        if (text.code == code) return text;
    return unknown;
}

const CauseText &causeText(Cause cause)
{
    for (const CauseText &text : causeTexts)
        if (text.cause == cause) return text;
    return causeTexts[0];
}

bool speaksForItself(const Failure &failure)
{
    return codeText(failure.code).cause == failure.cause;
}

} // namespace

Failure timeOut(const std::string &step, int code, const Settings &settings)
{
    return {step, code, Cause::timeOut,
            "within " + shortNumber(settings.timeout) + (settings.timeout == 1 ? " second" : " seconds")};
}

Cause causeOf(int code)
{
    return codeText(code).cause;
}

ExitStatus exitStatusOf(Cause cause)
{
    return causeText(cause).status;
}

void require(int code, const std::string &step)
{
    if (code != STAPI_OK) throw Failure{step, code, causeOf(code)};
}

std::string gatewayName(const Settings &settings)
{
    return "host " + printable(settings.host) + ", port " + std::to_string(settings.port);
}

std::string codeName(int code)
{
    return std::string(codeText(code).name) + " (" + std::to_string(code) + ")";
}

std::string meaningOf(const Failure &failure)
{
    const std::string happened =
        speaksForItself(failure) ? codeText(failure.code).happened : causeText(failure.cause).happened;
    return failure.detail.empty() ? happened : happened + " " + failure.detail;
}

std::string remedyOf(const Failure &failure, const Settings &settings)
{
    static const std::string mark = "{port}";
    std::string text = speaksForItself(failure) ? codeText(failure.code).remedy : causeText(failure.cause).remedy;
    const size_t position = text.find(mark);
    return position == std::string::npos ? text : text.replace(position, mark.size(), std::to_string(settings.port));
}

std::string describe(const Failure &failure, const Settings &settings)
{
    return gatewayName(settings) + ": " + printable(failure.step) + " failed with " + codeName(failure.code) + ": " +
           meaningOf(failure) + "; " + remedyOf(failure, settings);
}

} // namespace rixstat
