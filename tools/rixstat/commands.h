// The commands of the viewer, one table row each: the command line is built from this table, and main runs from it.
#ifndef RIXSTAT_COMMANDS_H
#define RIXSTAT_COMMANDS_H

#include <string>
#include <vector>

namespace rixstat {

// What every command is given.
struct Settings
{
    std::string host = "127.0.0.1";
    int port = 2980;
    std::vector<std::string> ids;
    int traceLevel = 0;
    std::string traceFile; // empty: standard error
};

// Exit statuses of the viewer.
enum ExitStatus
{
    exitGood = 0,
    exitFailed = 1, // a call, an element or the output failed
    exitUsage = 2
};

struct Command
{
    const char *name;
    const char *help;
    const char *idsHelp; // null: the command takes no ids
    ExitStatus (*run)(const Settings &settings);
};

const std::vector<Command> &commands();

} // namespace rixstat

#endif // RIXSTAT_COMMANDS_H
