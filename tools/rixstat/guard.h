// Time limits and signals. The library waits for a gateway as long as it takes; the guard is the second thread that
// ends such a wait, by closing the connection, when time is up or the user asks the viewer to stop.
#ifndef RIXSTAT_GUARD_H
#define RIXSTAT_GUARD_H

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <thread>

namespace rixstat {

// SIGINT, SIGTERM or SIGHUP has come: thrown where the viewer would have gone on.
struct Interrupted
{
};

class Guard
{
public:
    using Clock = std::chrono::steady_clock;

    enum class Ending
    {
        itself,  // the call returned by itself
        timedOut // the guard ended it
    };

    struct Outcome
    {
        int code;
        Ending ending;
    };

    enum class Pause
    {
        over,
        readerGone // nobody reads standard output any more
    };

    // From here on the signals are the guard's. lastWords is called, with the step, when a wait cannot be ended (name
    // resolution is one) and the process has to be left as it is.
    Guard(std::chrono::duration<double> limit, std::function<void(const std::string &)> lastWords);
    ~Guard();
    Guard(const Guard &) = delete;
    Guard &operator=(const Guard &) = delete;

    // Runs a call of the library that waits for the gateway. After any ending but itself there is no connection any
    // more, whatever the code. Throws Interrupted.
    Outcome run(const std::string &step, const std::function<int()> &call);

    // Waits for what another thread does, as long as for a call. False when time is up. Throws Interrupted.
    bool await(const std::future<void> &done) const;

    // Waits until then, or until nobody reads standard output any more. Throws Interrupted.
    Pause pauseUntil(Clock::time_point then) const;

    // Throws Interrupted if a signal has come.
    void check() const;

private:
    void serve();
    void endCall(std::unique_lock<std::mutex> &lock);
    void arm(bool on) const;
    [[noreturn]] void leave();

    const Clock::duration limit;
    const std::function<void(const std::string &)> lastWords;
    sigset_t signals;
    int wake[2]; // a pipe: readable once a signal has come

    mutable std::mutex mutex; // for the following
    std::condition_variable changed;
    std::string step;
    bool calling = false; // the main thread is inside a call
    bool closing = false; // the guard is ending it
    bool overdue = false; // the guard has ended it, or will, because time was up
    bool interrupted = false;
    bool stopping = false;
    Clock::time_point deadline;

    std::thread thread; // last: it uses all of the above
};

} // namespace rixstat

#endif // RIXSTAT_GUARD_H
