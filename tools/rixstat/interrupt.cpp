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
volatile std::sig_atomic_t interrupted = 0; // the number of the first signal
// These change while nobody waits, so that the handler may read them.
bool showsCtrlC = false; // standard output is a terminal, which echoes ^C; the shell ends the line if nothing else does
std::string lastWords;
int lastFile = -1;
int lastTarget = -1;

[[noreturn]] void leave()
{
    if (interrupted == SIGINT) {
        std::signal(SIGINT, SIG_DFL);
        raise(SIGINT);
    }
    _exit(exitInterrupted);
}

extern "C" void onSignal(int number)
{
    if (interrupted != 0) leave();
    interrupted = number;
    if (waiting != 0) endInterrupted();
}

void writeLastFile()
{
    char block[4096];
    off_t done = 0;
    for (ssize_t size = 0; (size = pread(lastFile, block, sizeof block, done)) > 0; done += size)
        writeAll(lastTarget, {block, static_cast<size_t>(size)});
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
    showsCtrlC = isatty(STDOUT_FILENO) == 1;
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

void setLastFile(int file, int target)
{
    lastFile = file;
    lastTarget = target;
}

void endInterrupted()
{
    if (lastFile >= 0) writeLastFile();
    if (showsCtrlC && interrupted == SIGINT && !lastWords.empty()) writeAll(STDOUT_FILENO, "\n");
    writeAll(STDOUT_FILENO, lastWords);
    leave();
}

} // namespace rixstat
