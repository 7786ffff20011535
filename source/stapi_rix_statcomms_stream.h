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

// A statistic's own data as nearly all are: in one short block that holds them whole. Worth a look of its own: the
// scan of a long reply takes half the time, the copying a third.
typedef struct _ShortStat
{
    Block id, value;
    size_t size; // of the block with its header, and of the end mark
} ShortStat;

// The reader stays where it is.
inline bool isShortStat(const Reader &in, ShortStat *stat)
{
    const size_t left = bytesLeft(in);
    const uint8_t *p = in.pos;
    if (left < 6 || p[0] != TC_BLOCKDATA) return false;
    const size_t size = p[1], idLength = static_cast<size_t>(p[2]) << 8 | p[3];
    if (size + 3 > left || idLength + 4 > size) return false;
    const uint8_t *value = p + 4 + idLength;
    const size_t valueLength = static_cast<size_t>(value[0]) << 8 | value[1];
    if (idLength + valueLength + 4 != size || p[2 + size] != TC_ENDBLOCKDATA) return false;
    stat->id = {reinterpret_cast<const char *>(p) + 4, static_cast<int>(idLength)};
    stat->value = {reinterpret_cast<const char *>(value) + 2, static_cast<int>(valueLength)};
    stat->size = size + 3;
    return true;
}

// What a scan found out about a reply.
typedef struct _ReplyStructure
{
    bool holds;      // in every respect, to the last byte
    bool references; // a statistic comes by reference to an earlier one
} ReplyStructure;

ReplyStructure scanReply(const char *rawData, int rawDataLen, bool ofStatistics);

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
