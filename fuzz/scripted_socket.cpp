#include "scripted_socket.h"

#include "require.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>

using namespace fuzzing;

static SocketScript script;
static int callCount;
static int openSocket = -1;
static bool connected;
static bool interruptNext;
static int addressLists;
static sockaddr_in peerAddress;
static addrinfo peer;

namespace fuzzing {

void startScript(const SocketScript &theScript)
{
    script = theScript;
    callCount = 0;
    connected = false;
    interruptNext = script.interrupted;
    peerAddress.sin_family = AF_INET;
    peer.ai_family = AF_INET;
    peer.ai_socktype = SOCK_STREAM;
    peer.ai_addr = reinterpret_cast<sockaddr *>(&peerAddress);
    peer.ai_addrlen = sizeof peerAddress;
}

bool nothingHeld()
{
    return openSocket == -1 && addressLists == 0;
}

} // namespace fuzzing

// Counts the call; true if it is the one that fails.
static bool fails()
{
    if (++callCount != script.failingCall) return false;
    errno = script.failure;
    return true;
}

// As fails(), for a call that a signal can interrupt: every second one is then.
static bool failsOrInterrupted()
{
    if (fails()) return true;
    const bool now = interruptNext;
    interruptNext = script.interrupted && !now;
    if (now) errno = EINTR;
    return now;
}

static void requireOurs(int socketDesc)
{
    require(socketDesc >= 0 && socketDesc == openSocket, "a call names the open socket");
}

static bool isIn(const fd_set *set, int socketDesc)
{
    const unsigned char *bits = reinterpret_cast<const unsigned char *>(set); // FD_ISSET stops at its own size
    return (bits[socketDesc / 8] >> (socketDesc % 8) & 1) != 0;
}

static uint32_t wordIn(const uint8_t *bytes)
{
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

// A gateway reads as many bytes as the header announces, so they have to be what is sent.
static void requireWholeRequest(const uint8_t *bytes, std::size_t length)
{
    require(length >= 33 && wordIn(bytes) == 0x47617465, "a request starts with its header");
    const std::size_t nameLength = wordIn(bytes + 20);
    require(nameLength <= length - 29, "a request holds its name");
    const std::string_view name(reinterpret_cast<const char *>(bytes + 24), nameLength);
    require(name == "BASE" || name == "Auth" || name == "Admin", "a request has a whole name");
    require(wordIn(bytes + 25 + nameLength) == length - 29 - nameLength, "a request is as long as it says");
}

// The names are the linker's.
extern "C" {

int __real_close(int desc);
void *__real_calloc(std::size_t count, std::size_t size);

int __wrap_getaddrinfo(const char *node, const char *service, const addrinfo *, addrinfo **result)
{
    require(node != nullptr && service != nullptr, "a host and a port are looked up");
    if (fails()) return EAI_AGAIN;
    ++addressLists;
    *result = &peer;
    return 0;
}

void __wrap_freeaddrinfo(addrinfo *list)
{
    require(list == &peer && addressLists == 1, "an address list is released once");
    --addressLists;
}

int __wrap_socket(int, int, int)
{
    require(openSocket == -1, "a connection has one socket");
    if (fails()) return -1;
    openSocket = script.manyDescriptors ? FD_SETSIZE + 77 : FD_SETSIZE - 77;
    return openSocket;
}

int __wrap_setsockopt(int socketDesc, int, int, const void *, socklen_t)
{
    requireOurs(socketDesc);
    return fails() ? -1 : 0;
}

int __wrap_getsockopt(int socketDesc, int, int, void *value, socklen_t *length)
{
    requireOurs(socketDesc);
    require(*length == sizeof(int), "the socket's error has the size of an int");
    // The connect that was in progress has failed, rather than the question about it.
    const int error = fails() ? script.failure : 0;
    connected = error == 0;
    memcpy(value, &error, sizeof error);
    return 0;
}

int __wrap_ioctl(int socketDesc, unsigned long, ...)
{
    requireOurs(socketDesc);
    return fails() ? -1 : 0;
}

int __wrap_connect(int socketDesc, const sockaddr *address, socklen_t)
{
    requireOurs(socketDesc);
    require(address == peer.ai_addr, "the address that was found is connected to");
    if (fails()) return -1;
    connected = !script.connectsLater;
    if (connected) return 0;
    errno = EINPROGRESS;
    return -1;
}

int __wrap_select(int count, fd_set *readable, fd_set *writable, fd_set *exceptional, timeval *timeout)
{
    const int socketDesc = count - 1;
    requireOurs(socketDesc);
    for (const fd_set *set : {readable, writable, exceptional})
        require(set == nullptr || isIn(set, socketDesc), "a wait names its socket");
    if (failsOrInterrupted()) return timeout != nullptr && errno == ETIMEDOUT ? 0 : -1;
    if (writable != nullptr) connected = true;
    return 1;
}

ssize_t __wrap_send(int socketDesc, const void *bytes, std::size_t length, int flags)
{
    requireOurs(socketDesc);
    require(flags == MSG_NOSIGNAL, "a send raises no signal");
    if (failsOrInterrupted()) return -1;
    if (!connected) { // leave is taken of a socket whose connect failed, too
        errno = ENOTCONN;
        return -1;
    }
    requireWholeRequest(static_cast<const uint8_t *>(bytes), length);
    return static_cast<ssize_t>(length);
}

ssize_t __wrap_recv(int socketDesc, void *bytes, std::size_t length, int)
{
    requireOurs(socketDesc);
    require(length > 0, "something is asked for");
    if (failsOrInterrupted()) return -1;
    if (script.repliesLength == 0) {
        errno = script.endOfReplies;
        return script.endOfReplies == 0 ? 0 : -1;
    }
    std::size_t handed = std::min(length, script.repliesLength);
    if (script.pieceSize > 0) handed = std::min(handed, script.pieceSize);
    memcpy(bytes, script.replies, handed);
    script.replies += handed;
    script.repliesLength -= handed;
    return static_cast<ssize_t>(handed);
}

// The fuzzer closes descriptors of its own.
int __wrap_close(int desc)
{
    if (openSocket == -1 || desc != openSocket) return __real_close(desc);
    openSocket = -1;
    return fails() ? -1 : 0;
}

// Memory for a reply is asked for by the length that the gateway states: here there is little of it.
void *__wrap_calloc(std::size_t count, std::size_t size)
{
    const std::size_t mostBytes = std::size_t{1} << 20;
    return size == 0 || count <= mostBytes / size ? __real_calloc(count, size) : nullptr;
}

} // extern "C"
