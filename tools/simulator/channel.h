// Sockets that can be waited on together with the wish to stop: every wait ends at once when the simulator stops.
#pragma once

#include "wire.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace rixgwsim {

// Owns one file descriptor.
class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor(int number) : fd(number) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor &&other) noexcept : fd(other.fd) { other.fd = -1; }
    Descriptor &operator=(Descriptor &&other) noexcept;
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int get() const { return fd; }
    void reset();

private:
    int fd = -1;
};

// Raised once, for good: whoever waits with it is woken.
class StopSignal
{
public:
    StopSignal(); // throws std::system_error
    void raise();
    int descriptor() const { return event.get(); }

private:
    Descriptor event;
};

enum class Wait
{
    ready,
    timedOut,
    stopped
};

// Waits for `events` (as for poll) on a descriptor. Without a descriptor (-1) it waits for the time alone, and with a
// negative time for ever.
Wait waitFor(int fd, short events, std::chrono::microseconds time, const StopSignal &stop);

// Both throw std::system_error whose text names the address.
Descriptor listenOn(const std::string &address, std::uint16_t port);
std::uint16_t portOf(const Descriptor &listener);

// One accepted connection.
class Channel
{
public:
    Channel(Descriptor connected, const StopSignal &stopSignal);
    ~Channel(); // the peer sees the end even when a child process holds a copy of the descriptor

    // Appends up to `count` bytes, at least one; false at the end: closed by the peer, broken, or stopped.
    bool read(Bytes &bytes, std::size_t count);
    bool write(const std::uint8_t *bytes, std::size_t count);
    bool pause(std::chrono::microseconds time); // false when stopped

    bool stopped() const { return wasStopped; }

private:
    bool wait(short events);

    Descriptor socket;
    const StopSignal &stop;
    bool wasStopped = false;
};

} // namespace rixgwsim
