// The commands of the viewer, one table row each: the command line is built from this table, and main runs from it.
#ifndef RIXSTAT_COMMANDS_H
#define RIXSTAT_COMMANDS_H

#include "document.h"
#include "viewer.h"

#include <vector>

namespace rixstat {

// What is so of some commands only.
enum CommandOptions : unsigned
{
    noOptions = 0,
    repeats = 1,   // --interval and --count
    ranks = 2,     // --top and --by
    asksNobody = 4 // needs no gateway and no configuration
};

struct Command
{
    const char *name;
    const char *help;
    const char *idsHelp;   // null: the command takes no ids
    const FieldPlan *plan; // null: the command has no rows
    unsigned options;
    int defaultCount;
    double defaultInterval;
    ExitStatus (*run)(const Viewer &viewer);
};

const std::vector<Command> &commands();

ExitStatus runGroups(const Viewer &viewer);
ExitStatus runIds(const Viewer &viewer);
ExitStatus runGet(const Viewer &viewer);
ExitStatus runWatch(const Viewer &viewer);
ExitStatus runPing(const Viewer &viewer);
ExitStatus runDoctor(const Viewer &viewer);
ExitStatus runDump(const Viewer &viewer);
ExitStatus runVersion(const Viewer &viewer);

} // namespace rixstat

#endif // RIXSTAT_COMMANDS_H
