// The ways to read a reply, held against each other where they have to find the same.
#include "checks.h"
#include "stapi_rix_resultsetbuffer.h"
#include "stapi_rix_statcomms_stream.h"

#include <string>

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

    // Its value may run on from a long block, into long blocks and then short ones.
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
        uint32_t missing = number(2);
        expect(missing <= MOST && (isLong || missing <= left));
        for (bool shortOnes = false; missing > left && !in.bad; open()) {
            skip(in, left);
            missing -= left;
            expect(!shortOnes || peekU8(in) == TC_BLOCKDATA);
            shortOnes = peekU8(in) == TC_BLOCKDATA;
        }
        skip(in, missing + 1);
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

// Empty after a failure.
static std::string resultSetBy(ReplyStructure way, bool identifiers, const char *callData, int callDataLen)
{
    int length = RESULT_SET_SIZE;
    char *buffer = newResultSetArea(length);
    const auto parse = identifiers ? parseIdsReply : parseStatsReply;
    std::string resultSet;
    if (parse(way, callData, callDataLen, &buffer, &length) == STAPI_OK)
        resultSet.assign(buffer, static_cast<size_t>(length));
    freeResultSetArea(buffer);
    return resultSet;
}

void checkReadings(bool identifiers, const char *callData, int callDataLen)
{
    const ReplyStructure structure = scanReply(callData, callDataLen, !identifiers, nullptr, 0);
    if (!structure.holds) return;
    const std::string parsed = resultSetBy(structure, identifiers, callData, callDataLen);
    require(!parsed.empty() || structure.references, "a reply that holds to the structure is read by it");
    if (parsed.empty()) return;

    const int length = static_cast<int>(parsed.size());
    char *copied = newResultSetArea(length);
    const ReplyStructure again = scanReply(callData, callDataLen, !identifiers, copied, length);
    require(again.holds && again.copied == !again.references, "what fits is copied, unless it comes by reference");
    require(!again.copied || std::string(copied, parsed.size()) == parsed, "a scan copies what the parser writes");
    freeResultSetArea(copied);
    if (!structure.references && Judge(callData, callDataLen).followable(identifiers))
        require(resultSetBy({false, false, false}, identifiers, callData, callDataLen) == parsed,
                "both readings deliver the same result set");
}

} // namespace fuzzing
