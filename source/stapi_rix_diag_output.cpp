// Writing to the trace's destination by its descriptor, in pieces that a pipe takes whole or not at all. See the header.
#include "stapi_rix_diag_output.h"

#include "stapi_rix_descriptor.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace rixstats {

// How it stands with the present destination.
typedef struct _Destination
{
    bool stalled;  // it was waited for in vain
    bool midLine;  // the last byte that it took was no line's end
    size_t missed; // lines that it did not take since it took one
} Destination;

static Destination current;

// Signals that writes have raised since the latest QuietOutput began.
static bool brokenPipeRaised, sizeLimitRaised;

// ---- Signals

QuietOutput::QuietOutput() : errnoBefore(errno)
{
    brokenPipeRaised = sizeLimitRaised = false;
    sigset_t raisedByWrites;
    sigemptyset(&raisedByWrites);
    sigaddset(&raisedByWrites, SIGPIPE);
    sigaddset(&raisedByWrites, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &raisedByWrites, &maskBefore);
    // What was not blocked cannot have been pending.
    sigemptyset(&pendingBefore);
    if (sigismember(&maskBefore, SIGPIPE) == 1 || sigismember(&maskBefore, SIGXFSZ) == 1) sigpending(&pendingBefore);
}

static void takeRaised(int signal, const sigset_t &pendingBefore)
{
    if (sigismember(&pendingBefore, signal) == 1) return; // the program's own, and one is all that can be pending
    sigset_t raised;
    sigemptyset(&raised);
    sigaddset(&raised, signal);
    const struct timespec noTime = {0, 0};
    while (sigtimedwait(&raised, nullptr, &noTime) < 0 && errno == EINTR) {
    }
}

QuietOutput::~QuietOutput()
{
    if (brokenPipeRaised) takeRaised(SIGPIPE, pendingBefore);
    if (sizeLimitRaised) takeRaised(SIGXFSZ, pendingBefore);
    pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
    errno = errnoBefore;
}

// ---- Pieces

static int64_t milliseconds()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// Until when a destination is waited for; the clock is not read where that is not needed.
typedef struct _Patience
{
    int64_t end; // 0: has not begun
} Patience;

static int timeLeft(Patience *patience)
{
    if (current.stalled) return 0;
    const int64_t now = milliseconds();
    if (patience->end == 0) patience->end = now + OUTPUT_PATIENCE_MS;
    return patience->end > now ? static_cast<int>(patience->end - now) : 0;
}

// An error of the destination is for the write to find.
static bool hasRoom(int descriptor, Patience *patience)
{
    struct pollfd room = {descriptor, POLLOUT, 0};
    int ready = poll(&room, 1, 0);
    while (ready <= 0) {
        const int left = timeLeft(patience);
        if (left == 0) return false;
        ready = poll(&room, 1, left);
    }
    return true;
}

