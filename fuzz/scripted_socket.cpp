#include "scripted_socket.h"

#include "checks.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/select.h>
#include <sys/socket.h>

using namespace fuzzing;

static const uint8_t *script, *nextReply, *endOfReplies;
static int openSocket = -1;

void fuzzing::startScript(const uint8_t *input, std::size_t size)
{
    script = input;
    nextReply = input + CONTROL_SIZE;
    endOfReplies = input + size;
}

bool fuzzing::socketClosed()
{
    return openSocket == -1;
}

constexpr std::size_t MOST_BYTES = std::size_t{1} << 20;

static void requireOurs(int socketDesc)
{
    require(socketDesc >= 0 && socketDesc == openSocket, "a call names the open socket");
}

// The names are the linker's.
extern "C" {

int __real_close(int desc);
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);

int __wrap_socket(int, int, int)
{
    require(openSocket == -1, "a connection has one socket");
    openSocket = (script[0] & MANY_DESCRIPTORS) != 0 ? FD_SETSIZE + 77 : FD_SETSIZE - 77;
    return openSocket;
}

#define SUCCEEDS(call, ...)                                                                                            \
    int __wrap_##call(int socketDesc, __VA_ARGS__)                                                                     \
    {                                                                                                                  \
        requireOurs(socketDesc);                                                                                       \
        return 0;                                                                                                      \
    }
SUCCEEDS(setsockopt, int, int, const void *, socklen_t)
SUCCEEDS(ioctl, unsigned long, ...)
SUCCEEDS(connect, const sockaddr *, socklen_t)

int __wrap_select(int count, fd_set *, fd_set *, fd_set *, timeval *)
{
    requireOurs(count - 1);
    return 1;
}

ssize_t __wrap_send(int socketDesc, const void *, std::size_t length, int flags)
{
    requireOurs(socketDesc);
    require(flags == MSG_NOSIGNAL, "a send raises no signal");
    return static_cast<ssize_t>(length);
}

ssize_t __wrap_recv(int socketDesc, void *bytes, std::size_t length, int)
{
    requireOurs(socketDesc);
    require(length > 0, "something is asked for");
    if (nextReply == endOfReplies) {
        errno = (script[0] & ENDS_BY_ERROR) != 0 ? ECONNRESET : 0;
        return errno != 0 ? -1 : 0;
    }
    std::size_t handed = std::min(length, static_cast<std::size_t>(endOfReplies - nextReply));
    if (script[1] > 0) handed = std::min<std::size_t>(handed, script[1]);
    memcpy(bytes, nextReply, handed);
    nextReply += handed;
    return static_cast<ssize_t>(handed);
}

// The fuzzer closes descriptors of its own.
int __wrap_close(int desc)
{
    if (openSocket == -1 || desc != openSocket) return __real_close(desc);
    openSocket = -1;
    return 0;
}

// Memory for a reply is asked for by the length that the gateway states: here there is little of it.
void *__wrap_malloc(std::size_t size)
{
    return size <= MOST_BYTES ? __real_malloc(size) : nullptr;
}

void *__wrap_calloc(std::size_t count, std::size_t size)
{
    return size == 0 || count <= MOST_BYTES / size ? __real_calloc(count, size) : nullptr;
}

} // extern "C"
