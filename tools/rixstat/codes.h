// The library's return codes in words: name, what happened, what to do. One table, so that every command explains a
// code in the same way.
#ifndef RIXSTAT_CODES_H
#define RIXSTAT_CODES_H

#include <string>

namespace rixstat {

// A call of the library that failed. Thrown by what calls the library, reported in one place (main).
struct Failure
{
    std::string step; // what was being done: "asking for values"
    int code;         // the call's return code
};

// Throws a Failure unless code is STAPI_OK.
void require(int code, const std::string &step);

// "host H, port P", as messages begin.
std::string gatewayName(const std::string &host, int port);

// The failure in one line, without line end: gateway, step, code, what happened and what to do.
std::string describe(const Failure &failure, const std::string &host, int port);

} // namespace rixstat

#endif // RIXSTAT_CODES_H
