// The two ways to read a reply's call data, behind one reader. Private to the reply parsers and their tests.
//
// Gateways write Java object streams, in which an object's own data is cut into blocks: a virtual machine cuts it at
// 1024 bytes, wherever that falls, and another writer may not cut it at all. A reply that holds to the structure of
// such a stream in every respect is read by that structure: block lengths are believed and followed. Any other reply is
// read by fixed skips alone, and none of the bytes that they lead over is looked at. The two are never mixed.
#ifndef STAPI_RIX_STATCOMMS_STREAM_H
#define STAPI_RIX_STATCOMMS_STREAM_H

#include "stapi_rix_wire.h"

namespace rixstats {

constexpr uint8_t TC_REFERENCE = 0x71;     // to an object or class that came before, by its handle
constexpr uint8_t TC_CLASSDESC = 0x72;     // description of a class
constexpr uint8_t TC_OBJECT = 0x73;        // a new object
constexpr uint8_t TC_BLOCKDATA = 0x77;     // 'w': a block with one length byte
constexpr uint8_t TC_ENDBLOCKDATA = 0x78;  // end of an object's own data, or of a class's annotations
constexpr uint8_t TC_NULL = 0x70;          // where a super class could stand: there is none
constexpr uint8_t TC_BLOCKDATALONG = 0x7A; // 'z': a block with four length bytes

// Handles number classes and objects in the order in which they come: the reply's class, its super class, the reply,
// the statistics' class, the statistics.
constexpr uint32_t FIRST_STAT_HANDLE = 0x7E0004;

// By fixed skips the whole reply is as good as one block that never ends.
constexpr uint32_t ENDLESS_BLOCK = UINT32_MAX;

typedef struct _ReplyReader
{
    Reader bytes;
    bool byStructure;
    uint32_t blockLeft; // of the block being read
} ReplyReader;

inline ReplyReader replyReaderOf(const char *rawData, int rawDataLen, bool byStructure)
{
    return {readerOf(rawData, rawDataLen), byStructure, byStructure ? 0 : ENDLESS_BLOCK};
}

// What a scan found out about a reply.
typedef struct _ReplyStructure
{
    bool holds;      // in every respect, to the last byte
    bool references; // a statistic comes by reference to an earlier one
    bool copied;     // the result set is in the area already, as the parsers would have written it
} ReplyStructure;

// area: of areaSize bytes, and the spare ones behind them, for the result set of a reply that holds to the structure.
// It is copied on the way. With an areaSize of 0 nothing is.
ReplyStructure scanReply(const char *rawData, int rawDataLen, bool ofStatistics, char *area, int areaSize);

// The parsers with the way of reading given: parseIdsData() and parseStatsData() choose it by a scan.
int parseIdsReply(ReplyStructure structure, const char *rawData, int rawDataLen, char **resultSetBuffer,
                  int *resultSetBufferLen);
int parseStatsReply(ReplyStructure structure, const char *rawData, int rawDataLen, char **resultSetBuffer,
                    int *resultSetBufferLen);

// Steps over a block's header, 'w' or not. Returns the block's length by structure, else 0.
inline uint32_t openBlock(ReplyReader &in)
{
    const uint8_t type = peekU8(in.bytes);
    if (!in.byStructure) {
        skip(in.bytes, type == TC_BLOCKDATA ? 2 : 5);
        return 0;
    }
    if (type != TC_BLOCKDATA && type != TC_BLOCKDATALONG) spoil(in.bytes);
    skip(in.bytes, 1);
    in.blockLeft = type == TC_BLOCKDATA ? readU8(in.bytes) : readU32(in.bytes);
    if (in.blockLeft > bytesLeft(in.bytes)) spoil(in.bytes);
    return in.blockLeft;
}

// Bytes of block data that can be had in one piece, at most `wanted`; steps into the next block where one has ended.
inline uint32_t nextPiece(ReplyReader &in, uint32_t wanted)
{
    while (in.blockLeft == 0 && wanted > 0 && !in.bytes.bad)
        openBlock(in);
    const uint32_t piece = wanted < in.blockLeft ? wanted : in.blockLeft;
    in.blockLeft -= piece;
    return piece;
}

// An integer that may lie across the end of a block.
inline uint32_t splitInteger(ReplyReader &in, uint32_t size)
{
    uint32_t value = 0;
    for (uint32_t i = 0; i < size && !in.bytes.bad; i++) {
        nextPiece(in, 1);
        value = value << 8 | readU8(in.bytes);
    }
    return value;
}

inline uint32_t blockU16(ReplyReader &in)
{
    if (in.blockLeft < 2) return splitInteger(in, 2);
    in.blockLeft -= 2;
    return readU16(in.bytes);
}

inline uint32_t blockU32(ReplyReader &in)
{
    if (in.blockLeft < 4) return splitInteger(in, 4);
    in.blockLeft -= 4;
    return readU32(in.bytes);
}

// By structure a length is what a stream can carry, up to 65,535; by fixed skips it is signed.
inline int blockTextLength(ReplyReader &in)
{
    const uint32_t length = blockU16(in);
    if (!in.byStructure && length > INT16_MAX) spoil(in.bytes);
    return in.bytes.bad ? 0 : static_cast<int>(length);
}

// A scan has counted the items of a reply that is read by structure.
inline int blockCount(ReplyReader &in, size_t leastItem)
{
    if (!in.byStructure) return readCount(in.bytes, leastItem);
    const uint32_t count = blockU32(in);
    if (count > INT32_MAX) spoil(in.bytes);
    return in.bytes.bad ? 0 : static_cast<int>(count);
}

} // namespace rixstats

#endif
