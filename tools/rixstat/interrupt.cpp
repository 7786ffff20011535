#include "interrupt.h"

#include "output.h"
#include "settings.h"

#include <algorithm>
#include <csignal>
#include <ctime>
#include <poll.h>
#include <unistd.h>

namespace rixstat {
namespace {

using Clock = std::chrono::steady_clock;

volatile std::sig_atomic_t waiting = 0;
volatile std::sig_atomic_t interrupted = 0;
std::string lastWords; // changes while nobody waits, so that the handler may read it

extern "C" void onSignal(int)
{
    if (interrupted != 0) _exit(exitInterrupted);
    interrupted = 1;
    if (waiting == 0) return;
    writeLastWords();
    _exit(exitInterrupted);
}

sigset_t heardSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM})
        sigaddset(&signals, signal);
    struct sigaction hangUp = {};
    if (sigaction(SIGHUP, nullptr, &hangUp) == 0 && hangUp.sa_handler != SIG_IGN) // nohup says that it is to be ignored
        sigaddset(&signals, SIGHUP);
    return signals;
}

// A signal that comes between the look at the mark and the wait would be slept over: it is let in by the wait alone.
class SignalsHeldBack
{
public:
    SignalsHeldBack()
    {
        const sigset_t signals = heardSignals();
        sigprocmask(SIG_BLOCK, &signals, &before);
    }
    ~SignalsHeldBack() { sigprocmask(SIG_SETMASK, &before, nullptr); }
    SignalsHeldBack(const SignalsHeldBack &) = delete;
    SignalsHeldBack &operator=(const SignalsHeldBack &) = delete;

    sigset_t before;
};

timespec until(Clock::time_point then)
{
    const auto left = std::max(then - Clock::now(), Clock::duration::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    return {static_cast<time_t>(seconds.count()), static_cast<long>(std::chrono::nanoseconds(left - seconds).count())};
}

} // namespace

void hearSignals()
{
    const sigset_t signals = heardSignals();
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART | SA_NODEFER; // the second one is heard while the first one writes its last words
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        if (sigismember(&signals, signal) == 1) sigaction(signal, &action, nullptr);
    sigprocmask(SIG_UNBLOCK, &signals, nullptr); // whoever started the viewer may have held them back
}

WaitingForGateway::WaitingForGateway()
{
    waiting = 1;
    if (interrupted == 0) return;
    waiting = 0;
    throw Interrupted();
}

WaitingForGateway::~WaitingForGateway()
{
    waiting = 0;
}

Pause pauseUntil(Clock::time_point then)
{
    const SignalsHeldBack held;
    for (;;) {
        if (interrupted != 0) throw Interrupted();
        const timespec left = until(then);
        pollfd output = {STDOUT_FILENO, 0, 0};
        const int ready = ppoll(&output, 1, &left, &held.before);
        if (ready > 0 && (output.revents & (POLLERR | POLLHUP)) != 0) return Pause::readerGone;
        if (interrupted == 0 && Clock::now() >= then) return Pause::over;
    }
}

void setLastWords(const std::string &text)
{
    lastWords = text;
}

void writeLastWords()
{
    writeAll(STDOUT_FILENO, lastWords);
}

} // namespace rixstat
