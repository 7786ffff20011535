// A quick look over a whole reply: does it hold to the structure of an object stream? Nothing is traced. On the way the
// result set is copied as far as there is room for it: nearly always that is all, and the scan all that is needed. A
// buffer that has to grow, statistics that come by reference, fixed skips and tracing are left to the parsers.
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
#include "stapi_rix_resultsetbuffer.h"

namespace rixstats {

constexpr unsigned char STREAM_START[] = {0xAC, 0xED, 0x00, 0x05, TC_OBJECT, TC_CLASSDESC};
constexpr unsigned char LATER_STAT[] = {TC_OBJECT, TC_REFERENCE, 0x00, 0x7E, 0x00, 0x03};
constexpr uint8_t SC_WRITE_METHOD = 0x01;
constexpr uint8_t SC_SERIALIZABLE = 0x02;
constexpr uint8_t SC_EXTERNALIZABLE = 0x0C; // with block data

// The result set in the making. After the first thing that does not fit there is room for nothing.
typedef struct _ScanCopy
{
    char *cursor;
    char *end; // of the room for all but the terminator
    bool whole;
} ScanCopy;

static ScanCopy startCopy(char *area, int areaSize)
{
    const bool whole = areaSize >= static_cast<int>(sizeof RESULT_SET_TERMINATOR);
    return {area, whole ? area + areaSize - sizeof RESULT_SET_TERMINATOR : area, whole};
}

static inline bool hasRoom(ScanCopy &copy, size_t size)
{
    if (size <= static_cast<size_t>(copy.end - copy.cursor)) return true;
    copy.end = copy.cursor;
    copy.whole = false;
    return false;
}

static inline void copyBytes(ScanCopy &copy, const void *bytes, size_t size)
{
    if (size == 0 || !hasRoom(copy, size)) return;
    memcpy(copy.cursor, bytes, size);
    copy.cursor += size;
}

static inline void copyWord(ScanCopy &copy, uint32_t word)
{
    copyBytes(copy, &word, sizeof word);
}

constexpr size_t SHORT_TEXT = 32;

// A text of the reply that lies there in one piece. A short one is copied with what stands behind it: a fixed size
// needs no call and no branch on the length, which no processor can foresee. The next write overwrites the surplus.
static inline void copyText(ScanCopy &copy, const Reader &in, const uint8_t *text, size_t length)
{
    copyWord(copy, static_cast<uint32_t>(length));
    if (length > SHORT_TEXT || static_cast<size_t>(in.end - text) < SHORT_TEXT ||
        static_cast<size_t>(copy.end - copy.cursor) < SHORT_TEXT)
    {
        copyBytes(copy, text, length);
        return;
    }
    memcpy(copy.cursor, text, SHORT_TEXT);
    copy.cursor += length;
}

// The terminator, and nothing behind it that a storage dump would show.
static void endCopy(char *area, const ScanCopy &copy)
{
    memcpy(copy.cursor, &RESULT_SET_TERMINATOR, sizeof RESULT_SET_TERMINATOR);
    setResultSetLength(area, static_cast<int>(copy.cursor - area + sizeof RESULT_SET_TERMINATOR));
    const size_t behind = static_cast<size_t>(copy.end - copy.cursor) + RESULT_SET_SPARE;
    memset(copy.cursor + sizeof RESULT_SET_TERMINATOR, 0, behind < SHORT_TEXT ? behind : SHORT_TEXT);
}

// A copy that came to nothing leaves nothing: a storage dump may show what the parser does not write over.
static void wipeCopy(char *area, int areaSize, const ScanCopy &copy)
{
    const size_t touched = static_cast<size_t>(copy.cursor - area) + SHORT_TEXT;
    const size_t size = static_cast<size_t>(areaSize);
    memset(area, 0, touched < size ? touched : size);
}

static void expectU8(Reader &in, uint8_t expected)
{
    if (readU8(in) != expected) spoil(in);
}

// superClass: what has to follow, a description or none.
static void scanClass(Reader &in, uint8_t superClass)
{
    skipText(in);                    // a name of more than 32,767 bytes is no class's
    const uint8_t *p = take(in, 13); // serialVersionUID, flags, fields and annotations, of which there are none
    if (p == nullptr) return;
    const uint8_t flags = p[8];
    const bool known = flags == SC_EXTERNALIZABLE || (flags | SC_WRITE_METHOD) == (SC_SERIALIZABLE | SC_WRITE_METHOD);
    if (!known || p[9] != 0 || p[10] != 0 || p[11] != TC_ENDBLOCKDATA || p[12] != superClass) spoil(in);
}

// Class descriptions that were found good: each response of a reply has them again, byte for byte.
typedef struct _SeenBytes
{
    const uint8_t *bytes;
    size_t size;
} SeenBytes;

static inline bool skipSeen(Reader &in, const SeenBytes &seen)
{
    if (seen.size == 0 || seen.size > bytesLeft(in) || memcmp(in.pos, seen.bytes, seen.size) != 0) return false;
    in.pos += seen.size;
    return true;
}

static inline SeenBytes seenSince(const uint8_t *start, const Reader &in)
{
    return {start, in.bad ? 0 : static_cast<size_t>(in.pos - start)};
}

// What a scan has met so far.
typedef struct _Met
{
    SeenBytes responseClasses, statClass;
    bool references;
} Met;

static void scanLongText(ReplyReader &in, ScanCopy &copy, uint32_t left)
{
    copyWord(copy, left);
    while (left > 0 && !in.bytes.bad) {
        const uint32_t piece = nextPiece(in, left);
        const uint8_t *bytes = take(in.bytes, piece);
        if (bytes != nullptr) copyBytes(copy, bytes, piece);
        left -= piece;
    }
}

static inline void scanText(ReplyReader &in, ScanCopy &copy)
{
    const uint32_t length = blockU16(in);
    if (length > in.blockLeft) {
        scanLongText(in, copy, length);
        return;
    }
    in.blockLeft -= length;
    const uint8_t *text = take(in.bytes, length);
    if (text != nullptr) copyText(copy, in.bytes, text, length);
}

static inline uint32_t scanU32(ReplyReader &in, ScanCopy &copy)
{
    const uint32_t word = blockU32(in);
    copyWord(copy, word);
    return word;
}

static void endBlockData(ReplyReader &in)
{
    if (in.blockLeft != 0) spoil(in.bytes);
    expectU8(in.bytes, TC_ENDBLOCKDATA);
}

// A statistic's own data as nearly all are: one short block that holds them whole, and the end mark. Otherwise the
// reader stays where it is.
static inline bool scanShortData(Reader &in, ScanCopy &copy)
{
    const size_t left = bytesLeft(in);
    const uint8_t *p = in.pos;
    if (left < 6 || p[0] != TC_BLOCKDATA) return false;
    const size_t size = p[1], idLength = static_cast<size_t>(p[2]) << 8 | p[3];
    if (size + 3 > left || idLength + 4 > size) return false;
    const uint8_t *value = p + 4 + idLength;
    const size_t valueLength = static_cast<size_t>(value[0]) << 8 | value[1];
    if (idLength + valueLength + 4 != size || p[2 + size] != TC_ENDBLOCKDATA) return false;
    copyText(copy, in, p + 4, idLength);
    copyText(copy, in, value + 2, valueLength);
    in.pos += size + 3;
    return true;
}

static void scanData(ReplyReader &in, ScanCopy &copy)
{
    if (scanShortData(in.bytes, copy)) return;
    openBlock(in);
    scanText(in, copy);
    scanText(in, copy);
    endBlockData(in);
}

static bool isLaterStat(const Reader &in)
{
    return bytesLeft(in) >= sizeof LATER_STAT && memcmp(in.pos, LATER_STAT, sizeof LATER_STAT) == 0;
}

// Later statistics with short data, as many as there are, at most `most`. Their number is the result. They are read
// through copies of the reader and the cursor, which the compiler keeps in registers.
static uint32_t scanShortStats(Reader &in, ScanCopy &copy, uint32_t most)
{
    Reader ahead = in;
    ScanCopy copyAhead = copy;
    uint32_t count = 0;
    while (count < most && isLaterStat(ahead)) {
        ahead.pos += sizeof LATER_STAT;
        if (!scanShortData(ahead, copyAhead)) break;
        in.pos = ahead.pos;
        count++;
    }
    copy = copyAhead;
    return count;
}

static void scanFirstStat(ReplyReader &in, ScanCopy &copy, Met *met)
{
    if (!skipSeen(in.bytes, met->statClass)) {
        const uint8_t *start = in.bytes.pos;
        expectU8(in.bytes, TC_OBJECT);
        expectU8(in.bytes, TC_CLASSDESC);
        scanClass(in.bytes, TC_NULL);
        met->statClass = seenSince(start, in.bytes);
    }
    scanData(in, copy);
}

static void scanReference(Reader &in, ScanCopy &copy, uint32_t objects)
{
    expectU8(in, TC_REFERENCE);
    if (readU32(in) - FIRST_STAT_HANDLE >= objects) spoil(in);
    copy.whole = false; // what it stands for is the parser's to find
}

static void scanStats(ReplyReader &in, ScanCopy &copy, uint32_t numStats, Met *met)
{
    if (in.blockLeft != 0) spoil(in.bytes);
    uint32_t objects = 0;
    for (uint32_t j = 0; j < numStats && !in.bytes.bad; j++) {
        if (objects == 0) {
            scanFirstStat(in, copy, met);
            objects++;
        } else if (const uint32_t count = scanShortStats(in.bytes, copy, numStats - j)) {
            objects += count;
            j += count - 1;
        } else if (isLaterStat(in.bytes)) {
            skip(in.bytes, sizeof LATER_STAT);
            scanData(in, copy);
            objects++;
        } else {
            scanReference(in.bytes, copy, objects);
            met->references = true;
        }
    }
    expectU8(in.bytes, TC_ENDBLOCKDATA);
}

// The identifiers that lie whole in the present block, at most `most`. Their number is the result.
static uint32_t scanWholeIds(ReplyReader &in, ScanCopy &copy, uint32_t most)
{
    Reader ahead = in.bytes;
    ScanCopy copyAhead = copy;
    const uint8_t *blockEnd = in.bytes.pos + in.blockLeft;
    uint32_t count = 0;
    for (; count < most && blockEnd - ahead.pos >= 2; count++) {
        const size_t length = static_cast<size_t>(ahead.pos[0]) << 8 | ahead.pos[1];
        if (length + 2 > static_cast<size_t>(blockEnd - ahead.pos)) break;
        copyText(copyAhead, ahead, ahead.pos + 2, length);
        ahead.pos += length + 2;
    }
    copy = copyAhead;
    in.blockLeft = static_cast<uint32_t>(blockEnd - ahead.pos);
    in.bytes.pos = ahead.pos;
    return count;
}

static void scanIds(ReplyReader &in, ScanCopy &copy, uint32_t numIds)
{
    for (uint32_t j = 0; j < numIds && !in.bytes.bad;) {
        j += scanWholeIds(in, copy, numIds - j);
        if (j == numIds) break;
        scanText(in, copy);
        j++;
    }
    endBlockData(in);
}

static void scanResponseClasses(Reader &in, Met *met)
{
    if (skipSeen(in, met->responseClasses)) return;
    const uint8_t *start = take(in, sizeof STREAM_START);
    if (start == nullptr || memcmp(start, STREAM_START, sizeof STREAM_START) != 0) spoil(in);
    scanClass(in, TC_CLASSDESC);
    scanClass(in, TC_NULL);
    met->responseClasses = seenSince(start, in);
}

static inline uint32_t wordOf(const uint8_t *p)
{
    return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | uint32_t{p[3]};
}

// What stands before the statistics of a response that has some, as nearly always: one short block. Otherwise the
// reader stays where it is.
static inline bool scanShortHead(Reader &in, ScanCopy &copy, uint32_t *count)
{
    const uint8_t *p = in.pos;
    if (bytesLeft(in) < 12 || p[0] != TC_BLOCKDATA) return false;
    const size_t size = p[1], textLength = static_cast<size_t>(p[2]) << 8 | p[3];
    if (size != textLength + 10 || size + 2 > bytesLeft(in)) return false;
    const uint8_t *words = p + 4 + textLength;
    if (static_cast<int32_t>(wordOf(words)) < 0) return false;
    *count = wordOf(words + 4);
    copyText(copy, in, p + 4, textLength);
    copyWord(copy, wordOf(words));
    copyWord(copy, *count);
    in.pos += size + 2;
    return true;
}

static void scanResponse(ReplyReader &in, ScanCopy &copy, bool ofStatistics, Met *met)
{
    uint32_t count = 0;
    scanResponseClasses(in.bytes, met);
    if (ofStatistics && scanShortHead(in.bytes, copy, &count)) {
        scanStats(in, copy, count, met);
        return;
    }
    openBlock(in);
    scanText(in, copy);
    if (static_cast<int32_t>(scanU32(in, copy)) < 0) {
        endBlockData(in);
        return;
    }
    count = scanU32(in, copy);
    if (ofStatistics)
        scanStats(in, copy, count, met);
    else
        scanIds(in, copy, count);
}

ReplyStructure scanReply(const char *rawData, int rawDataLen, bool ofStatistics, char *area, int areaSize)
{
    ReplyStructure structure = {false, false, false};
    ReplyReader in = replyReaderOf(rawData, rawDataLen, true);
    ScanCopy copy = startCopy(area, areaSize);
    Met met = {};
    const uint8_t arrayFlag = readU8(in.bytes);
    if (arrayFlag > 1) return structure;
    const uint32_t numResponses = arrayFlag == 1 ? readU32(in.bytes) : 1;
    copyBytes(copy, ofStatistics ? STAT_SET_EYECATCHER : ID_SET_EYECATCHER, EYECATCHER_SIZE);
    copyWord(copy, numResponses);
    for (uint32_t i = 0; i < numResponses && !in.bytes.bad; i++)
        scanResponse(in, copy, ofStatistics, &met);
    structure.holds = !in.bytes.bad && bytesLeft(in.bytes) == 0;
    structure.references = met.references;
    structure.copied = structure.holds && copy.whole;
    if (structure.copied)
        endCopy(area, copy);
    else if (areaSize > 0)
        wipeCopy(area, areaSize, copy);
    return structure;
}

} // namespace rixstats
