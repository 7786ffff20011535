// Fuzz target: whatever the peer of a connection answers, the connection is opened, queried and closed, or refused by a
// code; nothing of it is left afterwards.
//
//   input   4 control bytes: bits of Control; most bytes of one recv (0: no limit); number of the system call that
//           fails (0: none); which failure
//           the rest is what the peer answers, flow after flow
#include "conversation.h"
#include "require.h"
#include "rixstats.h"
#include "scripted_socket.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iterator>

using namespace fuzzing;

enum Control : unsigned
{
    NAMED = 1,
    CONNECTS_LATER = 2,
    INTERRUPTED = 4,
    MANY_DESCRIPTORS = 8,
    ENDS_BY_ERROR = 16, // rather than by an orderly close
    TRACED = 0xE0       // all three: it is slow, and is to be chosen seldom
};
constexpr size_t CONTROL_SIZE = 4;
constexpr int HEADER_SIZE = 29; // of a reply, without the request name

static const int FAILURES[8] = {ECONNRESET, ECONNREFUSED, ENETUNREACH, ETIMEDOUT, EPIPE, ENOMEM, EMFILE, EBADF};

// Sets the body length in each header to the bytes up to the next one. Without it nearly every mutation that changes
// the length of a reply is one that cuts the conversation off there.
static void repairLengths(uint8_t *begin, uint8_t *end)
{
    static const uint8_t EYECATCHER[] = {'G', 'a', 't', 'e'};
    const auto findHeader = [=](uint8_t *from) {
        return std::search(from, end, std::begin(EYECATCHER), std::end(EYECATCHER));
    };
    uint8_t *header = findHeader(begin);
    while (end - header > HEADER_SIZE) {
        const int nameLength = header[23]; // the low byte is enough
        if (end - header < HEADER_SIZE + nameLength) return;
        uint8_t *const body = header + HEADER_SIZE + nameLength;
        header = findHeader(body);
        const uint32_t length = static_cast<uint32_t>(header - body);
        for (int i = 1; i <= 4; i++)
            body[-i] = static_cast<uint8_t>(length >> 8 * (i - 1));
    }
}

extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t maxSize);

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t maxSize, unsigned seed)
{
    const size_t mutated = LLVMFuzzerMutate(data, size, maxSize);
    if (mutated > CONTROL_SIZE && seed % 4 != 0) repairLengths(data + CONTROL_SIZE, data + mutated);
    return mutated;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    require(setAPITraceFile("/dev/null") == STAPI_OK, "the trace goes nowhere");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < CONTROL_SIZE) return 0;
    const unsigned control = data[0];
    const bool traced = (control & TRACED) == TRACED;
    const int failure = FAILURES[data[3] % 8];
    SocketScript script = {};
    script.replies = data + CONTROL_SIZE;
    script.repliesLength = size - CONTROL_SIZE;
    script.pieceSize = data[1];
    script.failingCall = data[2];
    script.failure = failure;
    script.endOfReplies = (control & ENDS_BY_ERROR) != 0 ? failure : 0;
    script.connectsLater = (control & CONNECTS_LATER) != 0;
    script.interrupted = (control & INTERRUPTED) != 0;
    script.manyDescriptors = (control & MANY_DESCRIPTORS) != 0;
    startScript(script);

    setAPITraceLevel(traced ? 4 : 0);
    converse({(control & NAMED) != 0, traced}, 2980);
    require(nothingHeld(), "no socket and no address list is left");
    return 0;
}
