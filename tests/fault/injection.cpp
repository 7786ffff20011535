// The calls that the linker diverts: __wrap_x takes the place of x, which is __real_x here.
#include "faults.h"

#include "stapi_rix_gwytok.h"

#include <netdb.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace fault {

thread_local Injection injection;
thread_local std::function<int(const timeval &)> connectWait;
thread_local std::function<void()> afterRecv;
thread_local time_t clockAhead = 0;
thread_local long liveBlocks = 0;

long usedBlocks()
{
    return liveBlocks - rixstats::gtlRestingCount;
}

} // namespace fault

using fault::liveBlocks;

static bool fails(std::string_view call)
{
    fault::Injection &fault = fault::injection;
    if (call != fault.call || ++fault.seen < fault.nth || fault.seen >= fault.nth + fault.times) return false;
    errno = fault.error;
    return true;
}

#define DIVERT(Result, call, failure, parameters, arguments)                                                           \
    Result __real_##call parameters;                                                                                   \
    Result __wrap_##call parameters                                                                                    \
    {                                                                                                                  \
        return fails(#call) ? (failure) : __real_##call arguments;                                                     \
    }

// replaces: how many live blocks the new one takes the place of.
#define ALLOCATE(call, replaces, parameters, arguments)                                                                \
    void *__real_##call parameters;                                                                                    \
    void *__wrap_##call parameters                                                                                     \
    {                                                                                                                  \
        void *const made = fails("allocate") ? nullptr : __real_##call arguments;                                      \
        liveBlocks += made != nullptr ? 1 - (replaces) : 0;                                                            \
        return made;                                                                                                   \
    }

#define RELEASE(call, Block)                                                                                           \
    void __real_##call(Block *);                                                                                       \
    void __wrap_##call(Block *block)                                                                                   \
    {                                                                                                                  \
        liveBlocks -= block != nullptr;                                                                                \
        __real_##call(block);                                                                                          \
    }

extern "C" {

DIVERT(int, pthread_mutex_init, errno, (pthread_mutex_t * mutex, const pthread_mutexattr_t *how), (mutex, how))
DIVERT(int, socket, -1, (int family, int type, int protocol), (family, type, protocol))
DIVERT(int, setsockopt, -1, (int desc, int level, int name, const void *value, socklen_t size),
       (desc, level, name, value, size))
DIVERT(int, ioctl, -1, (int desc, unsigned long request, void *argument), (desc, request, argument))
DIVERT(int, poll, -1, (struct pollfd * descs, nfds_t count, int timeout), (descs, count, timeout))
DIVERT(int, clock_gettime, -1, (clockid_t clock, struct timespec *now), (clock, now))
DIVERT(int, connect, -1, (int desc, const sockaddr *address, socklen_t size), (desc, address, size))
DIVERT(ssize_t, send, errno == 0 ? 0 : -1, (int desc, const void *data, size_t size, int flags),
       (desc, data, size, flags))

// In how many pieces a long reply arrives is the network's choice. A sweep that counts them needs the same pieces every
// time: full ones of 64 KiB, and the rest.
ssize_t __real_recv(int, void *, size_t, int);
ssize_t __wrap_recv(int desc, void *data, size_t size, int flags)
{
    if (fails("recv")) return errno == 0 ? 0 : -1;
    if (fault::injection.call == "recv") return __real_recv(desc, data, std::min<size_t>(size, 65536), MSG_WAITALL);
    const ssize_t got = __real_recv(desc, data, size, flags);
    if (fault::afterRecv) fault::afterRecv();
    return got;
}

int __real_getaddrinfo(const char *, const char *, const addrinfo *, addrinfo **);
int __wrap_getaddrinfo(const char *host, const char *service, const addrinfo *hints, addrinfo **found)
{
    if (fails("getaddrinfo")) return -errno; // its codes are negative and injected without their sign
    const int rc = __real_getaddrinfo(host, service, hints, found);
    liveBlocks += rc == 0;
    return rc;
}

int __real_getsockopt(int, int, int, void *, socklen_t *);
int __wrap_getsockopt(int desc, int level, int name, void *value, socklen_t *size)
{
    if (fails("getsockopt")) return -1;
    const int rc = __real_getsockopt(desc, level, name, value, size);
    if (fails("SO_ERROR")) *static_cast<int *>(value) = errno;
    return rc;
}

int __real_select(int, fd_set *, fd_set *, fd_set *, timeval *);
int __wrap_select(int count, fd_set *readable, fd_set *writable, fd_set *exceptional, timeval *timeout)
{
    if (writable != nullptr && fault::connectWait) return fault::connectWait(*timeout);
    return fails("select") ? -1 : __real_select(count, readable, writable, exceptional, timeout);
}

int __real_close(int);
int __wrap_close(int desc) // which closes also when it reports an error
{
    const int rc = __real_close(desc);
    return fails("close") ? -1 : rc;
}

time_t __real_time(time_t *);
time_t __wrap_time(time_t *)
{
    return __real_time(nullptr) + fault::clockAhead;
}

ALLOCATE(malloc, 0, (size_t size), (size))
ALLOCATE(calloc, 0, (size_t count, size_t size), (count, size))
ALLOCATE(realloc, block != nullptr, (void *block, size_t size), (block, size))
RELEASE(free, void)

// Of mappings those that replies and result sets are in count, which are large.
constexpr size_t kLeastMapping = 1 << 20;

void *__real_mmap(void *, size_t, int, int, int, off_t);
void *__wrap_mmap(void *place, size_t size, int protection, int flags, int desc, off_t offset)
{
    if (size < kLeastMapping) return __real_mmap(place, size, protection, flags, desc, offset);
    if (fails("allocate")) return MAP_FAILED;
    void *const made = __real_mmap(place, size, protection, flags, desc, offset);
    liveBlocks += made != MAP_FAILED;
    return made;
}

void *__real_mremap(void *, size_t, size_t, int, ...);
void *__wrap_mremap(void *block, size_t size, size_t newSize, int flags)
{
    return fails("allocate") ? MAP_FAILED : __real_mremap(block, size, newSize, flags);
}

int __real_munmap(void *, size_t);
int __wrap_munmap(void *block, size_t size)
{
    liveBlocks -= size >= kLeastMapping;
    return __real_munmap(block, size);
}

RELEASE(freeaddrinfo, addrinfo)

} // extern "C"
