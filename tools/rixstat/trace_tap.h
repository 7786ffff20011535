// Listens to the library's trace: it tells of a failure what the return code does not, whether the gateway refused or
// the connection broke, and at which step of an opening. What the user has asked to be traced, and no more, goes where
// the user wants it.
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
    int level = 0;        // the lowest trace level at which the library writes it
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

    // From here on the trace is listened to, at this level, or at the user's if that is higher: what a failure is taken
    // for never depends on what the user wants to see.
    void listen(int level);
    // What has been traced since, without dumps; or nothing, cheaply, where it is not wanted. Back to the user's level.
    std::vector<TraceLine> heard(bool wanted);

    // What the library has written since is a dump for the user, and is shown as it is.
    void passOn();

    // Shows what is left. Says what is wrong if any of what was to be shown could not be written; else nothing.
    std::string finish();

private:
    void followUsersFile();
    std::string ownFile() const;
    std::string readText();
    std::string takeText();
    void show(const std::string &text);
    void forget();

    const int userLevel;
    const std::string userFile;
    const bool direct;   // the library writes to the user's file itself
    int descriptor = -1; // of the file that the trace goes to; -1: it cannot be read back
    bool ours = false;   // a file of ours, which nobody else reads
    off_t position = 0;  // up to where it has been read
    int target = -1;     // where the user wants it, as long as the file is ours
    int lost = 0;        // errno of the first write that failed
};

} // namespace rixstat

#endif // RIXSTAT_TRACE_TAP_H
