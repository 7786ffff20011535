// The library's trace: where the user wants it, and what it tells the doctor of the time that an opening has taken.
#ifndef RIXSTAT_TRACE_H
#define RIXSTAT_TRACE_H

#include "settings.h"

#include <string>
#include <vector>

namespace rixstat {

// Starts the trace that the user asked for. Throws a Failure if its file cannot be opened.
void startTrace(const Settings &settings);

// Why the user's trace file does not take what is written to it; empty if it does.
std::string problemOfTraceFile(const Settings &settings);

struct TraceLine
{
    int point;        // names the place in the library that wrote the line
    int milliseconds; // of the day
};

// Keeps the trace of the calls in its life, at level 4 at least. The user who wants a trace gets it all the same.
class KeptTrace
{
public:
    explicit KeptTrace(const Settings &settings);
    ~KeptTrace();
    KeptTrace(const KeptTrace &) = delete;
    KeptTrace &operator=(const KeptTrace &) = delete;

    // Ends it. No lines if there was no memory to keep them in.
    std::vector<TraceLine> take();

private:
    const Settings &settings;
    int kept = -1;   // a file in memory
    int target = -1; // where the user wants the trace
};

} // namespace rixstat

#endif // RIXSTAT_TRACE_H
