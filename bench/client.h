// What the benchmarks share on the library's side: prepared gateways, a connection to one, and the library from a
// module, which may have been built in another way.
#pragma once

#include "conversation.h"
#include "inner_module.h"

#include <dlfcn.h>

#include <map>
#include <tuple>

namespace rixbench {

// Made at the first call for a load, and kept until the program ends.
inline const PreparedGateway &prepared(const Load &load)
{
    static std::map<std::tuple<Query, int, int>, PreparedGateway> gateways;
    return gateways.try_emplace(std::make_tuple(load.query, load.items, load.valueBytes), load).first->second;
}

// From the library in a module of its own.
struct Library
{
    decltype(&getFirstStat) first;
    decltype(&getNextStat) next;
    decltype(&rixbenchParse) parse;
    decltype(&rixbenchNewArea) newArea;
    decltype(&rixbenchFreeArea) freeArea;
};

template <class Call>
void findCall(void *module, const char *name, Call *call)
{
    *call = reinterpret_cast<Call>(dlsym(module, name));
    require(*call != nullptr, name);
}

inline Library loadLibrary(const char *file)
{
    void *module = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    require(module != nullptr, file);
    Library library = {};
    findCall(module, "getFirstStat", &library.first);
    findCall(module, "getNextStat", &library.next);
    findCall(module, "rixbenchParse", &library.parse);
    findCall(module, "rixbenchNewArea", &library.newArea);
    findCall(module, "rixbenchFreeArea", &library.freeArea);
    return library;
}

class Client
{
public:
    explicit Client(const Load &theLoad) : load(theLoad), text(prepared(load).conversation().queryText)
    {
        char *version = nullptr;
        require(openGatewayConnection(prepared(load).port(), &gateway, &version) == STAPI_OK,
                "cannot open a connection");
        query();
    }
    ~Client() { closeGatewayConnection(&gateway); }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    RIX_ResultSetToken_t query()
    {
        RIX_ResultSetToken_t resultSet = nullptr;
        require(ask(load.query, gateway, text, &resultSet) == STAPI_OK, "a query failed");
        return resultSet;
    }

private:
    const Load load;
    const char *const text;
    RIX_GatewayToken_t gateway = nullptr;
};

} // namespace rixbench
