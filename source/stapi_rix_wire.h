// Bytes on the wire: the one reader of what a gateway sent and the one writer of what is sent to it. Integers are
// big-endian; a text is a 16-bit length followed by its bytes. Calls nothing.
//
// A gateway is not trusted. Every byte of a reply is reached through a Reader, which never leaves its bounds: a read
// that asks for more than is left spoils it, and a spoiled reader yields zeros and empty blocks, which are safe to
// carry on with until the one test of `bad` at the end of a record.
#ifndef STAPI_RIX_WIRE_H
#define STAPI_RIX_WIRE_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace rixstats {

typedef struct _Reader
{
    const uint8_t *pos, *end;
    bool bad;
} Reader;

// A run of bytes inside a reply.
typedef struct _Block
{
    const char *bytes;
    int length;
} Block;

// length may be what a lying gateway or a caller made of it: nothing can be read where it is not positive.
inline Reader readerOf(const char *bytes, int length)
{
    const uint8_t *start = reinterpret_cast<const uint8_t *>(bytes);
    return {start, bytes != nullptr && length > 0 ? start + length : start, false};
}

inline size_t bytesLeft(const Reader &reader)
{
    return static_cast<size_t>(reader.end - reader.pos);
}

inline void spoil(Reader &reader)
{
    reader.bad = true;
    reader.pos = reader.end;
}

// Moves the read position forward: for all but the short ways of a scan, which compare with bytesLeft() themselves.
inline const uint8_t *take(Reader &reader, size_t count)
{
    if (count > bytesLeft(reader)) {
        spoil(reader);
        return nullptr;
    }
    const uint8_t *bytes = reader.pos;
    reader.pos += count;
    return bytes;
}

inline void skip(Reader &reader, size_t count)
{
    take(reader, count);
}

inline uint8_t peekU8(const Reader &reader)
{
    // A reader of nothing has both its ends at null: NOLINTNEXTLINE(clang-analyzer-core.NullDereference)
    return bytesLeft(reader) > 0 ? *reader.pos : 0;
}

inline uint8_t readU8(Reader &reader)
{
    const uint8_t *b = take(reader, 1);
    return b != nullptr ? *b : 0;
}

inline uint16_t readU16(Reader &reader)
{
    const uint8_t *b = take(reader, 2);
    return b != nullptr ? static_cast<uint16_t>(unsigned{b[0]} << 8 | b[1]) : 0;
}

inline uint32_t readU32(Reader &reader)
{
    const uint8_t *b = take(reader, 4);
    if (b == nullptr) return 0;
    return uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 | uint32_t{b[3]};
}

inline int32_t readI32(Reader &reader)
{
    return static_cast<int32_t>(readU32(reader));
}

inline double readDouble(Reader &reader)
{
    const uint64_t high = readU32(reader);
    const uint64_t bits = high << 32 | readU32(reader);
    double value;
    memcpy(&value, &bits, sizeof value);
    return value;
}

// A 16-bit length of something that follows. The gateway's lengths are signed: a negative one is malformed.
inline int readLength(Reader &reader)
{
    const uint16_t length = readU16(reader);
    if (length > INT16_MAX) spoil(reader);
    return reader.bad ? 0 : length;
}

// A count of items that follow, each at least leastItem bytes long: more than can be left is malformed, so that a count
// may bound a loop.
inline int readCount(Reader &reader, size_t leastItem)
{
    const uint32_t count = readU32(reader);
    if (count > INT32_MAX || count > bytesLeft(reader) / leastItem) spoil(reader);
    return reader.bad ? 0 : static_cast<int>(count);
}

inline Block readBlock(Reader &reader, int length)
{
    if (length < 0) spoil(reader);
    const uint8_t *bytes = reader.bad ? nullptr : take(reader, static_cast<size_t>(length));
    return {reinterpret_cast<const char *>(bytes), bytes != nullptr ? length : 0};
}

inline void skipText(Reader &reader)
{
    readBlock(reader, readLength(reader));
}

// Writes into a zeroed buffer that was sized by the length rules of the request. Bytes for which they left no room
// would stay out of the request rather than run over its end.
typedef struct _Writer
{
    char *pos, *end;
} Writer;

inline Writer writerOf(char *buffer, size_t size)
{
    return {buffer, buffer + size};
}

inline void writeBytes(Writer &writer, const void *bytes, size_t count)
{
    if (count == 0 || count > static_cast<size_t>(writer.end - writer.pos)) return;
    memcpy(writer.pos, bytes, count);
    writer.pos += count;
}

inline void writeU16(Writer &writer, size_t value)
{
    const uint8_t b[2] = {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
    writeBytes(writer, b, sizeof b);
}

inline void writeI32(Writer &writer, int32_t value)
{
    const uint32_t v = static_cast<uint32_t>(value);
    const uint8_t b[4] = {static_cast<uint8_t>(v >> 24), static_cast<uint8_t>(v >> 16), static_cast<uint8_t>(v >> 8),
                          static_cast<uint8_t>(v)};
    writeBytes(writer, b, sizeof b);
}

inline void writeDouble(Writer &writer, double value)
{
    uint64_t bits;
    memcpy(&bits, &value, sizeof bits);
    writeI32(writer, static_cast<int32_t>(bits >> 32));
    writeI32(writer, static_cast<int32_t>(bits));
}

inline void writeText(Writer &writer, const char *text)
{
    const size_t length = strlen(text);
    writeU16(writer, length);
    writeBytes(writer, text, length);
}

} // namespace rixstats

#endif
