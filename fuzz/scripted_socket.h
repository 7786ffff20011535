// A socket without a network: in the fuzz target of conversations the library's socket calls end here, by the linker's
// --wrap. What the peer says is the input's; what is sent to it is swallowed.
//
//   input   4 control bytes: bits of Control; most bytes of one recv (0: no limit); two of no meaning
//           the rest is what the peer answers, flow after flow
#pragma once

#include <cstddef>
#include <cstdint>

namespace fuzzing {

enum Control : unsigned
{
    MANY_DESCRIPTORS = 8, // the socket's number is one for which a plain fd_set has no room
    ENDS_BY_ERROR = 16,   // behind the last byte, rather than by an orderly close
    TRACED = 0xE0         // all three: it is slow, and is to be chosen seldom
};
constexpr std::size_t CONTROL_SIZE = 4;

// The input has its control bytes at least, and stays where it is during the conversation.
void startScript(const uint8_t *input, std::size_t size);

bool socketClosed();

} // namespace fuzzing
