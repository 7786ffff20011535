// Reply parsing. What a reply's call data holds for the caller is copied into the result-set buffer; what stands
// between is stepped over.
//
//   reply       flag | with flag 1: number of responses | response ...
//   response    6 bytes | text | 13 | text | 13           stream header, class and super class
//               block header: 'w' and 1 byte, or 'z' and 4
//               element text | result                     a negative result: 1 byte more ends the response
//               count | identifier text ... | 1           of identifiers
//               count | 2 | text | 8 | statistic ...      of statistics: the statistic's class
//   statistic   5 | block header | identifier text | value text, running on into further blocks if need be | 2
//
// A reply that holds to the structure of an object stream may have block headers anywhere in its block data; the reader
// follows them then (see stapi_rix_statcomms_stream.h). Mostly the scan that finds that out has copied the result set
// already: what follows serves the replies that it left, traced, grown, repeated or read by fixed skips.
#include "stapi_rix_statcomms.h"

#include "stapi_rix_diag.h"
#include "stapi_rix_resultsetbuffer.h"
#include "stapi_rix_statcomms_stream.h"

#include <climits>
#include <cstdlib>

namespace rixstats {

constexpr size_t LEAST_RESPONSE_SIZE = 6 + 2 + 13 + 2 + 13 + 2 + 2 + 4 + 1;
constexpr size_t LEAST_ID_SIZE = 2;
constexpr size_t LEAST_STAT_SIZE = 5 + 2 + 2 + 2 + 2;
// What repeated statistics may add to a result set: a reply of a few bytes must not fill the caller's memory.
constexpr int MOST_REPEATED_BYTES = 16 << 20;

// The result set in the making: keeps room before each write and stops writing at the first failure.
typedef struct _ResultSetWriter
{
    char **resultSetBuffer;
    int *resultSetBufferLen;
    char *buffer; // write cursor
    int totaldatawritten;
    int repeatedBytes; // of that, statistics that came by reference
    int rc;
} ResultSetWriter;

int reallocResultsSetBuffer(char **resultSetBuffer, int *resultSetBufferLen, char **buffer, int totaldatawritten)
{
    ENTRY(
        2244,
        "stapi_rix_statcomms.reallocResultsSetBuffer(*resultSetBuffer=%p, *resultSetBufferLen=%d, *buffer=%p, totaldatawritten=%d)\n",
        ptr(*resultSetBuffer), *resultSetBufferLen, ptr(*buffer), totaldatawritten);
    int rc = STAPI_OK;
    uintptr_t cursor = addressNumber(*buffer); // what the exit line shows, also of a block that could not grow
    char *grown = nullptr;
    if (*resultSetBufferLen <= INT_MAX / 2) grown = growResultSetArea(*resultSetBuffer, 2 * *resultSetBufferLen);
    if (grown != nullptr) {
        *resultSetBuffer = grown;
        *resultSetBufferLen *= 2;
        *buffer = grown + totaldatawritten;
        cursor = addressNumber(*buffer);
    } else {
        freeResultSetArea(*resultSetBuffer);
        *resultSetBuffer = nullptr;
        rc = STAPI_NO_MEMORY;
    }
    EXIT(
        2245,
        "stapi_rix_statcomms.reallocResultsSetBuffer(*resultSetBuffer=%p, *resultSetBufferLen=%d, *buffer=%p) rc=%d)\n",
        ptr(*resultSetBuffer), *resultSetBufferLen, ptr(cursor), rc);
    return rc;
}

static void ensure(ResultSetWriter *out, int size)
{
    while (out->rc == STAPI_OK && size > *out->resultSetBufferLen - out->totaldatawritten)
        out->rc =
            reallocResultsSetBuffer(out->resultSetBuffer, out->resultSetBufferLen, &out->buffer, out->totaldatawritten);
}

static void putInteger(ResultSetWriter *out, int value)
{
    ensure(out, 4);
    if (out->rc != STAPI_OK) return;
    addInteger(&out->buffer, value);
    out->totaldatawritten += 4;
}

static void putChars(ResultSetWriter *out, Block text)
{
    ensure(out, text.length);
    if (out->rc != STAPI_OK) return;
    addChars(&out->buffer, text.bytes, text.length);
    out->totaldatawritten += text.length;
}

// Block data that ends in another block than it begins in, in the pieces in which it comes.
static void copyPieces(ReplyReader &in, ResultSetWriter *out, uint32_t left)
{
    while (left > 0 && !in.bytes.bad) {
        const uint32_t piece = nextPiece(in, left);
        putChars(out, readBlock(in.bytes, static_cast<int>(piece)));
        left -= piece;
    }
}

// A text whose length has been read.
static void copyChars(ReplyReader &in, ResultSetWriter *out, int length)
{
    putInteger(out, length);
    if (static_cast<uint32_t>(length) > in.blockLeft) {
        copyPieces(in, out, static_cast<uint32_t>(length));
        return;
    }
    in.blockLeft -= static_cast<uint32_t>(length);
    putChars(out, readBlock(in.bytes, length));
}

static void copyText(ReplyReader &in, ResultSetWriter *out)
{
    copyChars(in, out, blockTextLength(in));
}

static int readNumResponses(Reader &in)
{
    const uint8_t arrayFlag = readU8(in);
    return arrayFlag == 1 ? readCount(in, LEAST_RESPONSE_SIZE) : 1;
}

static void startResultSet(ResultSetWriter *out, const char *eyecatcher, int numResponses)
{
    addTerminator(out->buffer);
    addPlatformChars(&out->buffer, eyecatcher, EYECATCHER_SIZE);
    addInteger(&out->buffer, numResponses);
    out->totaldatawritten = EYECATCHER_SIZE + 4;
}

static void endResultSet(ResultSetWriter *out)
{
    ensure(out, 4);
    if (out->rc != STAPI_OK) return;
    addTerminator(out->buffer);
    setResultSetLength(*out->resultSetBuffer, out->totaldatawritten + 4);
}

// The head of a response, up to the element's result, which it returns.
static int copyElementHead(ReplyReader &in, ResultSetWriter *out)
{
    skip(in.bytes, 6);
    skipText(in.bytes);
    skip(in.bytes, 13);
    skipText(in.bytes);
    skip(in.bytes, 13);
    openBlock(in);
    copyText(in, out);
    const int queryRc = static_cast<int>(blockU32(in));
    putInteger(out, queryRc);
    return queryRc;
}

// While nothing is traced the scan may copy the whole result set; then there is nothing left to do.
static ReplyStructure scan(const char *rawData, int rawDataLen, bool ofStatistics, char *area, int areaSize)
{
    return scanReply(rawData, rawDataLen, ofStatistics, area, traceOn(Line::exc) ? 0 : areaSize);
}

// ---- Identifiers

// A failed growth does not end the loops, only the writing: what the reply holds is walked and traced to its end.
static void copyIdsResponse(ReplyReader &in, ResultSetWriter *out, int index)
{
    const int queryRc = copyElementHead(in, out);
    DEBUG(2226, "stapi_rix_statcomms.parseIdsData Query rc=%d or (hex=%8.8X)\n", queryRc,
          static_cast<unsigned>(queryRc));
    if (queryRc < 0) {
        DEBUG(2228, "stapi_rix_statcomms.parseIdsData Bad query id element(%d), move on to next one\n", index);
        skip(in.bytes, 1);
        return;
    }
    const int numIds = blockCount(in, LEAST_ID_SIZE);
    DEBUG(2227, "stapi_rix_statcomms.parseIdsData reading %d IDs for result %d\n", numIds, index);
    putInteger(out, numIds);
    for (int j = 0; j < numIds && !in.bytes.bad; j++)
        copyText(in, out);
    skip(in.bytes, 1);
}

int parseIdsReply(ReplyStructure structure, const char *rawData, int rawDataLen, char **resultSetBuffer,
                  int *resultSetBufferLen)
{
    ResultSetWriter out = {resultSetBuffer, resultSetBufferLen, *resultSetBuffer, 0, 0, STAPI_OK};
    ReplyReader in = replyReaderOf(rawData, rawDataLen, structure.holds);
    const int numResponses = readNumResponses(in.bytes);
    DEBUG(2225, "stapi_rix_statcomms.parseIdsData received %d responses from the Gateway\n", numResponses);
    startResultSet(&out, ID_SET_EYECATCHER, numResponses);
    for (int i = 0; i < numResponses && !in.bytes.bad; i++)
        copyIdsResponse(in, &out, i);
    if (out.rc == STAPI_OK && in.bytes.bad) out.rc = STAPI_GATEWAY_EXCHANGE_FAILED;
    endResultSet(&out);
    return out.rc;
}

int parseIdsData(const char *rawData, int rawDataLen, char **resultSetBuffer, int *resultSetBufferLen)
{
    ENTRY(2224, "stapi_rix_statcomms.parseIdsData(rawData=%p, *resultSetBuffer=%p, *resultSetBufferLen=%d)\n",
          ptr(rawData), ptr(*resultSetBuffer), *resultSetBufferLen);
    const ReplyStructure structure = scan(rawData, rawDataLen, false, *resultSetBuffer, *resultSetBufferLen);
    const int rc = structure.copied
                       ? STAPI_OK
                       : parseIdsReply(structure, rawData, rawDataLen, resultSetBuffer, resultSetBufferLen);
    EXIT(2229, "stapi_rix_statcomms.parseIdsData(rawData=%p, *resultSetBuffer=%p, *resultSetBufferLen=%d) rc=%d\n",
         ptr(rawData), ptr(*resultSetBuffer), *resultSetBufferLen, rc);
    return rc;
}

// ---- Statistics

// Where the statistics of a response stand in the result set, for those that come again by reference.
typedef struct _StatPlaces
{
    int *offsets; // null unless the reply holds references
    int count;
} StatPlaces;

static uint8_t peekBlockType(const Reader &in)
{
    const uint8_t type = peekU8(in);
    DEBUG(2236, "stapi_rix_statcomms.parseStatsData block type=%2.8X \n", type);
    return type;
}

// One more piece of a value: the next block, whole. A block that holds more than is missing is malformed. Returns what
// is missing afterwards.
static int copyPiece(ReplyReader &in, ResultSetWriter *out, uint32_t length, int remainingdata)
{
    if (length > static_cast<uint32_t>(remainingdata)) spoil(in.bytes);
    in.blockLeft -= length;
    putChars(out, readBlock(in.bytes, static_cast<int>(length)));
    return remainingdata - static_cast<int>(length);
}

static uint32_t openLongPiece(ReplyReader &in)
{
    if (in.byStructure) return openBlock(in);
    skip(in.bytes, 3); // of the block's length only the low half counts
    return static_cast<uint32_t>(readLength(in.bytes));
}

static uint32_t openShortPiece(ReplyReader &in)
{
    if (in.byStructure) return openBlock(in);
    skip(in.bytes, 1);
    return readU8(in.bytes);
}

// A value that runs on from its first block into further ones. By fixed skips these are 'z' blocks as long as they
// last, then 'w' blocks.
static void copyContinuedValue(ReplyReader &in, ResultSetWriter *out, int statdatalength, int length)
{
    int remainingdata = statdatalength - length;
    in.blockLeft -= static_cast<uint32_t>(length);
    putInteger(out, statdatalength);
    putChars(out, readBlock(in.bytes, length));
    DEBUG(2234, "stapi_rix_statcomms.parseStatsData written %d of %d bytes. Remaining data = %d bytes\n", length,
          statdatalength, remainingdata);
    uint8_t type = peekU8(in.bytes);
    while (out->rc == STAPI_OK && !in.bytes.bad && remainingdata >= 1) {
        if (type == TC_BLOCKDATALONG) {
            const uint32_t pieceLength = openLongPiece(in);
            remainingdata = copyPiece(in, out, pieceLength, remainingdata);
            DEBUG(2235, "stapi_rix_statcomms.parseStatsData written %d of %d bytes. Remaining data = %d bytes\n",
                  static_cast<int>(pieceLength), statdatalength, remainingdata);
            type = peekBlockType(in.bytes);
        } else if (type == TC_BLOCKDATA) {
            const uint32_t contlength = openShortPiece(in);
            remainingdata = copyPiece(in, out, contlength, remainingdata);
            DEBUG(2237, "stapi_rix_statcomms.parseStatsData written %d of %d bytes. Remaining data = %d bytes\n",
                  static_cast<int>(contlength), statdatalength, remainingdata);
            if (in.byStructure) type = peekU8(in.bytes);
        } else {
            spoil(in.bytes);
        }
    }
    DEBUG(2238, "stapi_rix_statcomms.parseStatsData written %d bytes.  \n", statdatalength - remainingdata);
}

// inThisBlock: bytes of the block behind the value's length.
static void copyValue(ReplyReader &in, ResultSetWriter *out, int statdatalength, int inThisBlock)
{
    if (statdatalength <= inThisBlock) {
        DEBUG(2239, "stapi_rix_statcomms.parseStatsData statistic data length=%d\n", statdatalength);
        copyChars(in, out, statdatalength);
    } else if (inThisBlock < 0) {
        spoil(in.bytes);
    } else {
        copyContinuedValue(in, out, statdatalength, inThisBlock);
    }
}

// Opens the first block of a statistic and returns its length; by fixed skips that of a long block alone, of whose
// length only the low half counts.
static int openStatBlock(ReplyReader &in)
{
    const uint8_t type = peekU8(in.bytes);
    DEBUG(2231, "stapi_rix_statcomms.parseStatsData block type=%2.8X \n", type);
    int chunklength = INT_MAX;
    if (in.byStructure) {
        chunklength = static_cast<int>(openBlock(in));
    } else if (type == TC_BLOCKDATALONG) {
        skip(in.bytes, 3);
        chunklength = readLength(in.bytes);
    } else {
        skip(in.bytes, 2);
    }
    if (type == TC_BLOCKDATALONG) DEBUG(2232, "stapi_rix_statcomms.parseStatsData chunklength=%d \n", chunklength);
    return chunklength;
}

static void copyStat(ReplyReader &in, ResultSetWriter *out)
{
    skip(in.bytes, 5);
    const int chunklength = openStatBlock(in);
    const int statidlength = blockTextLength(in);
    DEBUG(2233, "stapi_rix_statcomms.parseStatsData statistic ID length=%d \n", statidlength);
    copyChars(in, out, statidlength);
    const int statdatalength = blockTextLength(in);
    copyValue(in, out, statdatalength,
              in.byStructure ? static_cast<int>(in.blockLeft) : chunklength - statidlength - 4);
}

// The statistic that the last bytes of the reply refer to, once more: from where it stands in the result set.
static void repeatStat(ReplyReader &in, ResultSetWriter *out, const StatPlaces *places)
{
    const uint32_t index = readU32(in.bytes) - FIRST_STAT_HANDLE;
    if (in.bytes.bad || index >= static_cast<uint32_t>(places->count)) {
        spoil(in.bytes);
        return;
    }
    const int offset = places->offsets[index];
    const int idLength = wordAt(*out->resultSetBuffer + offset);
    const int valueLength = wordAt(*out->resultSetBuffer + offset + 4 + idLength);
    out->repeatedBytes += 8 + idLength + valueLength;
    if (out->repeatedBytes > MOST_REPEATED_BYTES) spoil(in.bytes);
    ensure(out, 8 + idLength + valueLength); // so that the copied one does not move meanwhile
    if (in.bytes.bad || out->rc != STAPI_OK) return;
    const char *id = *out->resultSetBuffer + offset + 4;
    putInteger(out, idLength);
    putChars(out, {id, idLength});
    putInteger(out, valueLength);
    putChars(out, {id + idLength + 4, valueLength});
}

// Each statistic is followed by its end mark and the type of what comes next, a reference by that type alone.
static void copyStats(ReplyReader &in, ResultSetWriter *out, int numStats, StatPlaces *places)
{
    skip(in.bytes, 2);
    skipText(in.bytes);
    skip(in.bytes, 8);
    uint8_t next = TC_OBJECT;
    for (int j = 0; j < numStats && out->rc == STAPI_OK && !in.bytes.bad; j++) {
        if (in.byStructure && next == TC_REFERENCE) {
            repeatStat(in, out, places);
        } else {
            if (places->offsets != nullptr) places->offsets[places->count++] = out->totaldatawritten;
            copyStat(in, out);
            skip(in.bytes, 1);
        }
        next = readU8(in.bytes);
    }
}

static void copyListedStats(ReplyReader &in, ResultSetWriter *out, int numStats, bool references)
{
    StatPlaces places = {nullptr, 0};
    if (references) {
        places.offsets = static_cast<int *>(calloc(static_cast<size_t>(numStats), sizeof *places.offsets));
        if (places.offsets == nullptr) {
            out->rc = STAPI_NO_MEMORY;
            return;
        }
    }
    copyStats(in, out, numStats, &places);
    free(places.offsets);
}

// An element that succeeded without statistics: its stream ends at once, or, by fixed skips alone, goes on with the
// description of a class that no statistic follows.
static void skipNoStats(ReplyReader &in)
{
    if (in.byStructure || bytesLeft(in.bytes) <= 1) {
        skip(in.bytes, 1);
        return;
    }
    skip(in.bytes, 2);
    skipText(in.bytes);
    skip(in.bytes, 8);
}

static void copyStatsResponse(ReplyReader &in, ResultSetWriter *out, int index, bool references)
{
    const int queryRc = copyElementHead(in, out);
    if (queryRc < 0) {
        skip(in.bytes, 1);
        return;
    }
    const int numStats = blockCount(in, LEAST_STAT_SIZE);
    DEBUG(2222, "stapi_rix_statcomms.parseStatsData reading %d stats for result %d\n", numStats, index);
    putInteger(out, numStats);
    if (numStats == 0)
        skipNoStats(in);
    else
        copyListedStats(in, out, numStats, references);
    DEBUG(2240, "stapi_rix_statcomms.parseStatsData running total of parsed data = %d bytes\n", out->totaldatawritten);
}

int parseStatsReply(ReplyStructure structure, const char *rawData, int rawDataLen, char **resultSetBuffer,
                    int *resultSetBufferLen)
{
    ResultSetWriter out = {resultSetBuffer, resultSetBufferLen, *resultSetBuffer, 0, 0, STAPI_OK};
    ReplyReader in = replyReaderOf(rawData, rawDataLen, structure.holds);
    const int numResponses = readNumResponses(in.bytes);
    DEBUG(2221, "stapi_rix_statcomms.parseStatsData received %d responses from the Gateway\n", numResponses);
    startResultSet(&out, STAT_SET_EYECATCHER, numResponses);
    for (int i = 0; i < numResponses && out.rc == STAPI_OK && !in.bytes.bad; i++)
        copyStatsResponse(in, &out, i, structure.holds && structure.references);
    if (out.rc == STAPI_OK && in.bytes.bad) out.rc = STAPI_GATEWAY_EXCHANGE_FAILED;
    endResultSet(&out);
    DEBUG(2241, "stapi_rix_statcomms.parseStatsData parsed data total = %d bytes\n", out.totaldatawritten);
    return out.rc;
}

int parseStatsData(const char *rawData, int rawDataLen, char **resultSetBuffer, int *resultSetBufferLen)
{
    ENTRY(2220, "stapi_rix_statcomms.parseStatsData(rawData=%p, *resultSetBuffer=%p, *resultSetBufferLen=%d)\n",
          ptr(rawData), ptr(*resultSetBuffer), *resultSetBufferLen);
    const ReplyStructure structure = scan(rawData, rawDataLen, true, *resultSetBuffer, *resultSetBufferLen);
    const int rc = structure.copied
                       ? STAPI_OK
                       : parseStatsReply(structure, rawData, rawDataLen, resultSetBuffer, resultSetBufferLen);
    EXIT(2223, "stapi_rix_statcomms.parseStatsData(rawData=%p, *resultSetBuffer=%p, *resultSetBufferLen=%d) rc=%d\n",
         ptr(rawData), ptr(*resultSetBuffer), *resultSetBufferLen, rc);
    return rc;
}

} // namespace rixstats
