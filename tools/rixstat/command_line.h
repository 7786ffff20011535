// The viewer's command line.
#ifndef RIXSTAT_COMMAND_LINE_H
#define RIXSTAT_COMMAND_LINE_H

#include "commands.h"

#include <stdexcept>
#include <string>

namespace rixstat {

struct CommandLine
{
    const Command *command = nullptr; // null: only information was asked for
    Settings settings;
    std::string information; // the text of --help or --version
};

// A command line that cannot be understood; what() says why, in one line.
struct UsageError : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

// Fills the command line from the program's arguments. Throws UsageError.
void parseCommandLine(int argc, char **argv, CommandLine &line);

} // namespace rixstat

#endif // RIXSTAT_COMMAND_LINE_H
