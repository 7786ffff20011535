#include "commands.h"

#include "codes.h"
#include "output.h"
#include "query.h"
#include "table.h"

#include <rixstats.h>

namespace rixstat {
namespace {

// The file comes first, so that the trace starts there.
void startTrace(const Settings &settings)
{
    if (!settings.traceFile.empty())
        require(setAPITraceFile(settings.traceFile.c_str()), "opening the trace file " + settings.traceFile);
    require(setAPITraceLevel(settings.traceLevel), "setting the trace level");
}

// The answer, with the connection already closed: a reader of our output that is slow holds up no gateway.
Answer fetch(const Settings &settings, Content content)
{
    startTrace(settings);
    Gateway gateway(settings.host, settings.port);
    return collect(content, gateway.ask(content, settings.ids));
}

template <Content content>
ExitStatus show(const Settings &settings)
{
    const Answer answer = fetch(settings, content);
    print(formatTable(answer));
    const size_t failed = countFailed(answer);
    if (failed == 0) return exitGood;
    complain(gatewayName(settings.host, settings.port) + ": " + std::to_string(failed) +
             (failed == 1 ? " element" : " elements") +
             " failed, see the rows marked so; does the gateway have ids of that name (rixstat groups, "
             "rixstat ids)?");
    return exitFailed;
}

ExitStatus dump(const Settings &settings)
{
    startTrace(settings);
    Gateway gateway(settings.host, settings.port);
    // Before the query, whose result set would else be dumped twice and whose failure would end the connection.
    require(dumpState(), "dumping the state");
    require(dumpResultSet(gateway.ask(Content::values, settings.ids)), "dumping the result set");
    return exitGood;
}

} // namespace

const std::vector<Command> &commands()
{
    static const std::vector<Command> table = {
        {"groups", "Show the ids of all resource groups", nullptr, show<Content::groups>},
        {"ids", "Show the ids of statistics", "Groups or statistics whose ids to show; all if none is given",
         show<Content::ids>},
        {"get", "Show statistics with their values", "Statistics or groups to show; all if none is given",
         show<Content::values>},
        {"dump", "Write the library's state and the answer to one query, for support, to the trace destination",
         "Statistics to ask for; all if none is given", dump},
    };
    return table;
}

} // namespace rixstat
