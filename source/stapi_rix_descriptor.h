// Descriptors that stay out of the way of the standard streams: in a program that has closed one of them, the next
// descriptor would take its place, and what the program prints would go to the gateway or into the trace. Calls libc
// alone.
#ifndef STAPI_RIX_DESCRIPTOR_H
#define STAPI_RIX_DESCRIPTOR_H

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace rixstats {

inline void closeKeepingErrno(int descriptor)
{
    const int savedErrno = errno;
    close(descriptor);
    errno = savedErrno;
}

// The descriptor, or one above the standard ones in its place; -1 and errno if there is none to be had.
inline int aboveStandardDescriptors(int descriptor)
{
    if (descriptor < 0 || descriptor > STDERR_FILENO) return descriptor;
    const int above = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    closeKeepingErrno(descriptor);
    return above;
}

} // namespace rixstats

#endif
