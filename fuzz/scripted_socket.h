// A socket without a network: in the fuzz target of conversations the library's socket calls end here, by the linker's
// --wrap. What the peer says are the bytes of a script; what is sent to it is looked at and swallowed.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fuzzing {

struct SocketScript
{
    const uint8_t *replies; // of all flows, one behind the other
    std::size_t repliesLength;
    int failingCall;       // the n-th call of the library to the system fails; 0: none does
    int failure;           // errno of that failure
    int endOfReplies;      // errno of a recv behind the last byte; 0: the peer has closed the connection
    std::size_t pieceSize; // most bytes that one recv hands out; 0: as many as are asked for
    bool interrupted;      // each call that can be interrupted by a signal is, once
    bool connectsLater;    // the connect is in progress at first
    bool manyDescriptors;  // the socket's number is one for which a plain fd_set has no room
};

void startScript(const SocketScript &script);

// Everything the library took from the system has been given back.
bool nothingHeld();

} // namespace fuzzing
