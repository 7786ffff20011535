// rixstat: shows the statistics of a running gateway.
//
// Each concern has its file. The way in: command_line, config, commands (the table of commands). What commands do:
// show (groups, ids, get, dump, version), watch, ping, doctor. Towards the gateway: session, selection, codes (failures
// in words), trace. Towards the user: interrupt (signals), document (rows and fields), viewer (what all share), write_*
// (one file for each output form), table, screen, series, number, text, output.
#include "codes.h"
#include "command_line.h"
#include "interrupt.h"
#include "output.h"
#include "text.h"
#include "trace.h"
#include "usage_error.h"

#include <rixstats.h>

#include <clocale>
#include <exception>

using namespace rixstat;

static int run(const CommandLine &line)
{
    const Settings &settings = line.settings;
    if (line.command == nullptr) {
        print(line.information);
        return exitGood;
    }
    hearSignals();
    startTrace(settings);
    const auto lostTrace = [&] {
        const bool traces = settings.traceLevel > 0 || line.command->plan == nullptr; // a dump goes there, too
        const std::string problem = traces ? problemOfTraceFile(settings) : std::string();
        if (!problem.empty()) complain(printable(problem));
        return !problem.empty();
    };
    try {
        const ExitStatus status = line.command->run({line.command->name, line.command->plan, settings});
        return lostTrace() && status == exitGood ? exitFailed : status;
    } catch (...) {
        lostTrace();
        throw;
    }
}

// Every failure of the viewer ends here, as one line on standard error.
int main(int argc, char **argv)
{
    std::setlocale(LC_CTYPE, "");
    prepareOutput();
    CommandLine line;
    try {
        parseCommandLine(argc, argv, line);
        return run(line);
    } catch (const UsageError &error) {
        complain(printable(error.what()));
        return exitUsage;
    } catch (const Interrupted &) {
        endInterrupted();
    } catch (const Failure &failure) {
        complain(describe(failure, line.settings));
        return exitStatusOf(failure.cause);
    } catch (const std::exception &error) {
        complain(error.what());
    }
    return exitFailed;
}
