// The configuration file, ~/.config/rixstat/config.toml: where the gateway is, and names for several of them.
//
//     host = "gw7"               # when neither the command line nor a name says otherwise
//     port = 2980
//
//     [gateways.prod]            # rixstat @prod get
//     host = "gw1.example.net"
//     port = 2981
#ifndef RIXSTAT_CONFIG_H
#define RIXSTAT_CONFIG_H

#include <map>
#include <optional>
#include <string>

namespace rixstat {

struct GatewayAddress
{
    std::optional<std::string> host;
    std::optional<int> port;
};

struct Config
{
    std::string path; // empty: the user has no home
    GatewayAddress standard;
    std::map<std::string, GatewayAddress> gateways;
};

// Reads the user's file; without one, nothing is configured. Throws UsageError, with file and line, for what it does
// not understand.
Config readConfig();

} // namespace rixstat

#endif // RIXSTAT_CONFIG_H
