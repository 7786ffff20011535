#include "request_check.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace rixgwsim {

namespace {

constexpr std::size_t kLongestShown = 80;

// Texts are shown in quotes with what is not printable as \xNN.
std::string quoted(std::string_view text)
{
    std::string out = "\"";
    for (const char c : text.substr(0, kLongestShown)) {
        if (c >= ' ' && c <= '~') {
            out += c;
        } else {
            std::array<char, 8> code = {};
            std::snprintf(code.data(), code.size(), "\\x%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
            out += code.data();
        }
    }
    return out + (text.size() > kLongestShown ? "...\"" : "\"");
}

std::string hexadecimal(const Bytes &bytes)
{
    std::string out;
    for (const std::uint8_t byte : bytes) {
        std::array<char, 8> code = {};
        std::snprintf(code.data(), code.size(), "%02X ", static_cast<unsigned>(byte));
        out += code.data();
    }
    if (!out.empty()) out.pop_back();
    return out;
}

} // namespace

std::string describe(std::int32_t value)
{
    std::array<char, 40> text = {};
    std::snprintf(text.data(), text.size(), "%d (0x%08X)", value, static_cast<unsigned>(value));
    return text.data();
}

FieldReader::FieldReader(const Bytes &request, std::size_t offset)
    : bytes(request), position(offset), fieldStart(offset)
{
}

std::int32_t FieldReader::readInt(const char *field)
{
    need(field, 4);
    const std::int32_t value = int32At(bytes, position);
    position += 4;
    return value;
}

std::string FieldReader::readText(const char *field)
{
    need(field, 2);
    const std::size_t length = unsignedAt(bytes, position, 2);
    const std::size_t left = bytes.size() - position - 2;
    if (length > left) refuse(field, "a text of at most " + std::to_string(left) + " bytes", std::to_string(length));
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(position + 2);
    position += 2 + length;
    return {begin, begin + static_cast<std::ptrdiff_t>(length)};
}

void FieldReader::expectInt(const char *field, std::int32_t expected)
{
    const std::int32_t received = readInt(field);
    if (received != expected) refuse(field, describe(expected), describe(received));
}

void FieldReader::expectByte(const char *field, std::uint8_t expected)
{
    expectBytes(field, {expected});
}

void FieldReader::expectRaw(const char *field, std::string_view expected)
{
    need(field, expected.size());
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(position);
    const std::string received(begin, begin + static_cast<std::ptrdiff_t>(expected.size()));
    if (received != expected) refuse(field, quoted(expected), quoted(received));
    position += expected.size();
}

void FieldReader::expectBytes(const char *field, const Bytes &expected)
{
    need(field, expected.size());
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(position);
    const Bytes received(begin, begin + static_cast<std::ptrdiff_t>(expected.size()));
    if (received != expected) refuse(field, hexadecimal(expected), hexadecimal(received));
    position += expected.size();
}

void FieldReader::expectText(const char *field, std::string_view expected)
{
    const std::string received = readText(field);
    if (received != expected) refuse(field, quoted(expected), quoted(received));
}

void FieldReader::expectEnd()
{
    fieldStart = position;
    if (position != bytes.size()) refuse("end of the body", "no more bytes", std::to_string(bytes.size() - position));
}

void FieldReader::refuse(const char *field, const std::string &expected, const std::string &received) const
{
    throw ProtocolError(std::string(field) + " at offset " + std::to_string(fieldStart) + ": expected " + expected +
                        ", received " + received);
}

void FieldReader::need(const char *field, std::size_t count)
{
    fieldStart = position;
    if (count > bytes.size() - position)
        refuse(field, std::to_string(count) + " bytes", std::to_string(bytes.size() - position));
}

} // namespace rixgwsim
