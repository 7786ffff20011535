// rixstat: shows the statistics of a running gateway.
//
//     rixstat [--host H] [--port P] groups | ids [ID:...] | get [ID:...] | dump [ID:...]
//
// Each concern has its file: the command line (command_line), what a command does (commands), asking the gateway
// (query), the table (table, text), return codes in words (codes), writing (output).
#include "codes.h"
#include "command_line.h"
#include "output.h"
#include "text.h"

#include <exception>

using namespace rixstat;

static ExitStatus run(const CommandLine &line)
{
    if (line.command != nullptr) return line.command->run(line.settings);
    print(line.information);
    return exitGood;
}

// Every failure of the viewer ends here, as one line on standard error.
int main(int argc, char **argv)
{
    prepareOutput();
    CommandLine line;
    try {
        parseCommandLine(argc, argv, line);
        return run(line);
    } catch (const UsageError &error) {
        complain(printable(error.what()));
        return exitUsage;
    } catch (const Failure &failure) {
        complain(describe(failure, line.settings.host, line.settings.port));
    } catch (const std::exception &error) {
        complain(error.what());
    }
    return exitFailed;
}
