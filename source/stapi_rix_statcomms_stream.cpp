// A quick look over a whole reply: does it hold to the structure of an object stream? Nothing is copied, nothing
// traced.
//
//   reply       flag 0, or flag 1 and number of responses | response ...
//   response    AC ED 00 05 73 72 | class | 72 | class of no super class | block data | 78
//               of statistics, between block data and 78: statistic ...
//   class       name | serialVersionUID | flags | 00 00 | 78
//   block data  element text | result | unless that is negative: count | of identifiers: text ...
//   statistic   73 72 | class of no super class | block data | 78      the first
//               73 71 00 7E 00 03 | block data | 78                    a later one: the class by reference
//               71 | handle                                            an earlier one again
#include "stapi_rix_statcomms_stream.h"

namespace rixstats {

constexpr unsigned char STREAM_START[] = {0xAC, 0xED, 0x00, 0x05, TC_OBJECT, TC_CLASSDESC};
constexpr unsigned char STAT_CLASS[] = {TC_REFERENCE, 0x00, 0x7E, 0x00, 0x03}; // by its handle
constexpr uint8_t SC_WRITE_METHOD = 0x01;
constexpr uint8_t SC_SERIALIZABLE = 0x02;
constexpr uint8_t SC_EXTERNALIZABLE = 0x0C; // with block data

static void expectU8(Reader &in, uint8_t expected)
{
    if (readU8(in) != expected) spoil(in);
}

static inline void expectBytes(Reader &in, const unsigned char *expected, size_t size)
{
    const uint8_t *bytes = take(in, size);
    if (bytes == nullptr || memcmp(bytes, expected, size) != 0) spoil(in);
}

// superClass: what has to follow, a description or none.
static void scanClass(Reader &in, uint8_t superClass)
{
    skipText(in);                    // a name of more than 32,767 bytes is no class's
    const uint8_t *p = take(in, 13); // serialVersionUID, flags, no fields, no annotations
    if (p == nullptr) return;
    const uint8_t flags = p[8];
    const bool known = flags == SC_EXTERNALIZABLE || (flags | SC_WRITE_METHOD) == (SC_SERIALIZABLE | SC_WRITE_METHOD);
    if (!known || p[9] != 0 || p[10] != 0 || p[11] != TC_ENDBLOCKDATA || p[12] != superClass) spoil(in);
}

static void scanLongText(ReplyReader &in, uint32_t left)
{
    while (left > 0 && !in.bytes.bad) {
        const uint32_t piece = nextPiece(in, left);
        skip(in.bytes, piece);
        left -= piece;
    }
}

static inline void scanText(ReplyReader &in)
{
    const uint32_t length = blockU16(in);
    if (length > in.blockLeft) {
        scanLongText(in, length);
        return;
    }
    in.blockLeft -= length;
    skip(in.bytes, length);
}

static void endBlockData(ReplyReader &in)
{
    if (in.blockLeft != 0) spoil(in.bytes);
    expectU8(in.bytes, TC_ENDBLOCKDATA);
}

static void scanNewStat(ReplyReader &in, bool first)
{
    if (first) {
        expectU8(in.bytes, TC_CLASSDESC);
        scanClass(in.bytes, TC_NULL);
    } else {
        expectBytes(in.bytes, STAT_CLASS, sizeof STAT_CLASS);
    }
    ShortStat stat;
    if (isShortStat(in.bytes, &stat)) {
        in.bytes.pos += stat.size;
        return;
    }
    openBlock(in);
    scanText(in);
    scanText(in);
    endBlockData(in);
}

static void scanStats(ReplyReader &in, uint32_t numStats, ReplyStructure *structure)
{
    if (in.blockLeft != 0) spoil(in.bytes);
    uint32_t objects = 0;
    for (uint32_t j = 0; j < numStats && !in.bytes.bad; j++) {
        const uint8_t type = readU8(in.bytes);
        if (type == TC_OBJECT) {
            scanNewStat(in, objects == 0);
            objects++;
        } else {
            structure->references = true;
            if (type != TC_REFERENCE || readU32(in.bytes) - FIRST_STAT_HANDLE >= objects) spoil(in.bytes);
        }
    }
    expectU8(in.bytes, TC_ENDBLOCKDATA);
}

static void scanResponse(ReplyReader &in, bool ofStatistics, ReplyStructure *structure)
{
    expectBytes(in.bytes, STREAM_START, sizeof STREAM_START);
    scanClass(in.bytes, TC_CLASSDESC);
    scanClass(in.bytes, TC_NULL);
    openBlock(in);
    scanText(in);
    if (static_cast<int32_t>(blockU32(in)) < 0) {
        endBlockData(in);
        return;
    }
    const uint32_t count = blockU32(in);
    if (ofStatistics) {
        scanStats(in, count, structure);
        return;
    }
    for (uint32_t j = 0; j < count && !in.bytes.bad; j++)
        scanText(in);
    endBlockData(in);
}

ReplyStructure scanReply(const char *rawData, int rawDataLen, bool ofStatistics)
{
    ReplyStructure structure = {false, false};
    ReplyReader in = replyReaderOf(rawData, rawDataLen, true);
    const uint8_t arrayFlag = readU8(in.bytes);
    if (arrayFlag > 1) return structure;
    const uint32_t numResponses = arrayFlag == 1 ? readU32(in.bytes) : 1;
    for (uint32_t i = 0; i < numResponses && !in.bytes.bad; i++)
        scanResponse(in, ofStatistics, &structure);
    structure.holds = !in.bytes.bad && bytesLeft(in.bytes) == 0;
    return structure;
}

} // namespace rixstats
