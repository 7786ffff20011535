// The viewer's command line, and what the configuration file adds to it.
#ifndef RIXSTAT_COMMAND_LINE_H
#define RIXSTAT_COMMAND_LINE_H

#include "commands.h"
#include "settings.h"

#include <string>

namespace rixstat {

struct CommandLine
{
    const Command *command = nullptr; // null: only information was asked for
    Settings settings;
    std::string information; // the text of --help or --version
};

// Fills the command line from the program's arguments. Throws UsageError.
void parseCommandLine(int argc, char **argv, CommandLine &line);

} // namespace rixstat

#endif // RIXSTAT_COMMAND_LINE_H
