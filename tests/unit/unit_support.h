// Helpers of the unit tests: bytes put together independently of the library's own writers, copies that end where their
// heap block ends, and captured trace output.
#pragma once

#include "stapi_rix_diag.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <memory>
#include <string>

namespace unit {

// ---- Result sets: words in the host's byte order

inline std::string word(int value)
{
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

inline std::string counted(const std::string &text)
{
    return word(static_cast<int>(text.size())) + text;
}

inline const std::string TERMINATOR = word(0x0E0F0E0F);

// ---- The wire: big-endian

inline std::string u16(unsigned value)
{
    return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

inline std::string u32(uint32_t value)
{
    return u16(value >> 16) + u16(value & 0xFFFF);
}

inline std::string wireText(const std::string &text)
{
    return u16(static_cast<unsigned>(text.size())) + text;
}

// ---- Memory

// A heap block of exactly these bytes: a sanitizer sees a read of one byte more.
inline std::unique_ptr<char[]> exactCopy(const std::string &bytes)
{
    std::unique_ptr<char[]> copy(new char[bytes.size()]);
    bytes.copy(copy.get(), bytes.size());
    return copy;
}

// ---- Trace output

// Takes the trace output while it lives.
class TraceCapture
{
public:
    explicit TraceCapture(int level = 0)
    {
        EXPECT_EQ(rixstats::initTrace(), 0); // may be repeated
        EXPECT_EQ(rixstats::statAPITraceHandle, stderr);
        EXPECT_STREQ(rixstats::statAPITraceFilename, "stderr");
        rixstats::statAPITraceHandle = stream = open_memstream(&buffer, &size);
        rixstats::statAPITrace = level;
    }
    ~TraceCapture()
    {
        rixstats::statAPITrace = 0;
        rixstats::statAPITraceHandle = stderr;
        fclose(stream);
        free(buffer);
    }
    std::string text() const
    {
        fflush(stream);
        return {buffer, size};
    }

private:
    char *buffer = nullptr;
    size_t size = 0;
    FILE *stream = nullptr;
};

} // namespace unit
