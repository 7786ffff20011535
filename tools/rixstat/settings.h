// What a command is to do, as the command line and the configuration file say it, and how the viewer may end.
#ifndef RIXSTAT_SETTINGS_H
#define RIXSTAT_SETTINGS_H

#include <string>
#include <vector>

namespace rixstat {

struct Settings
{
    std::string host = "127.0.0.1";
    int port = 2980;
    double timeout = 10; // seconds; for each answer that is waited for
    std::vector<std::string> ids;

    int traceLevel = 0;
    std::string traceFile; // empty: standard error

    std::string form = "table";
    std::vector<std::string> columns; // empty: those of the command and the form
    std::string sort;                 // a column, with a leading '-' for falling order; empty: as the gateway answers
    bool noHeaders = false;

    double interval = 0; // seconds
    int count = 0;       // samples or rounds; 0: without end
    int top = 0;         // rows; 0: all
    std::string by;      // what --top goes by
};

// Exit statuses of the viewer; docs/rixstat.md explains them to users.
enum ExitStatus
{
    exitGood = 0,
    exitFailed = 1, // an element, or something on this side: the output, the trace file, memory
    exitUsage = 2,
    exitNoConnection = 3,
    exitTimeOut = 4,
    exitRefused = 5,
    exitBroken = 6,
    exitInterrupted = 130
};

} // namespace rixstat

#endif // RIXSTAT_SETTINGS_H
