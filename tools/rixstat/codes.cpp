#include "codes.h"

#include "text.h"

#include <rixstats.h>

namespace rixstat {
namespace {

struct CodeText
{
    int code;
    const char *name;
    const char *happened;
    const char *remedy; // {port} stands for the port that was tried
};

constexpr char tryAgain[] = "try again";
constexpr char checkProcess[] = "is the gateway running, and is its statistics port {port}?";
constexpr char checkGateway[] =
    "is port {port} really its statistics port? The gateway's log tells more, and so does --trace 4";
constexpr char freeMemory[] = "free memory, or ask for fewer ids at once";
constexpr char reportFault[] = "this is a fault of rixstat: please report it with the output of --trace 4";

// Name and number come from the header's enumerator, so that they cannot drift apart.
#define CODE(code) code, #code

constexpr CodeText codeTexts[] = {
    // what an operator meets
    {CODE(STAPI_CONNECTION_REFUSED), "nothing listens on that host and port", checkProcess},
    {CODE(STAPI_CONNECT_TIMED_OUT), "the host did not answer within 60 seconds",
     "is the host up, and does a firewall block port {port}?"},
    {CODE(STAPI_NETWORK_UNREACHABLE), "there is no route to the host's network", "check the host name and the network"},
    {CODE(STAPI_HOST_NOT_FOUND), "the host name could not be resolved", "check the spelling of --host"},
    {CODE(STAPI_CONNECT_FAILED), "connecting failed, or the gateway refused the greeting or the authorisation",
     checkGateway},
    {CODE(STAPI_COMMS_FAILURE), "the connection to the gateway was lost",
     "has the gateway been stopped? Try again once it runs"},
    {CODE(STAPI_GATEWAY_EXCHANGE_FAILED), "the gateway refused the request or sent an answer that cannot be read",
     checkGateway},
    {CODE(STAPI_BAD_PORT), "the port is outside 1..65535", "give the gateway's statistics port with --port"},
    {CODE(STAPI_TRACE_FILE_OPEN_FAILED), "the trace file could not be opened, or its name is too long",
     "check its directory and your permission to write there"},
    {CODE(STAPI_BAD_TRACE_LEVEL), "the trace level is outside 0..5", "give --trace a level from 0 to 5"},
    // Also the answer to a query text of more than 32,765 bytes.
    {CODE(STAPI_NO_MEMORY), "memory ran out, or the list of ids is longer than 32,765 bytes", freeMemory},
    {CODE(STAPI_LOCK_INIT_FAILED), "the library could not set up a lock", tryAgain},
    {-2, "no mutex", "the library could not set up a lock", tryAgain},

    // what a correct viewer never provokes
    {CODE(STAPI_NULL_GATEWAY_TOKEN), "the connection handle is null", reportFault},
    {CODE(STAPI_GATEWAY_TOKEN_NOT_FOUND), "the connection is no longer open", reportFault},
    {CODE(STAPI_NULL_ARGUMENT), "an argument is null", reportFault},
    {CODE(STAPI_NULL_PROTOCOL_VERSION_PTR), "an argument is null", reportFault},
    {CODE(STAPI_NOT_USER_RESULT_SET), "the result set is not a copy", reportFault},
    {CODE(STAPI_NULL_GATEWAY_TOKEN_PTR), "an argument is null", reportFault},
    {CODE(STAPI_NULL_OUTPUT_PTR), "an argument is null", reportFault},
    {CODE(STAPI_NO_RESULT_SET_BUFFER), "the connection has no data", reportFault},
    {CODE(STAPI_END_OF_RESULTS), "the result set has no further item", reportFault},
    {CODE(STAPI_GTL_CORRUPT), "the library's list of connections is damaged", reportFault},
    {CODE(STAPI_BAD_RESULT_SET_OWNER), "the result set has an unknown owner", reportFault},
    {CODE(STAPI_UNRECOGNISED_CONTENT), "the result set does not hold what was asked for", reportFault},
    {CODE(STAPI_WRONG_PROCESS), "the connection belongs to another process", reportFault},
    {CODE(STAPI_WRONG_THREAD), "the connection belongs to another thread", reportFault},
    {CODE(STAPI_NULL_RESULT_SET_PTR), "an argument is null", reportFault},
    {CODE(STAPI_NULL_QUERY_STRING), "an argument is null", reportFault},
    {CODE(STAPI_NULL_RESULT_SET_TOKEN), "the result-set handle is null", reportFault},
    {CODE(STAPI_NULL_ID_DATA_PTR), "an argument is null", reportFault},
    {CODE(STAPI_NULL_STAT_DATA_PTR), "an argument is null", reportFault},
    {CODE(STAPI_NO_IDS_FOR_QUERY), "the result set holds no identifier", reportFault},
    {CODE(STAPI_NULL_HOSTNAME), "an argument is null", reportFault},
};

#undef CODE

const CodeText &codeText(int code)
{
    static constexpr CodeText unknown = {0, "unknown code", "the library returned a code that rixstat does not know",
                                         "do rixstat and the library belong to the same release?"};
    for (const CodeText &text : codeTexts)
        if (text.code == code) return text;
    return unknown;
}

std::string withPort(std::string text, int port)
{
    static const std::string mark = "{port}";
    const size_t position = text.find(mark);
    return position == std::string::npos ? text : text.replace(position, mark.size(), std::to_string(port));
}

} // namespace

void require(int code, const std::string &step)
{
    if (code != STAPI_OK) throw Failure{step, code};
}

std::string gatewayName(const std::string &host, int port)
{
    return "host " + printable(host) + ", port " + std::to_string(port);
}

std::string describe(const Failure &failure, const std::string &host, int port)
{
    const CodeText &text = codeText(failure.code);
    return gatewayName(host, port) + ": " + printable(failure.step) + " failed with " + text.name + " (" +
           std::to_string(failure.code) + "): " + text.happened + "; " + withPort(text.remedy, port);
}

} // namespace rixstat
