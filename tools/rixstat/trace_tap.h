// Listens to the library's trace: it tells of a failure what the return code does not, whether the gateway refused or
// the connection broke, and at which step of an opening. What the user has asked to be traced goes where the user wants
// it.
#ifndef RIXSTAT_TRACE_TAP_H
#define RIXSTAT_TRACE_TAP_H

#include "settings.h"

#include <string>
#include <vector>

namespace rixstat {

struct TraceLine
{
    int point = 0;        // names the place in the library that wrote the line
    int milliseconds = 0; // of the day
    std::string text;     // all of it
};

class TraceTap
{
public:
    // Starts the trace that the user asked for. Throws a Failure if that cannot be written.
    explicit TraceTap(const Settings &settings);
    ~TraceTap();
    TraceTap(const TraceTap &) = delete;
    TraceTap &operator=(const TraceTap &) = delete;

    // From here on the trace is listened to, at this level, or at the user's if there is one.
    void listen(int level);
    // What has been traced since, without dumps; or nothing, cheaply, where it is not wanted. Quiet again, unless the
    // user traces.
    std::vector<TraceLine> heard(bool wanted);

    // From here on dumps go to the user's file or standard error, and nothing is heard any more.
    void speakPlainly();

private:
    std::string takeText();
    void forget();

    const int userLevel;
    const std::string userFile;
    int descriptor = -1; // of the file that the trace goes to; -1: it cannot be read back
    bool ours = false;   // a file of ours, which nobody else reads
    off_t position = 0;  // up to where it has been read
};

} // namespace rixstat

#endif // RIXSTAT_TRACE_TAP_H