// Another writer may fill a pipe or a socket between the look at it and the write: neither is let wait, where the system
// can do that for a descriptor that waits otherwise.
static ssize_t offerOnce(int descriptor, mode_t kind, const char *bytes, size_t length)
{
    if (S_ISSOCK(kind)) return send(descriptor, bytes, length, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (S_ISFIFO(kind)) {
        struct iovec piece = {const_cast<char *>(bytes), length};
        const ssize_t taken = pwritev2(descriptor, &piece, 1, -1, RWF_NOWAIT);
        const bool refused = taken < 0 && (errno == EOPNOTSUPP || errno == ENOSYS || errno == EPERM); // by filters, too
        if (!refused) return taken;
    }
    return write(descriptor, bytes, length);
}

static void noteRaised()
{
    brokenPipeRaised = brokenPipeRaised || errno == EPIPE;
    sizeLimitRaised = sizeLimitRaised || errno == EFBIG;
}

// How much of a piece the destination took: nothing, if it would not in time or never will.
static size_t offer(int descriptor, mode_t kind, const char *bytes, size_t length)
{
    Patience patience = {0};
    for (;;) {
        if (!S_ISREG(kind) && !hasRoom(descriptor, &patience)) break;
        const ssize_t taken = offerOnce(descriptor, kind, bytes, length);
        if (taken > 0) {
            current.stalled = false;
            return static_cast<size_t>(taken);
        }
        if (taken == 0 || (errno != EAGAIN && errno != EINTR)) {
            if (taken < 0) noteRaised();
            return 0;
        }
        const bool noRoom = errno == EAGAIN;
        if (timeLeft(&patience) == 0) break;
        if (noRoom) poll(nullptr, 0, 10); // there is some, or was, but not enough
    }
    current.stalled = true;
    return 0;
}

static size_t deliver(int descriptor, mode_t kind, const char *bytes, size_t length)
{
    size_t taken = 0;
    while (taken < length) {
        const size_t left = length - taken;
        const size_t now = offer(descriptor, kind, bytes + taken, left < PIPE_BUF ? left : PIPE_BUF);
        if (now == 0) break;
        taken += now;
        current.midLine = bytes[taken - 1] != '\n';
    }
    return taken;
}

// ---- What is lost

static size_t countLines(const char *bytes, size_t length)
{
    size_t lines = 0;
    for (size_t i = 0; i < length; i++)
        if (bytes[i] == '\n' || i + 1 == length) lines++;
    return lines;
}

static bool tellMissed(int descriptor, mode_t kind)
{
    char text[160];
    const int length = snprintf(
        text, sizeof text, "%s*** %zu lines of this trace are missing here: its destination did not take them ***\n",
        current.midLine ? "\n" : "", current.missed);
    if (deliver(descriptor, kind, text, static_cast<size_t>(length)) < static_cast<size_t>(length)) return false;
    current.missed = 0;
    return true;
}

void startOutput()
{
    current = {false, false, 0};
}

// A terminal that nobody reads takes the beginning of a line and waits with the rest. To open it once more is the one way
// to write without that wait, and without a change of what the program shares with others.
static int openTerminalAgain(int descriptor)
{
    unsigned number;
    if (ioctl(descriptor, TIOCGPTN, &number) == 0) return -1; // a master: opened again, it would be another terminal
    char name[32];
    snprintf(name, sizeof name, "/proc/self/fd/%d", descriptor);
    return aboveStandardDescriptors(open(name, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

// ---- Output

static void deliverOrCount(int descriptor, mode_t kind, const char *bytes, size_t length)
{
    size_t taken = 0;
    if (current.missed == 0 || tellMissed(descriptor, kind)) taken = deliver(descriptor, kind, bytes, length);
    current.missed += countLines(bytes + taken, length - taken);
}

void writeOutput(FILE *destination, const char *bytes, size_t length)
{
    const int descriptor = fileno(destination);
    if (descriptor < 0) {
        fwrite(bytes, 1, length, destination);
        fflush(destination);
        return;
    }
    struct stat status;
    const mode_t kind = fstat(descriptor, &status) == 0 ? status.st_mode : 0;
    const int terminal = S_ISCHR(kind) && isatty(descriptor) == 1 ? openTerminalAgain(descriptor) : -1;
    deliverOrCount(terminal >= 0 ? terminal : descriptor, kind, bytes, length);
    if (terminal >= 0) close(terminal);
}

void printOutput(FILE *destination, const char *format, ...)
{
    char text[2048];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (length < 0) return;
    const size_t size = static_cast<size_t>(length);
    writeOutput(destination, text, size < sizeof text ? size : sizeof text - 1);
}

FILE *openOutput(const char *name)
{
    const int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    const int descriptor = aboveStandardDescriptors(open(name, flags, 0666));
    if (descriptor < 0) return nullptr;
    FILE *stream = fdopen(descriptor, "a");
    if (stream == nullptr) closeKeepingErrno(descriptor);
    return stream;
}

} // namespace rixstats
