// SIGINT, SIGTERM and SIGHUP, and waiting that they may end. The first one is heard where the viewer can leave in order:
// what is being written is finished, the gateway is told. While the viewer waits for the gateway the first one ends the
// process, else the second one does.
#ifndef RIXSTAT_INTERRUPT_H
#define RIXSTAT_INTERRUPT_H

#include <chrono>
#include <string>

namespace rixstat {

// A signal has come: thrown where the viewer would have gone on.
struct Interrupted
{
};

// From here on the signals are heard.
void hearSignals();

// In its life the process waits for the gateway, and a signal ends it as endInterrupted() does.
class WaitingForGateway
{
public:
    WaitingForGateway(); // throws Interrupted
    ~WaitingForGateway();
    WaitingForGateway(const WaitingForGateway &) = delete;
    WaitingForGateway &operator=(const WaitingForGateway &) = delete;
};

enum class Pause
{
    over,
    readerGone // nobody reads standard output any more
};

// Waits until then, or until nobody reads standard output any more. Throws Interrupted.
Pause pauseUntil(std::chrono::steady_clock::time_point then);

// What standard output is to show once more if a signal ends the viewer.
void setLastWords(const std::string &text);

// The file whose content is to be written to the target if a signal ends the viewer while it waits; -1: none.
void setLastFile(int file, int target);

// Writes those, and ends the process: of SIGINT by that signal, so that a shell's loop ends with it, of the others with
// exitInterrupted.
[[noreturn]] void endInterrupted();

} // namespace rixstat

#endif // RIXSTAT_INTERRUPT_H
