// The byte level of everything the simulator sends and receives: big-endian integers, and texts behind a 16-bit length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace rixgwsim {

using Bytes = std::vector<std::uint8_t>;

constexpr std::int32_t kEyecatcher = 0x47617465; // "Gate"
constexpr std::size_t kLongestText = 0xFFFF;

inline void appendU8(Bytes &bytes, unsigned value)
{
    bytes.push_back(static_cast<std::uint8_t>(value));
}

inline void appendU16(Bytes &bytes, unsigned value)
{
    appendU8(bytes, (value >> 8) & 0xFF);
    appendU8(bytes, value & 0xFF);
}

inline void appendU32(Bytes &bytes, std::uint32_t value)
{
    appendU16(bytes, value >> 16);
    appendU16(bytes, value & 0xFFFF);
}

inline void appendI32(Bytes &bytes, std::int32_t value)
{
    appendU32(bytes, static_cast<std::uint32_t>(value));
}

inline void appendU64(Bytes &bytes, std::uint64_t value)
{
    appendU32(bytes, static_cast<std::uint32_t>(value >> 32));
    appendU32(bytes, static_cast<std::uint32_t>(value));
}

inline void appendRaw(Bytes &bytes, std::string_view text)
{
    bytes.insert(bytes.end(), text.begin(), text.end());
}

inline void appendText(Bytes &bytes, std::string_view text)
{
    if (text.size() > kLongestText)
        throw std::length_error("a text of " + std::to_string(text.size()) + " bytes has no 16-bit length");
    appendU16(bytes, static_cast<unsigned>(text.size()));
    appendRaw(bytes, text);
}

// The readers expect that the caller knows the bytes to be there; at() catches a slip.
inline std::uint32_t unsignedAt(const Bytes &bytes, std::size_t offset, std::size_t width)
{
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < width; ++i)
        value = (value << 8) | bytes.at(offset + i);
    return value;
}

inline std::int32_t int32At(const Bytes &bytes, std::size_t offset)
{
    return static_cast<std::int32_t>(unsignedAt(bytes, offset, 4));
}

} // namespace rixgwsim
