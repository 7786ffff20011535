// rixstat: shows the statistics of a running gateway.
//
// Each concern has its file. The way in: command_line, config, commands (the table of commands). What commands do:
// show (groups, ids, get, dump, version), watch, ping, doctor. Towards the gateway: session, selection, guard (time
// limits and signals), trace_tap and reason (why something failed), codes (return codes in words). Towards the user:
// document (rows and fields), viewer (what all share), write_* (one file for each output form), table, screen, series,
// number, text, output.
#include "codes.h"
#include "command_line.h"
#include "output.h"
#include "text.h"
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
    Guard guard(std::chrono::duration<double>(settings.timeout), [&](const std::string &step) {
        complain(describe(timeOut(step, STAPI_COMMS_FAILURE, settings), settings));
    });
    TraceTap tap(settings);
    const auto lostTrace = [&tap] {
        const std::string problem = tap.finish();
        if (!problem.empty()) complain(problem);
        return !problem.empty();
    };
    try {
        const ExitStatus status = line.command->run({line.command->name, line.command->plan, settings, guard, tap});
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
        return exitInterrupted;
    } catch (const Failure &failure) {
        complain(describe(failure, line.settings));
        return exitStatusOf(failure.cause);
    } catch (const std::exception &error) {
        complain(error.what());
    }
    return exitFailed;
}
