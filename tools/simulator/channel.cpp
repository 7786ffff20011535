#include "channel.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>

namespace rixgwsim {

using namespace std::chrono_literals;

namespace {

constexpr int kBacklog = 128;
constexpr int kOn = 1;
constexpr std::chrono::microseconds kForEver{-1};

[[noreturn]] void fail(int error, const std::string &what)
{
    throw std::system_error(error, std::generic_category(), what);
}

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

AddressList resolveNumeric(const std::string &address, std::uint16_t port)
{
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found) != 0)
        fail(EINVAL, "cannot listen on '" + address + "', which is not a numeric address");
    return {found, &freeaddrinfo};
}

} // namespace

Descriptor &Descriptor::operator=(Descriptor &&other) noexcept
{
    std::swap(fd, other.fd);
    return *this;
}

void Descriptor::reset()
{
    if (fd >= 0) close(fd);
    fd = -1;
}

StopSignal::StopSignal() : event(eventfd(0, EFD_CLOEXEC))
{
    if (event.get() < 0) fail(errno, "cannot make an event descriptor");
}

void StopSignal::raise()
{
    // The count is never read, so every wait sees it; adding 1 cannot fail.
    eventfd_write(event.get(), 1);
}

Wait waitFor(int fd, short events, std::chrono::microseconds time, const StopSignal &stop)
{
    const auto end = std::chrono::steady_clock::now() + time;
    for (;;) {
        const auto left = std::max(std::chrono::nanoseconds(end - std::chrono::steady_clock::now()), 0ns);
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        const timespec limit = {static_cast<time_t>(seconds.count()), static_cast<long>((left - seconds).count())};
        pollfd watched[] = {{stop.descriptor(), POLLIN, 0}, {fd, events, 0}}; // a descriptor of -1 is passed over
        const int ready = ppoll(watched, 2, time.count() < 0 ? nullptr : &limit, nullptr);
        if (ready < 0 && errno != EINTR) fail(errno, "cannot wait on a socket");
        if (ready > 0) return watched[0].revents != 0 ? Wait::stopped : Wait::ready;
        if (ready == 0) return Wait::timedOut;
    }
}

Descriptor listenOn(const std::string &address, std::uint16_t port)
{
    const AddressList addresses = resolveNumeric(address, port);
    const std::string what = "cannot listen on " + address + " port " + std::to_string(port);
    Descriptor listener(::socket(addresses->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (listener.get() < 0) fail(errno, what);
    if (setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &kOn, sizeof kOn) != 0 ||
        bind(listener.get(), addresses->ai_addr, addresses->ai_addrlen) != 0 || listen(listener.get(), kBacklog) != 0)
        fail(errno, what);
    return listener;
}

std::uint16_t portOf(const Descriptor &listener)
{
    sockaddr_storage address = {};
    socklen_t length = sizeof address;
    if (getsockname(listener.get(), reinterpret_cast<sockaddr *>(&address), &length) != 0)
        fail(errno, "cannot tell the port");
    // The port is at the same place in addresses of both versions.
    return ntohs(reinterpret_cast<const sockaddr_in *>(&address)->sin_port);
}

Channel::Channel(Descriptor connected, const StopSignal &stopSignal) : socket(std::move(connected)), stop(stopSignal)
{
    // Each piece written is to be a segment of its own.
    setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &kOn, sizeof kOn);
}

Channel::~Channel()
{
    shutdown(socket.get(), SHUT_RDWR);
}

bool Channel::wait(short events)
{
    wasStopped = waitFor(socket.get(), events, kForEver, stop) == Wait::stopped;
    return !wasStopped;
}

bool Channel::read(Bytes &bytes, std::size_t count)
{
    const std::size_t before = bytes.size();
    while (wait(POLLIN)) {
        bytes.resize(before + count);
        const ssize_t got = recv(socket.get(), bytes.data() + before, count, MSG_DONTWAIT);
        bytes.resize(before + static_cast<std::size_t>(got > 0 ? got : 0));
        if (got > 0) return true;
        if (got == 0 || (errno != EAGAIN && errno != EINTR)) return false;
    }
    return false;
}

bool Channel::write(const std::uint8_t *bytes, std::size_t count)
{
    while (count > 0) {
        const ssize_t sent = send(socket.get(), bytes, count, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent > 0) {
            bytes += sent;
            count -= static_cast<std::size_t>(sent);
        } else if (errno == EAGAIN) {
            if (!wait(POLLOUT)) return false;
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool Channel::pause(std::chrono::microseconds time)
{
    wasStopped = waitFor(-1, 0, time, stop) == Wait::stopped;
    return !wasStopped;
}

} // namespace rixgwsim
