// Reply parsing. A reply's call data is a Java object stream of the bean's answer, one object for each query element.
// It is not interpreted in general: fixed skips lead over its class descriptions, and what stands between them is
// copied into the result-set buffer.
//
//   reply       flag | with flag 1: number of responses | response ...
//   response    6 bytes | text | 13 | text | 13           stream header, class and super class
//               block header: 'w' and 1 byte, or 'z' and 4
//               element text | result                     a negative result: 1 byte more ends the response
//               count | identifier text ... | 1           of identifiers
//               count | 2 | text | 8 | statistic ...      of statistics: the statistic's class
//   statistic   5 | block header | identifier text | value text, running on into further blocks if need be | 2
#include "stapi_rix_statcomms.h"

#include "stapi_rix_diag.h"
#include "stapi_rix_resultsetbuffer.h"

#include <climits>
#include <cstdlib>

namespace rixstats {

constexpr uint8_t TC_BLOCKDATA = 0x77;     // 'w': one length byte
constexpr uint8_t TC_ENDBLOCKDATA = 0x78;  // ends an object's own data
constexpr uint8_t TC_BLOCKDATALONG = 0x7A; // 'z': four length bytes
constexpr size_t LEAST_RESPONSE_SIZE = 6 + 2 + 13 + 2 + 13 + 2 + 2 + 4 + 1;
constexpr size_t LEAST_ID_SIZE = 2;
constexpr size_t LEAST_STAT_SIZE = 5 + 2 + 2 + 2 + 2;

// The result set in the making: keeps room before each write and stops writing at the first failure.
typedef struct _ResultSetWriter
{
    char **resultSetBuffer;
    int *resultSetBufferLen;
    char *buffer; // write cursor
    int totaldatawritten;
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
    const size_t oldSize = static_cast<size_t>(*resultSetBufferLen);
    char *grown = nullptr;
    if (*resultSetBufferLen <= INT_MAX / 2)
        grown = static_cast<char *>(realloc(*resultSetBuffer, 2 * oldSize + RESULT_SET_SPARE));
    if (grown != nullptr) {
        memset(grown + oldSize + RESULT_SET_SPARE, 0, oldSize); // a dump may show what no reply has filled yet
        *resultSetBuffer = grown;
        *resultSetBufferLen *= 2;
        *buffer = grown + totaldatawritten;
        cursor = addressNumber(*buffer);
    } else {
        free(*resultSetBuffer);
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

// A text whose length has been read, from the reply to the result set.
static void copyChars(Reader &in, ResultSetWriter *out, int length)
{
    putInteger(out, length);
    putChars(out, readBlock(in, length));
}

static void copyText(Reader &in, ResultSetWriter *out)
{
    copyChars(in, out, readLength(in));
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
    if (out->rc == STAPI_OK) addTerminator(out->buffer);
}

// The head of a response, up to the element's result, which it returns.
static int copyElementHead(Reader &in, ResultSetWriter *out)
{
    skip(in, 6);
    skipText(in);
    skip(in, 13);
    skipText(in);
    skip(in, 13);
    skip(in, peekU8(in) == TC_BLOCKDATA ? 2 : 5);
    copyText(in, out);
    const int queryRc = readI32(in);
    putInteger(out, queryRc);
    return queryRc;
}

// ---- Identifiers

// A failed growth does not end the loops, only the writing: what the reply holds is walked and traced to its end.
static void copyIdsResponse(Reader &in, ResultSetWriter *out, int index)
{
    const int queryRc = copyElementHead(in, out);
    DEBUG(2226, "stapi_rix_statcomms.parseIdsData Query rc=%d or (hex=%8.8X)\n", queryRc,
          static_cast<unsigned>(queryRc));
    if (queryRc < 0) {
        DEBUG(2228, "stapi_rix_statcomms.parseIdsData Bad query id element(%d), move on to next one\n", index);
        skip(in, 1);
        return;
    }
    const int numIds = readCount(in, LEAST_ID_SIZE);
    DEBUG(2227, "stapi_rix_statcomms.parseIdsData reading %d IDs for result %d\n", numIds, index);
    putInteger(out, numIds);
    for (int j = 0; j < numIds && !in.bad; j++)
        copyText(in, out);
    skip(in, 1);
}

int parseIdsData(const char *rawData, int rawDataLen, char **resultSetBuffer, int *resultSetBufferLen)
{
    ENTRY(2224, "stapi_rix_statcomms.parseIdsData(rawData=%p, *resultSetBuffer=%p, *resultSetBufferLen=%d)\n",
          ptr(rawData), ptr(*resultSetBuffer), *resultSetBufferLen);
    ResultSetWriter out = {resultSetBuffer, resultSetBufferLen, *resultSetBuffer, 0, STAPI_OK};
    Reader in = readerOf(rawData, rawDataLen);
    const int numResponses = readNumResponses(in);
    DEBUG(2225, "stapi_rix_statcomms.parseIdsData received %d responses from the Gateway\n", numResponses);
    startResultSet(&out, ID_SET_EYECATCHER, numResponses);
    for (int i = 0; i < numResponses && !in.bad; i++)
        copyIdsResponse(in, &out, i);
    if (out.rc == STAPI_OK && in.bad) out.rc = STAPI_GATEWAY_EXCHANGE_FAILED;
    endResultSet(&out);
    EXIT(2229, "stapi_rix_statcomms.parseIdsData(rawData=%p, *resultSetBuffer=%p, *resultSetBufferLen=%d) rc=%d\n",
         ptr(rawData), ptr(*resultSetBuffer), *resultSetBufferLen, out.rc);
    return out.rc;
}

// ---- Statistics

static uint8_t peekBlockType(Reader &in)
{
    const uint8_t type = peekU8(in);
    DEBUG(2236, "stapi_rix_statcomms.parseStatsData block type=%2.8X \n", type);
    return type;
}

// One more piece of a value: the next block, whole. A block that holds more than is missing is malformed. Returns what
// is missing afterwards.
static int copyPiece(Reader &in, ResultSetWriter *out, int length, int remainingdata)
{
    if (length > remainingdata) spoil(in);
    putChars(out, readBlock(in, length));
    return remainingdata - length;
}

// A value that runs on from its first block into further ones: 'z' blocks as long as they last, then 'w' blocks.
static void copyContinuedValue(Reader &in, ResultSetWriter *out, int statdatalength, int length)
{
    int remainingdata = statdatalength - length;
    skip(in, 2);
    putInteger(out, statdatalength);
    putChars(out, readBlock(in, length));
    DEBUG(2234, "stapi_rix_statcomms.parseStatsData written %d of %d bytes. Remaining data = %d bytes\n", length,
          statdatalength, remainingdata);
    uint8_t type = peekU8(in);
    while (out->rc == STAPI_OK && !in.bad && type == TC_BLOCKDATALONG && remainingdata >= 1) {
        skip(in, 3);
        const int pieceLength = readLength(in);
        remainingdata = copyPiece(in, out, pieceLength, remainingdata);
        DEBUG(2235, "stapi_rix_statcomms.parseStatsData written %d of %d bytes. Remaining data = %d bytes\n",
              pieceLength, statdatalength, remainingdata);
        type = peekBlockType(in);
    }
    while (out->rc == STAPI_OK && !in.bad && type == TC_BLOCKDATA && remainingdata >= 1) {
        skip(in, 1);
        const int contlength = readU8(in);
        remainingdata = copyPiece(in, out, contlength, remainingdata);
        DEBUG(2237, "stapi_rix_statcomms.parseStatsData written %d of %d bytes. Remaining data = %d bytes\n",
              contlength, statdatalength, remainingdata);
    }
    if (remainingdata != 0) spoil(in);
    DEBUG(2238, "stapi_rix_statcomms.parseStatsData written %d bytes.  \n", statdatalength - remainingdata);
    skip(in, 2);
}

static void copyWholeValue(Reader &in, ResultSetWriter *out)
{
    const int length = readLength(in);
    DEBUG(2239, "stapi_rix_statcomms.parseStatsData statistic data length=%d\n", length);
    copyChars(in, out, length);
    skip(in, 2);
}

static void copyStat(Reader &in, ResultSetWriter *out)
{
    skip(in, 5);
    const uint8_t type = peekU8(in);
    DEBUG(2231, "stapi_rix_statcomms.parseStatsData block type=%2.8X \n", type);
    int chunklength = 0;
    if (type == TC_BLOCKDATALONG) {
        skip(in, 3); // of the block's length only the low half counts
        chunklength = readLength(in);
        DEBUG(2232, "stapi_rix_statcomms.parseStatsData chunklength=%d \n", chunklength);
    } else {
        skip(in, 2);
    }
    const int statidlength = readLength(in);
    DEBUG(2233, "stapi_rix_statcomms.parseStatsData statistic ID length=%d \n", statidlength);
    copyChars(in, out, statidlength);
    Reader ahead = in;
    const int statdatalength = readLength(ahead);
    const int inThisBlock = chunklength - statidlength - 4;
    if (type != TC_BLOCKDATALONG || statdatalength <= inThisBlock)
        copyWholeValue(in, out);
    else if (inThisBlock < 0)
        spoil(in);
    else
        copyContinuedValue(in, out, statdatalength, inThisBlock);
}

// An element that succeeded without statistics: its stream ends at once, or goes on with the description of a class
// that no statistic follows.
static void skipNoStats(Reader &in)
{
    if (peekU8(in) == TC_ENDBLOCKDATA) {
        skip(in, 1);
        return;
    }
    skip(in, 2);
    skipText(in);
    skip(in, 8);
}

static void copyStatsResponse(Reader &in, ResultSetWriter *out, int index)
{
    const int queryRc = copyElementHead(in, out);
    if (queryRc < 0) {
        skip(in, 1);
        return;
    }
    const int numStats = readCount(in, LEAST_STAT_SIZE);
    DEBUG(2222, "stapi_rix_statcomms.parseStatsData reading %d stats for result %d\n", numStats, index);
    putInteger(out, numStats);
    if (numStats == 0) {
        skipNoStats(in);
    } else {
        skip(in, 2);
        skipText(in);
        skip(in, 8);
    }
    for (int j = 0; j < numStats && out->rc == STAPI_OK && !in.bad; j++)
        copyStat(in, out);
    DEBUG(2240, "stapi_rix_statcomms.parseStatsData running total of parsed data = %d bytes\n", out->totaldatawritten);
}

int parseStatsData(const char *rawData, int rawDataLen, char **resultSetBuffer, int *resultSetBufferLen)
{
    ENTRY(2220, "stapi_rix_statcomms.parseStatsData(rawData=%p, *resultSetBuffer=%p, *resultSetBufferLen=%d)\n",
          ptr(rawData), ptr(*resultSetBuffer), *resultSetBufferLen);
    ResultSetWriter out = {resultSetBuffer, resultSetBufferLen, *resultSetBuffer, 0, STAPI_OK};
    Reader in = readerOf(rawData, rawDataLen);
    const int numResponses = readNumResponses(in);
    DEBUG(2221, "stapi_rix_statcomms.parseStatsData received %d responses from the Gateway\n", numResponses);
    startResultSet(&out, STAT_SET_EYECATCHER, numResponses);
    for (int i = 0; i < numResponses && out.rc == STAPI_OK && !in.bad; i++)
        copyStatsResponse(in, &out, i);
    if (out.rc == STAPI_OK && in.bad) out.rc = STAPI_GATEWAY_EXCHANGE_FAILED;
    endResultSet(&out);
    DEBUG(2241, "stapi_rix_statcomms.parseStatsData parsed data total = %d bytes\n", out.totaldatawritten);
    EXIT(2223, "stapi_rix_statcomms.parseStatsData(rawData=%p, *resultSetBuffer=%p, *resultSetBufferLen=%d) rc=%d\n",
         ptr(rawData), ptr(*resultSetBuffer), *resultSetBufferLen, out.rc);
    return out.rc;
}

} // namespace rixstats
