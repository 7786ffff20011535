// The calls that the linker diverts: __wrap_x takes the place of x, which is __real_x here.
#include "faults.h"

#include <netdb.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdarg>

using fault::Injection;

static thread_local Injection *armed = nullptr;
static thread_local long blocks = 0;

namespace fault {

thread_local const Wait *connectWait = nullptr;
thread_local time_t clockAhead = 0;

Injection::Injection(std::string_view call, int theNth, int theError, int theTimes)
    : kind(call), nth(theNth), error(theError), times(theTimes)
{
    armed = this;
}
Injection::~Injection()
{
    armed = nullptr;
}

int Injection::strike(std::string_view call)
{
    if (call != kind) return -1;
    ++seen;
    return seen >= nth && seen < nth + times ? error : -1;
}

long liveBlocks()
{
    return blocks;
}

} // namespace fault

static int errorOf(std::string_view call)
{
    return armed != nullptr ? armed->strike(call) : -1;
}

// Whether this call is to fail, which sets errno.
static bool fails(std::string_view call)
{
    const int error = errorOf(call);
    if (error >= 0) errno = error;
    return error >= 0;
}

static int failure()
{
    return errno == 0 ? 0 : -1;
}

template <class Allocate> static void *allocate(Allocate call)
{
    void *block = fails("allocate") ? nullptr : call();
    if (block != nullptr) ++blocks;
    return block;
}

extern "C" {

void *__real_malloc(size_t);
void *__real_calloc(size_t, size_t);
void *__real_realloc(void *, size_t);
void __real_free(void *);
int __real_pthread_mutex_init(pthread_mutex_t *, const pthread_mutexattr_t *);
int __real_getaddrinfo(const char *, const char *, const addrinfo *, addrinfo **);
int __real_socket(int, int, int);
int __real_setsockopt(int, int, int, const void *, socklen_t);
int __real_getsockopt(int, int, int, void *, socklen_t *);
int __real_ioctl(int, unsigned long, ...);
int __real_connect(int, const sockaddr *, socklen_t);
int __real_select(int, fd_set *, fd_set *, fd_set *, timeval *);
ssize_t __real_send(int, const void *, size_t, int);
ssize_t __real_recv(int, void *, size_t, int);
int __real_close(int);
time_t __real_time(time_t *);

void *__wrap_malloc(size_t size)
{
    return allocate([=] { return __real_malloc(size); });
}
void *__wrap_calloc(size_t count, size_t size)
{
    return allocate([=] { return __real_calloc(count, size); });
}
void *__wrap_realloc(void *block, size_t size)
{
    void *const moved = allocate([=] { return __real_realloc(block, size); });
    if (moved != nullptr && block != nullptr) --blocks;
    return moved;
}
void __wrap_free(void *block)
{
    if (block != nullptr) --blocks;
    __real_free(block);
}

int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes)
{
    return fails("pthread_mutex_init") ? errno : __real_pthread_mutex_init(mutex, attributes);
}
int __wrap_getaddrinfo(const char *host, const char *service, const addrinfo *hints, addrinfo **found)
{
    const int error = errorOf("getaddrinfo"); // its codes are negative: given without their sign
    return error > 0 ? -error : __real_getaddrinfo(host, service, hints, found);
}
int __wrap_socket(int family, int type, int protocol)
{
    return fails("socket") ? -1 : __real_socket(family, type, protocol);
}
int __wrap_setsockopt(int desc, int level, int name, const void *value, socklen_t size)
{
    return fails("setsockopt") ? -1 : __real_setsockopt(desc, level, name, value, size);
}
int __wrap_getsockopt(int desc, int level, int name, void *value, socklen_t *size)
{
    if (fails("getsockopt")) return -1;
    const int rc = __real_getsockopt(desc, level, name, value, size);
    const int pending = errorOf("SO_ERROR");
    if (pending >= 0) memcpy(value, &pending, sizeof pending);
    return rc;
}
int __wrap_ioctl(int desc, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    return fails("ioctl") ? -1 : __real_ioctl(desc, request, argument);
}
int __wrap_connect(int desc, const sockaddr *address, socklen_t size)
{
    return fails("connect") ? -1 : __real_connect(desc, address, size);
}
int __wrap_select(int count, fd_set *readable, fd_set *writable, fd_set *exceptional, timeval *timeout)
{
    if (writable != nullptr && fault::connectWait != nullptr)
        return (*fault::connectWait)(writable, exceptional, *timeout);
    return fails("select") ? -1 : __real_select(count, readable, writable, exceptional, timeout);
}
ssize_t __wrap_send(int desc, const void *data, size_t size, int flags)
{
    return fails("send") ? failure() : __real_send(desc, data, size, flags);
}
ssize_t __wrap_recv(int desc, void *data, size_t size, int flags)
{
    return fails("recv") ? failure() : __real_recv(desc, data, size, flags);
}
int __wrap_close(int desc) // which closes even when it reports an error
{
    const int rc = __real_close(desc);
    return fails("close") ? -1 : rc;
}
time_t __wrap_time(time_t *now)
{
    const time_t shown = __real_time(nullptr) + fault::clockAhead;
    if (now != nullptr) *now = shown;
    return shown;
}

} // extern "C"
