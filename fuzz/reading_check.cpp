#include "reading_check.h"

#include "require.h"
#include "stapi_rix_resultsetbuffer.h"
#include "stapi_rix_statcomms_stream.h"

#include <cstring>

using namespace rixstats;

namespace fuzzing {

constexpr uint32_t MOST = INT16_MAX; // what a length may be by fixed skips

// Of a reply that holds to the structure: whether it keeps to what the fixed skips can follow. The walk is this
// module's own, so that it judges without the code that it is to judge.
class Judge
{
public:
    Judge(const char *callData, int callDataLen) : in(readerOf(callData, callDataLen)) {}

    bool followable(bool identifiers)
    {
        const uint32_t responses = readU8(in) == 1 ? readU32(in) : 1;
        for (uint32_t i = 0; i < responses && !in.bad; i++)
            response(identifiers);
        return !in.bad;
    }

private:
    void expect(bool kept)
    {
        if (!kept) spoil(in);
    }

    void response(bool identifiers)
    {
        skip(in, 6);
        description();
        skip(in, 1);
        description();
        skip(in, 1);
        open();
        text();
        const int code = static_cast<int>(number(4));
        const uint32_t count = code < 0 ? 0 : number(4);
        expect(identifiers || code < 0 || count > 0);
        for (uint32_t j = 0; j < count && !in.bad; j++)
            identifiers ? text() : statistic(j == 0);
        expect(left == 0);
        skip(in, 1);
    }

    // Name, number, flags and fields of a class, up to the end of its annotations.
    void description()
    {
        const uint32_t length = readU16(in);
        expect(length <= MOST);
        skip(in, length + 8 + 3 + 1);
    }

    void statistic(bool first)
    {
        expect(left == 0);
        skip(in, first ? 2 : 6); // to its class, which comes with the first one only
        if (first) {
            description();
            skip(in, 1);
        }
        const bool isLong = peekU8(in) == TC_BLOCKDATALONG;
        open();
        text();
        value(isLong);
        skip(in, 1);
    }

    // It may run on from a long block, into long blocks and then short ones.
    void value(bool isLong)
    {
        uint32_t missing = number(2);
        expect(missing <= MOST && (isLong || missing <= left));
        bool shortOnes = false;
        while (missing > left && !in.bad) {
            skip(in, left);
            missing -= left;
            expect(!shortOnes || peekU8(in) == TC_BLOCKDATA);
            shortOnes = peekU8(in) == TC_BLOCKDATA;
            open();
        }
        skip(in, missing);
        expect(missing == left);
        left = 0;
    }

    void open()
    {
        left = readU8(in) == TC_BLOCKDATA ? readU8(in) : readU32(in);
        expect(left <= MOST);
    }

    uint32_t number(uint32_t size)
    {
        expect(size <= left);
        left -= size;
        return size == 2 ? readU16(in) : readU32(in);
    }

    void text()
    {
        const uint32_t length = number(2);
        expect(length <= MOST && length <= left);
        skip(in, length);
        left -= length;
    }

    Reader in;
    uint32_t left = 0; // of the block being read
};

typedef int (*Parser)(ReplyStructure, const char *, int, char **, int *);

// What a scan copies on its way is what the parser writes.
static void checkCopy(bool identifiers, const char *callData, int callDataLen, ReplyStructure structure)
{
    const Parser parse = identifiers ? parseIdsReply : parseStatsReply;
    int length = RESULT_SET_SIZE;
    char *parsed = newResultSetArea(length);
    const int rc = parse(structure, callData, callDataLen, &parsed, &length);
    require(rc == STAPI_OK || structure.references, "a reply that holds to the structure is read by it");
    if (rc == STAPI_OK) {
        char *copied = newResultSetArea(length);
        const ReplyStructure again = scanReply(callData, callDataLen, !identifiers, copied, length);
        require(again.holds && again.copied == !again.references, "what fits is copied, unless it comes by reference");
        require(!again.copied || memcmp(copied, parsed, static_cast<size_t>(length)) == 0,
                "a scan copies what the parser writes");
        free(copied);
    }
    free(parsed);
}

void checkReadings(bool identifiers, const char *callData, int callDataLen)
{
    const ReplyStructure structure = scanReply(callData, callDataLen, !identifiers, nullptr, 0);
    if (structure.holds) checkCopy(identifiers, callData, callDataLen, structure);
    if (!structure.holds || structure.references || !Judge(callData, callDataLen).followable(identifiers)) return;
    const Parser parse = identifiers ? parseIdsReply : parseStatsReply;
    int lengths[2] = {RESULT_SET_SIZE, RESULT_SET_SIZE};
    char *buffers[2] = {newResultSetArea(lengths[0]), newResultSetArea(lengths[1])};
    const int byStructure = parse(structure, callData, callDataLen, &buffers[0], &lengths[0]);
    const int bySkips = parse({false, false}, callData, callDataLen, &buffers[1], &lengths[1]);
    require(byStructure == STAPI_OK, "a reply that holds to the structure is read by it");
    require(bySkips == STAPI_OK, "a reply that the fixed skips can follow is read by them");
    require(lengths[0] == lengths[1] && memcmp(buffers[0], buffers[1], static_cast<size_t>(lengths[0])) == 0,
            "both readings deliver the same result set");
    free(buffers[0]);
    free(buffers[1]);
}

} // namespace fuzzing
