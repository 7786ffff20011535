// The way of the trace's bytes out of the library. Where they go is the program's affair, and may be anything: a pipe
// whose reader is gone or asleep, a FIFO, a file that has grown to the size limit. Writing there raises no signal in the
// program, changes no errno and waits for a bounded time; what a destination does not take is lost, counted, and told to
// it when it takes something again. Calls libc alone.
#ifndef STAPI_RIX_DIAG_OUTPUT_H
#define STAPI_RIX_DIAG_OUTPUT_H

#include <cstddef>
#include <cstdio>
#include <signal.h>

namespace rixstats {

constexpr int OUTPUT_PATIENCE_MS = 1000; // for a destination that takes nothing

// Stands around the output of one line or one dump. The caller holds traceLock for as long as it lives.
class QuietOutput
{
public:
    QuietOutput();  // holds back the signals that a write may raise in this thread
    ~QuietOutput(); // takes away those that were raised since; those of the program stay pending
    QuietOutput(const QuietOutput &) = delete;
    QuietOutput &operator=(const QuietOutput &) = delete;

private:
    int errnoBefore;
    sigset_t maskBefore;
    sigset_t pendingBefore;
};

// Writes past the stream's buffer. A destination that takes nothing for OUTPUT_PATIENCE_MS is not waited for again
// before it takes something. A stream without a descriptor is written to as it is.
void writeOutput(FILE *destination, const char *bytes, size_t length);

// The same for a text of less than 2048 bytes.
void printOutput(FILE *destination, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Opens a file to append to, above the standard descriptors, without waiting for the reader of a FIFO. Null and errno
// if it cannot be had. Nothing is ever buffered in the stream, so that closing it writes nothing.
FILE *openOutput(const char *name);

// The destination has been changed: what the former one missed is no concern of the new one.
void startOutput();

} // namespace rixstats

#endif
