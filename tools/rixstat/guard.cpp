#include "guard.h"

#include "settings.h"

#include <rixstats.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/time.h>
#include <system_error>
#include <unistd.h>

namespace rixstat {
namespace {

using std::chrono::milliseconds;

// A call that has been ended comes back at once; one that has not after so long cannot be ended.
constexpr milliseconds patience{2000};
// The close may come before the call has a connection to close, so it is repeated.
constexpr milliseconds nextTry{100};
constexpr milliseconds slice{20};

timespec until(Guard::Clock::time_point then)
{
    const auto left = std::max(then - Guard::Clock::now(), Guard::Clock::duration::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    return {static_cast<time_t>(seconds.count()), static_cast<long>(std::chrono::nanoseconds(left - seconds).count())};
}

} // namespace

Guard::Guard(std::chrono::duration<double> seconds, std::function<void(const std::string &)> words)
    : limit(std::chrono::duration_cast<Clock::duration>(seconds)), lastWords(std::move(words))
{
    if (pipe2(wake, O_CLOEXEC | O_NONBLOCK) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot create a pipe");
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGALRM})
        sigaddset(&signals, signal);
    struct sigaction hangUp = {};
    if (sigaction(SIGHUP, nullptr, &hangUp) == 0 && hangUp.sa_handler != SIG_IGN) // nohup says that it is to be ignored
        sigaddset(&signals, SIGHUP);
    // Blocked in every thread and taken up by sigwait, so that no handler is needed.
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    thread = std::thread([this] { serve(); });
}

Guard::~Guard()
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
    }
    pthread_kill(thread.native_handle(), SIGALRM);
    thread.join();
    close(wake[0]);
    close(wake[1]);
}

void Guard::serve()
{
    for (;;) {
        int signal = 0;
        sigwait(&signals, &signal);
        std::unique_lock<std::mutex> lock(mutex);
        if (stopping) return;
        if (signal != SIGALRM) {
            if (interrupted) _exit(exitInterrupted); // the second time: the main thread cannot hear us
            interrupted = true;
            if (write(wake[1], "", 1) < 0) continue; // the pipe is full of such bytes
        }
        if (calling && (interrupted || Clock::now() >= deadline)) endCall(lock);
    }
}

void Guard::endCall(std::unique_lock<std::mutex> &lock)
{
    overdue = true;
    closing = true;
    const Clock::time_point end = Clock::now() + patience;
    while (calling) {
        lock.unlock();
        closeAllGatewayConnections();
        lock.lock();
        if (!changed.wait_for(lock, nextTry, [this] { return !calling; }) && Clock::now() >= end) leave();
    }
    closing = false;
    changed.notify_all();
}

void Guard::leave()
{
    if (!interrupted) lastWords(step);
    _exit(interrupted ? exitInterrupted : exitTimeOut);
}

// The alarm of the process, which the guard's thread takes up.
void Guard::arm(bool on) const
{
    itimerval timer = {};
    if (on) {
        const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(limit).count() + 1;
        timer.it_value = {static_cast<time_t>(micros / 1000000), static_cast<suseconds_t>(micros % 1000000)};
    }
    setitimer(ITIMER_REAL, &timer, nullptr);
}

Guard::Outcome Guard::run(const std::string &name, const std::function<int()> &call)
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (interrupted) throw Interrupted();
        step = name;
        calling = true;
        overdue = false;
        deadline = Clock::now() + limit;
    }
    arm(true);
    const int code = call();
    arm(false);
    std::unique_lock<std::mutex> lock(mutex);
    calling = false;
    changed.notify_all();
    // The guard may have met the connection when it was idle already, and waits for a gateway that says nothing.
    if (!changed.wait_for(lock, patience, [this] { return !closing; })) leave();
    if (interrupted) throw Interrupted();
    return {code, overdue ? Ending::timedOut : Ending::itself};
}

bool Guard::await(const std::future<void> &done) const
{
    const Clock::time_point end = Clock::now() + limit;
    while (done.wait_for(slice) != std::future_status::ready) {
        check();
        if (Clock::now() >= end) return false;
    }
    return true;
}

Guard::Pause Guard::pauseUntil(Clock::time_point then) const
{
    for (;;) {
        check();
        const timespec left = until(then);
        pollfd watched[] = {{wake[0], POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
        const int ready = ppoll(watched, 2, &left, nullptr);
        if (ready > 0 && (watched[1].revents & (POLLERR | POLLHUP)) != 0) return Pause::readerGone;
        if (Clock::now() >= then) return Pause::over;
    }
}

void Guard::check() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (interrupted) throw Interrupted();
}

} // namespace rixstat
